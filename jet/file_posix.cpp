// The file layer on POSIX systems (Linux: open-file-description locks).
#include "jet/file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

namespace jet::os
{

bool File::open(const std::string& path, Mode mode)
{
    close();
    int flags = O_CLOEXEC;
    switch (mode) {
    case Mode::Read:
        flags |= O_RDONLY;
        break;
    case Mode::ReadWrite:
        flags |= O_RDWR;
        break;
    case Mode::Create:
        flags |= O_RDWR | O_CREAT | O_TRUNC;
        break;
    case Mode::CreateNew:
        flags |= O_RDWR | O_CREAT | O_EXCL;
        break;
    }
    fd_ = ::open(path.c_str(), flags, 0666);
    writable_ = fd_ >= 0 && mode != Mode::Read;
    return fd_ >= 0;
}

void File::close()
{
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    writable_ = false;
}

bool File::read(void* buf, std::size_t n, std::uint64_t at) const
{
    auto* p = static_cast<std::uint8_t*>(buf);
    while (n > 0) {
        ssize_t k = ::pread(fd_, p, n, static_cast<off_t>(at));
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) return false;
        p += k;
        n -= static_cast<std::size_t>(k);
        at += static_cast<std::uint64_t>(k);
    }
    return true;
}

bool File::write(const void* buf, std::size_t n, std::uint64_t at)
{
    const auto* p = static_cast<const std::uint8_t*>(buf);
    while (n > 0) {
        ssize_t k = ::pwrite(fd_, p, n, static_cast<off_t>(at));
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) {
            if (k == 0) errno = EIO;
            return false;
        }
        p += k;
        n -= static_cast<std::size_t>(k);
        at += static_cast<std::uint64_t>(k);
    }
    return true;
}

bool File::sync()
{
    return ::fsync(fd_) == 0;
}

bool File::truncate(std::uint64_t size)
{
    return ::ftruncate(fd_, static_cast<off_t>(size)) == 0;
}

bool File::size(std::uint64_t* out) const
{
    struct stat st;
    if (::fstat(fd_, &st) != 0) return false;
    *out = static_cast<std::uint64_t>(st.st_size);
    return true;
}

Lock File::lock(std::uint64_t at, std::uint64_t len, bool exclusive, int waitMs)
{
    struct flock fl {
    };
    fl.l_type = exclusive ? F_WRLCK : F_RDLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = static_cast<off_t>(at);
    fl.l_len = static_cast<off_t>(len);
    const std::int64_t until = monotonicMs() + (waitMs > 0 ? waitMs : 0);
    int pause = 1;
    for (;;) {
        if (::fcntl(fd_, F_OFD_SETLK, &fl) == 0) return Lock::Got;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EACCES) return Lock::Failed;
        std::int64_t left = until - monotonicMs();
        if (left <= 0) return Lock::Busy;
        sleepMs(static_cast<int>(std::min<std::int64_t>(pause, left)));
        pause = std::min(pause * 2, 50);
    }
}

void File::unlock(std::uint64_t at, std::uint64_t len)
{
    struct flock fl {
    };
    fl.l_type = F_UNLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = static_cast<off_t>(at);
    fl.l_len = static_cast<off_t>(len);
    ::fcntl(fd_, F_OFD_SETLK, &fl);
}

bool File::lockedByOthers(std::uint64_t at, std::uint64_t len) const
{
    struct flock fl {
    };
    fl.l_type = F_WRLCK; // asking about a write lock needs no write access
    fl.l_whence = SEEK_SET;
    fl.l_start = static_cast<off_t>(at);
    fl.l_len = static_cast<off_t>(len);
    return ::fcntl(fd_, F_OFD_GETLK, &fl) == 0 && fl.l_type != F_UNLCK;
}

Stamp stamp(const std::string& path)
{
    struct stat st;
    if (path.empty() || ::stat(path.c_str(), &st) != 0) return {};
    return {st.st_size, std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec};
}

bool identity(const std::string& path, Identity* out)
{
    struct stat st;
    if (path.empty() || ::stat(path.c_str(), &st) != 0) return false;
    *out = {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino)};
    return true;
}

std::string canonical(const std::string& path)
{
    char* r = ::realpath(path.c_str(), nullptr);
    if (!r) return {};
    std::string s(r);
    std::free(r);
    return s;
}

bool exists(const std::string& path)
{
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

bool remove(const std::string& path)
{
    return ::unlink(path.c_str()) == 0;
}

bool markedReadOnly(const std::string& path)
{
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && !(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH));
}

void syncDirectoryOf(const std::string& path)
{
    std::string dir = path.find('/') == std::string::npos ? "." : path.substr(0, path.rfind('/') + 1);
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

bool rename(const std::string& from, const std::string& to)
{
    return ::rename(from.c_str(), to.c_str()) == 0;
}

std::string lastError()
{
    return std::strerror(errno);
}

std::string hostName()
{
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) != 0 || !host[0]) return "localhost";
    return host;
}

std::int64_t monotonicMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void sleepMs(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

std::uint64_t randomWord()
{
    static std::random_device rd;
    return std::uint64_t(rd()) << 32 ^ rd() ^ static_cast<std::uint64_t>(::getpid()) << 16;
}

void endAbruptly(bool stop)
{
    ::raise(stop ? SIGSTOP : SIGKILL);
}

} // namespace jet::os
