// libFuzzer target for the page, definition, row, long-value and index parsers. The input is every page
// after the header; a valid header page goes in front so the fuzzer spends its time past the password check.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "exercise.h"
#include "test_util.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const std::vector<std::uint8_t> header = [] {
        auto f = jettest::readFile(jettest::corpus("noPasswordV2000.mdb"));
        f.resize(jet::kPageSize);
        return f;
    }();
    if (size > (std::size_t(64) << 20)) return 0;
    std::vector<std::uint8_t> bytes(header);
    bytes.insert(bytes.end(), data, data + size);
    bytes.resize(std::max<std::size_t>(3, (bytes.size() + jet::kPageSize - 1) / jet::kPageSize) * jet::kPageSize);
    jet::Database db;
    if (db.openMemory(std::move(bytes), "") == jet::OK) jettest::exercise(db);
    return 0;
}
