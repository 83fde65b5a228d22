// A made file: read by mdbtools and by our reader, written through the SQLite module, consistent throughout.
#include "jet/create.h"
#include "jet/sqlite_attach.h"
#include "test_util.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

namespace
{

using namespace jettest;

std::vector<jet::TableDef> shopTables()
{
    using jet::Type;
    std::vector<jet::TableDef> t(2);
    t[0].name = "goods";
    t[0].columns = {{"code", Type::Text, 20, true}, {"name", Type::Text, 60}, {"tanka", Type::Money},
                    {"zaiko", Type::Long},          {"memo", Type::Memo},     {"udate", Type::DateTime}};
    t[0].indexes = {{"PrimaryKey", {{"code", true}}, true, true}};
    t[1].name = "inmoney";
    t[1].columns = {{"denno", Type::Long}, {"nday", Type::Long},  {"pcode", Type::Int},
                    {"money", Type::Money}, {"rate", Type::Double}, {"bikou", Type::Text, 50}};
    t[1].indexes = {{"inmoney_denno", {{"denno", true}, {"nday", false}}, false, false}};
    return t;
}

TEST(JetCreate, MadeFileIsReadWrittenAndChecked)
{
    JET_NEEDS_MDB_TOOLS();
    auto dir = std::filesystem::temp_directory_path() / ("jet-create-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const std::string path = (dir / "data1.dat").string();
    std::filesystem::remove(path);
    std::string err;
    ASSERT_EQ(jet::createDatabase(path, "VelQuarto", jet::kSortJapanese, shopTables(), &err), jet::OK) << err;
    EXPECT_NE(jet::createDatabase(path, "VelQuarto", jet::kSortJapanese, shopTables(), &err), jet::OK);
    EXPECT_EQ(checkProblems(path, "VelQuarto"), "");
    EXPECT_EQ(run("mdb-tables -1 '" + path + "'"), "goods\ninmoney\n");
    std::string schema = run("mdb-schema '" + path + "' 2>&1");
    EXPECT_NE(schema.find("[code]\t\t\tText (20)"), std::string::npos) << schema;

    jet::Database wrong;
    EXPECT_EQ(wrong.open(path, ""), jet::ERR_PASSWORD);

    sqlite3* db = nullptr;
    sqlite3_open(":memory:", &db);
    ASSERT_EQ(jet::attach(db, path, "VelQuarto", &err), 0) << err;
    std::string sql = "BEGIN;";
    for (int i = 0; i < 700; ++i)
        sql += "INSERT INTO inmoney VALUES (" + std::to_string(1000 + i % 350) + ", " + std::to_string(20260000 + i) +
               ", 6, " + std::to_string(i) + ".25, 0.1, 'row " + std::to_string(i) + "');";
    for (int i = 0; i < 300; ++i)
        sql += "INSERT INTO goods (code, name, tanka, zaiko) VALUES ('G" + std::to_string(i) + "', '商品" +
               std::to_string(i) + "', 100, " + std::to_string(i) + ");";
    sql += "DELETE FROM inmoney WHERE denno BETWEEN 1100 AND 1149; UPDATE goods SET zaiko = -1 WHERE code = 'G7';";
    sql += "COMMIT;";
    char* msg = nullptr;
    EXPECT_EQ(sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg), SQLITE_OK) << (msg ? msg : "");
    sqlite3_free(msg);
    // Japanese sort: katakana keys are not confirmed, the row is refused.
    EXPECT_NE(sqlite3_exec(db, "INSERT INTO goods (code) VALUES ('カ1')", nullptr, nullptr, &msg), SQLITE_OK);
    EXPECT_NE(std::string(msg ? msg : "").find("goodsの索引 PrimaryKey に書き込めない文字があります: カ"),
              std::string::npos);
    sqlite3_free(msg);
    sqlite3_close(db);

    EXPECT_EQ(checkProblems(path, "VelQuarto"), "");
    std::string goods = run("mdb-export '" + path + "' goods");
    EXPECT_EQ(std::count(goods.begin(), goods.end(), '\n'), 301);
    EXPECT_NE(goods.find("\"G7\",\"商品7\",100.0000,-1"), std::string::npos) << goods.substr(0, 300);
    std::string money = run("mdb-export '" + path + "' inmoney");
    EXPECT_EQ(std::count(money.begin(), money.end(), '\n'), 601);
    std::filesystem::remove_all(dir);
}

} // namespace
