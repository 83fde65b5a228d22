// Index B-trees: seeks on the first column of a real index.
#include "jet/bytes.h"
#include "jet/jet.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <set>

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

// ---- Index maintenance -------------------------------------------------------------------------------------
// While a transaction writes a table, each real index it changes is held as the sorted set of its entries
// (key bytes, then the row's 3-byte page and 1-byte slot), read once from the tree; at sync() the tree is
// written again from that set, on the pages it had (the root stays where the definition points).

namespace jet
{

using namespace detail;

struct Database::KeyCache {
    std::set<std::string> entries;
    std::vector<std::uint32_t> pages; // the tree's pages when it was read, root first
    bool dirty = false;
};

namespace
{

const char* kDuplicate = "The changes you requested to the table were not successful because they would create "
                         "duplicate values in the index, primary key, or relationship. Change the data in the field "
                         "or fields that contain duplicate data, remove the index, or redefine the index to permit "
                         "duplicate entries and try again.";

constexpr std::size_t kEntryRoom = kPageSize - kEntriesStart;

std::string pointerBytes(RowId id)
{
    std::string p(4, '\0');
    p[0] = static_cast<char>(id >> 24 & 0xFF);
    p[1] = static_cast<char>(id >> 16 & 0xFF);
    p[2] = static_cast<char>(id >> 8 & 0xFF);
    p[3] = static_cast<char>(id & 0xFF);
    return p;
}

std::string firstChar(const std::string& s)
{
    if (s.empty()) return s;
    std::size_t n = 1;
    auto c = static_cast<unsigned char>(s[0]);
    if (c >= 0xF0)
        n = 4;
    else if (c >= 0xE0)
        n = 3;
    else if (c >= 0xC0)
        n = 2;
    return s.substr(0, std::min(n, s.size()));
}

} // namespace

void Database::undoKeys(std::size_t to)
{
    while (keyLog_.size() > to) {
        KeyOp& op = keyLog_.back();
        if (op.added)
            op.cache->entries.erase(op.entry);
        else
            op.cache->entries.insert(op.entry);
        keyLog_.pop_back();
    }
}

Status Database::indexWrite(const Table& t, const std::vector<Value>* before, const std::vector<Value>* after, RowId id)
{
    for (std::size_t k = 0; k < t.realIndexes.size(); ++k) {
        const RealIndex& ri = t.realIndexes[k];
        if (ri.rootPage == 0) continue;
        std::string name;
        for (const LogicalIndex& li : t.indexes)
            if (li.realIndex == static_cast<int>(k)) {
                name = li.name;
                break;
            }
        // Key bytes of one row; false in *ok when a column's key is one we cannot produce.
        auto keyOf = [&](const std::vector<Value>& v, std::string& key, bool& allNull) -> Status {
            key.clear();
            allNull = true;
            for (const IndexColumn& ic : ri.columns) {
                if (ic.column < 0) return fail(ERR_CORRUPT, "Index '" + name + "' names a missing column.");
                const Column& c = t.columns[static_cast<std::size_t>(ic.column)];
                const Value& x = v[static_cast<std::size_t>(ic.column)];
                if (x.null && c.type != Type::Bool) {
                    key += static_cast<char>(ic.ascending ? 0x00 : 0xFF);
                    continue;
                }
                allNull = false;
                Value typed = x;
                typed.type = c.type;
                std::string part;
                if (c.type == Type::Text || c.type == Type::Memo) {
                    return fail(ERR_KEY, t.name + "の索引 " + name + " に書き込めない文字があります: " +
                                             (x.s.empty() ? std::string("\"\"") : firstChar(x.s)));
                }
                if (!encodeKey(typed, ic.ascending, part))
                    return fail(ERR_KEY, "The index '" + name + "' of '" + t.name +
                                             "' has a key of a type this version cannot write.");
                key += part;
            }
            return OK;
        };
        std::string oldKey, newKey;
        bool oldNull = false, newNull = false, byPointer = false;
        // A key we cannot produce is still found by its row pointer: deletes always go through.
        if (before && keyOf(*before, oldKey, oldNull) != OK) byPointer = !after;
        if (after)
            if (Status s = keyOf(*after, newKey, newNull); s != OK) {
                // An unchanged key needs no encoding: only rows whose key changes are refused.
                if (!before) return s;
                bool same = true;
                for (const IndexColumn& ic : ri.columns) {
                    const Value& a = (*before)[static_cast<std::size_t>(ic.column)];
                    const Value& b = (*after)[static_cast<std::size_t>(ic.column)];
                    if (a.null != b.null || a.i != b.i || a.s != b.s ||
                        (a.d != b.d && !(std::isnan(a.d) && std::isnan(b.d))))
                        same = false;
                }
                if (same) continue;
                return s;
            }
        if (before && after && oldKey == newKey) continue;

        auto& cache = keys_[{t.tdefPage, static_cast<int>(k)}];
        if (!cache) {
            auto c = std::make_shared<KeyCache>();
            std::vector<Entry> entries;
            std::vector<std::uint32_t> level{ri.rootPage};
            std::uint32_t leaf = 0;
            for (int depth = 0; !level.empty() && depth < 32; ++depth) {
                std::vector<std::uint32_t> below;
                for (std::uint32_t pg : level) {
                    const std::uint8_t* d = page(pg);
                    if (!d || (d[0] != 0x03 && d[0] != 0x04) || !parseIndexPage(d, entries))
                        return fail(ERR_CORRUPT, "Index '" + name + "' of '" + t.name + "' is damaged.");
                    c->pages.push_back(pg);
                    if (d[0] == 0x04) {
                        if (!leaf) leaf = pg;
                        continue;
                    }
                    for (const Entry& e : entries)
                        below.push_back(e.child);
                }
                level = std::move(below);
            }
            // The leaf chain reaches tail pages the upper levels may not list.
            std::set<std::uint32_t> seen(c->pages.begin(), c->pages.end());
            for (std::uint32_t pg = leaf, hops = 0; pg != 0 && hops <= pageCount(); ++hops) {
                const std::uint8_t* d = page(pg);
                if (!d || d[0] != 0x04 || !parseIndexPage(d, entries))
                    return fail(ERR_CORRUPT, "Index '" + name + "' of '" + t.name + "' is damaged.");
                if (seen.insert(pg).second) c->pages.push_back(pg);
                for (const Entry& e : entries)
                    c->entries.insert(e.key + pointerBytes(RowId(e.page) << 8 | e.row));
                pg = le32(d + 16);
            }
            cache = c;
        }
        KeyCache& kc = *cache;
        bool ignoreNull = ri.flags & 0x02;
        if (byPointer) {
            std::string ptr = pointerBytes(id);
            for (auto it = kc.entries.begin(); it != kc.entries.end(); ++it)
                if (it->size() >= 4 && it->compare(it->size() - 4, 4, ptr) == 0) {
                    keyLog_.push_back({&kc, *it, false});
                    kc.entries.erase(it);
                    break;
                }
        } else if (before && !(ignoreNull && oldNull)) {
            std::string e = oldKey + pointerBytes(id);
            if (kc.entries.erase(e)) keyLog_.push_back({&kc, e, false});
        }
        if (after && !(ignoreNull && newNull)) {
            bool anyNull = false;
            for (const IndexColumn& ic : ri.columns)
                anyNull = anyNull || (*after)[static_cast<std::size_t>(ic.column)].null;
            if ((ri.flags & 0x01) && !anyNull) {
                auto it = kc.entries.lower_bound(newKey);
                if (it != kc.entries.end() && it->size() == newKey.size() + 4 &&
                    it->compare(0, newKey.size(), newKey) == 0)
                    return fail(ERR_CONSTRAINT, kDuplicate);
            }
            std::string e = newKey + pointerBytes(id);
            if (kc.entries.insert(e).second) keyLog_.push_back({&kc, e, true});
        }
        kc.dirty = true;
    }
    return OK;
}

Status Database::writeIndexes()
{
    for (auto& [where, cache] : keys_) {
        if (!cache->dirty) continue;
        const Table* t = nullptr;
        for (const Table& x : tables_)
            if (x.tdefPage == where.first) t = &x;
        if (!t) continue;
        const RealIndex& ri = t->realIndexes[static_cast<std::size_t>(where.second)];
        std::vector<std::uint32_t> pool(cache->pages.begin() + 1, cache->pages.end());
        std::size_t used = 0;
        auto take = [&](std::uint32_t* pg) -> Status {
            if (used < pool.size()) {
                *pg = pool[used++];
                return OK;
            }
            if (Status s = allocPage(0x04, pg); s != OK) return s;
            return ri.usageMap ? mapAdd(ri.usageMap, *pg) : OK;
        };
        struct Built {
            std::vector<std::string> entries; // full entry bytes as they go on the page
        };
        // Packs entries into pages; `trailer` = bytes after the key (4 leaf, 8 intermediate).
        auto pack = [&](const std::vector<std::string>& all, std::size_t trailer) {
            std::vector<Built> pages(1);
            std::size_t prefix = 0, sumRest = 0;
            for (const std::string& e : all) {
                Built& b = pages.back();
                if (b.entries.empty()) {
                    b.entries.push_back(e);
                    prefix = e.size() - trailer;
                    sumRest = 0;
                    continue;
                }
                const std::string& first = b.entries.front();
                std::size_t cp = 0;
                while (cp < prefix && cp < e.size() - trailer && first[cp] == e[cp])
                    ++cp;
                std::size_t n = b.entries.size(); // entries after the first, with this one
                std::size_t size = first.size() + sumRest + e.size() - n * cp;
                if (size > kEntryRoom - 16) {
                    pages.push_back({{e}});
                    prefix = e.size() - trailer;
                    sumRest = 0;
                    continue;
                }
                prefix = cp;
                sumRest += e.size();
                b.entries.push_back(e);
            }
            return pages;
        };
        auto write = [&](std::uint32_t pg, std::uint8_t type, const Built& b, std::uint32_t prev, std::uint32_t next,
                         std::size_t trailer) {
            std::size_t prefix = b.entries.empty() ? 0 : b.entries.front().size() - trailer;
            for (const std::string& e : b.entries) {
                std::size_t cp = 0;
                while (cp < prefix && cp < e.size() && b.entries.front()[cp] == e[cp])
                    ++cp;
                prefix = cp;
            }
            std::uint8_t* d = writable(pg);
            std::memset(d, 0, kPageSize);
            d[0] = type;
            d[1] = 0x01;
            auto p32 = [&](std::size_t at, std::uint32_t v) {
                for (int i = 0; i < 4; ++i)
                    d[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
            };
            p32(4, t->tdefPage);
            p32(12, prev);
            p32(16, next);
            d[24] = static_cast<std::uint8_t>(prefix);
            d[25] = static_cast<std::uint8_t>(prefix >> 8);
            std::size_t at = kEntriesStart;
            for (std::size_t i = 0; i < b.entries.size(); ++i) {
                const std::string& e = b.entries[i];
                std::size_t skip = i == 0 ? 0 : prefix;
                std::memcpy(d + at, e.data() + skip, e.size() - skip);
                at += e.size() - skip;
                std::size_t bit = at - kEntriesStart;
                d[kMaskStart + bit / 8] |= static_cast<std::uint8_t>(1u << (bit % 8));
            }
            std::size_t free = kPageSize - at;
            d[2] = static_cast<std::uint8_t>(free);
            d[3] = static_cast<std::uint8_t>(free >> 8);
        };

        std::vector<std::string> level(cache->entries.begin(), cache->entries.end());
        std::size_t trailer = 4;
        std::uint8_t type = 0x04;
        for (;;) {
            std::vector<Built> pages = pack(level, trailer);
            if (pages.size() == 1) {
                write(ri.rootPage, type, pages[0], 0, 0, trailer);
                break;
            }
            std::vector<std::uint32_t> nums(pages.size());
            for (std::uint32_t& n : nums)
                if (Status s = take(&n); s != OK) return s;
            std::vector<std::string> up;
            for (std::size_t i = 0; i < pages.size(); ++i) {
                write(nums[i], type, pages[i], i ? nums[i - 1] : 0, i + 1 < nums.size() ? nums[i + 1] : 0, trailer);
                // The parent's entry: the child's last entry (key and row), then the child page.
                std::string last = pages[i].entries.back().substr(0, pages[i].entries.back().size() - trailer + 4);
                for (int b = 3; b >= 0; --b)
                    last += static_cast<char>(nums[i] >> (8 * b) & 0xFF);
                up.push_back(std::move(last));
            }
            level = std::move(up);
            trailer = 8;
            type = 0x03;
        }
        // Pages the smaller tree no longer needs stay as empty leaves outside it.
        for (std::size_t i = used; i < pool.size(); ++i)
            write(pool[i], 0x04, Built{}, 0, 0, 4);
        cache->dirty = false;
    }
    return OK;
}

} // namespace jet
