// The file layer on Windows: paths are UTF-8 inside the engine and UTF-16 here, every read and write names its
// 64-bit offset, and locks are LockFileEx ranges (owned by the handle, as the POSIX layer's are by the open file).
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "jet/file.h"

#include <algorithm>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

namespace jet::os
{

namespace
{

thread_local DWORD lastCode = 0;

// Keeps the failed call's code: building the message text may call the system again.
bool failed()
{
    lastCode = ::GetLastError();
    return false;
}

HANDLE handleOf(std::intptr_t h)
{
    return reinterpret_cast<HANDLE>(h);
}

std::wstring wide(const std::string& s)
{
    if (s.empty()) return {};
    int n = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s.data(), int(s.size()), nullptr, 0);
    if (n <= 0) return {};
    std::wstring w(std::size_t(n), L'\0');
    ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, s.data(), int(s.size()), w.data(), n);
    return w;
}

std::string narrow(const wchar_t* w, int n)
{
    if (n <= 0) return {};
    int k = ::WideCharToMultiByte(CP_UTF8, 0, w, n, nullptr, 0, nullptr, nullptr);
    if (k <= 0) return {};
    std::string s(std::size_t(k), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, w, n, s.data(), k, nullptr, nullptr);
    return s;
}

// A path that is not valid UTF-8 names no file: it must not reach the system as some other name.
std::wstring pathOf(const std::string& path)
{
    std::wstring w = wide(path);
    if (w.empty()) ::SetLastError(ERROR_INVALID_NAME);
    return w;
}

OVERLAPPED at(std::uint64_t offset)
{
    OVERLAPPED o{};
    o.Offset = DWORD(offset & 0xFFFFFFFFu);
    o.OffsetHigh = DWORD(offset >> 32);
    return o;
}

// A range's length to the end of any file.
std::uint64_t lengthOf(std::uint64_t at, std::uint64_t len)
{
    return len ? len : ~std::uint64_t(0) - at;
}

// The ranges this process took through each handle: Windows has no question "who holds this byte", so
// lockedByOthers tries to lock what lies between them.
std::mutex ownLocksMutex; // connections of one process may live on several threads

std::vector<std::pair<std::intptr_t, std::pair<std::uint64_t, std::uint64_t>>>& ownLocks()
{
    static std::vector<std::pair<std::intptr_t, std::pair<std::uint64_t, std::uint64_t>>> v;
    return v;
}

bool tryLock(HANDLE h, std::uint64_t at, std::uint64_t len, bool exclusive)
{
    OVERLAPPED o = ::jet::os::at(at);
    DWORD flags = LOCKFILE_FAIL_IMMEDIATELY | (exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0);
    return ::LockFileEx(h, flags, 0, DWORD(len & 0xFFFFFFFFu), DWORD(len >> 32), &o) != 0;
}

void releaseLock(HANDLE h, std::uint64_t at, std::uint64_t len)
{
    OVERLAPPED o = ::jet::os::at(at);
    ::UnlockFileEx(h, 0, DWORD(len & 0xFFFFFFFFu), DWORD(len >> 32), &o);
}

} // namespace

bool File::open(const std::string& path, Mode mode)
{
    close();
    std::wstring w = pathOf(path);
    if (w.empty()) return failed();
    DWORD access = mode == Mode::Read ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
    DWORD how = mode == Mode::Read || mode == Mode::ReadWrite ? OPEN_EXISTING
                : mode == Mode::Create                        ? CREATE_ALWAYS
                                                              : CREATE_NEW;
    // Other programs of ours and the suite keep the file open beside us; deleting shares too, so that a journal
    // can be removed while a reader still holds it.
    HANDLE h = ::CreateFileW(w.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, how,
                             FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return failed();
    fd_ = reinterpret_cast<std::intptr_t>(h);
    writable_ = mode != Mode::Read;
    return true;
}

void File::close()
{
    if (fd_ != -1) {
        std::lock_guard hold(ownLocksMutex);
        auto& own = ownLocks();
        own.erase(std::remove_if(own.begin(), own.end(), [&](const auto& l) { return l.first == fd_; }), own.end());
        ::CloseHandle(handleOf(fd_)); // gives our locks back
    }
    fd_ = -1;
    writable_ = false;
}

namespace
{

// Moves n bytes at `offset` in pieces a DWORD can count; a call that moves nothing ends it with `none`.
template <class Call> bool inPieces(std::uint8_t* p, std::size_t n, std::uint64_t offset, DWORD none, Call call)
{
    while (n > 0) {
        DWORD want = DWORD(std::min<std::size_t>(n, 1u << 30)), done = 0;
        OVERLAPPED o = at(offset);
        if (!call(p, want, &done, &o)) return failed();
        if (done == 0) {
            lastCode = none;
            return false;
        }
        p += done;
        n -= done;
        offset += done;
    }
    return true;
}

} // namespace

bool File::read(void* buf, std::size_t n, std::uint64_t offset) const
{
    HANDLE h = handleOf(fd_);
    return inPieces(
        static_cast<std::uint8_t*>(buf), n, offset, ERROR_HANDLE_EOF,
        [h](std::uint8_t* p, DWORD want, DWORD* done, OVERLAPPED* o) { return ::ReadFile(h, p, want, done, o) != 0; });
}

bool File::write(const void* buf, std::size_t n, std::uint64_t offset)
{
    HANDLE h = handleOf(fd_);
    return inPieces(const_cast<std::uint8_t*>(static_cast<const std::uint8_t*>(buf)), n, offset, ERROR_WRITE_FAULT,
                    [h](const std::uint8_t* p, DWORD want, DWORD* done, OVERLAPPED* o) {
                        return ::WriteFile(h, p, want, done, o) != 0;
                    });
}

bool File::sync()
{
    return ::FlushFileBuffers(handleOf(fd_)) ? true : failed();
}

bool File::truncate(std::uint64_t size)
{
    FILE_END_OF_FILE_INFO eof{};
    eof.EndOfFile.QuadPart = LONGLONG(size);
    return ::SetFileInformationByHandle(handleOf(fd_), FileEndOfFileInfo, &eof, sizeof eof) ? true : failed();
}

bool File::size(std::uint64_t* out) const
{
    LARGE_INTEGER n;
    if (!::GetFileSizeEx(handleOf(fd_), &n)) return failed();
    *out = std::uint64_t(n.QuadPart);
    return true;
}

Lock File::lock(std::uint64_t offset, std::uint64_t len, bool exclusive, int waitMs)
{
    len = lengthOf(offset, len);
    // Another process's lockedByOthers holds what it asks about for the time of one call: even "no wait" gives
    // that a moment.
    const std::int64_t until = monotonicMs() + std::max(waitMs, 20);
    int pause = 1;
    for (;;) {
        if (tryLock(handleOf(fd_), offset, len, exclusive)) {
            std::lock_guard hold(ownLocksMutex);
            ownLocks().push_back({fd_, {offset, len}});
            return Lock::Got;
        }
        DWORD e = ::GetLastError();
        if (e != ERROR_LOCK_VIOLATION && e != ERROR_IO_PENDING) {
            lastCode = e;
            return Lock::Failed;
        }
        std::int64_t left = until - monotonicMs();
        if (left <= 0) return Lock::Busy;
        sleepMs(int(std::min<std::int64_t>(pause, left)));
        pause = std::min(pause * 2, 50);
    }
}

void File::unlock(std::uint64_t offset, std::uint64_t len)
{
    len = lengthOf(offset, len);
    std::lock_guard hold(ownLocksMutex);
    auto& own = ownLocks();
    auto it = std::find(own.begin(), own.end(), std::pair{fd_, std::pair{offset, len}});
    if (it == own.end()) return; // Windows unlocks only a range exactly as it was locked
    own.erase(it);
    releaseLock(handleOf(fd_), offset, len);
}

bool File::lockedByOthers(std::uint64_t offset, std::uint64_t len) const
{
    const std::uint64_t end = offset + lengthOf(offset, len);
    // Our own ranges (through any handle of this process that is this File's) are left out; every gap between
    // them is tried with an exclusive lock, which any lock of another handle refuses.
    std::vector<std::pair<std::uint64_t, std::uint64_t>> mine;
    {
        std::lock_guard hold(ownLocksMutex);
        for (const auto& l : ownLocks())
            if (l.first == fd_) mine.push_back(l.second);
    }
    std::sort(mine.begin(), mine.end());
    std::uint64_t from = offset;
    auto probe = [&](std::uint64_t a, std::uint64_t b) {
        if (b <= a) return false;
        if (!tryLock(handleOf(fd_), a, b - a, true)) return true;
        releaseLock(handleOf(fd_), a, b - a);
        return false;
    };
    for (const auto& [a, n] : mine) {
        if (a + n <= from || a >= end) continue;
        if (probe(from, std::min(a, end))) return true;
        from = std::max(from, a + n);
    }
    return probe(from, end);
}

Stamp stamp(const std::string& path)
{
    WIN32_FILE_ATTRIBUTE_DATA d;
    std::wstring w = pathOf(path);
    if (w.empty() || !::GetFileAttributesExW(w.c_str(), GetFileExInfoStandard, &d)) return {};
    std::int64_t size = std::int64_t(std::uint64_t(d.nFileSizeHigh) << 32 | d.nFileSizeLow);
    std::int64_t ticks = std::int64_t(std::uint64_t(d.ftLastWriteTime.dwHighDateTime) << 32 |
                                      d.ftLastWriteTime.dwLowDateTime); // 100 ns since 1601
    return {size, ticks * 100};
}

bool identity(const std::string& path, Identity* out)
{
    std::wstring w = pathOf(path);
    if (w.empty()) return false;
    HANDLE h = ::CreateFileW(w.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) return failed();
    BY_HANDLE_FILE_INFORMATION info;
    bool ok = ::GetFileInformationByHandle(h, &info) != 0;
    if (!ok) failed();
    ::CloseHandle(h);
    if (ok) *out = {info.dwVolumeSerialNumber, std::uint64_t(info.nFileIndexHigh) << 32 | info.nFileIndexLow};
    return ok;
}

std::string canonical(const std::string& path)
{
    std::wstring w = pathOf(path);
    if (w.empty()) return {};
    HANDLE h = ::CreateFileW(w.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                             OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) return {};
    std::wstring full(32768, L'\0');
    DWORD n = ::GetFinalPathNameByHandleW(h, full.data(), DWORD(full.size()), FILE_NAME_NORMALIZED);
    ::CloseHandle(h);
    if (n == 0 || n >= full.size()) return {};
    full.resize(n);
    // The system answers in its long form: \\?\C:\... or \\?\UNC\server\share\...
    if (full.rfind(L"\\\\?\\UNC\\", 0) == 0)
        full = L"\\\\" + full.substr(8);
    else if (full.rfind(L"\\\\?\\", 0) == 0)
        full = full.substr(4);
    return narrow(full.data(), int(full.size()));
}

bool exists(const std::string& path)
{
    std::wstring w = pathOf(path);
    return !w.empty() && ::GetFileAttributesW(w.c_str()) != INVALID_FILE_ATTRIBUTES;
}

bool remove(const std::string& path)
{
    std::wstring w = pathOf(path);
    return !w.empty() && ::DeleteFileW(w.c_str()) ? true : failed();
}

bool markedReadOnly(const std::string& path)
{
    std::wstring w = pathOf(path);
    DWORD a = w.empty() ? INVALID_FILE_ATTRIBUTES : ::GetFileAttributesW(w.c_str());
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_READONLY);
}

void syncDirectoryOf(const std::string&)
{
    // A folder cannot be forced from here without backup rights; the file system keeps its own folder entries
    // safe across a crash (NTFS journals them; a share's server answers for its own).
}

bool rename(const std::string& from, const std::string& to)
{
    std::wstring a = pathOf(from), b = pathOf(to);
    return !a.empty() && !b.empty() &&
                   ::MoveFileExW(a.c_str(), b.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)
               ? true
               : failed();
}

std::string lastError()
{
    wchar_t* text = nullptr;
    DWORD n = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, lastCode,
        MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<wchar_t*>(&text), 0, nullptr);
    std::string s = n ? narrow(text, int(n)) : std::string();
    if (text) ::LocalFree(text);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r' || s.back() == ' ' || s.back() == '.'))
        s.pop_back();
    return s.empty() ? "error " + std::to_string(lastCode) : s;
}

std::string hostName()
{
    wchar_t name[256];
    DWORD n = 256;
    if (!::GetComputerNameExW(ComputerNameDnsHostname, name, &n) || n == 0) return "localhost";
    return narrow(name, int(n));
}

std::int64_t monotonicMs()
{
    return std::int64_t(::GetTickCount64());
}

void sleepMs(int ms)
{
    ::Sleep(DWORD(ms > 0 ? ms : 0));
}

std::uint64_t randomWord()
{
    static std::random_device rd;
    return std::uint64_t(rd()) << 32 ^ rd() ^ std::uint64_t(::GetCurrentProcessId()) << 16;
}

void endAbruptly(bool stop)
{
    // Windows cannot stop a process to be continued later: a stopped child waits here until its test ends it.
    if (stop)
        for (;;)
            ::Sleep(INFINITE);
    ::TerminateProcess(::GetCurrentProcess(), 9);
}

} // namespace jet::os
