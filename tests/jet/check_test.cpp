// The consistency check names each kind of damage.
#include "jet/bytes.h"
#include "jet/jet.h"
#include "test_util.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

namespace
{

using namespace jettest;

// Table2 of indexTestV2000.mdb: id (Long, fixed at offset 0) with two indexes, three rows on one data page.
TEST(JetCheck, EachKindOfDamageIsNamed)
{
    const auto original = readFile(corpus("indexTestV2000.mdb"));
    jet::Database probe;
    ASSERT_EQ(probe.openMemory(original, ""), jet::OK);
    const jet::Table& t = *probe.table("Table2");
    std::vector<std::uint32_t> pages;
    ASSERT_EQ(probe.dataPages(t, pages), jet::OK);
    ASSERT_EQ(pages.size(), 1u);
    const std::size_t dataAt = std::size_t(pages[0]) * jet::kPageSize;
    const std::size_t tdefAt = std::size_t(t.tdefPage) * jet::kPageSize;
    const std::uint32_t mapPage = t.usageMap >> 8;
    const std::uint8_t* map;
    std::size_t mapLen;
    unsigned flags;
    ASSERT_EQ(probe.rowBytes(mapPage, t.usageMap & 0xFF, &map, &mapLen, &flags), jet::OK);
    ASSERT_EQ(map[0], 0); // inline map: type, first page, bits
    const std::size_t mapAt = static_cast<std::size_t>(map - probe.page(0));
    auto firstRow = [&](std::vector<std::uint8_t>& b) {
        return dataAt + (jet::detail::le16(&b[dataAt + 14]) & 0x1FFF);
    };

    struct Case {
        const char* what;
        std::function<void(std::vector<std::uint8_t>&)> damage;
        std::vector<const char*> expected;
    } cases[] = {
        {"row count", [&](auto& b) { b[tdefAt + 16] += 1; }, {"the definition counts 4 rows, the pages hold 3"}},
        {"row deleted under its index entries",
         [&](auto& b) { b[dataAt + 15] |= 0x80; },
         {"which holds no row", "the definition counts 3 rows, the pages hold 2"}},
        {"indexed value changed under its entries",
         [&](auto& b) { b[firstRow(b) + 2] ^= 0x40; },
         {"does not match its row", "is missing from the index"}},
        {"usage map bits cleared",
         [&](auto& b) { std::memset(&b[mapAt + 5], 0, mapLen - 5); },
         {"is missing from its usage map", "which holds no row"}},
    };
    for (const Case& c : cases) {
        auto bytes = original;
        c.damage(bytes);
        jet::Database db;
        ASSERT_EQ(db.openMemory(bytes, ""), jet::OK) << c.what;
        std::string found = problemsOf(db);
        for (const char* e : c.expected)
            EXPECT_NE(found.find(e), std::string::npos) << c.what << ":\n" << found;
    }
}

} // namespace
