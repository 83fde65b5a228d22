#include "jet/bytes.h"
#include "jet/jet.h"
#include "jet/tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <sstream>
#include <unistd.h>

#include "test_util.h"

using namespace jettest;

namespace
{

// mdb-export with separators that no corpus value contains.
constexpr char kSep = '\x1f', kRowSep = '\x1e', kNull = '\x02';

std::vector<std::vector<std::string>> mdbExport(const std::string& file, const std::string& table)
{
    std::string cmd = "mdb-export -H -Q -d '\x1f' -R '\x1e' -0 '\x02' -b hex -T '%Y-%m-%d %H:%M:%S' '" + corpus(file) +
                      "' '" + table + "' 2>/dev/null";
    std::vector<std::vector<std::string>> rows;
    std::istringstream out(run(cmd));
    for (std::string line; std::getline(out, line, kRowSep);) {
        std::istringstream fields(line + kSep); // so that an empty last field counts
        rows.emplace_back();
        for (std::string f; std::getline(fields, f, kSep);)
            rows.back().push_back(f);
    }
    return rows;
}

bool near(double a, double b, double rel)
{
    return std::fabs(a - b) <= rel * std::max(1.0, std::max(std::fabs(a), std::fabs(b)));
}

std::string hexUpper(const std::string& s)
{
    static const char* d = "0123456789ABCDEF";
    std::string out;
    for (unsigned char c : s) {
        out += d[c >> 4];
        out += d[c & 15];
    }
    return out;
}

// Empty when equal, else a description.
std::string compareField(const jet::Value& v, const std::string& m)
{
    if (v.null && v.type != jet::Type::Bool) return m == std::string(1, kNull) ? "" : "null vs '" + m + "'";
    if (m == std::string(1, kNull)) return "value vs null";
    const double md = std::strtod(m.c_str(), nullptr);
    switch (v.type) {
    case jet::Type::Bool:
    case jet::Type::Byte:
    case jet::Type::Int:
    case jet::Type::Long:
        return std::to_string(v.i) == m ? "" : std::to_string(v.i) + " vs " + m;
    case jet::Type::Money:
    case jet::Type::Numeric: {
        const double d =
            v.type == jet::Type::Money ? static_cast<double>(v.i) / 10000.0 : std::strtod(v.s.c_str(), nullptr);
        return near(d, md, 1e-12) ? "" : std::to_string(d) + " vs " + m;
    }
    case jet::Type::Float:
    case jet::Type::Double:
        return near(v.d, md, v.type == jet::Type::Float ? 1e-6 : 1e-9) ? "" : std::to_string(v.d) + " vs " + m;
    case jet::Type::DateTime: {
        // mdbtools prints "1900-01-00" for dates it cannot convert (before 1900 or far future); Tool.ListAndDump
        // checks those against the file's own values.
        if (m.rfind("1900-01-00", 0) == 0) return "";
        std::string d = jet::formatDateTime(v.d, '-');
        return d == m ? "" : d + " vs " + m;
    }
    case jet::Type::Guid:
        return jet::formatGuid(v.s) == m ? "" : jet::formatGuid(v.s) + " vs " + m;
    case jet::Type::Binary:
    case jet::Type::Ole: {
        std::string mu = m;
        std::transform(mu.begin(), mu.end(), mu.begin(), ::toupper);
        return hexUpper(v.s) == mu ? "" : "binary differs (" + std::to_string(v.s.size()) + " bytes)";
    }
    case jet::Type::Text:
    case jet::Type::Memo:
        return v.s == m ? "" : "'" + v.s + "' vs '" + m + "'";
    }
    return "unknown type";
}

class CorpusFile : public ::testing::TestWithParam<std::string>
{
};

TEST_P(CorpusFile, RowsEqualMdbExport)
{
    JET_NEEDS_MDB_TOOLS();
    const std::string file = GetParam();
    jet::Database db;
    ASSERT_EQ(db.open(corpus(file), passwordOf(file)), jet::OK) << db.error();

    std::string listed = run("mdb-tables -1 '" + corpus(file) + "'");
    std::vector<std::string> names;
    for (const jet::Table& t : db.tables())
        names.push_back(t.name);
    std::vector<std::string> expected;
    std::istringstream ls(listed);
    for (std::string line; std::getline(ls, line);)
        if (!line.empty()) expected.push_back(line);
    EXPECT_EQ(names, expected);

    for (const jet::Table& t : db.tables()) {
        SCOPED_TRACE(file + " / " + t.name);
        auto want = mdbExport(file, t.name);
        std::vector<bool> used(want.size());
        jet::Cursor cur(db, t);
        std::size_t n = 0;
        jet::Status s = cur.rewind();
        for (; s == jet::OK; s = cur.next(), ++n) {
            std::vector<jet::Value> row(t.columns.size());
            for (std::size_t k = 0; k < t.columns.size(); ++k)
                ASSERT_EQ(cur.column(k, row[k]), jet::OK) << cur.error();
            // mdbtools lists a moved row where it now lives, we where it was written (the slot indexes
            // reference), so a row may match out of order; search from the same position onwards.
            std::string firstDiff = "no rows left in mdb-export";
            bool matched = false;
            for (std::size_t off = 0; off < want.size() && !matched; ++off) {
                std::size_t w = (n + off) % want.size();
                if (used[w] || want[w].size() != row.size()) continue;
                std::string diff;
                for (std::size_t k = 0; k < row.size() && diff.empty(); ++k)
                    if (std::string d = compareField(row[k], want[w][k]); !d.empty())
                        diff = "column " + t.columns[k].name + ": " + d;
                if (diff.empty())
                    matched = used[w] = true;
                else if (off == 0)
                    firstDiff = diff;
            }
            EXPECT_TRUE(matched) << "row " << n << " has no equal in mdb-export; " << firstDiff;
        }
        EXPECT_EQ(s, jet::END) << cur.error();
        EXPECT_EQ(n, want.size());
    }
}

// Every row is found again through every index that can seek on its value (key encodings of numbers,
// dates and General-sort text; ascending and descending; prefix-compressed pages).
TEST_P(CorpusFile, IndexSeeksFindEveryRow)
{
    const std::string file = GetParam();
    jet::Database db;
    ASSERT_EQ(db.open(corpus(file), passwordOf(file)), jet::OK) << db.error();
    for (const jet::Table& t : db.tables()) {
        for (std::size_t col = 0; col < t.columns.size(); ++col) {
            int idx = db.seekableIndex(t, static_cast<int>(col));
            if (idx < 0) continue;
            SCOPED_TRACE(file + " / " + t.name + " / " + t.columns[col].name);
            jet::Cursor cur(db, t);
            for (jet::Status s = cur.rewind(); s == jet::OK; s = cur.next()) {
                jet::KeyBound b;
                b.present = true;
                ASSERT_EQ(cur.column(col, b.value), jet::OK);
                if (b.value.null) continue;
                std::vector<jet::RowId> ids;
                bool usable = false;
                ASSERT_EQ(db.indexSeek(t, idx, b, b, ids, &usable), jet::OK) << db.error();
                if (!usable) continue; // a text value whose key we do not encode
                EXPECT_NE(std::find(ids.begin(), ids.end(), cur.rowId()), ids.end())
                    << "row " << cur.rowId() << " not found by its value";
            }
        }
    }
}

// Every table dumped and the file checked again with one page of cache: a page pointer held while another page is
// read (which may drop every cached page when another writer committed) shows as a use after free.
TEST_P(CorpusFile, OnePageOfCacheReadsTheSame)
{
    auto dump = [](jet::Database& db) {
        std::ostringstream out;
        std::string err;
        for (const jet::Table& t : db.tables())
            if (jet::dumpTable(db, t, out, &err) != jet::OK) return t.name + ": " + err;
        return out.str();
    };
    jet::Database whole, tiny;
    ASSERT_EQ(whole.open(corpus(GetParam()), passwordOf(GetParam())), jet::OK) << whole.error();
    ASSERT_EQ(tiny.open(corpus(GetParam()), passwordOf(GetParam())), jet::OK) << tiny.error();
    tiny.setCacheLimit(1);
    EXPECT_EQ(dump(tiny), dump(whole));
    EXPECT_EQ(problemsOf(whole), "");
    EXPECT_EQ(problemsOf(tiny), "");
}

INSTANTIATE_TEST_SUITE_P(Corpus, CorpusFile, ::testing::ValuesIn(corpusFiles()), [](const auto& info) {
    std::string n = info.param.substr(0, info.param.find('.'));
    return n;
});

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

// Refused: wrong case, one letter short or over, a password for a file without one, one over the length limit. A
// password set opens the file, whatever it holds (non-ASCII, the longest allowed), and nothing else does.
TEST(Password, OnlyTheFilesPasswordOpens)
{
    const std::pair<const char*, const char*> refused[] = {
        {"passwordV2000.mdb", ""},
        {"passwordV2000.mdb", "Password"},
        {"passwordV2000.mdb", "password1"},
        {"passwordV2000.mdb", "passwor"},
        {"noPasswordV2000.mdb", "password"},
        {"encodedJet4.mdb", "x"},
        {"testV2000.mdb", "a password that is far too long"},
    };
    for (const auto& [file, password] : refused) {
        jet::Database db;
        EXPECT_EQ(db.open(corpus(file), password), jet::ERR_PASSWORD) << file << " / " << password;
        EXPECT_EQ(db.error(), "Not a valid password.");
    }
    const std::pair<const char*, std::string> set[] = {
        {"passwordV2000.mdb", ""},
        {"noPasswordV2000.mdb", "\xe3\x83\x91\xe3\x82\xb9"}, // non-ASCII
        {"encodedJet4.mdb", "12345678901234567890"},         // longest allowed
    };
    std::string err;
    for (const auto& [file, password] : set) {
        std::string path = scratchCopy(file, "data1.dat");
        ASSERT_EQ(jet::setPassword(path, password, &err), jet::OK) << err;
        jet::Database db, wrong;
        EXPECT_EQ(db.open(path, password), jet::OK) << file << ": " << db.error();
        EXPECT_FALSE(db.tables().empty());
        EXPECT_EQ(wrong.open(path, password + "x"), jet::ERR_PASSWORD);
    }
    EXPECT_EQ(jet::setPassword(scratchCopy("testV2000.mdb", "long.dat"), "123456789012345678901", &err), jet::ERR_ARG);
    EXPECT_NE(jet::setPassword("/nonexistent/file.mdb", "x", &err), jet::OK);
}

TEST(Format, RefusesWhatIsNotJet4)
{
    const auto base = readFile(corpus("testV2000.mdb"));
    struct Case {
        const char* what;
        std::size_t offset;
        std::string bytes;
        std::size_t truncate;
        jet::Status want;
        const char* text;
    } cases[] = {
        {"Jet 3", 0x14, std::string(1, '\0'), 0, jet::ERR_FORMAT, "Jet 3"},
        {"ACE", 4, "Standard ACE DB", 0, jet::ERR_FORMAT, "ACE"},
        {"ACE version", 0x14, std::string(1, '\x02'), 0, jet::ERR_FORMAT, "only Jet 4"},
        {"not Jet", 4, "Something else!", 0, jet::ERR_FORMAT, "Not a Jet"},
        {"truncated", 0, "", 5000, jet::ERR_CORRUPT, "truncated"},
        {"empty", 0, "", 1, jet::ERR_FORMAT, "Not a Jet"},
    };
    for (const Case& c : cases) {
        auto bytes = base;
        std::memcpy(bytes.data() + c.offset, c.bytes.data(), c.bytes.size());
        if (c.truncate) bytes.resize(c.truncate - 1);
        jet::Database db;
        EXPECT_EQ(db.openMemory(bytes, ""), c.want) << c.what;
        EXPECT_NE(db.error().find(c.text), std::string::npos) << c.what << ": " << db.error();
    }
}

// Opening reads the header and the columns' properties (as mdb-prop lists them: every number column of Table1
// defaults to 0, the text column to nothing); the pages are read when needed, so a row read holds a few, not the file.
TEST(Open, ReadsTheHeaderThePropertiesAndFewPages)
{
    jet::Database db, enc, props, big;
    ASSERT_EQ(db.open(corpus("creationDateV2000.mdb"), ""), jet::OK);
    EXPECT_EQ(db.codePage(), 1252);
    EXPECT_EQ(db.sortOrder(), 0x409u);
    EXPECT_EQ(jet::formatDateTime(db.creationDate(), '-').substr(0, 10), "2022-01-07");
    EXPECT_FALSE(db.encoded());
    ASSERT_EQ(enc.open(corpus("encodedJet4.mdb"), ""), jet::OK);
    EXPECT_TRUE(enc.encoded());

    ASSERT_EQ(props.open(corpus("indexTestV2000.mdb"), ""), jet::OK) << props.error();
    std::string seen;
    for (const jet::Column& c : props.table("Table1")->columns)
        seen += c.name + "=" + c.defaultValue + ";";
    EXPECT_EQ(seen, "id=0;otherfk1=0;otherfk2=0;data=;otherfk3=0;");

    ASSERT_EQ(big.open(corpus("testV2000.mdb"), ""), jet::OK) << big.error();
    ASSERT_GT(big.pageCount(), 500u);
    jet::Cursor cur(big, *big.table("Table1"));
    ASSERT_EQ(cur.rewind(), jet::OK) << cur.error();
    jet::Value v;
    ASSERT_EQ(cur.column(0, v), jet::OK);
    EXPECT_LT(big.pagesHeld(), 100u); // with the pages read on after each one asked for
}

TEST(Values, Formatting)
{
    const std::pair<double, const char*> dates[] = {
        {0.0, "1899-12-30 00:00:00"},          {-1.25, "1899-12-29 06:00:00"},     {36526.99998, "2000-01-01 23:59:58"},
        {36526.999999, "2000-01-02 00:00:00"}, {2958465.0, "9999-12-31 00:00:00"}, {-657434.0, "0100-01-01 00:00:00"},
        {60.0, "1900-02-28 00:00:00"},         {61.0, "1900-03-01 00:00:00"},
    };
    for (const auto& [v, want] : dates)
        EXPECT_EQ(jet::formatDateTime(v, '-'), want) << v;
    EXPECT_EQ(jet::formatDateTime(0.5, '/'), "1899/12/30 12:00:00");
    EXPECT_EQ(jet::formatDateTime(NAN, '-'), "");

    const std::pair<std::int64_t, const char*> money[] = {
        {35000, "3.5"}, {0, "0"}, {-12345, "-1.2345"}, {10000, "1"}, {INT64_MIN, "-922337203685477.5808"}};
    for (const auto& [v, want] : money)
        EXPECT_EQ(jet::formatMoney(v), want);

    for (const auto& [text, coded] : {std::pair{"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}})
        EXPECT_EQ(jet::base64(text), coded);
}

TEST(Values, CompressedText)
{
    const std::pair<std::string, const char*> cases[] = {
        {std::string("\xff\xfe\x61\x62\x63", 5), "abc"},
        {std::string("h\0i\0", 4), "hi"},
        {std::string("\xff\xfe\x61\0\x42\x30\0\x62", 8), "a\xe3\x81\x82\x62"}, // toggles to UCS-2 and back
        {std::string("\x3d\xd8\x00\xde", 4), "\xf0\x9f\x98\x80"},              // surrogate pair
        {std::string("\xff\xfe", 2), ""},
    };
    for (const auto& [stored, want] : cases)
        EXPECT_EQ(jet::decodeText(reinterpret_cast<const std::uint8_t*>(stored.data()), stored.size()), want);
}

TEST(Tool, ListAndDump)
{
    std::ostringstream list;
    std::string err;
    ASSERT_EQ(jet::listTables(corpus("testV2000.mdb"), "", list, &err), jet::OK) << err;
    EXPECT_EQ(list.str().substr(0, 9), "Table1\t2\n");
    struct Case {
        const char* file;
        const char* table;
        const char* row; // found in the dump
    } cases[] = {
        {"testV2000.mdb", "Table1",
         "\"E\":333333333,\"F\":444.555,\"G\":\"1974-09-21 00:00:00\",\"H\":3.5,\"I\":true}"},
        // dates mdbtools cannot print (before 1900, after its range), checked against the file itself
        {"dateTest.mdb", "DateTest", "\"DateTimeCol\":\"9999-01-01 00:00:00\""},
        {"dateTest.mdb", "DateTest", "\"DateTimeCol\":\"1898-01-01 00:00:00\""},
        {"dateTest.mdb", "DateTest", "\"TimeCol\":\"0634-01-01 00:00:00\""},
    };
    for (const Case& k : cases) {
        std::ostringstream rows;
        ASSERT_EQ(jet::dumpTable(corpus(k.file), "", k.table, rows, &err), jet::OK) << err;
        EXPECT_NE(rows.str().find(k.row), std::string::npos) << rows.str();
    }
    std::ostringstream none;
    EXPECT_EQ(jet::dumpTable(corpus("testV2000.mdb"), "", "NoSuchTable", none, &err), jet::ERR_NOT_FOUND);
    EXPECT_EQ(jet::listTables(corpus("passwordV2000.mdb"), "", list, &err), jet::ERR_PASSWORD);
    EXPECT_EQ(err, "Not a valid password.");
}

} // namespace
