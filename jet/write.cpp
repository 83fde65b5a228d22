// Row writes: encoding, data pages, moved rows, usage maps, long values, the table definition's counters.
#include "jet/bytes.h"
#include "jet/jet.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace jet
{

using namespace detail;

namespace
{

constexpr int kStatement = 1 << 30;      // savepoint id that makes one row write all or nothing
constexpr std::size_t kInlineLong = 200; // long values up to this size stay in their row
constexpr std::size_t kLvalRow = 4000;   // one LVAL row; longer values are chained
constexpr std::uint16_t kDeleted = 0xC000, kMovedHere = 0x8000, kMovedAway = 0x4000;
constexpr std::size_t kMapPageBits = (kPageSize - 4) * 8;
const char* kTooSmall = "The field is too small to accept the amount of data you attempted to add. Try inserting or "
                        "pasting less data.";

// Text as stored: the compressed form (FF FE, one byte a character) when the column allows it and every
// character is a single byte; UCS-2 otherwise.
std::string storeText(const std::string& utf8, bool compress)
{
    std::u16string u = utf8ToUtf16(utf8);
    bool small = compress && !u.empty() && u.size() <= 1024 &&
                 std::all_of(u.begin(), u.end(), [](char16_t c) { return c >= 1 && c <= 0xFF; });
    std::string out;
    if (small) {
        out = "\xFF\xFE";
        for (char16_t c : u)
            out += static_cast<char>(c);
        return out;
    }
    for (char16_t c : u)
        append16(out, c);
    return out;
}

bool numericBytes(const std::string& text, unsigned scale, std::string& out)
{
    __extension__ typedef unsigned __int128 u128;
    std::size_t i = 0;
    bool neg = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) neg = text[i++] == '-';
    u128 v = 0;
    unsigned frac = 0;
    bool dot = false, any = false;
    for (; i < text.size(); ++i) {
        char c = text[i];
        if (c == '.' && !dot) {
            dot = true;
            continue;
        }
        if (c < '0' || c > '9') return false;
        if (dot && frac == scale) {
            if (c != '0') return false; // more decimals than the column keeps
            continue;
        }
        v = v * 10 + static_cast<unsigned>(c - '0');
        if (v >> 96) return false;
        any = true;
        if (dot) ++frac;
    }
    if (!any) return false;
    for (; frac < scale; ++frac)
        v *= 10;
    if (v >> 96) return false;
    out.assign(1, static_cast<char>(neg && v != 0 ? 0x80 : 0));
    for (int w = 3; w >= 0; --w)
        append32(out, static_cast<std::uint32_t>(v >> (32 * w)));
    return true;
}

// A field's raw bytes in a stored row; false when null.
bool rawField(const Table& t, const Column& c, const std::string& row, std::string& out)
{
    const auto* r = reinterpret_cast<const std::uint8_t*>(row.data());
    std::size_t n = row.size();
    if (n < 2) return false;
    unsigned numCols = le16(r);
    std::size_t maskLen = (std::size_t(numCols) + 7) / 8;
    if (n < 2 + maskLen || c.number >= numCols) return false;
    const std::uint8_t* mask = r + n - maskLen;
    if (!(mask[c.number / 8] >> (c.number % 8) & 1)) return false;
    std::size_t end = n - maskLen;
    if (c.fixed) return false; // only long values are reused
    if (t.varCols == 0 || end < 2) return false;
    unsigned varCount = le16(r + end - 2);
    if (c.varIndex >= varCount || end < 2 + 2 * (std::size_t(varCount) + 1)) return false;
    std::size_t a = le16(r + end - 4 - 2 * std::size_t(c.varIndex));
    std::size_t b = le16(r + end - 6 - 2 * std::size_t(c.varIndex));
    if (a > b || b > end) return false;
    out.assign(row, a, b - a);
    return true;
}

bool isLong(const Column& c)
{
    return c.type == Type::Memo || c.type == Type::Ole;
}

} // namespace

Status Database::undoRowWrite(Status s)
{
    std::string why = error();
    rollbackTo(kStatement);
    release(kStatement);
    return fail(s, why);
}

Status Database::readRow(const Table& t, RowId id, std::vector<Value>& out) const
{
    Cursor cur(*this, t);
    Status s = cur.seek({id});
    if (s == END) return fail(ERR_NOT_FOUND, "The row was deleted by another user or process.");
    if (s != OK) return fail(s, cur.error());
    out.resize(t.columns.size());
    for (std::size_t k = 0; k < t.columns.size(); ++k)
        if ((s = cur.column(k, out[k])) != OK) return fail(s, cur.error());
    return OK;
}

Status Database::homeOf(RowId id, std::uint32_t* pg, unsigned* slot, bool* moved) const
{
    *pg = static_cast<std::uint32_t>(id >> 8);
    *slot = static_cast<unsigned>(id & 0xFF);
    *moved = false;
    const std::uint8_t* p;
    std::size_t n;
    unsigned flags;
    if (Status s = rowBytes(*pg, *slot, &p, &n, &flags); s != OK) return s;
    if (flags & 0x8000) return fail(ERR_NOT_FOUND, "The row was deleted by another user or process.");
    if (flags & kMovedAway) {
        if (n < 4) return fail(ERR_CORRUPT, "Moved row pointer is damaged.");
        std::uint32_t ptr = le32(p);
        *pg = ptr >> 8;
        *slot = ptr & 0xFF;
        *moved = true;
        if (Status s = rowBytes(*pg, *slot, &p, &n, &flags); s != OK) return s;
    }
    return OK;
}

Status Database::addRow(std::uint32_t pg, const std::string& row, std::uint16_t flags, unsigned* slot)
{
    std::uint8_t* d = writable(pg);
    if (!d || d[0] != 0x01) return fail(ERR_CORRUPT, "Page " + std::to_string(pg) + " is not a data page.");
    unsigned count = le16(d + 12);
    std::size_t top = count ? (le16(d + 14 + 2 * (count - 1)) & 0x1FFF) : kPageSize;
    if (count >= 255 || top < 14 + 2 * (std::size_t(count) + 1) + row.size())
        return fail(ERR_CORRUPT, "No room for the row on page " + std::to_string(pg) + ".");
    std::size_t start = top - row.size();
    std::memcpy(d + start, row.data(), row.size());
    put16(d + 14 + 2 * count, static_cast<std::uint32_t>(start) | flags);
    put16(d + 12, count + 1);
    put16(d + 2, le16(d + 2) - static_cast<unsigned>(row.size()) - 2);
    *slot = count;
    return OK;
}

Status Database::replaceRow(std::uint32_t pg, unsigned slot, const std::string& row, std::uint16_t flags, bool* fitted)
{
    *fitted = false;
    const std::uint8_t* d = page(pg);
    if (!d || d[0] != 0x01) return fail(ERR_CORRUPT, "Page " + std::to_string(pg) + " is not a data page.");
    unsigned count = le16(d + 12);
    if (slot >= count) return fail(ERR_CORRUPT, "Row " + std::to_string(slot) + " is missing.");
    std::vector<std::string> rows(count);
    std::vector<std::uint16_t> fl(count);
    std::size_t total = 0;
    for (unsigned k = 0; k < count; ++k) {
        const std::uint8_t* p;
        std::size_t n;
        unsigned f;
        if (Status s = rowBytes(pg, k, &p, &n, &f); s != OK) return s;
        rows[k] = k == slot ? row : std::string(reinterpret_cast<const char*>(p), n);
        fl[k] = static_cast<std::uint16_t>(k == slot ? flags : f);
        total += rows[k].size();
    }
    if (14 + 2 * std::size_t(count) + total > kPageSize) return OK;
    std::uint8_t* w = writable(pg);
    std::size_t at = kPageSize;
    for (unsigned k = 0; k < count; ++k) {
        at -= rows[k].size();
        std::memcpy(w + at, rows[k].data(), rows[k].size());
        put16(w + 14 + 2 * k, static_cast<std::uint32_t>(at) | fl[k]);
    }
    put16(w + 2, static_cast<std::uint32_t>(kPageSize - 14 - 2 * count - total));
    *fitted = true;
    return OK;
}

Status Database::mapAdd(std::uint32_t mapPtr, std::uint32_t pg)
{
    std::uint32_t mp = mapPtr >> 8;
    unsigned slot = mapPtr & 0xFF;
    const std::uint8_t* p;
    std::size_t n;
    unsigned flags;
    if (Status s = rowBytes(mp, slot, &p, &n, &flags); s != OK) return s;
    if (n < 5) return fail(ERR_CORRUPT, "A usage map is too short.");
    std::size_t off = static_cast<std::size_t>(p - page(mp));
    if (p[0] == 0) {
        std::uint32_t start = le32(p + 1);
        std::size_t bits = (n - 5) * 8;
        std::vector<std::uint32_t> pages;
        for (std::size_t i = 0; i < bits; ++i)
            if (p[5 + i / 8] >> (i % 8) & 1) pages.push_back(start + static_cast<std::uint32_t>(i));
        pages.push_back(pg);
        std::uint32_t lo = *std::min_element(pages.begin(), pages.end());
        std::uint32_t hi = *std::max_element(pages.begin(), pages.end());
        if (pg >= start && pg - start < bits) {
            std::uint8_t* w = writable(mp) + off;
            w[5 + (pg - start) / 8] |= static_cast<std::uint8_t>(1u << ((pg - start) % 8));
            return OK;
        }
        if (hi - lo < bits) {
            std::uint8_t* w = writable(mp) + off;
            std::memset(w + 5, 0, n - 5);
            put32(w + 1, lo);
            for (std::uint32_t q : pages)
                w[5 + (q - lo) / 8] |= static_cast<std::uint8_t>(1u << ((q - lo) % 8));
            return OK;
        }
        // Too wide for the row: the map moves to map pages the row points to.
        std::size_t slots = (n - 1) / 4;
        std::vector<std::uint32_t> mapPages(slots, 0);
        for (std::uint32_t q : pages) {
            std::size_t k = q / kMapPageBits;
            if (k >= slots) return fail(ERR_CORRUPT, "A usage map cannot reach page " + std::to_string(q) + ".");
            if (!mapPages[k] && allocPage(0x05, &mapPages[k]) != OK) return fail(ERR_CONSTRAINT, error());
            std::uint8_t* m = writable(mapPages[k]);
            std::size_t b = q - k * kMapPageBits;
            m[4 + b / 8] |= static_cast<std::uint8_t>(1u << (b % 8));
        }
        std::uint8_t* w = writable(mp) + off;
        std::memset(w, 0, n);
        w[0] = 1;
        for (std::size_t k = 0; k < slots; ++k)
            put32(w + 1 + 4 * k, mapPages[k]);
        return OK;
    }
    if (p[0] != 1) return fail(ERR_CORRUPT, "A usage map has an unknown type.");
    std::size_t k = pg / kMapPageBits;
    if (1 + 4 * k + 4 > n) return fail(ERR_CORRUPT, "A usage map cannot reach page " + std::to_string(pg) + ".");
    std::uint32_t m = le32(p + 1 + 4 * k);
    if (m == 0) {
        if (Status s = allocPage(0x05, &m); s != OK) return s;
        put32(writable(mp) + off + 1 + 4 * k, m);
    }
    std::uint8_t* w = writable(m);
    if (!w || w[0] != 0x05) return fail(ERR_CORRUPT, "A usage map points to a page that is not a map.");
    std::size_t b = pg - k * kMapPageBits;
    w[4 + b / 8] |= static_cast<std::uint8_t>(1u << (b % 8));
    return OK;
}

Status Database::placeRow(const Table& t, const std::string& row, std::uint16_t flags, RowId* id)
{
    auto room = [&](std::uint32_t pg) {
        const std::uint8_t* d = page(pg);
        return d && d[0] == 0x01 && le32(d + 4) == t.tdefPage && le16(d + 12) < 255 && le16(d + 2) >= row.size() + 2;
    };
    std::uint32_t pg = 0;
    auto hint = insertPage_.find(t.tdefPage);
    if (hint != insertPage_.end()) {
        if (room(hint->second)) pg = hint->second;
    } else {
        std::vector<std::uint32_t> pages;
        if (Status s = dataPages(t, pages); s != OK) return s;
        if (!pages.empty() && room(pages.back())) pg = pages.back();
    }
    if (pg == 0) {
        if (Status s = allocPage(0x01, &pg); s != OK) return s;
        std::uint8_t* d = writable(pg);
        put16(d + 2, kPageSize - 14);
        put32(d + 4, t.tdefPage);
        if (Status s = mapAdd(t.usageMap, pg); s != OK) return s;
        if (t.freeMap != 0)
            if (Status s = mapAdd(t.freeMap, pg); s != OK) return s;
    }
    insertPage_[t.tdefPage] = pg;
    unsigned slot;
    if (Status s = addRow(pg, row, flags, &slot); s != OK) return s;
    *id = RowId(pg) << 8 | slot;
    return OK;
}

Status Database::putLong(const std::string& data, std::string& field)
{
    field.clear();
    if (data.size() > 0xFFFFFF) return fail(ERR_CONSTRAINT, kTooSmall);
    auto header = [&](std::uint8_t kind, std::uint32_t ptr) {
        field.assign(12, '\0');
        field[0] = static_cast<char>(data.size() & 0xFF);
        field[1] = static_cast<char>(data.size() >> 8 & 0xFF);
        field[2] = static_cast<char>(data.size() >> 16 & 0xFF);
        field[3] = static_cast<char>(kind);
        for (int i = 0; i < 4; ++i)
            field[4 + static_cast<std::size_t>(i)] = static_cast<char>(ptr >> (8 * i) & 0xFF);
    };
    if (data.size() <= kInlineLong) {
        header(0x80, 0);
        field += data;
        return OK;
    }
    // LVAL rows go to a page of their own kind, shared by the values of this transaction.
    auto put = [&](const std::string& row, std::uint32_t* ptr) -> Status {
        const std::uint8_t* d = lvalPage_ ? page(lvalPage_) : nullptr;
        if (!d || d[0] != 0x01 || std::memcmp(d + 4, "LVAL", 4) != 0 || le16(d + 12) >= 255 ||
            le16(d + 2) < row.size() + 2) {
            if (Status s = allocPage(0x01, &lvalPage_); s != OK) return s;
            std::uint8_t* w = writable(lvalPage_);
            put16(w + 2, kPageSize - 14);
            std::memcpy(w + 4, "LVAL", 4);
        }
        unsigned slot;
        if (Status s = addRow(lvalPage_, row, 0, &slot); s != OK) return s;
        *ptr = lvalPage_ << 8 | slot;
        return OK;
    };
    std::uint32_t ptr = 0;
    if (data.size() <= kLvalRow) {
        if (Status s = put(data, &ptr); s != OK) return s;
        header(0x40, ptr);
        return OK;
    }
    constexpr std::size_t chunk = kLvalRow - 4;
    std::size_t pieces = (data.size() + chunk - 1) / chunk;
    for (std::size_t k = pieces; k-- > 0;) {
        std::string row;
        append32(row, ptr);
        row.append(data, k * chunk, chunk);
        if (Status s = put(row, &ptr); s != OK) return s;
    }
    header(0x00, ptr);
    return OK;
}

Status Database::freeLong(const std::uint8_t* f, std::size_t n)
{
    if (n < 12 || (f[3] & 0x80)) return OK;
    std::uint32_t ptr = le32(f + 4);
    bool chain = !(f[3] & 0x40);
    for (std::size_t hops = 0; ptr != 0 && hops <= pageCount(); ++hops) {
        const std::uint8_t* p;
        std::size_t len;
        unsigned flags;
        std::uint32_t pg = ptr >> 8;
        unsigned slot = ptr & 0xFF;
        if (rowBytes(pg, slot, &p, &len, &flags) != OK) return OK; // a damaged value is left as it is
        std::uint32_t next = chain && len >= 4 ? le32(p) : 0;
        std::uint8_t* w = writable(pg);
        put16(w + 14 + 2 * slot, le16(w + 14 + 2 * slot) | kDeleted);
        ptr = next;
    }
    return OK;
}

Status Database::encodeRow(const Table& t, const std::vector<Value>& v, const std::vector<Value>* old,
                           const std::string& oldRow, std::string& out, std::vector<int>& reused)
{
    reused.clear();
    unsigned numCols = t.maxCols;
    std::size_t fixedLen = 0;
    int nVar = 0;
    for (const Column& c : t.columns) {
        numCols = std::max<unsigned>(numCols, c.number + 1u);
        if (c.fixed && c.type != Type::Bool)
            fixedLen =
                std::max(fixedLen, std::size_t(c.fixedOffset) + (typeSize(c.type) ? typeSize(c.type) : c.length));
        if (!c.fixed) nVar = std::max(nVar, c.varIndex + 1);
    }
    if (t.varCols == 0) nVar = 0;
    std::string mask((numCols + 7) / 8, '\0');
    out.assign(2 + fixedLen, '\0');
    out[0] = static_cast<char>(numCols & 0xFF);
    out[1] = static_cast<char>(numCols >> 8);
    std::vector<std::string> var(static_cast<std::size_t>(nVar));
    std::vector<bool> varSet(static_cast<std::size_t>(nVar), false);
    for (std::size_t k = 0; k < t.columns.size(); ++k) {
        const Column& c = t.columns[k];
        const Value& x = k < v.size() ? v[k] : Value{};
        auto setBit = [&] { mask[c.number / 8] = static_cast<char>(mask[c.number / 8] | (1 << (c.number % 8))); };
        if (c.type == Type::Bool) {
            if (!x.null && x.i) setBit();
            continue;
        }
        if (x.null) continue;
        std::string b;
        switch (c.type) {
        case Type::Byte:
        case Type::Int:
        case Type::Long:
        case Type::Money: {
            std::size_t size = typeSize(c.type);
            std::int64_t lo = size == 1 ? 0 : size == 8 ? INT64_MIN : -(std::int64_t(1) << (8 * size - 1));
            std::int64_t hi = size == 1 ? 255 : size == 8 ? INT64_MAX : (std::int64_t(1) << (8 * size - 1)) - 1;
            if (x.i < lo || x.i > hi)
                return fail(ERR_CONSTRAINT, "The value for '" + c.name + "' is out of the range of its field.");
            for (std::size_t i = 0; i < size; ++i)
                b += static_cast<char>(static_cast<std::uint64_t>(x.i) >> (8 * i) & 0xFF);
            break;
        }
        case Type::Float: {
            float f = static_cast<float>(x.d);
            std::uint32_t u;
            std::memcpy(&u, &f, 4);
            append32(b, u);
            break;
        }
        case Type::Double:
        case Type::DateTime: {
            std::uint64_t u;
            std::memcpy(&u, &x.d, 8);
            append32(b, static_cast<std::uint32_t>(u));
            append32(b, static_cast<std::uint32_t>(u >> 32));
            break;
        }
        case Type::Guid:
            if (x.s.size() != 16) return fail(ERR_CONSTRAINT, "The value for '" + c.name + "' is not a GUID.");
            b = x.s;
            break;
        case Type::Numeric:
            if (!numericBytes(x.s, c.scale, b))
                return fail(ERR_CONSTRAINT, "The value for '" + c.name + "' does not fit its decimal field.");
            break;
        case Type::Text:
            b = storeText(x.s, c.compressed);
            if (utf8ToUtf16(x.s).size() * 2 > c.length) return fail(ERR_CONSTRAINT, kTooSmall);
            break;
        case Type::Binary:
            b = x.s;
            if (b.size() > c.length) return fail(ERR_CONSTRAINT, kTooSmall);
            break;
        case Type::Memo:
        case Type::Ole: {
            if (old && k < old->size() && !(*old)[k].null && (*old)[k].s == x.s && rawField(t, c, oldRow, b)) {
                reused.push_back(static_cast<int>(k));
                break;
            }
            std::string data = c.type == Type::Memo ? storeText(x.s, c.compressed) : x.s;
            if (Status s = putLong(data, b); s != OK) return s;
            break;
        }
        default:
            break;
        }
        setBit();
        if (c.fixed) {
            std::size_t size = typeSize(c.type) ? typeSize(c.type) : c.length;
            b.resize(size, c.type == Type::Text ? '\x20' : '\0');
            std::memcpy(out.data() + 2 + c.fixedOffset, b.data(), std::min(size, b.size()));
        } else if (c.varIndex < var.size()) {
            var[c.varIndex] = std::move(b);
            varSet[c.varIndex] = true;
        }
    }
    if (nVar > 0) {
        std::vector<std::uint32_t> offs;
        for (const std::string& x : var) {
            offs.push_back(static_cast<std::uint32_t>(out.size()));
            out += x;
        }
        append16(out, static_cast<std::uint32_t>(out.size())); // end of the variable data
        for (std::size_t i = offs.size(); i-- > 0;)
            append16(out, offs[i]);
        append16(out, static_cast<std::uint32_t>(nVar));
    }
    out += mask;
    if (out.size() > kPageSize - 14 - 2 - 16) return fail(ERR_CONSTRAINT, "Record is too large.");
    return OK;
}

Status Database::setTableCounts(const Table& t, std::int64_t delta, std::uint32_t autoNumber)
{
    std::uint8_t* d = writable(t.tdefPage);
    if (!d || d[0] != 0x02) return fail(ERR_CORRUPT, "Table definition of '" + t.name + "' is damaged.");
    auto rows = static_cast<std::uint32_t>(std::max<std::int64_t>(0, std::int64_t(le32(d + 16)) + delta));
    put32(d + 16, rows);
    put32(d + 20, autoNumber);
    mut(t).rowCount = rows;
    mut(t).autoNumber = autoNumber;
    return OK;
}

Status Database::insertRow(const Table& t, const std::vector<Value>& values, RowId* id)
{
    if (!inTransaction()) return fail(ERR_ARG, "No write transaction.");
    if (Status s = savepoint(kStatement); s != OK) return s;
    std::vector<Value> v = values;
    v.resize(t.columns.size());
    std::uint32_t autoNumber = t.autoNumber;
    for (std::size_t k = 0; k < t.columns.size(); ++k) {
        const Column& c = t.columns[k];
        if (c.type != Type::Long || !(c.flags & 0x04)) continue;
        if (v[k].null) {
            v[k].null = false;
            v[k].i = ++autoNumber;
        } else if (v[k].i > 0 && static_cast<std::uint32_t>(v[k].i) > autoNumber) {
            autoNumber = static_cast<std::uint32_t>(v[k].i);
        }
    }
    std::string row;
    std::vector<int> reused;
    Status s = encodeRow(t, v, nullptr, {}, row, reused);
    if (s == OK) s = placeRow(t, row, 0, id);
    if (s == OK) s = setTableCounts(t, 1, autoNumber);
    if (s == OK) s = indexWrite(t, nullptr, &v, *id);
    if (s != OK) return undoRowWrite(s);
    return release(kStatement);
}

Status Database::deleteRow(const Table& t, RowId id)
{
    if (!inTransaction()) return fail(ERR_ARG, "No write transaction.");
    std::vector<Value> old;
    if (Status s = readRow(t, id, old); s != OK) return s;
    if (Status s = savepoint(kStatement); s != OK) return s;
    std::uint32_t pg, home = static_cast<std::uint32_t>(id >> 8);
    unsigned slot, homeSlot = static_cast<unsigned>(id & 0xFF);
    bool moved;
    Status s = homeOf(id, &pg, &slot, &moved);
    if (s != OK) return undoRowWrite(s);
    {
        const std::uint8_t* p;
        std::size_t n;
        unsigned flags;
        if ((s = rowBytes(pg, slot, &p, &n, &flags)) != OK) return undoRowWrite(s);
        std::string row(reinterpret_cast<const char*>(p), n);
        for (const Column& c : t.columns) {
            std::string f;
            if (isLong(c) && rawField(t, c, row, f))
                if ((s = freeLong(reinterpret_cast<const std::uint8_t*>(f.data()), f.size())) != OK)
                    return undoRowWrite(s);
        }
    }
    for (auto [q, k] : {std::pair{home, homeSlot}, std::pair{pg, slot}}) {
        std::uint8_t* w = writable(q);
        put16(w + 14 + 2 * k, le16(w + 14 + 2 * k) | kDeleted);
        if (!moved) break;
    }
    if ((s = setTableCounts(t, -1, t.autoNumber)) != OK) return undoRowWrite(s);
    if ((s = indexWrite(t, &old, nullptr, id)) != OK) return undoRowWrite(s);
    return release(kStatement);
}

Status Database::updateColumns(const Table& t, RowId id, const std::vector<std::pair<std::size_t, Value>>& changes)
{
    if (!inTransaction()) return fail(ERR_ARG, "No write transaction.");
    std::uint32_t pg;
    unsigned slot;
    bool moved;
    const std::uint8_t* r;
    std::size_t n;
    unsigned flags;
    bool inPlace = homeOf(id, &pg, &slot, &moved) == OK && rowBytes(pg, slot, &r, &n, &flags) == OK && n >= 2;
    // Each field as its bytes and where they go; a change that cannot be written in place sends the row the
    // long way round (which also reports any fault).
    std::vector<std::pair<std::size_t, std::string>> fields;
    for (const auto& [k, x] : changes) {
        if (!inPlace) break;
        const Column& c = t.columns[k];
        const std::size_t size = typeSize(c.type);
        bool indexed = false;
        for (const RealIndex& ri : t.realIndexes)
            for (const IndexColumn& ic : ri.columns)
                indexed = indexed || ic.column == int(k);
        const unsigned numCols = le16(r);
        const std::size_t maskLen = (std::size_t(numCols) + 7) / 8;
        const std::size_t start = 2 + std::size_t(c.fixedOffset);
        inPlace = !indexed && !x.null && c.fixed && size != 0 && c.type != Type::Guid && c.type != Type::Numeric &&
                  c.number < numCols && n >= maskLen + start + size &&
                  (r[n - maskLen + c.number / 8] >> (c.number % 8) & 1);
        if (!inPlace) break;
        std::string b;
        if (c.type == Type::Float) {
            float f = static_cast<float>(x.d);
            std::uint32_t u;
            std::memcpy(&u, &f, 4);
            append32(b, u);
        } else if (c.type == Type::Double || c.type == Type::DateTime) {
            std::uint64_t u;
            std::memcpy(&u, &x.d, 8);
            append32(b, static_cast<std::uint32_t>(u));
            append32(b, static_cast<std::uint32_t>(u >> 32));
        } else {
            std::int64_t lo = size == 1 ? 0 : size == 8 ? INT64_MIN : -(std::int64_t(1) << (8 * size - 1));
            std::int64_t hi = size == 1 ? 255 : size == 8 ? INT64_MAX : (std::int64_t(1) << (8 * size - 1)) - 1;
            if (x.i < lo || x.i > hi)
                return fail(ERR_CONSTRAINT, "The value for '" + c.name + "' is out of the range of its field.");
            for (std::size_t i = 0; i < size; ++i)
                b += static_cast<char>(static_cast<std::uint64_t>(x.i) >> (8 * i) & 0xFF);
        }
        fields.emplace_back(static_cast<std::size_t>(r - page(pg)) + start, std::move(b));
    }
    if (inPlace) {
        // Only when something changes: an unchanged page is not journalled.
        bool same = true;
        for (const auto& [at, b] : fields)
            same = same && std::memcmp(page(pg) + at, b.data(), b.size()) == 0;
        if (!same) {
            std::uint8_t* w = writable(pg);
            for (const auto& [at, b] : fields)
                std::memcpy(w + at, b.data(), b.size());
        }
        return OK;
    }
    std::vector<Value> values;
    if (Status s = readRow(t, id, values); s != OK) return s;
    for (const auto& [k, x] : changes)
        values[k] = x;
    return updateRow(t, id, values);
}

Status Database::updateRow(const Table& t, RowId id, const std::vector<Value>& values)
{
    if (!inTransaction()) return fail(ERR_ARG, "No write transaction.");
    std::vector<Value> old;
    if (Status s = readRow(t, id, old); s != OK) return s;
    if (Status s = savepoint(kStatement); s != OK) return s;
    std::vector<Value> v = values;
    v.resize(t.columns.size());
    std::uint32_t pg, home = static_cast<std::uint32_t>(id >> 8);
    unsigned slot, homeSlot = static_cast<unsigned>(id & 0xFF);
    bool moved;
    Status s = homeOf(id, &pg, &slot, &moved);
    if (s != OK) return undoRowWrite(s);
    const std::uint8_t* p;
    std::size_t n;
    unsigned flags;
    if ((s = rowBytes(pg, slot, &p, &n, &flags)) != OK) return undoRowWrite(s);
    std::string oldRow(reinterpret_cast<const char*>(p), n), row;
    std::vector<int> reused;
    if ((s = encodeRow(t, v, &old, oldRow, row, reused)) != OK) return undoRowWrite(s);
    for (std::size_t k = 0; k < t.columns.size(); ++k) {
        std::string f;
        if (isLong(t.columns[k]) && std::find(reused.begin(), reused.end(), int(k)) == reused.end() &&
            rawField(t, t.columns[k], oldRow, f))
            if ((s = freeLong(reinterpret_cast<const std::uint8_t*>(f.data()), f.size())) != OK) return undoRowWrite(s);
    }
    bool fitted = false;
    if (row.size() == oldRow.size()) {
        const std::uint8_t* q;
        if ((s = rowBytes(pg, slot, &q, &n, &flags)) != OK) return undoRowWrite(s);
        std::size_t off = static_cast<std::size_t>(q - page(pg));
        std::memcpy(writable(pg) + off, row.data(), row.size());
        fitted = true;
    } else if ((s = replaceRow(pg, slot, row, static_cast<std::uint16_t>(moved ? kMovedHere : 0), &fitted)) != OK) {
        return undoRowWrite(s);
    }
    if (!fitted) {
        // No room left on its page: the row lives elsewhere, its slot keeps a pointer (indexes point there).
        RowId there;
        if ((s = placeRow(t, row, kMovedHere, &there)) != OK) return undoRowWrite(s);
        if (moved) {
            std::uint8_t* w = writable(pg);
            put16(w + 14 + 2 * slot, le16(w + 14 + 2 * slot) | kDeleted);
        }
        std::string ptr;
        append32(ptr, static_cast<std::uint32_t>(there));
        if ((s = replaceRow(home, homeSlot, ptr, kMovedAway, &fitted)) != OK) return undoRowWrite(s);
        if (!fitted) return undoRowWrite(fail(ERR_CORRUPT, "Moved row pointer does not fit its page."));
    }
    if ((s = indexWrite(t, &old, &v, id)) != OK) return undoRowWrite(s);
    return release(kStatement);
}

} // namespace jet
