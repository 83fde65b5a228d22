// UPDATEs that leave columns as they are: numbers no index holds are written where they stand, everything else
// (indexed columns, nulls either side, text) the long way round; the file ends the same and consistent.
#include "jet/create.h"
#include "jet/sqlite_attach.h"
#include "test_util.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace {

using namespace jettest;

std::string exec(sqlite3* db, const std::string& sql)
{
    char* msg = nullptr;
    int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg);
    std::string out = rc == SQLITE_OK ? "" : (msg ? msg : "error");
    sqlite3_free(msg);
    return out;
}

std::string rows(sqlite3* db, const std::string& sql)
{
    sqlite3_stmt* st = nullptr;
    std::string out;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK)
        return sqlite3_errmsg(db);
    while (sqlite3_step(st) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(st); ++i) {
            const unsigned char* t = sqlite3_column_text(st, i);
            out += (i ? "," : "") + std::string(t ? reinterpret_cast<const char*>(t) : "NULL");
        }
        out += ";";
    }
    sqlite3_finalize(st);
    return out;
}

TEST(JetUpdate, UnchangedColumnsStayAndChangedOnesLand)
{
    JET_NEEDS_MDB_TOOLS();
    auto dir = std::filesystem::temp_directory_path() / ("jet-update-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const std::string path = (dir / "data1.dat").string();
    std::vector<jet::TableDef> t(1);
    t[0].name = "jyuden";
    t[0].columns = {{"denno", jet::Type::Long}, {"sday", jet::Type::Long},     {"total", jet::Type::Money},
                    {"cflag", jet::Type::Int},  {"rate", jet::Type::Double},   {"udate", jet::Type::DateTime},
                    {"ok", jet::Type::Bool},    {"memo", jet::Type::Text, 40}, {"b", jet::Type::Byte}};
    t[0].indexes = {{"PrimaryKey", {{"denno", true}}, true, true}, {"jyuden_sday", {{"sday", true}}, false, false}};
    std::string err;
    ASSERT_EQ(jet::createDatabase(path, "", jet::kSortGeneral, t, &err), jet::OK) << err;
    sqlite3 *j = nullptr, *s = nullptr;
    sqlite3_open(":memory:", &j);
    sqlite3_open(":memory:", &s);
    ASSERT_EQ(jet::attach(j, path, "", &err), 0) << err;
    ASSERT_EQ(exec(s, "CREATE TABLE jyuden (denno, sday, total, cflag, rate, udate, ok, memo, b)"), "");
    std::string fill = "BEGIN;";
    for (int i = 1; i <= 300; ++i)
        fill += "INSERT INTO jyuden VALUES (" + std::to_string(i) + ", " + std::to_string(20260000 + i % 7) + ", " +
                (i % 5 ? std::to_string(i) + ".5" : "NULL") + ", 0, 1.25, '2026/11/23 09:05:07', " +
                (i % 2 ? "-1" : "0") + ", 'm" + std::to_string(i) + "', 7);";
    fill += "COMMIT;";
    ASSERT_EQ(exec(j, fill), "");
    ASSERT_EQ(exec(s, fill), "");
    const char* updates[] = {
        "UPDATE jyuden SET cflag = 1", // in place on every row
        "UPDATE jyuden SET cflag = 2, rate = 0.5 WHERE denno % 3 = 0",
        "UPDATE jyuden SET total = 9 WHERE total IS NULL",     // null before: the long way
        "UPDATE jyuden SET total = NULL WHERE denno % 11 = 0", // null after
        "UPDATE jyuden SET sday = sday + 1 WHERE denno < 50",  // indexed
        "UPDATE jyuden SET udate = '2027/01/02 03:04:05' WHERE denno > 250",
        "UPDATE jyuden SET ok = 0 WHERE denno % 4 = 1", // Yes/No lives in the null mask
        "UPDATE jyuden SET memo = memo || 'x' WHERE denno % 6 = 0",
        "BEGIN; UPDATE jyuden SET cflag = 5; ROLLBACK", // undone
        "UPDATE jyuden SET cflag = cflag + 10 WHERE sday = 20260003",
    };
    for (const char* u : updates) {
        EXPECT_EQ(exec(j, u), "") << u;
        EXPECT_EQ(exec(s, u), "") << u;
    }
    // out of range for an Integer field, in place or not: refused, nothing written
    auto before = readFile(path);
    EXPECT_NE(exec(j, "UPDATE jyuden SET cflag = 70000 WHERE denno = 1"), "");
    EXPECT_NE(exec(j, "UPDATE jyuden SET b = 256 WHERE denno = 1"), "");
    EXPECT_EQ(readFile(path), before);
    const std::string all = "SELECT denno, sday, total, cflag, rate, udate, ok, memo, b FROM jyuden ORDER BY denno";
    EXPECT_EQ(rows(j, all), rows(s, all));
    EXPECT_NE(rows(j, all).find(";3,20260004,3.5,2,0.5,2026/11/23 09:05:07,-1,m3,7;"), std::string::npos)
        << rows(j, all).substr(0, 300);
    sqlite3_close(j);
    sqlite3_close(s);
    EXPECT_EQ(checkProblems(path), "");
    std::filesystem::remove_all(dir);
}

} // namespace
