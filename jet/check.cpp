// Consistency check: every table's pages, rows and row count, every index's tree against the rows.
#include "jet/bytes.h"
#include "jet/jet.h"
#include "jet/keys.h"

#include <algorithm>
#include <map>
#include <set>

namespace jet
{

using namespace detail;

namespace
{

std::string hex(const std::string& bytes)
{
    static const char* digits = "0123456789ABCDEF";
    std::string out;
    for (std::size_t i = 0; i < bytes.size() && i < 24; ++i) {
        if (i) out += ' ';
        auto b = static_cast<unsigned char>(bytes[i]);
        out += digits[b >> 4];
        out += digits[b & 15];
    }
    if (bytes.size() > 24) out += " ...";
    return out;
}

std::string rowName(RowId id)
{
    return "row " + std::to_string(id & 0xFF) + " of page " + std::to_string(id >> 8);
}

} // namespace

Status Database::check(std::vector<std::string>& problems) const
{
    problems.clear();
    std::vector<Table> all(tables_.begin(), tables_.end());
    Table sys;
    if (Status s = readTable(2, sys); s != OK) return s;
    sys.name = "MSysObjects";
    all.push_back(std::move(sys));
    const std::uint32_t total = pageCount();

    for (const Table& t : all) {
        auto report = [&](const std::string& what) { problems.push_back("table " + t.name + ": " + what); };

        // Usage map against the pages that name this table as their owner.
        std::vector<std::uint32_t> mapped;
        if (Status s = mapPages(t.usageMap, mapped); s != OK) {
            report("usage map unreadable: " + error());
            continue;
        }
        std::set<std::uint32_t> owned;
        for (std::uint32_t pg : mapped) {
            const std::uint8_t* d = pg < total ? page(pg) : nullptr;
            if (!d || d[0] != 0x01 || le32(d + 4) != t.tdefPage)
                report("usage map lists page " + std::to_string(pg) + ", which is not one of its data pages");
            else
                owned.insert(pg);
        }
        for (std::uint32_t pg = 1; pg < total; ++pg) {
            const std::uint8_t* d = page(pg);
            if (!d && readStatus_ != OK) return fail(readStatus_, error());
            if (!d) continue; // a new page of a transaction not yet committed
            if (d[0] == 0x01 && le32(d + 4) == t.tdefPage && !owned.count(pg))
                report("data page " + std::to_string(pg) + " is missing from its usage map");
        }
        if (t.freeMap != 0) {
            std::vector<std::uint32_t> free;
            if (mapPages(t.freeMap, free) != OK) report("free-space map unreadable: " + error());
            for (std::uint32_t pg : free)
                if (!owned.count(pg))
                    report("free-space map lists page " + std::to_string(pg) + ", which the table does not own");
        }

        // Rows: every live one decodes; their number is the definition's row count.
        std::vector<RowId> rows;
        std::vector<std::vector<Value>> values;
        for (std::uint32_t pg : owned) {
            const std::uint8_t* d = page(pg);
            if (!d && readStatus_ != OK) return fail(readStatus_, error());
            if (!d) continue; // a new page of a transaction not yet committed
            unsigned count = le16(d + 12);
            if (14 + 2 * std::size_t(count) > kPageSize) {
                report("data page " + std::to_string(pg) + " has too many rows");
                continue;
            }
            for (unsigned r = 0; r < count; ++r) {
                RowId id = RowId(pg) << 8 | r;
                const std::uint8_t* p;
                std::size_t n;
                unsigned flags;
                if (rowBytes(pg, r, &p, &n, &flags) != OK) {
                    report(rowName(id) + ": " + error());
                    continue;
                }
                if (flags & 0x8000) continue;
                Cursor cur(*this, t);
                Status s = cur.seek({id});
                std::vector<Value> v(t.columns.size());
                for (std::size_t k = 0; s == OK && k < t.columns.size(); ++k)
                    s = cur.column(k, v[k]);
                if (s != OK) {
                    report(rowName(id) + " cannot be read: " + cur.error());
                    continue;
                }
                rows.push_back(id);
                values.push_back(std::move(v));
            }
        }
        if (rows.size() != t.rowCount)
            report("the definition counts " + std::to_string(t.rowCount) + " rows, the pages hold " +
                   std::to_string(rows.size()));
        std::map<RowId, std::size_t> rowAt;
        for (std::size_t i = 0; i < rows.size(); ++i)
            rowAt[rows[i]] = i;

        for (std::size_t k = 0; k < t.realIndexes.size(); ++k) {
            const RealIndex& ri = t.realIndexes[k];
            if (ri.rootPage == 0) continue;
            std::string name = "#" + std::to_string(k);
            for (const LogicalIndex& li : t.indexes)
                if (li.realIndex == static_cast<int>(k)) {
                    name = li.name;
                    break;
                }
            auto ireport = [&](const std::string& what) { report("index " + name + ": " + what); };

            // The tree level by level: each parent entry carries its child's last entry.
            std::set<std::uint32_t> treePages;
            std::vector<IndexEntry> entries, childEntries;
            std::vector<std::uint32_t> level{ri.rootPage};
            std::uint32_t firstLeaf = 0;
            std::set<std::uint32_t> rightEdge{ri.rootPage};
            bool broken = false;
            for (int depth = 0; !level.empty() && !broken; ++depth) {
                std::vector<std::uint32_t> below;
                for (std::uint32_t pg : level) {
                    const std::uint8_t* d = pg < total ? page(pg) : nullptr;
                    if (depth > 32 || !d || (d[0] != 0x03 && d[0] != 0x04) || !treePages.insert(pg).second ||
                        !parseIndexPage(d, entries)) {
                        ireport("page " + std::to_string(pg) + " is not an index page of its tree");
                        broken = true;
                        break;
                    }
                    if (le32(d + 4) != t.tdefPage)
                        ireport("page " + std::to_string(pg) + " names another table as its owner");
                    // d is not read again: the pages read below may push it out of the cache.
                    const std::uint32_t lastLeaf = le32(d + 20);
                    if (d[0] == 0x04) {
                        if (!firstLeaf) firstLeaf = pg;
                        continue;
                    }
                    // Offset 20 of an intermediate page names the rightmost leaf below it; on the tree's right
                    // edge that is the end of the leaf chain, past leaves no parent lists.
                    std::uint32_t tail = entries.empty() ? 0 : entries.back().child;
                    for (int down = 0; tail != 0 && down < 32; ++down) {
                        const std::uint8_t* c = tail < total ? page(tail) : nullptr;
                        std::vector<IndexEntry> last;
                        if (!c || c[0] != 0x03 || !parseIndexPage(c, last) || last.empty()) break;
                        tail = last.back().child;
                    }
                    for (std::size_t hops = 0; rightEdge.count(pg) && tail != 0 && hops < total; ++hops) {
                        const std::uint8_t* c = tail < total ? page(tail) : nullptr;
                        if (!c || c[0] != 0x04 || le32(c + 16) == 0) break;
                        tail = le32(c + 16);
                    }
                    if (!entries.empty()) rightEdge.insert(entries.back().child);
                    if (tail != lastLeaf)
                        ireport("page " + std::to_string(pg) + " names page " + std::to_string(lastLeaf) +
                                " as its last leaf, not page " + std::to_string(tail));
                    for (const IndexEntry& e : entries) {
                        const std::uint8_t* c = e.child < total ? page(e.child) : nullptr;
                        if (!c || (c[0] != 0x03 && c[0] != 0x04) || !parseIndexPage(c, childEntries) ||
                            childEntries.empty()) {
                            ireport("page " + std::to_string(pg) + " points to page " + std::to_string(e.child) +
                                    ", which is not an index page");
                            broken = true;
                            break;
                        }
                        const IndexEntry& last = childEntries.back();
                        if (last.key != e.key || last.page != e.page || last.row != e.row)
                            ireport("the entry of page " + std::to_string(pg) + " for page " + std::to_string(e.child) +
                                    " is not that page's last entry");
                        below.push_back(e.child);
                    }
                }
                level = std::move(below);
            }
            if (broken) continue;

            // The leaves in chain order: keys ascending, each entry a live row with that key.
            std::set<std::string> found;
            std::set<RowId> pointed;
            std::string prev;
            bool havePrev = false;
            std::size_t hops = 0;
            for (std::uint32_t pg = firstLeaf; pg != 0; ++hops) {
                const std::uint8_t* d = pg < total ? page(pg) : nullptr;
                if (hops > total || !d || d[0] != 0x04 || !parseIndexPage(d, entries)) {
                    ireport("the leaf chain reaches page " + std::to_string(pg) + ", which is not a leaf");
                    break;
                }
                if (!treePages.count(pg)) treePages.insert(pg);
                for (const IndexEntry& e : entries) {
                    RowId id = RowId(e.page) << 8 | e.row;
                    std::string full = entryOf(e.key, id);
                    if (havePrev && !(prev < full))
                        ireport("keys out of order at " + rowName(id) + " (" + hex(e.key) + " after " + hex(prev) +
                                ")");
                    if ((ri.flags & 0x01) && havePrev && prev.size() >= 4 &&
                        prev.compare(0, prev.size() - 4, e.key) == 0 && e.key.find('\0') == std::string::npos)
                        ireport("unique key " + hex(e.key) + " occurs twice");
                    prev = full;
                    havePrev = true;
                    auto at = rowAt.find(id);
                    if (at == rowAt.end()) {
                        ireport("entry " + hex(e.key) + " points to " + rowName(id) + ", which holds no row");
                        continue;
                    }
                    if (!pointed.insert(id).second) ireport(rowName(id) + " has more than one entry");
                    found.insert(full);
                    std::string key;
                    bool allNull = false;
                    if (rowKey(t, ri, values[at->second], key, &allNull, nullptr) && key != e.key)
                        ireport("entry " + hex(e.key) + " of " + rowName(id) + " does not match its row (" + hex(key) +
                                ")");
                }
                pg = le32(d + 16);
            }
            for (std::size_t i = 0; i < rows.size(); ++i) {
                std::string key;
                bool allNull = false;
                bool known = rowKey(t, ri, values[i], key, &allNull, nullptr);
                if (allNull && (ri.flags & 0x02)) continue;
                if (!pointed.count(rows[i]) || (known && !found.count(entryOf(key, rows[i]))))
                    ireport(rowName(rows[i]) + " is missing from the index");
            }
            if (ri.usageMap != 0) {
                std::vector<std::uint32_t> mappedIdx;
                if (mapPages(ri.usageMap, mappedIdx) != OK) {
                    ireport("usage map unreadable: " + error());
                } else {
                    std::set<std::uint32_t> inMap(mappedIdx.begin(), mappedIdx.end());
                    for (std::uint32_t pg : treePages)
                        if (pg != ri.rootPage && !inMap.count(pg))
                            ireport("page " + std::to_string(pg) + " is missing from its usage map");
                }
            }
        }
    }
    return OK;
}

} // namespace jet
