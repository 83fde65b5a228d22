// Writes through the SQLite module on scratch copies of corpus files and on made files; results are read back by a
// fresh engine, the check and mdbtools.
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
            // Japanese text is stored uncompressed.
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

// Writes taken back leave the file as it was: a rollback, a savepoint older than the Jet table's joining the
// transaction, and a row refused by an index (its index entries undone, nothing rewritten at COMMIT).
TEST(JetWrite, UndoneWritesLeaveNothingAtCommit)
{
    const std::pair<const char*, const char*> cases[] = {
        {"rollback", "BEGIN; INSERT INTO Table1 (A, B, E, I) VALUES ('new one', 'new one', 1, 0); ROLLBACK; BEGIN"},
        {"savepoint older than the join", "BEGIN; SAVEPOINT a; SAVEPOINT b; INSERT INTO Table1 (A, B, E, I) VALUES "
                                          "('new one', 'new one', 1, 0); ROLLBACK TO a"},
        {"second key that cannot be written",
         "BEGIN; INSERT INTO Table1 (A, B, E, I) VALUES ('new one', 'zebra', 1, 0)"},
    };
    for (const auto& [what, sql] : cases) {
        SCOPED_TRACE(what);
        std::string path = scratchCopy("testV2000.mdb", "undone.mdb");
        auto original = readFile(path);
        Sql c(path);
        c.exec(sql);
        EXPECT_EQ(c.query("SELECT count(*) FROM Table1 WHERE 'new one' IN (A, B)"), "0\n");
        ASSERT_EQ(c.exec("COMMIT"), "");
        EXPECT_EQ(readFile(path), original);
    }
}

// A second connection of the process reads the file as of the last commit while the first one writes: never rows of
// an open transaction, and the writer's rows once it commits. The writes take thousands of rows: new data and index
// pages, usage maps, rows that outgrow their page and move (their slot keeps a pointer), deletes and key updates;
// what is left is read through the index by a fresh engine, by the check and by mdbtools.
TEST(JetWrite, OtherConnectionsReadCommittedRows)
{
    std::string path = scratchCopy("indexTestV2000.mdb", "committed.mdb");
    std::string many;
    for (int i = 0; i < 3000; ++i)
        many += "INSERT INTO Table2 VALUES (" + std::to_string(100000 + (i * 7919) % 3000) + ", 'x');";
    // What B reads: a scan, and seeks through the index on id.
    auto view = [](Sql& c) {
        return c.query("SELECT count(*), coalesce(sum(id), 0), sum(length(data)) FROM Table2") +
               c.query("SELECT id FROM Table2 WHERE id = 2") + c.query("SELECT id FROM Table2 WHERE id = 20") +
               c.query("SELECT count(*) FROM Table2 WHERE id BETWEEN 1 AND 100") +
               c.query("SELECT count(*) FROM Table2 WHERE id >= 100000");
    };
    const std::pair<const char*, std::string> cases[] = {
        {"insert", "INSERT INTO Table2 (id) VALUES (4)"},
        {"update of the indexed column", "UPDATE Table2 SET id = 20 WHERE id = 2"},
        {"savepoint taken back in part",
         "SAVEPOINT s; INSERT INTO Table2 (id) VALUES (5); ROLLBACK TO s; INSERT INTO Table2 (id) VALUES (6); "
         "RELEASE s"},
        {"new data and index pages", many},
        {"rows that outgrow their page",
         "UPDATE Table2 SET data = 'a value long enough to push rows off their pages' WHERE id BETWEEN 102100 AND "
         "102999"},
        {"deletes and key updates",
         "DELETE FROM Table2 WHERE id BETWEEN 101000 AND 101999; UPDATE Table2 SET id = id + 10000 WHERE id BETWEEN "
         "102000 AND 102099"},
    };
    {
        Sql a(path), b(path);
        for (const auto& [what, writes] : cases)
            for (bool commit : {false, true}) {
                const std::string before = view(b);
                ASSERT_EQ(a.exec("BEGIN"), "") << what;
                ASSERT_EQ(a.exec(writes), "") << what;
                const std::string during = view(a);
                EXPECT_NE(during, before) << what;
                EXPECT_EQ(view(b), before) << what << (commit ? " before COMMIT" : " before ROLLBACK");
                ASSERT_EQ(a.exec(commit ? "COMMIT" : "ROLLBACK"), "") << what;
                EXPECT_EQ(view(b), commit ? during : before) << what << (commit ? " after COMMIT" : " after ROLLBACK");
                EXPECT_EQ(view(a), view(b)) << what;
            }
    }
    Sql c(path);
    jet::Database* db = jet::engineOf(c.db, path);
    ASSERT_NE(db, nullptr);
    struct Probe {
        std::int64_t lo, hi;
        std::size_t rows;
    } probes[] = {{100000, 100999, 1000}, {101000, 101999, 0}, {102000, 102099, 0}, {112000, 112099, 100}};
    for (const Probe& p : probes) {
        db->resetPageReads();
        EXPECT_EQ(c.query("SELECT count(*) FROM Table2 WHERE id BETWEEN " + std::to_string(p.lo) + " AND " +
                          std::to_string(p.hi)),
                  std::to_string(p.rows) + "\n");
        EXPECT_LE(db->pageReads(), p.rows + 10) << "not a seek: " << p.lo;
    }
    c.close();
    EXPECT_EQ(checkProblems(path), "");
    if (!mdbToolsRun()) return;
    std::string exported = mdbExport(path, "Table2");
    EXPECT_EQ(lines(exported), 1 + 5 + 2000u);
    EXPECT_NE(exported.find("102999,\"a value long enough"), std::string::npos);
}

// Text keys: written for the characters whose key bytes are confirmed, refused (file untouched) for any other.
TEST(JetWrite, TextKeysGeneralAndJapanese)
{
    struct Case {
        bool japanese;
        const char* a;     // Table1.A and .B (both indexed; A unique)
        const char* error; // "" when the insert goes through
    } cases[] = {
        {false, "New Row_1", ""},
        {false, "quick fox", ""},
        {false, "ABCDEFG", "duplicate values"},
        {false, "zebra", "Table1の索引 "},
        {false, "漢字", "Table1の索引 PrimaryKey に書き込めない文字があります: 漢"},
        {true, "Abc123", ""},
        {true, "two words", "に書き込めない文字があります: \" \""},
        {true, "カタカナ", "に書き込めない文字があります: カ"},
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
    // A row whose key cannot be written keeps it: an update of other columns goes through.
    Sql c(general);
    EXPECT_EQ(c.exec("UPDATE Table1 SET E = 99 WHERE A = 'quick fox'"), "");
    EXPECT_EQ(c.exec("UPDATE Table1 SET A = 'fast fox' WHERE A = 'quick fox'"), "");
    EXPECT_EQ(c.exec("DELETE FROM Table1 WHERE A = 'New Row_1'"), "");
    EXPECT_EQ(checkProblems(general), "");
}

TEST(JetLock, AnEditTakesTheWriterBeforeItsFirstWrite)
{
    ScratchDir dir("jet-lock");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(made(path, {{"offset", {{"kubun", jet::Type::Int}, {"top", jet::Type::Float}}, {}}}));
    Sql a(path), b(path);
    std::string err;
    EXPECT_EQ(a.exec("BEGIN IMMEDIATE"), "");
    EXPECT_EQ(jet::lockForWrite(a.db, &err), SQLITE_OK) << err;
    EXPECT_EQ(b.exec("INSERT INTO offset VALUES (1, 2)"), "database is locked");
    EXPECT_EQ(b.exec("BEGIN IMMEDIATE"), "");
    EXPECT_EQ(jet::lockForWrite(b.db, &err), SQLITE_BUSY);
    EXPECT_EQ(err, "database is locked");
    EXPECT_EQ(b.exec("ROLLBACK"), "");
    EXPECT_EQ(a.exec("INSERT INTO offset VALUES (3, 4); COMMIT"), "");
    EXPECT_EQ(b.exec("INSERT INTO offset VALUES (1, 2)"), "");
    // a lock taken and given back without a write leaves the file as it was
    auto before = readFile(path);
    EXPECT_EQ(a.exec("BEGIN IMMEDIATE"), "");
    EXPECT_EQ(jet::lockForWrite(a.db, &err), SQLITE_OK);
    EXPECT_EQ(a.exec("ROLLBACK"), "");
    EXPECT_EQ(readFile(path), before);
    EXPECT_EQ(a.query("SELECT count(*) FROM offset"), "2\n");
}

} // namespace
