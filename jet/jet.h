#pragma once
// Jet 4 engine: reads, and writes inside transactions. Status-code API: every call returns a Status; the text of the
// last failure stays on the handle (Database::error()). Nothing here throws to the caller.
#include "jet/file.h"
#include "jet/ldb.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace jet
{

enum Status : int {
    OK = 0,
    ERR_IO = 1,        // cannot open or read the file
    ERR_FORMAT = 2,    // not a Jet 4 file (Jet 3, ACE, other)
    ERR_PASSWORD = 3,  // wrong database password
    ERR_CORRUPT = 4,   // damaged structure
    ERR_NOT_FOUND = 5, // no such table / column
    ERR_READ_ONLY = 6,
    ERR_ARG = 7,
    ERR_BUSY = 8,       // another writer holds the file, or it changed under us
    ERR_CONSTRAINT = 9, // duplicate key, value that does not fit its column
    ERR_KEY = 10,       // an index key we cannot encode: that one write is refused
    END = 100,          // cursor is past its last row
};

constexpr std::size_t kPageSize = 4096;

enum class Type : std::uint8_t {
    Bool = 0x01,
    Byte = 0x02,
    Int = 0x03,
    Long = 0x04,
    Money = 0x05,
    Float = 0x06,
    Double = 0x07,
    DateTime = 0x08,
    Binary = 0x09,
    Text = 0x0A,
    Ole = 0x0B,
    Memo = 0x0C,
    Guid = 0x0F,
    Numeric = 0x10,
};

// Bytes a value of a fixed-size type takes in a row; 0 for the types of variable length.
std::size_t typeSize(Type t);

struct Column {
    std::string name;
    Type type = Type::Long;
    std::uint8_t rawType = 0;
    std::uint16_t number = 0;      // position in the row's null mask
    std::uint16_t varIndex = 0;    // slot in the variable-offset table
    std::uint16_t fixedOffset = 0; // offset after the column count
    std::uint16_t length = 0;      // bytes (Text: 2 per character)
    std::uint8_t flags = 0;
    std::uint8_t precision = 0, scale = 0;
    std::uint16_t sortOrder = 0; // text: 0x409 = General
    bool fixed = false;
    bool compressed = false;
    std::string defaultValue; // the DefaultValue property as stored (an expression), "" when none
};

struct IndexColumn {
    int column = -1; // into Table::columns
    bool ascending = true;
};

// One physical B-tree; logical indexes (names, primary/foreign) share them.
struct RealIndex {
    std::vector<IndexColumn> columns;
    std::uint32_t rootPage = 0;
    std::uint8_t flags = 0;     // 0x01 unique, 0x02 ignore nulls
    std::uint32_t usageMap = 0; // row pointer of the index's page map
};

struct LogicalIndex {
    std::string name;
    int realIndex = -1;
    std::uint8_t kind = 0; // 1 primary key, 2 foreign key
};

struct Table {
    std::string name;
    std::uint32_t tdefPage = 0;
    std::uint32_t rowCount = 0; // as the definition states it
    bool system = false;
    std::vector<Column> columns; // table order
    std::vector<RealIndex> realIndexes;
    std::vector<LogicalIndex> indexes;
    std::uint32_t usageMap = 0; // row pointer
    std::uint16_t maxCols = 0;
    std::uint16_t varCols = 0;    // rows carry no offset table when zero
    std::uint32_t freeMap = 0;    // row pointer: owned pages with room
    std::uint32_t autoNumber = 0; // last value given to an auto-number column
};

// (page << 8 | row): where a row lives; stable while the file is unchanged.
using RowId = std::int64_t;

// A decoded field. Meaning of the members by column type:
//   Bool/Byte/Int/Long: i (Bool 0/1); Money: i = value * 10000; Float/Double/DateTime: d (DateTime: days
//   since 1899-12-30); Text/Memo: s UTF-8; Binary/Ole: s raw bytes; Guid: s 16 raw bytes;
//   Numeric: s decimal text ("-12.50").
struct Value {
    Type type = Type::Long;
    bool null = true;
    std::int64_t i = 0;
    double d = 0;
    std::string s;
};

class Database;

// Forward-only reader of one table: a full scan or the rows an index seek produced.
class Cursor
{
public:
    explicit Cursor(const Database& db, const Table& table);
    Status rewind();                      // full scan
    Status seek(std::vector<RowId> rows); // exactly these rows, in this order
    Status next();                        // OK, END or an error
    bool eof() const { return eof_; }
    RowId rowId() const { return rowId_; }
    Status column(std::size_t index, Value& out) const;
    const std::string& error() const { return error_; }

private:
    Status load(RowId id);
    Status fail(Status s, std::string msg) const;
    Status current(const std::uint8_t** p, std::size_t* n) const;
    const Database& db_;
    const Table& table_;
    std::vector<std::uint32_t> pages_;
    std::vector<RowId> rows_;
    bool byList_ = false;
    std::size_t pageIdx_ = 0, listIdx_ = 0;
    int rowIdx_ = -1;
    bool eof_ = true;
    RowId rowId_ = 0;
    // Where the current row's bytes live (after a moved-row hop); looked up again on each read, since a
    // write may move the file's bytes in memory.
    std::uint32_t homePage_ = 0;
    unsigned homeRow_ = 0;
    mutable std::string error_;
};

// Range on the first column of an index, values already in the column's type.
struct KeyBound {
    bool present = false;
    bool inclusive = true;
    Value value;
};

class Database
{
public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    Status open(const std::string& path, const std::string& password);
    // Same checks on a file already in memory (tests, fuzzing).
    Status openMemory(std::vector<std::uint8_t> bytes, const std::string& password);
    std::string error() const;

    const std::vector<Table>& tables() const { return tables_; } // user tables, catalogue order
    const Table* table(const std::string& name) const;           // case-insensitive
    Status readTable(std::uint32_t tdefPage, Table& out) const;  // any table, system ones too

    std::uint16_t codePage() const { return codePage_; }
    std::uint32_t sortOrder() const { return sortOrder_; }
    double creationDate() const { return creationDate_; }
    bool encoded() const { return dbKey_ != 0; }
    std::uint32_t pageCount() const { return static_cast<std::uint32_t>(size_ / kPageSize); }

    // Pages a table's usage map assigns to it (data pages of that table only).
    Status dataPages(const Table& t, std::vector<std::uint32_t>& out) const;
    // Every page a usage map (row pointer) marks, whatever the page holds.
    Status mapPages(std::uint32_t mapPtr, std::vector<std::uint32_t>& out) const;

    // Walks every table and index and lists what disagrees: index entries without their row, rows missing from
    // an index, keys out of order, usage maps that disagree with the pages, row counts that differ from the
    // rows. Empty `problems` = consistent. A Status other than OK only when the file cannot be walked at all.
    Status check(std::vector<std::string>& problems) const;
    // Rows whose first index column lies within [lo, hi]; false in *usable when the index cannot seek
    // (key encoding we do not produce).
    Status indexSeek(const Table& t, int realIndex, const KeyBound& lo, const KeyBound& hi, std::vector<RowId>& out,
                     bool* usable) const;
    // Best real index whose first column is `column` and which can seek; -1 when none.
    int seekableIndex(const Table& t, int column) const;

    // Null when the page is outside the file or could not be read (readStatus() says why). Counts every call
    // (tests prove seeks read few pages).
    const std::uint8_t* page(std::uint32_t n) const;
    Status readStatus() const { return readStatus_; }
    std::uint64_t pageReads() const { return pageReads_.load(std::memory_order_relaxed); }
    // Pages held in memory now: the cache (bounded) and the open transaction's pages.
    std::size_t pagesHeld() const { return pages_.size(); }
    // Unpinned pages kept at most (at least one); a page asked for later may be read again.
    void setCacheLimit(std::size_t pages) { cacheLimit_ = pages < 1 ? 1 : pages; }
    void resetPageReads() { pageReads_.store(0, std::memory_order_relaxed); }

    // Bytes of the row at (page,row); flags of its offset entry in *flags.
    Status rowBytes(std::uint32_t pg, unsigned row, const std::uint8_t** p, std::size_t* len, unsigned* flags,
                    bool countRead = true) const;
    Status longValue(const std::uint8_t* field, std::size_t len, std::string& out) const;

    Status fail(Status s, std::string msg) const;

    // What opening had to do first (a journal played back); empty when nothing.
    const std::string& notice() const { return notice_; }
    const std::string& path() const { return path_; }

    // A long read that must see one commit (a check, a dump): writers of ours wait for endRead() (up to their
    // wait limit); what another process committed before is read first. Nothing to do inside a transaction.
    Status beginRead();
    void endRead();
    // Outside a transaction: when another program committed since we last read, forget the cached pages and read
    // the table definitions again, so that what follows starts from that commit.
    Status refresh();

    // Write transactions (jet/pager.cpp). Changes live in memory until sync(): the original of every page
    // about to change goes to a rollback journal beside the file ("<file>-pel008-journal"), forced to disk,
    // then the pages are written and the file is forced; commit() removes the journal, which is the moment
    // the transaction is durable. A crash at any point leaves a journal that the next open() plays back.
    Status begin();
    bool inTransaction() const { return !levels_.empty(); }
    // Set while a connection other than the writer reads: pages and index seeks are those of the last commit,
    // not of the open transaction (whose changed pages stay the writer's own until it commits).
    void setCommittedView(bool on) { committedView_ = on; }
    Status savepoint(int id);      // state saved as savepoint `id` (later ids are released)
    Status release(int id);        // savepoints >= id forgotten, their changes kept
    Status rollbackTo(int id);     // back to the state of savepoint `id`, which stays
    Status undoRowWrite(Status s); // a failed row write: its statement savepoint undone, its error kept
    Status sync();
    Status commit();
    Status rollback();

    // Row writes (jet/write.cpp); values by column in table order (Value::type ignored: the column's
    // type counts). Each call is all or nothing. Inside a transaction only.
    Status insertRow(const Table& t, const std::vector<Value>& values, RowId* id);
    Status updateRow(const Table& t, RowId id, const std::vector<Value>& values);
    // Changes some columns of a row, the others kept: numbers and dates that no index holds and that have a
    // value before and after are written into the row where they stand; anything else goes through updateRow.
    Status updateColumns(const Table& t, RowId id, const std::vector<std::pair<std::size_t, Value>>& changes);
    Status deleteRow(const Table& t, RowId id);
    Status readRow(const Table& t, RowId id, std::vector<Value>& out) const;

private:
    Status loadHeader(const std::string& password);
    Status loadCatalogue();
    // Plays back a journal left beside the file; the commit lock must be held exclusively. `ours`: the journal of
    // this engine's own failed commit, whose file is known to be the one it was written for.
    Status recoverJournal(bool ours);
    Status lockCommit(bool exclusive);
    void unlockCommit();
    void decodePages(std::vector<std::uint8_t>& bytes) const;
    // With the writer lock: a dead writer's journal played back, the file read again if someone changed it.
    Status catchUp();
    // Pages, size, caches and table definitions read again from the file (another program committed).
    Status rereadFile();
    void endTransaction(bool wrote);
    const std::uint8_t* diskPage(std::uint32_t pg, std::vector<std::uint8_t>& buf) const;

    std::uint8_t* writable(std::uint32_t n);
    Status allocPage(std::uint8_t type, std::uint32_t* n);
    Status writePages();
    Status refreshTables();
    void forgetCaches();
    Table& mut(const Table& t) { return const_cast<Table&>(t); }

    // write.cpp helpers
    Status addRow(std::uint32_t pg, const std::string& row, std::uint16_t flags, unsigned* slot);
    Status replaceRow(std::uint32_t pg, unsigned slot, const std::string& row, std::uint16_t flags, bool* fitted);
    Status mapAdd(std::uint32_t mapPtr, std::uint32_t page);
    Status placeRow(const Table& t, const std::string& row, std::uint16_t flags, RowId* id);
    Status putLong(const std::string& data, std::string& field);
    Status freeLong(const std::uint8_t* field, std::size_t len);
    Status encodeRow(const Table& t, const std::vector<Value>& v, const std::vector<Value>* old,
                     const std::string& oldRow, std::string& out, std::vector<int>& reused);
    Status homeOf(RowId id, std::uint32_t* pg, unsigned* slot, bool* moved) const;
    Status setTableCounts(const Table& t, std::int64_t rowDelta, std::uint32_t autoNumber);
    Status indexWrite(const Table& t, const std::vector<Value>* before, const std::vector<Value>* after, RowId id);
    Status writeIndexes();

    struct Level {
        int id = -1;
        std::size_t size = 0;                                     // size_ when the level started
        std::map<std::uint32_t, std::vector<std::uint8_t>> pages; // originals of pages changed since
        std::size_t keyLogAt = 0;
    };
    struct KeyCache; // index.cpp: the keys of one real index while a transaction changes it

    std::string path_;
    std::string notice_;
    os::Stamp stamp_; // the file as we last read or wrote it
    std::unique_ptr<os::File> file_;
    bool commitLocked_ = false;
    bool journalLive_ = false;             // a journal is on disk and pages of this transaction may be too
    std::unique_ptr<LdbRegistration> ldb_; // our slot in the suite's lock file while we write
    bool synced_ = false;
    std::vector<Level> levels_;                         // [0]: the whole transaction
    std::map<std::uint32_t, std::uint32_t> insertPage_; // table definition page -> page new rows go to
    std::uint32_t lvalPage_ = 0;
    std::map<std::pair<std::uint32_t, int>, std::shared_ptr<KeyCache>> keys_;
    struct KeyOp {
        KeyCache* cache;
        std::string entry;
        bool added;
    };
    std::vector<KeyOp> keyLog_; // index entry changes, undone by a rollback to a savepoint
    void undoKeys(std::size_t to);
    bool committedView_ = false;
    bool committedOnly() const { return committedView_ && !levels_.empty(); }

    // Pages are read when first asked for and kept in a bounded cache; the pages of the open transaction (changed
    // or new) are pinned there until it ends. A file in memory (openMemory) is served from memory_.
    struct CachedPage {
        std::vector<std::uint8_t> bytes;
        bool pinned = false;
        std::list<std::uint32_t>::iterator lru; // while not pinned
    };
    static constexpr std::size_t kCachePages = 1024;
    std::size_t cacheLimit_ = kCachePages;
    mutable Status readStatus_ = OK; // of the last page(): OK, or why a read failed (its error is on the handle)
    Status missingPage(const std::string& corrupt) const;
    static constexpr std::uint32_t kReadAhead = 16;
    const std::uint8_t* load(std::uint32_t n) const;
    std::uint8_t* pin(std::uint32_t n);
    void unpinAll();
    void cutTo(std::size_t size); // pages from `size` on forgotten
    void dropPages();
    Status readSize();
    mutable std::unordered_map<std::uint32_t, CachedPage> pages_;
    mutable std::list<std::uint32_t> lru_; // unpinned pages, most recently used first
    mutable os::Stamp cacheStamp_;         // the file as the cached pages show it
    std::size_t size_ = 0;                 // bytes, with the open transaction's new pages
    std::vector<std::uint8_t> memory_;
    std::vector<std::uint8_t> head_; // page 0 as read at open
    std::vector<Table> tables_;
    std::uint16_t codePage_ = 0;
    std::uint32_t sortOrder_ = 0;
    double creationDate_ = 0;
    std::uint32_t dbKey_ = 0;
    mutable std::atomic<std::uint64_t> pageReads_{0};
    mutable std::mutex errorMutex_; // one engine serves every connection
    mutable std::string error_;
};

// How long a writer waits for another writer of ours, and a reader for a commit, before giving up
// (PEL008_LOCK_WAIT_MS, 250 by default, as on the other backends).
int lockWaitMs();

// Our lock bytes lie beyond the 2 GB a Jet 4 file can reach: no page is ever locked. The writer byte is held
// for a whole write transaction; the commit byte exclusively while pages change on disk (journal, pages,
// removal) and shared while a reader reads the file. Order: writer, then commit.
constexpr std::uint64_t kWriterLock = std::uint64_t(1) << 31;
constexpr std::uint64_t kCommitLock = kWriterLock + 1;
// Held exclusively by a writer waiting for the commit byte, shared for a moment by a reader before it takes the
// commit byte: readers that keep coming cannot starve a commit.
constexpr std::uint64_t kPendingLock = kWriterLock + 2;

// Where a write keeps the pages it changes until its commit is complete.
std::string journalPath(const std::string& path);

// "data1.dat は PC1 の Admin で使用中です": the suite's users holding the file.
std::string inUseText(const std::string& path, const std::vector<LdbUser>& others);

// Header helpers shared with the password writer.
void rc4(const std::uint8_t* key, std::size_t keyLen, std::uint8_t* data, std::size_t n);
constexpr std::size_t kHeaderCryptOffset = 0x18;
constexpr std::size_t kHeaderCryptLen = 128;
constexpr std::size_t kPasswordOffset = 0x42;
constexpr std::size_t kPasswordLen = 40;
constexpr std::size_t kCreationDateOffset = 0x72;

std::string ucs2ToUtf8(const std::uint8_t* p, std::size_t n);
std::u16string utf8ToUtf16(const std::string& s);
// Text as stored: UCS-2, or the compressed form that starts with FF FE.
std::string decodeText(const std::uint8_t* p, std::size_t n);

} // namespace jet
