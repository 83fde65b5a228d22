// File, header, catalogue and table definitions.
#include "jet/bytes.h"
#include "jet/jet.h"
#include "jet/ldb.h"
#include "jet/props.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <unordered_set>

namespace jet
{

using namespace detail;

namespace
{

constexpr std::uint8_t kHeaderKey[4] = {0xC7, 0xDA, 0x39, 0x6B};

bool iequals(const std::string& a, const std::string& b)
{
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x != y && std::tolower(x) != std::tolower(y)) return false;
    }
    return true;
}

} // namespace

void rc4(const std::uint8_t* key, std::size_t keyLen, std::uint8_t* data, std::size_t n)
{
    std::uint8_t s[256];
    for (int i = 0; i < 256; ++i)
        s[i] = static_cast<std::uint8_t>(i);
    std::uint8_t j = 0;
    for (int i = 0; i < 256; ++i) {
        j = static_cast<std::uint8_t>(j + s[i] + key[static_cast<std::size_t>(i) % keyLen]);
        std::swap(s[i], s[j]);
    }
    std::uint8_t a = 0, b = 0;
    for (std::size_t k = 0; k < n; ++k) {
        a = static_cast<std::uint8_t>(a + 1);
        b = static_cast<std::uint8_t>(b + s[a]);
        std::swap(s[a], s[b]);
        data[k] ^= s[static_cast<std::uint8_t>(s[a] + s[b])];
    }
}

static void appendUtf8(std::string& out, std::uint32_t c)
{
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

static void utf16ToUtf8(const std::u16string& u, std::string& out)
{
    out.reserve(out.size() + u.size());
    for (std::size_t i = 0; i < u.size(); ++i) {
        std::uint32_t c = u[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < u.size() && u[i + 1] >= 0xDC00 && u[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (u[i + 1] - 0xDC00u);
            ++i;
        } else if (c >= 0xD800 && c < 0xE000) {
            c = 0xFFFD; // lone surrogate
        }
        appendUtf8(out, c);
    }
}

std::string ucs2ToUtf8(const std::uint8_t* p, std::size_t n)
{
    std::u16string u;
    u.reserve(n / 2);
    for (std::size_t i = 0; i + 1 < n; i += 2)
        u.push_back(static_cast<char16_t>(le16(p + i)));
    std::string out;
    utf16ToUtf8(u, out);
    return out;
}

std::string decodeText(const std::uint8_t* p, std::size_t n)
{
    if (n < 2 || p[0] != 0xFF || p[1] != 0xFE) return ucs2ToUtf8(p, n);
    // Compressed: single bytes for U+0001..U+00FF; a zero byte toggles to plain UCS-2 and back.
    std::u16string u;
    u.reserve(n);
    bool compressed = true;
    std::size_t i = 2;
    while (i < n) {
        if (p[i] == 0) {
            compressed = !compressed;
            ++i;
        } else if (compressed) {
            u.push_back(p[i++]);
        } else {
            if (i + 1 >= n) break;
            u.push_back(static_cast<char16_t>(le16(p + i)));
            i += 2;
        }
    }
    std::string out;
    utf16ToUtf8(u, out);
    return out;
}

std::u16string utf8ToUtf16(const std::string& s)
{
    std::u16string out;
    for (std::size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        std::uint32_t cp = 0xFFFD;
        std::size_t len = 1;
        if (c < 0x80) {
            cp = c;
        } else if ((c & 0xE0) == 0xC0 && i + 1 < s.size()) {
            cp = (c & 0x1Fu) << 6 | (s[i + 1] & 0x3F);
            len = 2;
        } else if ((c & 0xF0) == 0xE0 && i + 2 < s.size()) {
            cp = (c & 0x0Fu) << 12 | (s[i + 1] & 0x3Fu) << 6 | (s[i + 2] & 0x3F);
            len = 3;
        } else if ((c & 0xF8) == 0xF0 && i + 3 < s.size()) {
            cp = (c & 0x07u) << 18 | (s[i + 1] & 0x3Fu) << 12 | (s[i + 2] & 0x3Fu) << 6 | (s[i + 3] & 0x3F);
            len = 4;
        }
        i += len;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
    }
    return out;
}

Status Database::fail(Status s, std::string msg) const
{
    std::lock_guard lock(errorMutex_);
    error_ = std::move(msg);
    return s;
}

std::string Database::error() const
{
    std::lock_guard lock(errorMutex_);
    return error_;
}

Status Database::openMemory(std::vector<std::uint8_t> bytes, const std::string& password)
{
    dropPages();
    memory_ = std::move(bytes);
    // A trailing partial page is ignored: nothing valid can point into it.
    size_ = memory_.size();
    head_.assign(memory_.begin(), memory_.begin() + static_cast<std::ptrdiff_t>(std::min(size_, kPageSize)));
    tables_.clear();
    Status s = loadHeader(password);
    if (s != OK) return s;
    decodePages(memory_);
    return loadCatalogue();
}

Status Database::loadHeader(const std::string& password)
{
    static const char jet[] = "Standard Jet DB";
    static const char ace[] = "Standard ACE DB";
    if (size_ < kPageSize * 3 || head_.size() < kPageSize) {
        if (head_.size() >= 19 && std::memcmp(head_.data() + 4, ace, 15) == 0)
            return fail(ERR_FORMAT, "This is an ACE (accdb) database; only Jet 4 files are supported.");
        if (head_.size() >= 19 && std::memcmp(head_.data() + 4, jet, 15) == 0)
            return fail(ERR_CORRUPT, "The Jet database file is truncated.");
        return fail(ERR_FORMAT, "Not a Jet database file.");
    }
    const std::uint8_t* h = head_.data();
    if (std::memcmp(h + 4, ace, 15) == 0)
        return fail(ERR_FORMAT, "This is an ACE (accdb) database; only Jet 4 files are supported.");
    if (h[0] != 0 || std::memcmp(h + 4, jet, 15) != 0) return fail(ERR_FORMAT, "Not a Jet database file.");
    if (h[0x14] == 0) return fail(ERR_FORMAT, "This is a Jet 3 database; only Jet 4 files are supported.");
    if (h[0x14] != 1) return fail(ERR_FORMAT, "Unsupported database version; only Jet 4 files are supported.");

    std::uint8_t hdr[kHeaderCryptLen];
    std::memcpy(hdr, h + kHeaderCryptOffset, kHeaderCryptLen);
    rc4(kHeaderKey, 4, hdr, kHeaderCryptLen);
    auto at = [&](std::size_t off) { return hdr + (off - kHeaderCryptOffset); };
    codePage_ = le16(at(0x3C));
    dbKey_ = le32(at(0x3E));
    sortOrder_ = le32(at(0x6E));
    creationDate_ = leDouble(at(kCreationDateOffset));

    // The password is masked with the whole days of the creation date, repeated every four bytes.
    double day = std::isfinite(creationDate_) ? std::floor(creationDate_) : 0.0;
    std::uint32_t maskWord =
        (day >= -2147483648.0 && day <= 2147483647.0) ? static_cast<std::uint32_t>(static_cast<std::int32_t>(day)) : 0;
    std::uint8_t stored[kPasswordLen];
    for (std::size_t i = 0; i < kPasswordLen; ++i)
        stored[i] = static_cast<std::uint8_t>(at(kPasswordOffset)[i] ^ (maskWord >> (8 * (i % 4)) & 0xFF));
    std::u16string want = utf8ToUtf16(password);
    bool match = want.size() <= kPasswordLen / 2;
    for (std::size_t k = 0; match && k < kPasswordLen / 2; ++k) {
        char16_t c = k < want.size() ? want[k] : 0;
        if (le16(stored + 2 * k) != c) match = false;
    }
    if (!match) return fail(ERR_PASSWORD, "Not a valid password.");
    return OK;
}

void Database::decodePages(std::vector<std::uint8_t>& bytes) const
{
    if (dbKey_ == 0) return;
    // Encoded file: every page but the header is RC4 with (database key ^ page number).
    std::uint32_t n = static_cast<std::uint32_t>(bytes.size() / kPageSize);
    for (std::uint32_t pg = 1; pg < n; ++pg) {
        std::uint32_t k = dbKey_ ^ pg;
        std::uint8_t key[4] = {std::uint8_t(k), std::uint8_t(k >> 8), std::uint8_t(k >> 16), std::uint8_t(k >> 24)};
        rc4(key, 4, bytes.data() + std::size_t(pg) * kPageSize, kPageSize);
    }
}

const std::uint8_t* Database::page(std::uint32_t n) const
{
    pageReads_.fetch_add(1, std::memory_order_relaxed);
    readStatus_ = OK;
    if (committedOnly()) {
        // The transaction keeps the original of every page it changed; pages it added are not committed.
        const Level& txn = levels_.front();
        if (std::size_t(n) >= txn.size / kPageSize) return nullptr;
        if (auto it = txn.pages.find(n); it != txn.pages.end()) return it->second.data();
    }
    if (std::size_t(n) >= size_ / kPageSize) return nullptr;
    if (auto it = pages_.find(n); it != pages_.end()) {
        if (!it->second.pinned) lru_.splice(lru_.begin(), lru_, it->second.lru);
        return it->second.bytes.data();
    }
    if (path_.empty()) return memory_.data() + std::size_t(n) * kPageSize;
    return load(n);
}

// A page that could not be read (another writer's commit went on past the wait, an I/O error) is not damage.
Status Database::missingPage(const std::string& corrupt) const
{
    return readStatus_ != OK ? fail(readStatus_, error()) : fail(ERR_CORRUPT, corrupt);
}

Status Database::rowBytes(std::uint32_t pg, unsigned row, const std::uint8_t** p, std::size_t* len, unsigned* flags,
                          bool countRead) const
{
    if (!countRead) pageReads_.fetch_sub(1, std::memory_order_relaxed); // the same row again: no new read
    const std::uint8_t* d = page(pg);
    if (!d) return missingPage("Row pointer to page " + std::to_string(pg) + " is outside the file.");
    if (d[0] != 0x01)
        return fail(ERR_CORRUPT, "Row pointer to page " + std::to_string(pg) + ", which is not a data page.");
    unsigned count = le16(d + 12);
    if (row >= count || 14 + 2 * std::size_t(count) > kPageSize)
        return fail(ERR_CORRUPT, "Row " + std::to_string(row) + " is missing on page " + std::to_string(pg) + ".");
    unsigned raw = le16(d + 14 + 2 * row);
    std::size_t start = raw & 0x1FFF;
    std::size_t end = row == 0 ? kPageSize : (le16(d + 14 + 2 * (row - 1)) & 0x1FFF);
    *flags = raw & 0xC000;
    if (start < 14 + 2 * std::size_t(count) || start > end || end > kPageSize)
        return fail(ERR_CORRUPT, "Row " + std::to_string(row) + " on page " + std::to_string(pg) + " has bad bounds.");
    *p = d + start;
    *len = end - start;
    return OK;
}

Status Database::longValue(const std::uint8_t* f, std::size_t n, std::string& out) const
{
    out.clear();
    if (n < 12) return fail(ERR_CORRUPT, "Long value header is too short.");
    std::size_t total = le24(f);
    unsigned kind = f[3];
    std::uint32_t ptr = le32(f + 4);
    if (kind & 0x80) {
        if (total > n - 12) return fail(ERR_CORRUPT, "Inline long value is longer than its field.");
        out.assign(reinterpret_cast<const char*>(f + 12), total);
        return OK;
    }
    if (total > size_) return fail(ERR_CORRUPT, "Long value is longer than the file.");
    if (kind & 0x40) {
        const std::uint8_t* p;
        std::size_t len;
        unsigned flags;
        if (Status s = rowBytes(ptr >> 8, ptr & 0xFF, &p, &len, &flags); s != OK) return s;
        out.assign(reinterpret_cast<const char*>(p), std::min(len, total));
        return OK;
    }
    // Chained rows: each starts with the pointer to the next one.
    std::size_t hops = 0, limit = pageCount() + 1;
    while (ptr != 0 && out.size() < total) {
        if (++hops > limit) return fail(ERR_CORRUPT, "Long value chain loops.");
        const std::uint8_t* p;
        std::size_t len;
        unsigned flags;
        if (Status s = rowBytes(ptr >> 8, ptr & 0xFF, &p, &len, &flags); s != OK) return s;
        if (len < 4) return fail(ERR_CORRUPT, "Long value chain row is too short.");
        ptr = le32(p);
        out.append(reinterpret_cast<const char*>(p + 4), std::min(len - 4, total - out.size()));
    }
    if (out.size() != total) return fail(ERR_CORRUPT, "Long value chain ends early.");
    return OK;
}

Status Database::readTable(std::uint32_t tdefPage, Table& t) const
{
    // Gather the definition: the first page whole, continuation pages after their 8-byte header.
    std::vector<std::uint8_t> buf;
    std::unordered_set<std::uint32_t> seen;
    for (std::uint32_t pg = tdefPage; pg != 0;) {
        if (!seen.insert(pg).second) return fail(ERR_CORRUPT, "Table definition pages loop.");
        const std::uint8_t* d = page(pg);
        if (!d) return missingPage("Table definition page " + std::to_string(pg) + " is outside the file.");
        if (d[0] != 0x02) return fail(ERR_CORRUPT, "Page " + std::to_string(pg) + " is not a table definition page.");
        if (buf.empty())
            buf.insert(buf.end(), d, d + kPageSize);
        else
            buf.insert(buf.end(), d + 8, d + kPageSize);
        pg = le32(d + 4);
    }
    Reader r{buf.data(), buf.size()};
    r.pos = 16;
    t.tdefPage = tdefPage;
    t.rowCount = r.u32();
    t.autoNumber = r.u32();
    r.pos = 40;
    t.system = r.u8() == 0x53;
    t.maxCols = r.u16();
    t.varCols = r.u16();
    unsigned numCols = r.u16();
    std::uint32_t numIdx = r.u32();
    std::uint32_t numReal = r.u32();
    t.usageMap = r.u32();
    t.freeMap = r.u32();
    if (numIdx > 1000 || numReal > 1000 || numCols > 4096)
        return fail(ERR_CORRUPT, "Table definition on page " + std::to_string(tdefPage) + " has impossible counts.");
    r.skip(12 * std::size_t(numReal));

    std::vector<Column> cols(numCols);
    for (Column& c : cols) {
        const std::uint8_t* e = r.take(25);
        if (!e) break;
        c.rawType = e[0];
        c.type = static_cast<Type>(e[0]);
        c.number = le16(e + 5);
        c.varIndex = le16(e + 7);
        c.precision = e[11];
        c.scale = e[12];
        c.sortOrder = le16(e + 11);
        c.flags = e[15];
        c.fixed = (e[15] & 0x01) != 0;
        c.compressed = (e[16] & 0x01) != 0;
        c.fixedOffset = le16(e + 21);
        c.length = le16(e + 23);
    }
    for (Column& c : cols) {
        unsigned len = r.u16();
        const std::uint8_t* s = r.take(len);
        if (s) c.name = ucs2ToUtf8(s, len);
    }
    struct RawIdx {
        RealIndex idx;
        std::vector<std::pair<unsigned, bool>> colNums;
    };
    std::vector<RawIdx> reals(numReal);
    for (RawIdx& ri : reals) {
        r.skip(4);
        for (int k = 0; k < 10; ++k) {
            unsigned num = r.u16();
            std::uint8_t order = r.u8();
            if (num != 0xFFFF) ri.colNums.emplace_back(num, order == 0x01);
        }
        ri.idx.usageMap = r.u32();
        ri.idx.rootPage = r.u32();
        r.skip(4);
        ri.idx.flags = r.u8(); // 0x01 unique, 0x02 ignore nulls, 0x08 required
        r.skip(5);
    }
    std::vector<LogicalIndex> logical(numIdx);
    for (LogicalIndex& li : logical) {
        r.skip(4);
        r.u32(); // index number
        std::uint32_t real = r.u32();
        r.skip(1 + 4 + 4 + 1 + 1);
        li.kind = r.u8();
        r.skip(4);
        li.realIndex = real < numReal ? static_cast<int>(real) : -1;
    }
    for (LogicalIndex& li : logical) {
        unsigned len = r.u16();
        const std::uint8_t* s = r.take(len);
        if (s) li.name = ucs2ToUtf8(s, len);
    }
    if (r.bad) return fail(ERR_CORRUPT, "Table definition on page " + std::to_string(tdefPage) + " is truncated.");

    for (const Column& c : cols) {
        switch (c.rawType) {
        case 0x01:
        case 0x02:
        case 0x03:
        case 0x04:
        case 0x05:
        case 0x06:
        case 0x07:
        case 0x08:
        case 0x09:
        case 0x0A:
        case 0x0B:
        case 0x0C:
        case 0x0F:
        case 0x10:
            break;
        default:
            return fail(ERR_CORRUPT, "Column '" + c.name + "' has unknown type " + std::to_string(c.rawType) + ".");
        }
    }
    // Table order is the column number order (gaps where columns were deleted).
    std::stable_sort(cols.begin(), cols.end(), [](const Column& a, const Column& b) { return a.number < b.number; });
    t.columns = std::move(cols);
    t.realIndexes.clear();
    for (RawIdx& ri : reals) {
        for (auto [num, asc] : ri.colNums) {
            int found = -1;
            for (std::size_t k = 0; k < t.columns.size(); ++k)
                if (t.columns[k].number == num) found = static_cast<int>(k);
            ri.idx.columns.push_back({found, asc});
        }
        t.realIndexes.push_back(std::move(ri.idx));
    }
    t.indexes = std::move(logical);
    return OK;
}

Status Database::loadCatalogue()
{
    Table sys;
    if (Status s = readTable(2, sys); s != OK) return fail(s, "System catalogue unreadable: " + error());
    auto find = [&](const char* name) -> int {
        for (std::size_t k = 0; k < sys.columns.size(); ++k)
            if (sys.columns[k].name == name) return static_cast<int>(k);
        return -1;
    };
    int cId = find("Id"), cName = find("Name"), cType = find("Type"), cFlags = find("Flags"), cProp = find("LvProp");
    if (cId < 0 || cName < 0 || cType < 0 || cFlags < 0)
        return fail(ERR_CORRUPT, "System catalogue lacks its key columns.");
    Cursor cur(*this, sys);
    Status s = cur.rewind();
    std::unordered_set<std::uint32_t> seen;
    for (; s == OK; s = cur.next()) {
        Value id, name, type, flags;
        if ((s = cur.column(cId, id)) != OK || (s = cur.column(cName, name)) != OK ||
            (s = cur.column(cType, type)) != OK || (s = cur.column(cFlags, flags)) != OK)
            return fail(s, cur.error());
        if (type.null || (type.i & 0x7FFF) != 1 || id.null || name.null) continue;
        std::uint32_t tdef = static_cast<std::uint32_t>(id.i) & 0x00FFFFFF;
        bool hidden = (!flags.null && (static_cast<std::uint32_t>(flags.i) & 0x80000002u) != 0) ||
                      name.s.compare(0, 4, "MSys") == 0;
        if (hidden || !seen.insert(tdef).second) continue;
        Table t;
        if (Status ts = readTable(tdef, t); ts != OK) return fail(ts, "Table '" + name.s + "': " + error());
        t.name = name.s;
        Value prop;
        if (cProp >= 0 && cur.column(static_cast<std::size_t>(cProp), prop) == OK && !prop.null) {
            const auto defaults =
                readDefaultValues(reinterpret_cast<const std::uint8_t*>(prop.s.data()), prop.s.size());
            for (Column& c : t.columns)
                for (const auto& [column, expression] : defaults)
                    if (iequals(column, c.name)) c.defaultValue = expression;
        }
        tables_.push_back(std::move(t));
    }
    if (s != END) return fail(s, cur.error());
    return OK;
}

const Table* Database::table(const std::string& name) const
{
    for (const Table& t : tables_)
        if (iequals(t.name, name)) return &t;
    return nullptr;
}

Status Database::mapPages(std::uint32_t mapPtr, std::vector<std::uint32_t>& out) const
{
    out.clear();
    const std::uint8_t* m;
    std::size_t n;
    unsigned flags;
    if (Status s = rowBytes(mapPtr >> 8, mapPtr & 0xFF, &m, &n, &flags); s != OK) return s;
    // The map row is kept: the map pages read below may push its page out of the cache.
    const std::vector<std::uint8_t> row(m, m + n);
    m = row.data();
    if (n < 1) return fail(ERR_CORRUPT, "A usage map is empty.");
    if (m[0] == 0) {
        if (n < 5) return fail(ERR_CORRUPT, "A usage map is truncated.");
        std::uint64_t start = le32(m + 1);
        for (std::size_t i = 5; i < n; ++i)
            for (int b = 0; b < 8; ++b)
                if (m[i] >> b & 1) {
                    std::uint64_t pg = start + (i - 5) * 8 + std::size_t(b);
                    if (pg <= 0xFFFFFFFFu) out.push_back(static_cast<std::uint32_t>(pg));
                }
    } else if (m[0] == 1) {
        constexpr std::size_t perPage = (kPageSize - 4) * 8;
        for (std::size_t k = 0; 1 + 4 * k + 4 <= n; ++k) {
            std::uint32_t mp = le32(m + 1 + 4 * k);
            if (mp == 0) continue;
            const std::uint8_t* d = page(mp);
            if (!d) return missingPage("A usage map points outside the file.");
            if (d[0] != 0x05) return fail(ERR_CORRUPT, "A usage map points to a page that is not a map.");
            for (std::size_t i = 4; i < kPageSize; ++i)
                if (d[i])
                    for (int b = 0; b < 8; ++b)
                        if (d[i] >> b & 1) {
                            std::uint64_t pg = k * perPage + (i - 4) * 8 + std::size_t(b);
                            if (pg <= 0xFFFFFFFFu) out.push_back(static_cast<std::uint32_t>(pg));
                        }
        }
    } else {
        return fail(ERR_CORRUPT, "A usage map has an unknown type.");
    }
    return OK;
}

Status Database::dataPages(const Table& t, std::vector<std::uint32_t>& out) const
{
    std::vector<std::uint32_t> all;
    out.clear();
    if (Status s = mapPages(t.usageMap, all); s != OK)
        return fail(s, "Usage map of table '" + t.name + "': " + error());
    std::uint32_t total = pageCount();
    for (std::uint32_t pg : all) {
        if (pg == 0 || pg >= total) continue;
        const std::uint8_t* d = page(pg);
        if (!d && readStatus_ != OK) return fail(readStatus_, error());
        if (!d) continue; // a new page of a transaction not yet committed
        if (d[0] == 0x01 && le32(d + 4) == t.tdefPage) out.push_back(pg);
    }
    return OK;
}

} // namespace jet
