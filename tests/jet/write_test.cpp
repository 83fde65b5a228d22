// Writes through the SQLite module on scratch copies of corpus files; every result is read back by a fresh
// engine and by mdbtools.
#include "sql.h"

#include <gtest/gtest.h>

namespace
{

using namespace jettest;

std::string mdbExport(const std::string& path, const std::string& table)
{
    return run("mdb-export '" + path + "' '" + table + "' 2>&1");
}

std::size_t lines(const std::string& s)
{
    return static_cast<std::size_t>(std::count(s.begin(), s.end(), '\n'));
}

// Table1 holds every fixed type: an update of each lands where mdbtools reads it; a value of the wrong type is
// refused and leaves the file as it was.
TEST(JetWrite, FixedTypesUpdateInPlace)
{
    JET_NEEDS_MDB_TOOLS();
    std::string path = scratchCopy("testV2000.mdb", "types.mdb");
    const auto original = readFile(path);
    const std::size_t before = lines(mdbExport(path, "Table1"));
    {
        Sql c(path);
        EXPECT_NE(c.exec("UPDATE Table1 SET E = 'letters' WHERE A = 'abcdefg'").find("Data type mismatch"),
                  std::string::npos);
        EXPECT_EQ(readFile(path), original);
        EXPECT_EQ(c.exec("UPDATE Table1 SET C = 7, D = -3, E = 123456, F = 2.5, G = '2024/02/29 13:45:10', "
                         "H = 12.3456, I = 0 WHERE A = 'abcdefg'"),
                  "");
        EXPECT_EQ(c.query("SELECT A, B, C, D, E, F, G, H, I FROM Table1 WHERE E = 123456"),
                  "abcdefg|hijklmnop|7|-3|123456|2.5|2024/02/29 13:45:10|12.3456|0\n");
        EXPECT_EQ(c.exec("DELETE FROM Table1 WHERE A = 'a'"), "");
    }
    std::string exported = mdbExport(path, "Table1");
    EXPECT_EQ(lines(exported), before - 1);
    EXPECT_NE(exported.find("\"abcdefg\",\"hijklmnop\",7,-3,123456,2.5,\"02/29/24 13:45:10\",12.3456,0"),
              std::string::npos)
        << exported;
    EXPECT_EQ(checkProblems(path), "");
}

TEST(JetWrite, LongValuesInEveryForm)
{
    JET_NEEDS_MDB_TOOLS();
    std::string path = scratchCopy("dateTest.mdb", "memo.mdb");
    const std::size_t sizes[] = {0, 10, 199, 1500, 3999, 4100, 30000};
    {
        Sql c(path);
        ASSERT_EQ(c.exec("BEGIN"), "");
        for (std::size_t n : sizes) {
            std::string text;
            for (std::size_t i = 0; i < n; ++i)
                text += static_cast<char>('a' + i % 26);
            // Every eleventh value in Japanese: stored uncompressed.
            if (n == 1500) text = std::string(500, 'x') + "漢字かな";
            ASSERT_EQ(c.exec("INSERT INTO DateTest (IDCol, LongTextCol) VALUES (" + std::to_string(1000 + n) + ", '" +
                             text + "')"),
                      "");
        }
        ASSERT_EQ(c.exec("COMMIT"), "");
        // A shorter value replaces a chained one; the chain's rows are freed.
        ASSERT_EQ(c.exec("UPDATE DateTest SET LongTextCol = 'short' WHERE IDCol = 31000"), "");
    }
    Sql c(path);
    for (std::size_t n : sizes) {
        std::string got = c.query("SELECT length(LongTextCol) FROM DateTest WHERE IDCol = " + std::to_string(1000 + n));
        std::size_t want = n == 30000 ? 5 : n == 1500 ? 504 : n;
        EXPECT_EQ(got, std::to_string(want) + "\n") << n;
    }
    std::string exported = mdbExport(path, "DateTest");
    EXPECT_NE(exported.find(std::string(500, 'x') + "漢字かな"), std::string::npos);
    EXPECT_NE(exported.find("abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz"), std::string::npos);
    EXPECT_EQ(checkProblems(path), "");
}

TEST(JetWrite, ManyRowsNewPagesUsageMapsAndMovedRows)
{
    JET_NEEDS_MDB_TOOLS();
    std::string path = scratchCopy("delTestV2000.mdb", "many.mdb");
    const std::size_t before = lines(mdbExport(path, "Table"));
    {
        Sql c(path);
        ASSERT_EQ(c.exec("BEGIN"), "");
        for (int i = 0; i < 6000; ++i)
            ASSERT_EQ(c.exec("INSERT INTO [Table] VALUES ('r" + std::to_string(i) + "', 'x')"), "");
        ASSERT_EQ(c.exec("COMMIT"), "");
        // Rows that no longer fit their page move; their slot keeps a pointer.
        ASSERT_EQ(c.exec("UPDATE [Table] SET b = 'a value long enough to push rows off their pages' "
                         "WHERE a LIKE 'r1%'"),
                  "");
        EXPECT_EQ(c.query("SELECT count(*) FROM [Table] WHERE b LIKE 'a value%'"), "1111\n");
    }
    std::string exported = mdbExport(path, "Table");
    EXPECT_EQ(lines(exported), before + 6000);
    EXPECT_NE(exported.find("\"r1999\",\"a value long enough"), std::string::npos);
    EXPECT_EQ(checkProblems(path), "");
}

TEST(JetWrite, TransactionsAndSavepoints)
{
    JET_NEEDS_MDB_TOOLS();
    std::string path = scratchCopy("delTestV2000.mdb", "txn.mdb");
    auto original = readFile(path);
    Sql c(path);
    ASSERT_EQ(c.exec("BEGIN; INSERT INTO [Table] VALUES ('gone', '1'); ROLLBACK"), "");
    EXPECT_EQ(readFile(path), original);
    EXPECT_EQ(c.query("SELECT count(*) FROM [Table] WHERE a = 'gone'"), "0\n");

    ASSERT_EQ(c.exec("BEGIN; INSERT INTO [Table] VALUES ('kept', '1'); SAVEPOINT s1; "
                     "INSERT INTO [Table] VALUES ('undone', '2'); DELETE FROM [Table] WHERE a = 'kept'; "
                     "ROLLBACK TO s1; SAVEPOINT s2; INSERT INTO [Table] VALUES ('released', '3'); RELEASE s2; COMMIT"),
              "");
    EXPECT_EQ(c.query("SELECT a FROM [Table] WHERE a IN ('kept', 'undone', 'released') ORDER BY a"),
              "kept\nreleased\n");
    std::string exported = mdbExport(path, "Table");
    EXPECT_NE(exported.find("\"kept\""), std::string::npos);
    EXPECT_EQ(exported.find("\"undone\""), std::string::npos);

    // A second connection cannot write while the first one's transaction is open.
    Sql other(path);
    ASSERT_EQ(c.exec("BEGIN; INSERT INTO [Table] VALUES ('first', '1')"), "");
    EXPECT_NE(other.exec("INSERT INTO [Table] VALUES ('second', '1')"), "");
    ASSERT_EQ(c.exec("COMMIT"), "");
    EXPECT_EQ(other.exec("INSERT INTO [Table] VALUES ('second', '1')"), "");
    EXPECT_EQ(checkProblems(path), "");
}

// Writes taken back inside a transaction leave the file as it was at COMMIT: a savepoint older than the Jet
// table's joining the transaction, and a row refused by an index (its index entries undone, nothing rewritten).
TEST(JetWrite, UndoneWritesLeaveNothingAtCommit)
{
    struct Case {
        const char* what;
        const char* sql;
    };
    const Case cases[] = {
        {"savepoint older than the join", "BEGIN; SAVEPOINT a; SAVEPOINT b; INSERT INTO Table1 (A, B, E, I) VALUES "
                                          "('new one', 'new one', 1, 0); ROLLBACK TO a"},
        {"second key that cannot be written",
         "BEGIN; INSERT INTO Table1 (A, B, E, I) VALUES ('new one', 'zebra', 1, 0)"},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.what);
        std::string path = scratchCopy("testV2000.mdb", "undone.mdb");
        auto original = readFile(path);
        Sql c(path);
        c.exec(k.sql);
        EXPECT_EQ(c.query("SELECT count(*) FROM Table1 WHERE 'new one' IN (A, B)"), "0\n");
        ASSERT_EQ(c.exec("COMMIT"), "");
        EXPECT_EQ(readFile(path), original);
    }
}

TEST(JetWrite, NumericIndexesStayConsistent)
{
    std::string path = scratchCopy("indexTestV2000.mdb", "index.mdb");
    {
        Sql c(path);
        ASSERT_EQ(c.exec("BEGIN"), "");
        for (int i = 0; i < 3000; ++i)
            ASSERT_EQ(c.exec("INSERT INTO Table2 (id) VALUES (" + std::to_string(100000 + (i * 7919) % 3000) + ")"),
                      "");
        ASSERT_EQ(c.exec("COMMIT"), "");
        ASSERT_EQ(c.exec("DELETE FROM Table2 WHERE id BETWEEN 101000 AND 101999"), "");
        ASSERT_EQ(c.exec("UPDATE Table2 SET id = id + 10000 WHERE id BETWEEN 102000 AND 102099"), "");
    }
    // read back through the index by a fresh engine
    Sql c(path);
    jet::Database* db = jet::engineOf(c.db, path);
    ASSERT_NE(db, nullptr);
    struct Probe {
        std::int64_t lo, hi;
        std::size_t rows;
    } probes[] = {{100000, 100999, 1000}, {101000, 101999, 0},   {102000, 102099, 0},
                  {112000, 112099, 100},  {102100, 102999, 900}, {100500, 100500, 1}};
    for (const Probe& p : probes) {
        db->resetPageReads();
        EXPECT_EQ(c.query("SELECT count(*) FROM Table2 WHERE id BETWEEN " + std::to_string(p.lo) + " AND " +
                          std::to_string(p.hi)),
                  std::to_string(p.rows) + "\n");
        EXPECT_LE(db->pageReads(), p.rows + 10) << "not a seek: " << p.lo;
    }
    c.close();
    EXPECT_EQ(checkProblems(path), "");
}

// A second connection of the process reads the file as of the last commit while the first one writes: never
// rows of an open transaction, and the writer's rows once it commits.
TEST(JetWrite, OtherConnectionsReadCommittedRows)
{
    std::string path = scratchCopy("indexTestV2000.mdb", "committed.mdb");
    Sql a(path), b(path);
    std::string many;
    for (int i = 0; i < 3000; ++i)
        many += "INSERT INTO Table2 (id) VALUES (" + std::to_string(100000 + (i * 7919) % 3000) + ");";
    // What B reads: a scan, and seeks through the index on id.
    auto view = [](Sql& c) {
        return c.query("SELECT count(*), coalesce(sum(id), 0) FROM Table2") +
               c.query("SELECT id FROM Table2 WHERE id = 2") + c.query("SELECT id FROM Table2 WHERE id = 20") +
               c.query("SELECT count(*) FROM Table2 WHERE id BETWEEN 1 AND 100") +
               c.query("SELECT count(*) FROM Table2 WHERE id >= 100000");
    };
    struct Case {
        const char* what;
        std::string writes;
    } cases[] = {
        {"insert", "INSERT INTO Table2 (id) VALUES (4)"},
        {"update of the indexed column", "UPDATE Table2 SET id = 20 WHERE id = 2"},
        {"delete", "DELETE FROM Table2 WHERE id = 1"},
        {"savepoint taken back in part",
         "SAVEPOINT s; INSERT INTO Table2 (id) VALUES (5); ROLLBACK TO s; INSERT INTO Table2 (id) VALUES (6); "
         "RELEASE s"},
        {"new data and index pages", many},
    };
    for (const Case& k : cases)
        for (bool commit : {false, true}) {
            const std::string before = view(b);
            ASSERT_EQ(a.exec("BEGIN"), "") << k.what;
            ASSERT_EQ(a.exec(k.writes), "") << k.what;
            const std::string during = view(a);
            EXPECT_NE(during, before) << k.what;
            EXPECT_EQ(view(b), before) << k.what << (commit ? " before COMMIT" : " before ROLLBACK");
            ASSERT_EQ(a.exec(commit ? "COMMIT" : "ROLLBACK"), "") << k.what;
            EXPECT_EQ(view(b), commit ? during : before) << k.what << (commit ? " after COMMIT" : " after ROLLBACK");
            EXPECT_EQ(view(a), view(b)) << k.what;
        }
    EXPECT_EQ(checkProblems(path), "");
}

// Text keys: written for the characters whose key bytes are confirmed, refused (file untouched) for any other.
TEST(JetWrite, TextKeysGeneralAndJapanese)
{
    JET_NEEDS_MDB_TOOLS();
    struct Case {
        bool japanese;
        const char* a;     // Table1.A and .B (both indexed; A unique)
        const char* error; // "" when the insert goes through
    } cases[] = {
        {false, "New Row_1", ""},
        {false, "quick fox", ""},
        {false, "abcdefg", "duplicate values"},
        {false, "ABCDEFG", "duplicate values"},
        {false, "zebra", "Table1の索引 "},
        {false, "pre-fix", "に書き込めない文字があります: -"},
        {false, "漢字", "Table1の索引 PrimaryKey に書き込めない文字があります: 漢"},
        {true, "Abc123", ""},
        {true, "two words", "に書き込めない文字があります: \" \""},
        {true, "カタカナ", "に書き込めない文字があります: カ"},
        {true, "東京", "に書き込めない文字があります: 東"},
    };
    std::string general = scratchCopy("testV2000.mdb", "text-general.mdb");
    // Table1 as in the corpus file, made with the Japanese sort
    ScratchDir dir("jet-text");
    const std::string japanese = dir / "data1.dat";
    ASSERT_TRUE(made(
        japanese,
        {{"Table1",
          {{"A", jet::Type::Text, 50}, {"B", jet::Type::Text, 100}, {"E", jet::Type::Long}, {"I", jet::Type::Bool}},
          {{"PrimaryKey", {{"A", true}}, true, true}, {"B", {{"B", true}}, false, false}}}},
        jet::kSortJapanese));
    {
        Sql g(general), j(japanese);
        for (const Case& k : cases) {
            SCOPED_TRACE(k.a);
            Sql& c = k.japanese ? j : g;
            auto before = readFile(k.japanese ? japanese : general);
            std::string got =
                c.exec(std::string("INSERT INTO Table1 (A, B, E, I) VALUES ('") + k.a + "', '" + k.a + "', 1, 0)");
            if (*k.error == 0) {
                EXPECT_EQ(got, "");
                // Found again through the index seek.
                EXPECT_EQ(c.query(std::string("SELECT count(*) FROM Table1 WHERE A = '") + k.a + "'"), "1\n");
            } else {
                EXPECT_NE(got.find(k.error), std::string::npos) << got;
                EXPECT_EQ(readFile(k.japanese ? japanese : general), before);
            }
        }
    }
    EXPECT_EQ(checkProblems(general), "");
    EXPECT_EQ(checkProblems(japanese), "");
    EXPECT_NE(mdbExport(general, "Table1").find("\"New Row_1\""), std::string::npos);
    EXPECT_NE(mdbExport(japanese, "Table1").find("\"Abc123\""), std::string::npos);
    // A row whose key cannot be written keeps it: an update of other columns goes through.
    Sql c(general);
    EXPECT_EQ(c.exec("UPDATE Table1 SET E = 99 WHERE A = 'quick fox'"), "");
    EXPECT_EQ(c.exec("UPDATE Table1 SET A = 'fast fox' WHERE A = 'quick fox'"), "");
    EXPECT_EQ(c.exec("DELETE FROM Table1 WHERE A = 'New Row_1'"), "");
    EXPECT_EQ(checkProblems(general), "");
}

} // namespace
