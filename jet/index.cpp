// Index B-trees: seeks on the first column of a real index.
#include "jet/bytes.h"
#include "jet/jet.h"

#include <algorithm>
#include <cstring>

namespace jet
{

using namespace detail;

namespace
{

constexpr std::size_t kEntriesStart = 0x1E0; // entry area; the start bitmap sits at 0x1B before it
constexpr std::size_t kMaskStart = 0x1B;
// Page header: prev 12, next 16, tail 20, shared prefix length 24.

// Order-preserving key bytes of a numeric value: 0x7F flag, big-endian with the sign bit flipped
// (floats: all bits flipped when negative). Descending indexes store the complement.
// General sort order (1033), Jet 4: primary weights of the characters whose weights we know, ending in
// 0x01; case does not enter the key. Other characters (punctuation, accents, q v x y z, non-Latin) get
// extra bytes we do not produce, so such values do not seek.
bool encodeText(const std::string& s, std::string& out)
{
    static const std::uint8_t letters[26] = {0x4A, 0x4C, 0x4D, 0x4F, 0x51, 0x53, 0x55, 0x57, 0x59,
                                             0x5B, 0x5C, 0x5E, 0x60, 0x62, 0x64, 0x66, 0,    0x69,
                                             0x6B, 0x6D, 0x6F, 0,    0x73, 0,    0,    0};
    if (s.empty() || s.size() > 100 || s.front() == ' ' || s.back() == ' ') return false;
    out.push_back(static_cast<char>(0x7F));
    for (char ch : s) {
        std::uint8_t w = 0;
        if (ch >= '0' && ch <= '9')
            w = static_cast<std::uint8_t>(0x36 + 2 * (ch - '0'));
        else if (ch >= 'a' && ch <= 'z')
            w = letters[ch - 'a'];
        else if (ch >= 'A' && ch <= 'Z')
            w = letters[ch - 'A'];
        else if (ch == ' ')
            w = 0x07;
        if (w == 0) return false;
        out.push_back(static_cast<char>(w));
    }
    out.push_back(static_cast<char>(0x01));
    return true;
}

bool encodeKey(const Value& v, bool ascending, std::string& out)
{
    out.clear();
    if (v.type == Type::Text) {
        if (!encodeText(v.s, out)) return false;
        if (!ascending)
            for (char& c : out)
                c = static_cast<char>(~c);
        return true;
    }
    std::uint64_t bits = 0;
    int size = 0;
    switch (v.type) {
    case Type::Byte:
        bits = static_cast<std::uint64_t>(v.i) & 0xFF;
        size = 1;
        break;
    case Type::Int:
        bits = (static_cast<std::uint64_t>(v.i) & 0xFFFF) ^ 0x8000;
        size = 2;
        break;
    case Type::Long:
        bits = (static_cast<std::uint64_t>(v.i) & 0xFFFFFFFF) ^ 0x80000000u;
        size = 4;
        break;
    case Type::Money:
        bits = static_cast<std::uint64_t>(v.i) ^ (std::uint64_t(1) << 63);
        size = 8;
        break;
    case Type::Float: {
        float f = static_cast<float>(v.d);
        std::uint32_t b;
        std::memcpy(&b, &f, 4);
        bits = (b & 0x80000000u) ? ~b : (b ^ 0x80000000u);
        size = 4;
        break;
    }
    case Type::Double:
    case Type::DateTime: {
        std::uint64_t b;
        std::memcpy(&b, &v.d, 8);
        bits = (b >> 63) ? ~b : (b ^ (std::uint64_t(1) << 63));
        size = 8;
        break;
    }
    default:
        return false;
    }
    out.push_back(static_cast<char>(0x7F));
    for (int k = size - 1; k >= 0; --k)
        out.push_back(static_cast<char>(bits >> (8 * k) & 0xFF));
    if (!ascending)
        for (char& c : out)
            c = static_cast<char>(~c);
    return true;
}

bool seekableType(const Column& c)
{
    switch (c.type) {
    case Type::Text:
        return c.sortOrder == 0x409;
    case Type::Byte:
    case Type::Int:
    case Type::Long:
    case Type::Money:
    case Type::Float:
    case Type::Double:
    case Type::DateTime:
        return true;
    default:
        return false;
    }
}

// Compares the leading bytes of an entry's key with a bound of the first column.
int comparePrefix(const std::string& key, const std::string& bound)
{
    std::size_t n = std::min(key.size(), bound.size());
    int c = std::memcmp(key.data(), bound.data(), n);
    if (c != 0) return c < 0 ? -1 : 1;
    return key.size() < bound.size() ? -1 : 0;
}

struct Entry {
    std::string key;
    std::uint32_t page = 0;
    unsigned row = 0;
    std::uint32_t child = 0;
};

bool parseIndexPage(const std::uint8_t* d, std::vector<Entry>& out)
{
    out.clear();
    bool leaf = d[0] == 0x04;
    std::size_t trailer = leaf ? 4 : 8;
    std::size_t prefixLen = le16(d + 24);
    std::string first;
    std::size_t start = kEntriesStart;
    for (std::size_t bit = 1; kMaskStart + bit / 8 < kEntriesStart; ++bit) {
        if (!(d[kMaskStart + bit / 8] >> (bit % 8) & 1)) continue;
        std::size_t end = kEntriesStart + bit;
        if (end > kPageSize) return false;
        std::string full;
        if (out.empty()) {
            full.assign(reinterpret_cast<const char*>(d + start), end - start);
            first = full;
        } else {
            if (prefixLen > first.size()) return false;
            full = first.substr(0, prefixLen);
            full.append(reinterpret_cast<const char*>(d + start), end - start);
        }
        if (full.size() < trailer) return false;
        Entry e;
        const auto* p = reinterpret_cast<const std::uint8_t*>(full.data()) + full.size() - trailer;
        e.page = std::uint32_t(p[0]) << 16 | std::uint32_t(p[1]) << 8 | p[2];
        e.row = p[3];
        if (!leaf) e.child = std::uint32_t(p[4]) << 24 | std::uint32_t(p[5]) << 16 | std::uint32_t(p[6]) << 8 | p[7];
        e.key.assign(full.data(), full.size() - trailer);
        out.push_back(std::move(e));
        start = end;
    }
    return true;
}

} // namespace

int Database::seekableIndex(const Table& t, int column) const
{
    if (column < 0 || static_cast<std::size_t>(column) >= t.columns.size() ||
        !seekableType(t.columns[static_cast<std::size_t>(column)]))
        return -1;
    for (std::size_t k = 0; k < t.realIndexes.size(); ++k) {
        const RealIndex& ri = t.realIndexes[k];
        if (!ri.columns.empty() && ri.columns[0].column == column && ri.rootPage != 0) return static_cast<int>(k);
    }
    return -1;
}

Status Database::indexSeek(const Table& t, int realIndex, const KeyBound& lo, const KeyBound& hi,
                           std::vector<RowId>& out, bool* usable) const
{
    out.clear();
    *usable = false;
    if (realIndex < 0 || static_cast<std::size_t>(realIndex) >= t.realIndexes.size()) return OK;
    const RealIndex& ri = t.realIndexes[static_cast<std::size_t>(realIndex)];
    if (ri.columns.empty() || ri.columns[0].column < 0) return OK;
    bool asc = ri.columns[0].ascending;
    // Text keys are prefixes of the stored ones: equality only (SQLite's order is not Jet's).
    if (t.columns[static_cast<std::size_t>(ri.columns[0].column)].type == Type::Text &&
        (!lo.present || !hi.present || !lo.inclusive || !hi.inclusive || lo.value.s != hi.value.s))
        return OK;
    std::string loKey, hiKey;
    if ((lo.present && !encodeKey(lo.value, asc, loKey)) || (hi.present && !encodeKey(hi.value, asc, hiKey))) return OK;
    // A descending index stores complements: the byte order of the bounds swaps.
    bool hasLo = lo.present, hasHi = hi.present, loIncl = lo.inclusive, hiIncl = hi.inclusive;
    if (!asc) {
        std::swap(loKey, hiKey);
        std::swap(hasLo, hasHi);
        std::swap(loIncl, hiIncl);
    }

    std::vector<Entry> entries;
    std::uint32_t pg = ri.rootPage;
    const std::uint8_t* d = nullptr;
    for (int depth = 0;; ++depth) {
        d = page(pg);
        if (!d || depth > 32) return fail(ERR_CORRUPT, "Index of table '" + t.name + "' is damaged.");
        if (d[0] == 0x04) break;
        if (d[0] != 0x03) return OK; // not a tree we know: let the caller scan
        if (!parseIndexPage(d, entries) || entries.empty())
            return fail(ERR_CORRUPT, "Index page " + std::to_string(pg) + " is damaged.");
        // Each entry carries the last key of its child: descend into the first that can reach lo.
        std::size_t k = 0;
        if (hasLo)
            while (k + 1 < entries.size() && comparePrefix(entries[k].key, loKey) < 0)
                ++k;
        pg = entries[k].child;
    }
    // Walk the leaves in order; the sibling chain also reaches tail pages the upper levels do not list.
    for (std::uint32_t visited = 0;; ++visited) {
        if (visited > pageCount() || !parseIndexPage(d, entries))
            return fail(ERR_CORRUPT, "Index leaf page " + std::to_string(pg) + " is damaged.");
        for (const Entry& e : entries) {
            if (hasLo) {
                int c = comparePrefix(e.key, loKey);
                if (c < 0 || (c == 0 && !loIncl)) continue;
            }
            if (hasHi) {
                int c = comparePrefix(e.key, hiKey);
                if (c > 0 || (c == 0 && !hiIncl)) {
                    *usable = true;
                    return OK;
                }
            }
            out.push_back(RowId(e.page) << 8 | e.row);
        }
        pg = le32(d + 16); // next leaf
        if (pg == 0) break;
        d = page(pg);
        if (!d || d[0] != 0x04) return fail(ERR_CORRUPT, "Index leaf chain of table '" + t.name + "' is damaged.");
    }
    *usable = true;
    return OK;
}

} // namespace jet
