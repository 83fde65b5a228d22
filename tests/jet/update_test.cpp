// UPDATEs that leave columns as they are: numbers no index holds are written where they stand, everything else
// (indexed columns, nulls either side, text) the long way round; the file ends the same and consistent.
#include "sql.h"

#include <gtest/gtest.h>

namespace
{

using namespace jettest;

TEST(JetUpdate, UnchangedColumnsStayAndChangedOnesLand)
{
    ScratchDir dir("jet-update");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(made(
        path, {{"jyuden",
                {{"denno", jet::Type::Long},
                 {"sday", jet::Type::Long},
                 {"total", jet::Type::Money},
                 {"cflag", jet::Type::Int},
                 {"rate", jet::Type::Double},
                 {"udate", jet::Type::DateTime},
                 {"ok", jet::Type::Bool},
                 {"memo", jet::Type::Text, 40},
                 {"b", jet::Type::Byte}},
                {{"PrimaryKey", {{"denno", true}}, true, true}, {"jyuden_sday", {{"sday", true}}, false, false}}}}));
    Sql j(path), s;
    ASSERT_EQ(s.exec("CREATE TABLE jyuden (denno, sday, total, cflag, rate, udate, ok, memo, b)"), "");
    std::string fill = "BEGIN;";
    for (int i = 1; i <= 300; ++i)
        fill += "INSERT INTO jyuden VALUES (" + std::to_string(i) + ", " + std::to_string(20260000 + i % 7) + ", " +
                (i % 5 ? std::to_string(i) + ".5" : "NULL") + ", 0, 1.25, '2026/11/23 09:05:07', " +
                (i % 2 ? "-1" : "0") + ", 'm" + std::to_string(i) + "', 7);";
    fill += "COMMIT;";
    ASSERT_EQ(j.exec(fill), "");
    ASSERT_EQ(s.exec(fill), "");
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
        EXPECT_EQ(j.exec(u), "") << u;
        EXPECT_EQ(s.exec(u), "") << u;
    }
    // out of range for the column, in place or not: refused, nothing written
    auto before = readFile(path);
    EXPECT_NE(j.exec("UPDATE jyuden SET cflag = 70000 WHERE denno = 1").find("out of the range"), std::string::npos);
    EXPECT_NE(j.exec("UPDATE jyuden SET b = 256 WHERE denno = 1").find("out of the range"), std::string::npos);
    EXPECT_EQ(readFile(path), before);
    const std::string all = "SELECT denno, sday, total, cflag, rate, udate, ok, memo, b FROM jyuden ORDER BY denno";
    EXPECT_EQ(j.query(all), s.query(all));
    EXPECT_NE(j.query(all).find("\n3|20260004|3.5|2|0.5|2026/11/23 09:05:07|-1|m3|7\n"), std::string::npos)
        << j.query(all).substr(0, 300);
    j.close();
    EXPECT_EQ(checkProblems(path), "");
}

} // namespace
