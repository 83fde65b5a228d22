// Write transactions: page originals kept in memory per savepoint, a rollback journal beside the file,
// playback of a journal a crash left behind.
#include "jet/bytes.h"
#include "jet/jet.h"
#include "jet/ldb.h"

#include "jet/file.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

namespace jet
{

using namespace detail;

namespace
{

constexpr char kJournalMagic[12] = "pel008 jrnl";
// Version 1 (older builds): magic (12), original file size (8), version (4), reserved (4), checksum (4).
// Version 2 names its file: magic (12), original size (8), version (4), size after the commit (8), the file's
// size (8) and modification time (8) before the commit, a salt (8), checksum of page 0 as on disk (4), checksum
// of the bytes before (4). Checksums are seeded with the salt, so records of another journal never pass.
constexpr std::size_t kHeaderV1 = 32;
constexpr std::size_t kHeaderV2 = 64;
// page (4), original as on disk (4096), [v2: checksum of the page as the commit writes it (4)], checksum (4)
constexpr std::size_t kRecordV1 = 4 + kPageSize + 4;
constexpr std::size_t kRecordV2 = 4 + kPageSize + 8;

std::uint32_t checksum(const std::uint8_t* p, std::size_t n, std::uint32_t h = 2166136261u)
{
    for (std::size_t i = 0; i < n; ++i)
        h = (h ^ p[i]) * 16777619u;
    return h;
}

std::uint32_t seedOf(std::uint64_t salt)
{
    return 2166136261u ^ static_cast<std::uint32_t>(salt) ^ static_cast<std::uint32_t>(salt >> 32);
}

// Fault tests: PEL008_JET_CRASH_AT=N ends the process abruptly at the Nth step of a commit's disk work;
// "N:stop" stops it there instead (SIGSTOP), holding its locks, until it is continued.
void crashPoint()
{
    // read at each step: a test's parent may have committed before it set the variable for its child
    static std::string armed;
    static long step = 0;
    const char* e = std::getenv("PEL008_JET_CRASH_AT");
    if (!e || !*e) return;
    if (armed != e) {
        armed = e;
        step = 0;
    }
    if (++step == std::strtol(e, nullptr, 10)) os::endAbruptly(std::strstr(e, ":stop") != nullptr);
}

std::string fileName(const std::string& path)
{
    auto k = path.find_last_of(os::kPathSeparators);
    return k == std::string::npos ? path : path.substr(k + 1);
}

} // namespace

std::string journalPath(const std::string& path)
{
    return path + "-pel008-journal";
}

std::string inUseText(const std::string& path, const std::vector<LdbUser>& others)
{
    std::string names;
    for (const LdbUser& u : others)
        names += (names.empty() ? "" : "、") + u.computer + " の " + u.user;
    return fileName(path) + " は " + names + " で使用中です";
}

int lockWaitMs()
{
    const char* e = std::getenv("PEL008_LOCK_WAIT_MS");
    if (!e || !*e) return 250;
    char* end = nullptr;
    long ms = std::strtol(e, &end, 10);
    return *end == 0 && ms >= 0 && ms <= 3600000 ? static_cast<int>(ms) : 250;
}

Database::~Database()
{
    if (inTransaction()) (void)rollback();
}

Status Database::lockCommit(bool exclusive)
{
    const int wait = lockWaitMs();
    os::Lock got = file_->lock(kPendingLock, 1, exclusive, wait);
    if (got == os::Lock::Got) {
        got = file_->lock(kCommitLock, 1, exclusive, wait);
        file_->unlock(kPendingLock, 1);
    }
    switch (got) {
    case os::Lock::Got:
        commitLocked_ = true;
        return OK;
    case os::Lock::Busy:
        return fail(ERR_BUSY, "'" + fileName(path_) + "' is being written by another program of ours; try again.");
    case os::Lock::Failed:
        // a file system without byte-range locks: reading goes on unlocked, writing is refused
        if (!exclusive) return OK;
        break;
    }
    return fail(ERR_IO, "Cannot lock '" + fileName(path_) + "': " + os::lastError());
}

void Database::unlockCommit()
{
    if (commitLocked_) file_->unlock(kCommitLock, 1);
    commitLocked_ = false;
}

Status Database::readSize()
{
    std::uint64_t size = 0;
    if (!file_->size(&size)) return fail(ERR_IO, "Cannot read '" + path_ + "'.");
    if (size > (std::uint64_t(1) << 31)) return fail(ERR_FORMAT, "'" + path_ + "' is larger than a Jet 4 file can be.");
    stamp_ = cacheStamp_ = os::stamp(path_);
    size_ = static_cast<std::size_t>(size);
    return OK;
}

const std::uint8_t* Database::load(std::uint32_t n) const
{
    // Outside a transaction of ours a writer of ours may be committing: the page is read under the shared commit
    // byte, and a file that changed since the cached pages were read drops them (all of one commit or none).
    bool locked = false;
    if (!inTransaction() && !commitLocked_) {
        auto* self = const_cast<Database*>(this);
        if (Status s = self->lockCommit(false); s != OK) {
            readStatus_ = s;
            return nullptr;
        }
        locked = commitLocked_;
        self->commitLocked_ = false;
        if (os::Stamp now = os::stamp(path_); now != cacheStamp_) {
            for (auto it = lru_.begin(); it != lru_.end(); ++it)
                pages_.erase(*it);
            lru_.clear();
            cacheStamp_ = now;
            if (now.size >= 0) self->size_ = static_cast<std::size_t>(now.size);
        }
    }
    // A scan reads on: the pages after this one, up to the first one held, come in the same read.
    std::uint32_t run = 1;
    while (run < kReadAhead && run < cacheLimit_ && std::size_t(n) + run < size_ / kPageSize && !pages_.count(n + run))
        ++run;
    std::vector<std::uint8_t> bytes(std::size_t(run) * kPageSize);
    bool ok = file_->read(bytes.data(), bytes.size(), std::uint64_t(n) * kPageSize);
    if (locked) file_->unlock(kCommitLock, 1);
    if (!ok) {
        readStatus_ =
            fail(ERR_IO, "Cannot read page " + std::to_string(n) + " of '" + fileName(path_) + "': " + os::lastError());
        return nullptr;
    }
    CachedPage* first = nullptr;
    for (std::uint32_t i = run; i-- > 0;) {
        std::uint32_t pg = n + i;
        std::uint8_t* d = bytes.data() + std::size_t(i) * kPageSize;
        if (dbKey_ != 0 && pg != 0) {
            std::uint32_t k = dbKey_ ^ pg;
            std::uint8_t key[4] = {std::uint8_t(k), std::uint8_t(k >> 8), std::uint8_t(k >> 16), std::uint8_t(k >> 24)};
            rc4(key, 4, d, kPageSize);
        }
        while (lru_.size() >= cacheLimit_) {
            pages_.erase(lru_.back());
            lru_.pop_back();
        }
        lru_.push_front(pg);
        CachedPage& c = pages_[pg];
        c.bytes.assign(d, d + kPageSize);
        c.lru = lru_.begin();
        first = &c;
    }
    return first->bytes.data();
}

std::uint8_t* Database::pin(std::uint32_t n)
{
    const std::uint8_t* cur = page(n);
    if (!cur) return nullptr;
    auto it = pages_.find(n);
    if (it == pages_.end())
        it = pages_.emplace(n, CachedPage{std::vector<std::uint8_t>(cur, cur + kPageSize), true, {}}).first;
    if (!it->second.pinned) {
        lru_.erase(it->second.lru);
        it->second.pinned = true;
    }
    return it->second.bytes.data();
}

void Database::unpinAll()
{
    for (auto it = pages_.begin(); it != pages_.end();) {
        CachedPage& c = it->second;
        if (c.pinned && path_.empty()) {
            // a file in memory keeps what was written in itself
            if (memory_.size() < size_) memory_.resize(size_, 0);
            if (std::size_t(it->first) * kPageSize + kPageSize <= memory_.size())
                std::memcpy(memory_.data() + std::size_t(it->first) * kPageSize, c.bytes.data(), kPageSize);
            it = pages_.erase(it);
            continue;
        }
        if (c.pinned) {
            c.pinned = false;
            lru_.push_front(it->first);
            c.lru = lru_.begin();
        }
        ++it;
    }
    while (lru_.size() > cacheLimit_) {
        pages_.erase(lru_.back());
        lru_.pop_back();
    }
}

void Database::dropPages()
{
    pages_.clear();
    lru_.clear();
}

Status Database::open(const std::string& path, const std::string& password)
{
    path_ = path;
    notice_.clear();
    file_ = std::make_unique<os::File>();
    if (!file_->open(path, os::Mode::ReadWrite) && !file_->open(path, os::Mode::Read))
        return fail(ERR_IO, "Cannot open '" + path + "'.");
    // Pages are read while no writer of ours changes them; a journal is looked at only while it cannot be its
    // writer's live one (the commit lock held exclusively).
    bool exclusive = false;
    Status s = OK;
    for (;;) {
        if (exclusive && !file_->writable()) {
            s = fail(ERR_IO, "'" + path + "' has the journal of an interrupted write and cannot be restored (" +
                                 "no write access).");
            break;
        }
        if ((s = lockCommit(exclusive)) != OK) break;
        if (exclusive || !os::exists(journalPath(path))) break;
        unlockCommit();
        exclusive = true;
    }
    if (s == OK && exclusive) s = recoverJournal(false);
    dropPages();
    memory_.clear();
    if (s == OK) s = readSize();
    if (s == OK) {
        head_.assign(std::min(size_, kPageSize), 0);
        if (!file_->read(head_.data(), head_.size(), 0)) s = fail(ERR_IO, "Cannot read '" + path + "'.");
    }
    tables_.clear();
    if (s == OK) s = loadHeader(password);
    if (s == OK) s = loadCatalogue(); // under the same lock: the catalogue of one commit
    unlockCommit();
    return s;
}

Status Database::recoverJournal(bool ours)
{
    std::string jp = journalPath(path_);
    os::File j;
    if (!j.open(jp, os::Mode::Read)) return os::exists(jp) ? fail(ERR_IO, "Cannot read the journal '" + jp + "'.") : OK;
    std::uint8_t h[kHeaderV2] = {};
    bool v1 = false, v2 = false;
    if (j.read(h, kHeaderV1, 0) && std::memcmp(h, kJournalMagic, sizeof kJournalMagic) == 0) {
        v1 = le32(h + 20) == 1 && le32(h + 28) == checksum(h, 28);
        v2 = le32(h + 20) == 2 && j.read(h, kHeaderV2, 0) && le32(h + 60) == checksum(h, 60, seedOf(le64(h + 48)));
    }
    if (!v1 && !v2) {
        // The header never reached the disk whole: the file was not touched yet.
        j.close();
        if (!os::remove(jp)) return fail(ERR_IO, "Cannot remove the journal '" + jp + "'.");
        return OK;
    }
    if (!file_->writable())
        return fail(ERR_IO, "'" + path_ + "' has the journal of an interrupted write and cannot be restored (" +
                                "no write access).");
    const std::uint64_t origSize = le64(h + 12) & 0x7FFFFFFFFFFFull;
    const std::uint32_t seed = v2 ? seedOf(le64(h + 48)) : 2166136261u;
    const std::size_t recLen = v2 ? kRecordV2 : kRecordV1;
    std::vector<std::vector<std::uint8_t>> records;
    for (std::uint64_t at = v2 ? kHeaderV2 : kHeaderV1;; at += recLen) {
        std::vector<std::uint8_t> rec(recLen);
        // A torn last record is one whose page was not written yet.
        if (!j.read(rec.data(), recLen, at) || le32(rec.data() + recLen - 4) != checksum(rec.data(), recLen - 4, seed))
            break;
        records.push_back(std::move(rec));
    }
    if (v2 && !ours) {
        // The journal's own file, between the commit's first and last write: every page it names holds either
        // its original or what the commit wrote, page 0 is unchanged and the size lies between the two.
        std::uint64_t size = 0;
        const std::uint64_t newSize = le64(h + 24);
        bool same = file_->size(&size) && size >= origSize && size <= std::max(origSize, newSize);
        std::vector<std::uint8_t> pg(kPageSize);
        bool page0 = false;
        for (const auto& rec : records) {
            std::uint32_t n = le32(rec.data());
            page0 = page0 || n == 0;
            std::uint32_t now =
                file_->read(pg.data(), kPageSize, std::uint64_t(n) * kPageSize) ? checksum(pg.data(), kPageSize) : 0;
            same = same && (now == checksum(rec.data() + 4, kPageSize) || now == le32(rec.data() + 4 + kPageSize));
        }
        if (same && !page0)
            same = file_->read(pg.data(), kPageSize, 0) && checksum(pg.data(), kPageSize) == le32(h + 56);
        if (!same)
            return fail(ERR_CORRUPT, "'" + fileName(path_) + "' is not the file its journal '" + jp +
                                         "' was written for (a copy or a compacted file put in its place): the "
                                         "journal was not played back. Remove it to use this file.");
    }
    bool ok = true;
    for (const auto& rec : records)
        ok = file_->write(rec.data() + 4, kPageSize, std::uint64_t(le32(rec.data())) * kPageSize) && ok;
    ok = ok && file_->truncate(origSize) && file_->sync();
    if (!ok) return fail(ERR_IO, "'" + path_ + "' could not be restored from its journal: " + os::lastError());
    j.close();
    if (!os::remove(jp)) return fail(ERR_IO, "Cannot remove the journal '" + jp + "'.");
    os::syncDirectoryOf(path_);
    notice_ =
        "An interrupted write was undone from its journal: '" + fileName(path_) + "' is as it was before that write.";
    return OK;
}

Status Database::rereadFile()
{
    dropPages();
    Status s = readSize();
    if (s == OK && size_ < kPageSize * 3) s = fail(ERR_CORRUPT, "The Jet database file is truncated.");
    if (s == OK) {
        forgetCaches();
        s = refreshTables();
    }
    return s;
}

Status Database::catchUp()
{
    bool journal = os::exists(journalPath(path_));
    if (!journal && os::stamp(path_) == stamp_) return OK;
    if (Status s = lockCommit(journal); s != OK) return s;
    std::string saved = notice_;
    Status s = journal ? recoverJournal(false) : OK;
    notice_ = saved;
    if (s == OK && os::stamp(path_) != stamp_) {
        // Another program wrote the file since we read it: the write starts from what is on disk now.
        s = rereadFile();
    }
    unlockCommit();
    return s;
}

Status Database::beginRead()
{
    if (path_.empty() || inTransaction() || commitLocked_) return OK;
    if (Status s = lockCommit(false); s != OK) return s;
    if (os::stamp(path_) == stamp_) return OK;
    // another process committed since we read: start from what is on disk now
    Status s = rereadFile();
    if (s != OK) unlockCommit();
    return s;
}

Status Database::refresh()
{
    if (path_.empty() || inTransaction() || commitLocked_ || os::stamp(path_) == stamp_) return OK;
    if (Status s = lockCommit(false); s != OK) return s;
    // A commit leaves the header as it is; another header is another database put in this one's place.
    std::uint8_t header[kHeaderCryptOffset + kHeaderCryptLen];
    if (head_.size() < sizeof header || !file_->read(header, sizeof header, 0) ||
        std::memcmp(header, head_.data(), sizeof header) != 0) {
        unlockCommit();
        return fail(ERR_IO, "'" + fileName(path_) + "' was replaced by another database while open; open it again.");
    }
    Status s = rereadFile();
    unlockCommit();
    return s;
}

void Database::endRead()
{
    if (!inTransaction()) unlockCommit();
}

Status Database::begin()
{
    if (inTransaction()) return fail(ERR_BUSY, "A write transaction is already open on this file.");
    if (!path_.empty()) {
        // A file marked read-only stays so, whoever we run as.
        if (os::markedReadOnly(path_)) return fail(ERR_READ_ONLY, "'" + fileName(path_) + "' is read-only.");
        if (!file_->writable() && !file_->open(path_, os::Mode::ReadWrite))
            return fail(ERR_READ_ONLY, "'" + fileName(path_) + "' cannot be written (" + os::lastError() + ").");
        unlockCommit(); // a read held open (beginRead): the writer byte comes first
        // One writer at a time among our processes: the one writing now gets the wait limit to finish.
        switch (file_->lock(kWriterLock, 1, true, lockWaitMs())) {
        case os::Lock::Got:
            break;
        case os::Lock::Busy:
            return fail(ERR_BUSY, "'" + fileName(path_) + "' is being written by another program of ours.");
        case os::Lock::Failed:
            return fail(ERR_IO, "Cannot lock '" + fileName(path_) + "': " + os::lastError());
        }
        Status s = catchUp();
        // The suite's users hold the file through its lock file; we register there while we write.
        if (s == OK) {
            if (!ldb_) ldb_ = std::make_unique<LdbRegistration>();
            std::vector<LdbUser> others;
            if (std::string why = ldb_->enter(path_, &others); !why.empty())
                s = others.empty() ? fail(ERR_IO, why) : fail(ERR_BUSY, inUseText(path_, others));
        }
        if (s != OK) {
            file_->unlock(kWriterLock, 1);
            return s;
        }
    }
    levels_.push_back({-1, size_, {}, 0});
    keyLog_.clear();
    synced_ = false;
    journalLive_ = false;
    return OK;
}

std::uint8_t* Database::writable(std::uint32_t n)
{
    std::size_t at = std::size_t(n) * kPageSize;
    if (!inTransaction() || at + kPageSize > size_) return nullptr;
    std::uint8_t* d = pin(n);
    if (!d) return nullptr;
    for (Level* l : {&levels_.front(), &levels_.back()})
        if (at < l->size && !l->pages.count(n)) l->pages.emplace(n, std::vector<std::uint8_t>(d, d + kPageSize));
    return d;
}

Status Database::allocPage(std::uint8_t type, std::uint32_t* n)
{
    if (!inTransaction()) return fail(ERR_ARG, "No write transaction.");
    if (size_ + kPageSize > (std::size_t(1) << 31))
        return fail(ERR_CONSTRAINT, "The database has reached the 2 GB a Jet 4 file can hold.");
    *n = static_cast<std::uint32_t>(size_ / kPageSize);
    size_ = (std::size_t(*n) + 1) * kPageSize;
    CachedPage& c = pages_[*n];
    if (!c.pinned && !c.bytes.empty()) lru_.erase(c.lru);
    c.bytes.assign(kPageSize, 0);
    c.pinned = true;
    c.bytes[0] = type;
    c.bytes[1] = 0x01;
    return OK;
}

Status Database::savepoint(int id)
{
    if (!inTransaction()) return OK;
    if (Status s = release(id); s != OK) return s;
    levels_.push_back({id, size_, {}, keyLog_.size()});
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
    // A savepoint made after ours that we never saw holds nothing of ours; one made before this file joined the
    // transaction (older than all of ours) takes everything back to the join.
    if (!inTransaction() || (k > 1 && levels_[k - 1].id != id)) return OK;
    for (std::size_t i = levels_.size(); i-- > k - 1;) {
        for (auto& [pg, orig] : levels_[i].pages)
            std::memcpy(pages_[pg].bytes.data(), orig.data(), kPageSize);
        cutTo(levels_[i].size);
    }
    undoKeys(levels_[k - 1].keyLogAt);
    levels_.resize(k);
    levels_.back().pages.clear();
    if (k == 1) forgetCaches(); // pages they name may be gone
    return refreshTables();
}

Status Database::writePages()
{
    const Level& txn = levels_.front();
    std::vector<std::uint8_t> enc(kPageSize);
    auto put = [&](std::uint32_t pg) {
        crashPoint();
        return file_->write(diskPage(pg, enc), kPageSize, std::uint64_t(pg) * kPageSize);
    };
    for (const auto& [pg, orig] : txn.pages)
        if (std::memcmp(orig.data(), page(pg), kPageSize) != 0 && !put(pg))
            return fail(ERR_IO, "Cannot write '" + fileName(path_) + "': " + os::lastError());
    for (std::size_t pg = txn.size / kPageSize; pg < size_ / kPageSize; ++pg)
        if (!put(static_cast<std::uint32_t>(pg)))
            return fail(ERR_IO, "Cannot write '" + fileName(path_) + "': " + os::lastError());
    return OK;
}

const std::uint8_t* Database::diskPage(std::uint32_t pg, std::vector<std::uint8_t>& buf) const
{
    const std::uint8_t* src = page(pg);
    if (dbKey_ == 0 || pg == 0) return src;
    buf.assign(src, src + kPageSize);
    std::uint32_t k = dbKey_ ^ pg;
    std::uint8_t key[4] = {std::uint8_t(k), std::uint8_t(k >> 8), std::uint8_t(k >> 16), std::uint8_t(k >> 24)};
    rc4(key, 4, buf.data(), kPageSize);
    return buf.data();
}

Status Database::sync()
{
    if (!inTransaction() || synced_ || path_.empty()) return OK;
    if (Status s = writeIndexes(); s != OK) return s;
    const Level& txn = levels_.front();
    std::vector<std::uint32_t> changed;
    for (const auto& [pg, orig] : txn.pages)
        if (std::memcmp(orig.data(), page(pg), kPageSize) != 0) changed.push_back(pg);
    if (changed.empty() && size_ == txn.size) return OK;

    if (!commitLocked_)
        if (Status s = lockCommit(true); s != OK) return s;
    // What begin() saw may be old by now (a long transaction): nothing of another program is overwritten.
    if (os::stamp(path_) != stamp_)
        return fail(ERR_BUSY,
                    "'" + fileName(path_) + "' was changed by another program during this write; nothing was saved.");
    if (std::vector<LdbUser> others = ldb_ ? ldb_->others() : std::vector<LdbUser>{}; !others.empty())
        return fail(ERR_BUSY, inUseText(path_, others));

    std::string jp = journalPath(path_);
    os::File j;
    // A journal still there holds an undo the file needs: never emptied, the write refused.
    if (!j.open(jp, os::Mode::CreateNew))
        return fail(ERR_IO, "Cannot create the journal '" + jp + "': " + os::lastError());
    auto failJ = [&](const std::string& what) {
        std::string why = what + ": " + os::lastError();
        j.close();
        os::remove(jp);
        return fail(ERR_IO, why);
    };
    const std::uint64_t salt = os::randomWord();
    const std::uint32_t seed = seedOf(salt);
    std::vector<std::uint8_t> buf(kRecordV2);
    std::uint8_t h[kHeaderV2] = {};
    std::memcpy(h, kJournalMagic, sizeof kJournalMagic);
    put64(h + 12, txn.size);
    put32(h + 20, 2);
    put64(h + 24, size_);
    put64(h + 32, static_cast<std::uint64_t>(stamp_.size));
    put64(h + 40, static_cast<std::uint64_t>(stamp_.mtimeNs));
    put64(h + 48, salt);
    if (!file_->read(buf.data(), kPageSize, 0)) return failJ("Cannot read '" + fileName(path_) + "'");
    put32(h + 56, checksum(buf.data(), kPageSize));
    put32(h + 60, checksum(h, 60, seed));
    crashPoint();
    if (!j.write(h, sizeof h, 0)) return failJ("Cannot write the journal '" + jp + "'");
    std::vector<std::uint8_t> enc(kPageSize);
    std::uint64_t at = kHeaderV2;
    for (std::uint32_t pg : changed) {
        put32(buf.data(), pg);
        // The page as the disk holds it (encoded files stay encoded).
        if (!file_->read(buf.data() + 4, kPageSize, std::uint64_t(pg) * kPageSize))
            return failJ("Cannot read '" + fileName(path_) + "'");
        put32(buf.data() + 4 + kPageSize, checksum(diskPage(pg, enc), kPageSize));
        put32(buf.data() + 8 + kPageSize, checksum(buf.data(), kRecordV2 - 4, seed));
        crashPoint();
        if (!j.write(buf.data(), kRecordV2, at)) return failJ("Cannot write the journal '" + jp + "'");
        at += kRecordV2;
    }
    crashPoint();
    if (!j.sync()) return failJ("Cannot force the journal '" + jp + "' to disk");
    j.close();
    os::syncDirectoryOf(path_);
    journalLive_ = true;
    crashPoint();
    Status s = writePages();
    crashPoint();
    if (s == OK && !file_->sync()) s = fail(ERR_IO, "Cannot force '" + fileName(path_) + "' to disk.");
    if (s != OK) {
        // Some pages may be on disk: the originals go back now, and the journal stays until they have.
        std::string why = error(), saved = notice_;
        if (recoverJournal(true) == OK) journalLive_ = false;
        notice_ = saved;
        return fail(s, why);
    }
    synced_ = true;
    return OK;
}

Status Database::commit()
{
    if (!inTransaction()) return OK;
    if (Status s = sync(); s != OK) return s;
    if (synced_) {
        crashPoint();
        if (!os::remove(journalPath(path_)))
            return fail(ERR_IO, "Cannot remove the journal of '" + fileName(path_) + "'.");
        journalLive_ = false;
        os::syncDirectoryOf(path_);
        crashPoint();
    }
    keys_.clear();
    keyLog_.clear();
    endTransaction(synced_);
    return OK;
}

void Database::cutTo(std::size_t size)
{
    // pages added since: pinned, never on disk
    for (std::size_t pg = size / kPageSize; pg < size_ / kPageSize; ++pg)
        pages_.erase(static_cast<std::uint32_t>(pg));
    size_ = size;
}

void Database::endTransaction(bool wrote)
{
    levels_.clear();
    synced_ = false;
    unpinAll();
    if (path_.empty()) return;
    // The stamp of what we wrote is taken before another writer may start; without a write of ours the old one
    // stays, so that what someone else wrote meanwhile is read again.
    if (wrote) stamp_ = cacheStamp_ = os::stamp(path_);
    unlockCommit();
    if (ldb_) ldb_->leave();
    file_->unlock(kWriterLock, 1);
}

Status Database::rollback()
{
    if (!inTransaction()) return OK;
    Status result = OK;
    if (journalLive_) {
        // Pages may be on disk already: the journal puts the originals back.
        std::string saved = notice_;
        if (!commitLocked_) result = lockCommit(true);
        if (result == OK) result = recoverJournal(true);
        if (result == OK) journalLive_ = false;
        notice_ = saved;
    }
    Level& txn = levels_.front();
    for (auto& [pg, orig] : txn.pages)
        std::memcpy(pages_[pg].bytes.data(), orig.data(), kPageSize);
    cutTo(txn.size);
    forgetCaches();
    endTransaction(false);
    // A journal that could not be played back stays; the next opener or writer plays it back.
    journalLive_ = false;
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
