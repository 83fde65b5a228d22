#include "jet/tool.h"
#include "sql.h"

#include <gtest/gtest.h>

#include <filesystem>

using namespace jettest;

namespace
{

TEST(Sqlite, AttachExposesEveryUserTableWithJetTypes)
{
    Sql c(corpus("testV2000.mdb"));
    EXPECT_EQ(
        c.query("SELECT name FROM pragma_table_list WHERE schema='main' AND name NOT LIKE 'sqlite%' ORDER BY name"),
        "Table1\nTable2\nTable3\nTable4\n");
    EXPECT_EQ(c.query("SELECT group_concat(name || ' ' || type, ', ') FROM pragma_table_info('Table1')"),
              "A TEXT(50), B TEXT(100), C BYTE, D SHORT, E LONG, F DOUBLE, G DATETIME, H CURRENCY, I BIT\n");
    EXPECT_EQ(c.query("SELECT * FROM Table1", true),
              "abcdefg|hijklmnop|i:2|i:222|i:333333333|r:444.555000|1974/09/21 00:00:00|r:3.500000|i:-1\n"
              "a|b|i:0|i:0|i:0|r:0.000000|1981/12/12 00:00:00|i:0|i:0\n");
    // decimal numbers as text; replication IDs, memos and Yes/No of other files read
    EXPECT_EQ(Sql(corpus("fixedNumericTestV2000.mdb")).query("SELECT col2, col6, typeof(col6) FROM test"),
              "1|-1|text\n");
    for (const auto& [file, sql] :
         {std::pair{"testRefGlobalV2000.mdb", "SELECT typeof(data) FROM Table4 LIMIT 1"},
          {"test2V2000.mdb", "SELECT typeof(PROJ_PROP_AUTHOR), PROJ_OPT_CALC_ACT_COSTS FROM MSP_PROJECTS"}}) {
        const std::string rows = Sql(corpus(file)).query(sql);
        EXPECT_EQ(rows.rfind("error", 0), std::string::npos) << sql << ": " << rows;
    }
}

// A file marked read-only is never written, whoever runs the program.
TEST(Sqlite, ReadOnlyFileRefusesWrites)
{
    std::string path = scratchCopy("testV2000.mdb", "readonly.mdb");
    std::filesystem::permissions(path, std::filesystem::perms::all, std::filesystem::perm_options::remove);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read, std::filesystem::perm_options::add);
    auto original = readFile(path);
    Sql c(path);
    for (const char* sql : {"INSERT INTO Table1 (A) VALUES ('x')", "UPDATE Table1 SET C = 1", "DELETE FROM Table1"})
        EXPECT_NE(c.exec(sql).find("is read-only"), std::string::npos) << sql;
    EXPECT_EQ(c.query("SELECT count(*) FROM Table1"), "2\n");
    EXPECT_EQ(readFile(path), original);
}

// One engine per file: a second connection shares it, still checks the password, and survives the first one
// closing; another file copied over the same path is read as that file, the first engine's connection keeps its own.
TEST(Sqlite, ConnectionsShareTheFilesEngineUntilItIsReplaced)
{
    const std::string path = scratchCopy("encodedJet4.mdb", "data1.dat");
    std::string err;
    ASSERT_EQ(jet::setPassword(path, "VelQuarto", &err), jet::OK) << err;
    auto a = std::make_unique<Sql>(path, "VelQuarto");
    Sql b(path, "VelQuarto");
    EXPECT_EQ(jet::engineOf(a->db, path), jet::engineOf(b.db, path));
    EXPECT_NE(jet::engineOf(b.db, path), nullptr);
    EXPECT_EQ(jet::attach(b.db, path, "x", &err), jet::ERR_PASSWORD);
    EXPECT_EQ(err, "Not a valid password.");
    a.reset();
    EXPECT_EQ(b.query("SELECT ID, col1, col2 FROM Table1"), "1|hello|0\n2|world|42\n");

    std::filesystem::copy_file(corpus("passwordV2000.mdb"), path, std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(Sql(path, "VelQuarto").exec("SELECT 1"), "attach: Not a valid password.");
    Sql d(path, "password");
    EXPECT_EQ(d.query("SELECT count(*) FROM Table1"), "3\n");
    EXPECT_EQ(b.query("SELECT count(*) FROM Table1"),
              "error: 'data1.dat' was replaced by another database while open; open it again.");
    EXPECT_NE(Sql("/nonexistent/data1.dat").exec("SELECT 1").find("Cannot open"), std::string::npos);
}

// Lookups the indexes can serve find the rows a scan finds and read a handful of pages: numbers, Date/Time bounds
// from text, and text equality through General-sort keys (without case, as Jet compares).
TEST(Sqlite, IndexedLookupsEqualAScan)
{
    struct Case {
        const char* file;
        const char* table;
        const char* where; // on the indexed column
        long rows;
        long reads; // page accesses at most (index pages plus one per row read); negative: at least (a scan)
    };
    const char *agents = "compIndexTestV2000.mdb", *users = "fixedTextTestV2000.mdb";
    const char* props = "testIndexPropertiesV2000.mdb";
    // users holds two rows, stamped 2009/11/05 23:41:28 and 2009/10/22 03:57:13
    const Case cases[] = {
        {agents, "Table1", "CD_AGENTE = 35", 1, 6},
        {agents, "Table1", "CD_AGENTE = 35.0", 1, 6},
        {agents, "Table1", "CD_AGENTE = '35'", 1, 6}, // '35' taken as a number
        {agents, "Table1", "CD_AGENTE > 4000", 207, 250},
        {agents, "Table1", "CD_AGENTE < 60", 4, 100},
        {users, "users", "d_stamp_ = '2009/11/05 23:41:28'", 1, 0},
        {users, "users", "d_stamp_ = '2009/11/05'", 0, 0},
        {users, "users", "d_stamp_ >= '2009/11/05'", 1, 0},
        {users, "users", "d_stamp_ > '2009/11/05 23:41:28'", 0, 0},
        {users, "users", "d_stamp_ <= '2009/11/05 23:41:28'", 2, 0},
        {users, "users", "d_stamp_ < '2009/11/05'", 1, 0},
        {users, "users", "d_stamp_ > '1800/01/01'", 2, 0},
        {users, "users", "d_stamp_ < 5", 0, 0},
        {props, "TableIgnoreNulls1", "row = 'row5'", 1, 4},
        {props, "TableIgnoreNulls1", "row = 'ROW5'", 1, 4},
        {props, "TableIgnoreNulls1", "row = 'row'", 0, 4},
        {props, "TableIgnoreNulls1", "data = 'lots of stuff'", 1, 4},
        {props, "TableIgnoreNulls1", "data = 'zulu'", 0, -10}, // keys we cannot encode: answered by a scan
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.where);
        Sql c(corpus(k.file));
        jet::Database* db = jet::engineOf(c.db, corpus(k.file));
        ASSERT_NE(db, nullptr);
        const std::string select = std::string("SELECT rowid, * FROM ") + k.table + " WHERE ";
        // the same test as an expression, which the index cannot serve
        const std::string scanned = c.query(select + "(" + k.where + ") = 1 ORDER BY rowid");
        db->resetPageReads();
        const std::string seeked = c.query(select + k.where + " ORDER BY rowid");
        const long reads = static_cast<long>(db->pageReads());
        EXPECT_EQ(seeked.rfind("error", 0), std::string::npos) << seeked;
        EXPECT_EQ(seeked, scanned);
        EXPECT_EQ(std::count(seeked.begin(), seeked.end(), '\n'), k.rows) << seeked;
        if (k.reads > 0) {
            EXPECT_LE(reads, k.reads);
        } else if (k.reads < 0) {
            EXPECT_GE(reads, -k.reads);
        }
    }
}

} // namespace

// A text that looks like a number is stored as typed: codes keep their leading zeros and blanks.
TEST(Sqlite, TextLikeANumberStaysText)
{
    Sql c(scratchCopy("testV2000.mdb", "numbertext.mdb"));
    for (const char* text : {"01234", " 12345 ", "1e3", "+7", "0.50"}) {
        for (const char* sql : {"INSERT INTO Table2 (column1, column2) VALUES ('new', ?1)",
                                "UPDATE Table2 SET column2 = ?1 WHERE column1 = 'new'"}) {
            EXPECT_EQ(c.exec(sql, text), "") << sql;
            EXPECT_EQ(c.query("SELECT '[' || column2 || ']' FROM Table2 WHERE column1 = 'new'"),
                      "[" + std::string(text) + "]\n")
                << sql;
        }
        EXPECT_EQ(c.exec("DELETE FROM Table2 WHERE column1 = 'new'"), "");
    }
}

// Dates as the program writes them, or day numbers in the engine's range; a number in text is never a day number.
// Numbers within the column's range. A value refused leaves the file as it was.
TEST(Sqlite, ValuesTakeTheColumnsForms)
{
    ScratchDir dir("jet-values");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(made(path, {{"log",
                             {{"jikan", jet::Type::DateTime},
                              {"kubun", jet::Type::Int},
                              {"b", jet::Type::Byte},
                              {"rate", jet::Type::Double}},
                             {}}}));
    Sql c(path);
    ASSERT_EQ(c.exec("INSERT INTO log VALUES ('2000/01/01', 1, 1, 1)"), "");
    struct Case {
        const char* column;
        const char* text; // bound as text; nullptr: the number
        double number;
        const char* want; // the value stored, or the start of the refusal
    } cases[] = {
        {"jikan", "2026/11/23", 0, "2026/11/23 00:00:00"},
        {"jikan", "2026/11/23 9:05:07", 0, "2026/11/23 09:05:07"},
        {"jikan", "2026/11/23 23:59", 0, "2026/11/23 23:59:00"},
        {"jikan", "2026-11-23T09:05:07", 0, "2026/11/23 09:05:07"},
        {"jikan", nullptr, 45293.5, "2024/01/02 12:00:00"},
        {"jikan", "2026/11/23 9:5:07", 0, "Data type mismatch in criteria expression."},
        {"jikan", "2026/11/23 24:00:00", 0, "Data type mismatch"},
        {"jikan", "2026/1/23", 0, "Data type mismatch"},
        {"jikan", "2026/11/23 9:05:07 ", 0, "Data type mismatch"},
        {"jikan", "20240102", 0, "Data type mismatch"},
        {"jikan", nullptr, 20240102, "The value for 'jikan' is out of the range"},
        {"kubun", nullptr, 70000, "The value for 'kubun' is out of the range"},
        {"b", nullptr, 256, "The value for 'b' is out of the range"},
        {"rate", "letters", 0, "Data type mismatch"},
    };
    for (const Case& k : cases) {
        const std::string what = k.text ? k.text : std::to_string(k.number);
        const std::string column = k.column;
        const auto before = readFile(path);
        const std::string error = c.exec("UPDATE log SET " + column + " = ?1", k.text, k.number);
        const std::string got = error.empty() ? c.query("SELECT " + column + " FROM log") : error;
        EXPECT_EQ(got.rfind(k.want, 0), 0u) << what << ": " << got;
        if (!error.empty()) {
            EXPECT_EQ(readFile(path), before) << what;
        }
    }
}
