// Every corpus file damaged many times over (deterministic seed): any outcome but a crash, a hang or a
// leak is fine. Run under ASan/UBSan in CI. JET_CORRUPTION_ROUNDS raises the count per file.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "exercise.h"
#include "test_util.h"

using namespace jettest;

namespace
{

int rounds()
{
    const char* env = std::getenv("JET_CORRUPTION_ROUNDS");
    return env ? std::atoi(env) : 400;
}

class Corruption : public ::testing::TestWithParam<std::string>
{
};

TEST_P(Corruption, DamagedFilesFailCleanly)
{
    const std::string file = GetParam();
    const auto original = readFile(corpus(file));
    ASSERT_GE(original.size(), 3 * jet::kPageSize);
    const std::size_t pages = original.size() / jet::kPageSize;
    // Pages with content: mutations there reach the parsers instead of free space.
    std::vector<std::size_t> used;
    for (std::size_t p = 1; p < pages; ++p)
        if (original[p * jet::kPageSize] >= 0x01 && original[p * jet::kPageSize] <= 0x05) used.push_back(p);
    if (file == "encodedJet4.mdb")
        for (std::size_t p = 1; p < pages; ++p)
            used.push_back(p); // page types are hidden by the encoding

    std::mt19937 rng(static_cast<unsigned>(std::hash<std::string>{}(file)));
    auto pick = [&](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(rng); };
    int opened = 0;
    for (int round = 0, n = rounds(); round < n; ++round) {
        auto bytes = original;
        std::size_t what = pick(10);
        if (what < 8) {
            for (std::size_t k = 0, count = 1 + pick(6); k < count; ++k) {
                std::size_t page = used.empty() ? 1 + pick(pages - 1) : used[pick(used.size())];
                std::size_t off = pick(2) ? pick(96) : pick(jet::kPageSize);
                std::uint8_t& b = bytes[page * jet::kPageSize + off];
                switch (pick(4)) {
                case 0:
                    b = 0;
                    break;
                case 1:
                    b = 0xFF;
                    break;
                case 2:
                    b ^= static_cast<std::uint8_t>(1u << pick(8));
                    break;
                default:
                    b = static_cast<std::uint8_t>(pick(256));
                }
            }
        } else if (what == 8) {
            bytes[0x18 + pick(128)] ^= static_cast<std::uint8_t>(1u << pick(8)); // obscured header
        } else {
            bytes.resize(pick(bytes.size()));
        }
        jet::Database db;
        if (db.openMemory(std::move(bytes), passwordOf(file)) != jet::OK) {
            EXPECT_FALSE(db.error().empty());
            continue;
        }
        ++opened;
        exercise(db);
    }
    RecordProperty("opened", opened);
}

INSTANTIATE_TEST_SUITE_P(Corpus, Corruption, ::testing::ValuesIn(corpusFiles()),
                         [](const auto& info) { return info.param.substr(0, info.param.find('.')); });

} // namespace
