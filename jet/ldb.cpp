#include "jet/ldb.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace jet
{

namespace
{

constexpr const char* kUser = "Admin"; // the engine's default account, under which the suite's users appear

std::string field(const unsigned char* p)
{
    std::string s;
    for (int i = 0; i < 32 && p[i]; ++i) {
        if (p[i] >= 0x20 && p[i] < 0x7F) {
            s += static_cast<char>(p[i]);
        } else {
            static const char hex[] = "0123456789ABCDEF";
            s += "\\x";
            s += hex[p[i] >> 4];
            s += hex[p[i] & 15];
        }
    }
    return s;
}

// Someone else holds a lock on some byte beyond the slots. Open-file-description locks: closing another
// descriptor of the file in this process (a second engine, a check) does not drop ours, and a lock taken
// through another descriptor, even in this process, counts.
bool heldByOthers(int fd)
{
    struct flock fl {
    };
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = kLdbLockBase;
    fl.l_len = 0; // to the end of any range
    return ::fcntl(fd, F_OFD_GETLK, &fl) == 0 && fl.l_type != F_UNLCK;
}

std::vector<unsigned char> readSlots(int fd)
{
    std::vector<unsigned char> b(static_cast<std::size_t>(kLdbLockBase), 0);
    ssize_t n = ::pread(fd, b.data(), b.size(), 0);
    b.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    b.resize(static_cast<std::size_t>(kLdbLockBase), 0);
    return b;
}

std::vector<LdbUser> filled(const std::vector<unsigned char>& b, int skip)
{
    std::vector<LdbUser> out;
    for (int i = 0; i < kLdbSlots; ++i) {
        const unsigned char* s = b.data() + i * kLdbSlotSize;
        if (i != skip && (s[0] || s[32])) out.push_back({field(s), field(s + 32)});
    }
    return out;
}

} // namespace

std::string ldbPath(const std::string& dbPath)
{
    std::size_t slash = dbPath.find_last_of('/');
    std::size_t dot = dbPath.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return dbPath + ".ldb";
    return dbPath.substr(0, dot) + ".ldb";
}

std::string ldbComputerName()
{
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) != 0 || !host[0]) return "localhost";
    std::string s(host);
    return s.substr(0, 31);
}

std::vector<LdbUser> ldbUsers(const std::string& dbPath)
{
    int fd = ::open(ldbPath(dbPath).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    std::vector<LdbUser> out;
    // asking about a write lock needs no write access
    if (heldByOthers(fd)) out = filled(readSlots(fd), -1);
    ::close(fd);
    return out;
}

std::string LdbRegistration::enter(const std::string& dbPath, std::vector<LdbUser>* others)
{
    leave();
    path_ = ldbPath(dbPath);
    made_ = false;
    fd_ = ::open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd_ >= 0)
        made_ = true;
    else if (errno == EEXIST)
        fd_ = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
    if (fd_ < 0) return "Cannot open the lock file '" + path_ + "': " + std::strerror(errno);
    std::vector<unsigned char> b = readSlots(fd_);
    if (heldByOthers(fd_)) {
        *others = filled(b, -1);
        if (others->empty()) others->push_back({"?", "?"});
        leave();
        return "in use";
    }
    // a slot of ours a crash left filled, else the first empty one
    unsigned char mine[kLdbSlotSize] = {};
    std::string computer = ldbComputerName();
    std::memcpy(mine, computer.data(), computer.size());
    std::memcpy(mine + 32, kUser, std::strlen(kUser));
    for (int i = 0; i < kLdbSlots && slot_ < 0; ++i)
        if (std::memcmp(b.data() + i * kLdbSlotSize, mine, kLdbSlotSize) == 0) slot_ = i;
    for (int i = 0; i < kLdbSlots && slot_ < 0; ++i) {
        const unsigned char* s = b.data() + i * kLdbSlotSize;
        if (!s[0] && !s[32]) slot_ = i;
    }
    if (slot_ < 0) {
        leave();
        return "The lock file '" + path_ + "' has no free slot.";
    }
    struct flock fl {
    };
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    fl.l_start = kLdbLockBase + slot_;
    fl.l_len = 1;
    if (::pwrite(fd_, mine, sizeof mine, off_t(slot_) * kLdbSlotSize) != kLdbSlotSize ||
        ::fcntl(fd_, F_OFD_SETLK, &fl) != 0) {
        std::string why = "Cannot register in the lock file '" + path_ + "': " + std::strerror(errno);
        leave();
        return why;
    }
    return {};
}

std::vector<LdbUser> LdbRegistration::others() const
{
    if (fd_ < 0 || !heldByOthers(fd_)) return {};
    std::vector<LdbUser> out = filled(readSlots(fd_), slot_);
    if (out.empty()) out.push_back({"?", "?"});
    return out;
}

void LdbRegistration::leave()
{
    if (fd_ < 0) return;
    if (slot_ >= 0) {
        static const unsigned char zero[kLdbSlotSize] = {};
        if (::pwrite(fd_, zero, sizeof zero, off_t(slot_) * kLdbSlotSize) != kLdbSlotSize) {
            // the slot stays filled; without our lock it counts as left behind
        }
    }
    // The last one out removes a lock file we made, as the engine does.
    if (made_ && slot_ >= 0 && filled(readSlots(fd_), -1).empty() && !heldByOthers(fd_)) ::unlink(path_.c_str());
    ::close(fd_); // gives our lock back
    fd_ = -1;
    slot_ = -1;
    made_ = false;
}

} // namespace jet
