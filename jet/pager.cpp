// Write transactions: page originals kept in memory per savepoint, a rollback journal beside the file,
// playback of a journal a crash left behind.
#include "jet/bytes.h"
#include "jet/jet.h"
#include "jet/ldb.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace jet
{

using namespace detail;

namespace
{

constexpr char kJournalMagic[12] = "pel008 jrnl";
// magic (12), original file size (8), version (4), reserved (4), checksum of the 28 bytes before (4)
constexpr std::size_t kJournalHeader = 32;
constexpr std::size_t kRecord = 4 + kPageSize + 4;

std::string journalPath(const std::string& path)
{
    return path + "-pel008-journal";
}

std::uint32_t checksum(const std::uint8_t* p, std::size_t n, std::uint32_t h = 2166136261u)
{
    for (std::size_t i = 0; i < n; ++i)
        h = (h ^ p[i]) * 16777619u;
    return h;
}

// Kill test: PEL008_JET_CRASH_AT=N ends the process abruptly at the Nth step of a commit's disk work.
void crashPoint()
{
    static const long at = [] {
        const char* e = std::getenv("PEL008_JET_CRASH_AT");
        return e ? std::strtol(e, nullptr, 10) : 0L;
    }();
    static long step = 0;
    if (at > 0 && ++step == at) ::raise(SIGKILL);
}

bool writeAll(int fd, const std::uint8_t* p, std::size_t n, off_t at)
{
    while (n > 0) {
        ssize_t k = ::pwrite(fd, p, n, at);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) return false;
        p += k;
        n -= static_cast<std::size_t>(k);
        at += k;
    }
    return true;
}

bool readAll(int fd, std::uint8_t* p, std::size_t n, off_t at)
{
    while (n > 0) {
        ssize_t k = ::pread(fd, p, n, at);
        if (k < 0 && errno == EINTR) continue;
        if (k <= 0) return false;
        p += k;
        n -= static_cast<std::size_t>(k);
        at += k;
    }
    return true;
}

void syncDir(const std::string& path)
{
    std::string dir = path.find('/') == std::string::npos ? "." : path.substr(0, path.rfind('/') + 1);
    int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

std::string fileName(const std::string& path)
{
    auto k = path.rfind('/');
    return k == std::string::npos ? path : path.substr(k + 1);
}

} // namespace

Database::~Database()
{
    if (inTransaction()) (void)rollback();
    if (lockFd_ >= 0) ::close(lockFd_);
}

bool Database::stampChanged(bool take)
{
    struct stat st;
    std::int64_t size = -1, mtime = -1;
    if (!path_.empty() && ::stat(path_.c_str(), &st) == 0) {
        size = st.st_size;
        mtime = std::int64_t(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    }
    bool changed = size != stampSize_ || mtime != stampMtime_;
    if (take) {
        stampSize_ = size;
        stampMtime_ = mtime;
    }
    return changed;
}

Status Database::recoverJournal(const std::string& path)
{
    std::string jp = journalPath(path);
    int jfd = ::open(jp.c_str(), O_RDONLY);
    if (jfd < 0) return errno == ENOENT ? OK : fail(ERR_IO, "Cannot read the journal '" + jp + "'.");
    std::uint8_t h[kJournalHeader];
    bool valid = readAll(jfd, h, sizeof h, 0) && std::memcmp(h, kJournalMagic, sizeof kJournalMagic) == 0 &&
                 le32(h + 20) == 1 && le32(h + 28) == checksum(h, 28);
    if (!valid) {
        // The header never reached the disk whole: the file was not touched yet.
        ::close(jfd);
        if (::unlink(jp.c_str()) != 0) return fail(ERR_IO, "Cannot remove the journal '" + jp + "'.");
        return OK;
    }
    int fd = ::open(path.c_str(), O_RDWR);
    if (fd < 0) {
        ::close(jfd);
        return fail(ERR_IO, "'" + path + "' has the journal of an interrupted write and cannot be restored (" +
                                std::strerror(errno) + ").");
    }
    auto origSize = static_cast<off_t>(le64(h + 12) & 0x7FFFFFFFFFFFll);
    std::vector<std::uint8_t> rec(kRecord);
    bool ok = true;
    for (off_t at = kJournalHeader; readAll(jfd, rec.data(), kRecord, at); at += static_cast<off_t>(kRecord)) {
        std::uint32_t pg = le32(rec.data());
        // A torn last record is one whose page was not written yet.
        if (le32(rec.data() + 4 + kPageSize) != checksum(rec.data(), 4 + kPageSize)) break;
        if (!writeAll(fd, rec.data() + 4, kPageSize, static_cast<off_t>(pg) * static_cast<off_t>(kPageSize)))
            ok = false;
    }
    ok = ok && ::ftruncate(fd, origSize) == 0 && ::fsync(fd) == 0;
    ::close(fd);
    ::close(jfd);
    if (!ok) return fail(ERR_IO, "'" + path + "' could not be restored from its journal.");
    if (::unlink(jp.c_str()) != 0) return fail(ERR_IO, "Cannot remove the journal '" + jp + "'.");
    syncDir(path);
    notice_ =
        "An interrupted write was undone from its journal: '" + fileName(path) + "' is as it was before that write.";
    return OK;
}

Status Database::begin()
{
    if (inTransaction()) return fail(ERR_BUSY, "A write transaction is already open on this file.");
    if (!path_.empty()) {
        // A file marked read-only stays so, whoever we run as.
        struct stat st;
        if (::stat(path_.c_str(), &st) == 0 && !(st.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)))
            return fail(ERR_READ_ONLY, "'" + fileName(path_) + "' is read-only.");
        if (lockFd_ < 0) lockFd_ = ::open(path_.c_str(), O_RDWR);
        if (lockFd_ < 0)
            return fail(ERR_READ_ONLY, "'" + fileName(path_) + "' cannot be written (" + std::strerror(errno) + ").");
        // One writer at a time among our processes; the lock goes with the descriptor.
        if (::flock(lockFd_, LOCK_EX | LOCK_NB) != 0)
            return fail(ERR_BUSY, "'" + fileName(path_) + "' is being written by another program of ours.");
        if (stampChanged(false)) {
            ::flock(lockFd_, LOCK_UN);
            return fail(ERR_BUSY,
                        "'" + fileName(path_) + "' was changed by another program since it was opened; open it again.");
        }
        // The suite's users hold the file through its lock file; we register there while we write.
        if (!ldb_) ldb_ = std::make_unique<LdbRegistration>();
        std::vector<LdbUser> others;
        if (std::string why = ldb_->enter(path_, &others); !why.empty()) {
            ::flock(lockFd_, LOCK_UN);
            if (others.empty()) return fail(ERR_IO, why);
            std::string names;
            for (const LdbUser& u : others)
                names += (names.empty() ? "" : "、") + u.computer + " の " + u.user;
            return fail(ERR_BUSY, fileName(path_) + " は " + names + " で使用中です");
        }
    }
    levels_.push_back({-1, bytes_.size(), {}, 0});
    keyLog_.clear();
    synced_ = false;
    return OK;
}

std::uint8_t* Database::writable(std::uint32_t n)
{
    std::size_t at = std::size_t(n) * kPageSize;
    if (!inTransaction() || at + kPageSize > bytes_.size()) return nullptr;
    for (Level* l : {&levels_.front(), &levels_.back()})
        if (at < l->size && !l->pages.count(n))
            l->pages.emplace(n,
                             std::vector<std::uint8_t>(bytes_.begin() + static_cast<std::ptrdiff_t>(at),
                                                       bytes_.begin() + static_cast<std::ptrdiff_t>(at + kPageSize)));
    return bytes_.data() + at;
}

Status Database::allocPage(std::uint8_t type, std::uint32_t* n)
{
    if (!inTransaction()) return fail(ERR_ARG, "No write transaction.");
    if (bytes_.size() + kPageSize > (std::size_t(1) << 31))
        return fail(ERR_CONSTRAINT, "The database has reached the 2 GB a Jet 4 file can hold.");
    *n = static_cast<std::uint32_t>(bytes_.size() / kPageSize);
    bytes_.resize(bytes_.size() + kPageSize, 0);
    std::uint8_t* d = bytes_.data() + std::size_t(*n) * kPageSize;
    d[0] = type;
    d[1] = 0x01;
    return OK;
}

Status Database::savepoint(int id)
{
    if (!inTransaction()) return OK;
    if (Status s = release(id); s != OK) return s;
    levels_.push_back({id, bytes_.size(), {}, keyLog_.size()});
    return OK;
}

Status Database::release(int id)
{
    while (levels_.size() > 1 && levels_.back().id >= id) {
        Level top = std::move(levels_.back());
        levels_.pop_back();
        Level& below = levels_.back();
        for (auto& [pg, orig] : top.pages)
            if (std::size_t(pg) * kPageSize < below.size && !below.pages.count(pg))
                below.pages.emplace(pg, std::move(orig));
    }
    return OK;
}

Status Database::rollbackTo(int id)
{
    std::size_t k = levels_.size();
    while (k > 1 && levels_[k - 1].id > id)
        --k;
    if (k <= 1 || levels_[k - 1].id != id) return OK; // unknown savepoint: nothing of ours to undo
    for (std::size_t i = levels_.size(); i-- > k - 1;) {
        for (auto& [pg, orig] : levels_[i].pages)
            std::memcpy(bytes_.data() + std::size_t(pg) * kPageSize, orig.data(), kPageSize);
        bytes_.resize(levels_[i].size);
    }
    undoKeys(levels_[k - 1].keyLogAt);
    levels_.resize(k);
    levels_.back().pages.clear();
    return refreshTables();
}

Status Database::writePages(int fd)
{
    const Level& txn = levels_.front();
    std::vector<std::uint8_t> enc(kPageSize);
    auto put = [&](std::uint32_t pg) {
        const std::uint8_t* src = bytes_.data() + std::size_t(pg) * kPageSize;
        if (dbKey_ != 0 && pg != 0) {
            std::memcpy(enc.data(), src, kPageSize);
            std::uint32_t k = dbKey_ ^ pg;
            std::uint8_t key[4] = {std::uint8_t(k), std::uint8_t(k >> 8), std::uint8_t(k >> 16), std::uint8_t(k >> 24)};
            rc4(key, 4, enc.data(), kPageSize);
            src = enc.data();
        }
        crashPoint();
        return writeAll(fd, src, kPageSize, static_cast<off_t>(pg) * static_cast<off_t>(kPageSize));
    };
    for (const auto& [pg, orig] : txn.pages)
        if (std::memcmp(orig.data(), bytes_.data() + std::size_t(pg) * kPageSize, kPageSize) != 0 && !put(pg))
            return fail(ERR_IO, "Cannot write '" + fileName(path_) + "': " + std::strerror(errno));
    for (std::size_t pg = txn.size / kPageSize; pg < bytes_.size() / kPageSize; ++pg)
        if (!put(static_cast<std::uint32_t>(pg)))
            return fail(ERR_IO, "Cannot write '" + fileName(path_) + "': " + std::strerror(errno));
    return OK;
}

Status Database::sync()
{
    if (!inTransaction() || synced_ || path_.empty()) return OK;
    if (Status s = writeIndexes(); s != OK) return s;
    const Level& txn = levels_.front();
    std::vector<std::uint32_t> changed;
    for (const auto& [pg, orig] : txn.pages)
        if (std::memcmp(orig.data(), bytes_.data() + std::size_t(pg) * kPageSize, kPageSize) != 0)
            changed.push_back(pg);
    if (changed.empty() && bytes_.size() == txn.size) return OK;

    std::string jp = journalPath(path_);
    int jfd = ::open(jp.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0644);
    if (jfd < 0) return fail(ERR_IO, "Cannot create the journal '" + jp + "': " + std::strerror(errno));
    auto failJ = [&](const std::string& what) {
        ::close(jfd);
        ::unlink(jp.c_str());
        return fail(ERR_IO, what + ": " + std::strerror(errno));
    };
    std::uint8_t h[kJournalHeader] = {};
    std::memcpy(h, kJournalMagic, sizeof kJournalMagic);
    std::uint64_t size = txn.size;
    put32(h + 12, static_cast<std::uint32_t>(size));
    put32(h + 16, static_cast<std::uint32_t>(size >> 32));
    put32(h + 20, 1);
    put32(h + 28, checksum(h, 28));
    crashPoint();
    if (!writeAll(jfd, h, sizeof h, 0)) return failJ("Cannot write the journal '" + jp + "'");
    std::vector<std::uint8_t> rec(kRecord);
    off_t at = kJournalHeader;
    for (std::uint32_t pg : changed) {
        put32(rec.data(), pg);
        // The page as the disk holds it (encoded files stay encoded).
        if (!readAll(lockFd_, rec.data() + 4, kPageSize, static_cast<off_t>(pg) * static_cast<off_t>(kPageSize)))
            return failJ("Cannot read '" + fileName(path_) + "'");
        put32(rec.data() + 4 + kPageSize, checksum(rec.data(), 4 + kPageSize));
        crashPoint();
        if (!writeAll(jfd, rec.data(), kRecord, at)) return failJ("Cannot write the journal '" + jp + "'");
        at += static_cast<off_t>(kRecord);
    }
    crashPoint();
    if (::fsync(jfd) != 0) return failJ("Cannot force the journal '" + jp + "' to disk");
    ::close(jfd);
    syncDir(path_);
    crashPoint();
    if (Status s = writePages(lockFd_); s != OK) return s; // the journal stays: rollback() plays it back
    crashPoint();
    if (::fsync(lockFd_) != 0) return fail(ERR_IO, "Cannot force '" + fileName(path_) + "' to disk.");
    synced_ = true;
    return OK;
}

Status Database::commit()
{
    if (!inTransaction()) return OK;
    if (Status s = sync(); s != OK) return s;
    if (synced_) {
        crashPoint();
        if (::unlink(journalPath(path_).c_str()) != 0)
            return fail(ERR_IO, "Cannot remove the journal of '" + fileName(path_) + "'.");
        syncDir(path_);
        crashPoint();
    }
    levels_.clear();
    synced_ = false;
    keys_.clear();
    keyLog_.clear();
    if (ldb_) ldb_->leave();
    if (lockFd_ >= 0) ::flock(lockFd_, LOCK_UN);
    stampChanged(true);
    return OK;
}

Status Database::rollback()
{
    if (!inTransaction()) return OK;
    Status result = OK;
    if (synced_) {
        // The pages are on disk already: the journal puts the originals back.
        std::string saved = notice_;
        result = recoverJournal(path_);
        notice_ = saved;
    }
    Level& txn = levels_.front();
    for (auto& [pg, orig] : txn.pages)
        std::memcpy(bytes_.data() + std::size_t(pg) * kPageSize, orig.data(), kPageSize);
    bytes_.resize(txn.size);
    levels_.clear();
    synced_ = false;
    forgetCaches();
    if (ldb_) ldb_->leave();
    if (lockFd_ >= 0) ::flock(lockFd_, LOCK_UN);
    stampChanged(true);
    Status r = refreshTables();
    return result != OK ? result : r;
}

void Database::forgetCaches()
{
    insertPage_.clear();
    lvalPage_ = 0;
    keys_.clear();
    keyLog_.clear();
}

Status Database::refreshTables()
{
    for (Table& t : tables_) {
        Table fresh;
        if (Status s = readTable(t.tdefPage, fresh); s != OK) return s;
        fresh.name = t.name;
        // Columns and indexes keep their addresses: cursors and virtual tables point at them.
        t.rowCount = fresh.rowCount;
        t.autoNumber = fresh.autoNumber;
        t.usageMap = fresh.usageMap;
        t.freeMap = fresh.freeMap;
        for (std::size_t k = 0; k < t.realIndexes.size() && k < fresh.realIndexes.size(); ++k) {
            t.realIndexes[k].rootPage = fresh.realIndexes[k].rootPage;
            t.realIndexes[k].usageMap = fresh.realIndexes[k].usageMap;
        }
    }
    return OK;
}

} // namespace jet
