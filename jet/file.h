#pragma once
// The engine's one door to the operating system: files, byte-range locks, forcing to disk, the clock and
// sleeping. Nothing else in jet/ calls the system directly, so another system needs only another file_*.cpp.
#include <cstddef>
#include <cstdint>
#include <string>

namespace jet::os
{

// Size and modification time of a file as the system reports them; -1 when it cannot be read.
struct Stamp {
    std::int64_t size = -1;
    std::int64_t mtimeNs = -1;
    bool operator==(const Stamp&) const = default;
};

// What ends a folder name in a path: Windows takes both slashes (and a drive letter ends with ':\').
#ifdef _WIN32
inline constexpr const char* kPathSeparators = "/\\";
#else
inline constexpr const char* kPathSeparators = "/";
#endif

enum class Mode { Read, ReadWrite, Create /* read-write, emptied or made */, CreateNew /* fails if it exists */ };

enum class Lock { Got, Busy, Failed };

class File
{
public:
    File() = default;
    ~File() { close(); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool open(const std::string& path, Mode mode);
    bool isOpen() const { return fd_ != -1; }
    bool writable() const { return writable_; }
    void close();

    // Exactly n bytes at `at`, or false (a short file too).
    bool read(void* p, std::size_t n, std::uint64_t at) const;
    bool write(const void* p, std::size_t n, std::uint64_t at);
    bool sync();
    bool truncate(std::uint64_t size);
    bool size(std::uint64_t* out) const;

    // Byte-range locks owned by this open file: another File, in this process or another, conflicts with them,
    // and closing another descriptor of the same file does not drop them. `lock` tries again with a growing
    // pause until waitMs have passed.
    Lock lock(std::uint64_t at, std::uint64_t len, bool exclusive, int waitMs);
    void unlock(std::uint64_t at, std::uint64_t len);
    // Someone other than this File holds a lock on some byte of [at, at + len) (len 0: to the end).
    bool lockedByOthers(std::uint64_t at, std::uint64_t len) const;

private:
    std::intptr_t fd_ = -1; // the system's handle: a descriptor, or a Windows HANDLE (-1 is invalid in both)
    bool writable_ = false;
};

// Which file a path names now: a file replaced under the same name (a restored backup) has another identity.
struct Identity {
    std::uint64_t volume = 0;
    std::uint64_t index = 0;
    bool operator==(const Identity&) const = default;
};

Stamp stamp(const std::string& path);
bool identity(const std::string& path, Identity* out);
// The absolute path of an existing file with links and `..` resolved; "" when there is no such file.
std::string canonical(const std::string& path);
bool exists(const std::string& path);
bool remove(const std::string& path);
// The file's permissions forbid writing to everyone (a file marked read-only).
bool markedReadOnly(const std::string& path);
// Forces the directory holding `path`, so that a made or removed file survives a crash.
void syncDirectoryOf(const std::string& path);
bool rename(const std::string& from, const std::string& to);
// The text of the last failed call's error.
std::string lastError();
std::string hostName();
std::int64_t monotonicMs();
void sleepMs(int ms);
std::uint64_t randomWord();
// Fault tests: the process is killed here, or stopped (to be continued by a signal) when `stop`.
void endAbruptly(bool stop);

} // namespace jet::os
