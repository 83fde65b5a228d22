// Rows: data pages, offsets, null mask, fixed and variable columns, long values.
#include "jet/bytes.h"
#include "jet/jet.h"

#include <algorithm>

namespace jet
{

using namespace detail;

std::size_t typeSize(Type t)
{
    switch (t) {
    case Type::Byte:
        return 1;
    case Type::Int:
        return 2;
    case Type::Long:
    case Type::Float:
        return 4;
    case Type::Money:
    case Type::Double:
    case Type::DateTime:
        return 8;
    case Type::Guid:
        return 16;
    case Type::Numeric:
        return 17;
    default:
        return 0;
    }
}

namespace
{

std::size_t fixedSize(const Column& c)
{
    std::size_t n = typeSize(c.type);
    return n ? n : c.length;
}

__extension__ typedef unsigned __int128 u128;

std::string numericText(const std::uint8_t* p, unsigned scale)
{
    // Sign byte, then four little-endian 32-bit words, most significant first.
    u128 v = 0;
    for (int w = 0; w < 4; ++w)
        v = v << 32 | le32(p + 1 + 4 * w);
    std::string digits;
    do {
        digits.push_back(static_cast<char>('0' + static_cast<int>(v % 10)));
        v /= 10;
    } while (v != 0);
    if (scale > 38) scale = 38;
    while (digits.size() <= scale)
        digits.push_back('0');
    std::reverse(digits.begin(), digits.end());
    if (scale > 0) digits.insert(digits.size() - scale, 1, '.');
    if ((p[0] & 0x80) && digits.find_first_not_of("0.") != std::string::npos) digits.insert(digits.begin(), '-');
    return digits;
}

} // namespace

Cursor::Cursor(const Database& db, const Table& table) : db_(db), table_(table) {}

Status Cursor::fail(Status s, std::string msg) const
{
    error_ = std::move(msg);
    return s;
}

Status Cursor::rewind()
{
    byList_ = false;
    eof_ = true;
    // The pages the usage map marks; each is looked at only when the scan reaches it (a page another table or
    // nothing owns is skipped there), so a scan that stops early reads few pages.
    if (Status s = db_.mapPages(table_.usageMap, pages_); s != OK)
        return fail(s, "Usage map of table '" + table_.name + "': " + db_.error());
    pageIdx_ = 0;
    rowIdx_ = -1;
    return next();
}

Status Cursor::seek(std::vector<RowId> rows)
{
    byList_ = true;
    rows_ = std::move(rows);
    listIdx_ = 0;
    eof_ = true;
    rowIdx_ = -1;
    return next();
}

Status Cursor::load(RowId id)
{
    auto pg = static_cast<std::uint32_t>(id >> 8);
    unsigned row = static_cast<unsigned>(id & 0xFF);
    const std::uint8_t* p;
    std::size_t len;
    for (int hop = 0;; ++hop) {
        unsigned flags;
        if (Status s = db_.rowBytes(pg, row, &p, &len, &flags); s != OK) return fail(s, db_.error());
        // A moved row's new home carries the deleted flag so scans skip it there; only the original
        // slot's flag counts.
        if (hop == 0 && (flags & 0x8000)) return END;
        if (!(flags & 0x4000)) break;
        if (hop > 4 || len < 4) return fail(ERR_CORRUPT, "Moved row pointer is damaged.");
        std::uint32_t ptr = le32(p);
        pg = ptr >> 8;
        row = ptr & 0xFF;
    }
    if (len < 2) return fail(ERR_CORRUPT, "Row is too short.");
    homePage_ = pg;
    homeRow_ = row;
    rowId_ = id; // the original slot: indexes point there too
    return OK;
}

Status Cursor::next()
{
    eof_ = true;
    if (byList_) {
        while (rowIdx_ < 0 ? listIdx_ < rows_.size() : ++listIdx_ < rows_.size()) {
            rowIdx_ = 0;
            Status s = load(rows_[listIdx_]);
            if (s == OK) {
                eof_ = false;
                return OK;
            }
            if (s != END) return s;
        }
        return END;
    }
    while (pageIdx_ < pages_.size()) {
        std::uint32_t pg = pages_[pageIdx_];
        const std::uint8_t* d = pg == 0 ? nullptr : db_.page(pg);
        if (!d && db_.readStatus() != OK) return fail(db_.readStatus(), db_.error()); // there, but unreadable now
        if (!d || d[0] != 0x01 || le32(d + 4) != table_.tdefPage) {
            ++pageIdx_;
            rowIdx_ = -1;
            continue;
        }
        unsigned count = le16(d + 12);
        if (14 + 2 * std::size_t(count) > kPageSize)
            return fail(ERR_CORRUPT, "Data page " + std::to_string(pages_[pageIdx_]) + " has too many rows.");
        while (++rowIdx_ < static_cast<int>(count)) {
            Status s = load((RowId(pages_[pageIdx_]) << 8) | rowIdx_);
            if (s == OK) {
                eof_ = false;
                return OK;
            }
            if (s != END) return s;
        }
        ++pageIdx_;
        rowIdx_ = -1;
    }
    return END;
}

Status Cursor::current(const std::uint8_t** p, std::size_t* n) const
{
    unsigned flags;
    if (Status s = db_.rowBytes(homePage_, homeRow_, p, n, &flags, false); s != OK) return fail(s, db_.error());
    if (*n < 2) return fail(ERR_CORRUPT, "Row is too short.");
    return OK;
}

Status Cursor::column(std::size_t index, Value& v) const
{
    if (eof_ || index >= table_.columns.size()) return fail(ERR_ARG, "No such column or no current row.");
    const Column& c = table_.columns[index];
    v.type = c.type;
    v.null = true;
    v.i = 0;
    v.d = 0;
    v.s.clear();
    const std::uint8_t* r;
    std::size_t n;
    if (Status s = current(&r, &n); s != OK) return s;
    unsigned numCols = le16(r);
    std::size_t maskLen = (std::size_t(numCols) + 7) / 8;
    if (n < 2 + maskLen) return fail(ERR_CORRUPT, "Row is shorter than its null mask.");
    const std::uint8_t* mask = r + n - maskLen;
    bool bit = c.number < numCols && (mask[c.number / 8] >> (c.number % 8) & 1);
    if (c.type == Type::Bool) {
        v.null = false;
        v.i = bit ? 1 : 0;
        return OK;
    }
    if (!bit) return OK;
    std::size_t end = n - maskLen; // data and offset table live before the mask
    const std::uint8_t* p;
    std::size_t len;
    if (c.fixed) {
        len = fixedSize(c);
        std::size_t start = 2 + std::size_t(c.fixedOffset);
        if (start + len > end) return fail(ERR_CORRUPT, "Fixed column '" + c.name + "' runs past its row.");
        p = r + start;
    } else {
        if (table_.varCols == 0 || end < 2) return fail(ERR_CORRUPT, "Row lacks its variable column table.");
        unsigned varCount = le16(r + end - 2);
        if (c.varIndex >= varCount) return OK; // column added after the row was written
        if (end < 2 + 2 * (std::size_t(varCount) + 1))
            return fail(ERR_CORRUPT, "Row variable table runs past its row.");
        std::size_t tableStart = end - 2 - 2 * (std::size_t(varCount) + 1);
        std::size_t a = le16(r + end - 4 - 2 * std::size_t(c.varIndex));
        std::size_t b = le16(r + end - 6 - 2 * std::size_t(c.varIndex));
        if (a > b || b > tableStart) return fail(ERR_CORRUPT, "Variable column '" + c.name + "' has bad offsets.");
        p = r + a;
        len = b - a;
    }
    if (len < typeSize(c.type)) return fail(ERR_CORRUPT, "Column '" + c.name + "' is shorter than its type.");
    v.null = false;
    switch (c.type) {
    case Type::Bool:
        break;
    case Type::Byte:
        v.i = p[0];
        break;
    case Type::Int:
        v.i = static_cast<std::int16_t>(le16(p));
        break;
    case Type::Long:
        v.i = static_cast<std::int32_t>(le32(p));
        break;
    case Type::Money:
        v.i = static_cast<std::int64_t>(le64(p));
        break;
    case Type::Float:
        v.d = static_cast<double>(leFloat(p));
        break;
    case Type::Double:
    case Type::DateTime:
        v.d = leDouble(p);
        break;
    case Type::Guid:
        v.s.assign(reinterpret_cast<const char*>(p), 16);
        break;
    case Type::Numeric:
        v.s = numericText(p, c.scale);
        break;
    case Type::Binary:
        v.s.assign(reinterpret_cast<const char*>(p), len);
        break;
    case Type::Text:
        v.s = decodeText(p, len);
        break;
    case Type::Ole:
        if (Status s = db_.longValue(p, len, v.s); s != OK) return fail(s, "Column '" + c.name + "': " + db_.error());
        break;
    case Type::Memo: {
        std::string raw;
        if (Status s = db_.longValue(p, len, raw); s != OK) return fail(s, "Column '" + c.name + "': " + db_.error());
        v.s = decodeText(reinterpret_cast<const std::uint8_t*>(raw.data()), raw.size());
        break;
    }
    }
    return OK;
}

} // namespace jet
