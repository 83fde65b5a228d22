// A made file: read by mdbtools and by our reader, written through the SQLite module, consistent throughout; its
// column defaults kept as the columns' properties and taken by inserts; which stored expressions are taken as values.
#include "jet/props.h"
#include "sql.h"

#include <gtest/gtest.h>
#include <sstream>

namespace
{

using namespace jettest;

TEST(JetCreate, MadeFileIsReadWrittenAndChecked)
{
    JET_NEEDS_MDB_TOOLS();
    using jet::Type;
    const std::vector<jet::TableDef> tables = {
        {"goods",
         {{"code", Type::Text, 20, true},
          {"name", Type::Text, 60},
          {"tanka", Type::Money},
          {"zaiko", Type::Long},
          {"memo", Type::Memo},
          {"udate", Type::DateTime}},
         {{"PrimaryKey", {{"code", true}}, true, true}}},
        {"inmoney",
         {{"denno", Type::Long, 0, true},
          {"nday", Type::Long},
          {"pcode", Type::Int, 0, false, "6"},
          {"money", Type::Money, 0, false, "0"},
          {"rate", Type::Double, 0, false, "10"},
          {"bikou", Type::Text, 50, false, "\"\""},
          {"note", Type::Text, 50, false, "\"済\""},
          {"sdate", Type::DateTime, 0, false, "Now()"}},
         {{"inmoney_denno", {{"denno", true}, {"nday", false}}, false, false}}},
    };
    ScratchDir dir("jet-create");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(made(path, tables, jet::kSortJapanese, "VelQuarto"));
    EXPECT_FALSE(made(path, tables, jet::kSortJapanese, "VelQuarto")); // never over an existing file
    EXPECT_EQ(checkProblems(path, "VelQuarto"), "");
    jet::Database wrong;
    EXPECT_EQ(wrong.open(path, ""), jet::ERR_PASSWORD);
    // as an independent reader sees it
    EXPECT_EQ(run("mdb-tables -1 '" + path + "'"), "goods\ninmoney\n");
    std::string schema = run("mdb-schema '" + path + "' 2>&1");
    EXPECT_NE(schema.find("[code]\t\t\tText (20)"), std::string::npos) << schema;
    std::string props = run("mdb-prop '" + path + "' inmoney");
    EXPECT_NE(props.find("name: pcode\n\tDefaultValue: 6"), std::string::npos) << props;
    EXPECT_NE(props.find("name: note\n\tDefaultValue: \"済\""), std::string::npos) << props;

    std::string sql = "BEGIN;";
    for (int i = 0; i < 700; ++i)
        sql += "INSERT INTO inmoney (denno, nday, pcode, money, rate, bikou) VALUES (" +
               std::to_string(1000 + i % 350) + ", " + std::to_string(20260000 + i) + ", 6, " + std::to_string(i) +
               ".25, 0.1, 'row " + std::to_string(i) + "');";
    for (int i = 0; i < 300; ++i)
        sql += "INSERT INTO goods (code, name, tanka, zaiko) VALUES ('G" + std::to_string(i) + "', '商品" +
               std::to_string(i) + "', 100, " + std::to_string(i) + ");";
    sql += "DELETE FROM inmoney WHERE denno BETWEEN 1100 AND 1149; UPDATE goods SET zaiko = -1 WHERE code = 'G7';";
    {
        Sql db(path, "VelQuarto");
        EXPECT_EQ(db.exec(sql + "COMMIT;"), "");
        // columns left out take their defaults; an update to null stays null
        EXPECT_EQ(db.exec("INSERT INTO inmoney (denno) VALUES (1); INSERT INTO inmoney (denno, pcode, bikou, note) "
                          "VALUES (2, 1, 'x', 'y'); UPDATE inmoney SET pcode = NULL WHERE denno = 2"),
                  "");
        EXPECT_EQ(db.query("SELECT pcode, money, rate, bikou, note, sdate FROM inmoney WHERE denno < 3 ORDER BY denno"),
                  "6|0|10.0||済|NULL\nNULL|0|10.0|x|y|NULL\n");
    }
    EXPECT_EQ(checkProblems(path, "VelQuarto"), "");
    std::string goods = run("mdb-export '" + path + "' goods");
    EXPECT_EQ(std::count(goods.begin(), goods.end(), '\n'), 301);
    EXPECT_NE(goods.find("\"G7\",\"商品7\",100.0000,-1"), std::string::npos) << goods.substr(0, 300);
    std::string money = run("mdb-export '" + path + "' inmoney");
    EXPECT_EQ(std::count(money.begin(), money.end(), '\n'), 603);
}

TEST(JetDefaults, StoredExpressionsAsValues)
{
    struct Row {
        jet::Type type;
        const char* expression;
        const char* value; // "i,d,s" of the value taken; null when the expression is not used
    };
    const Row rows[] = {
        {jet::Type::Long, "-12", "-12,0,"},
        {jet::Type::Money, "1.5", "15000,0,"},
        {jet::Type::Bool, "1", "1,0,"},
        {jet::Type::Text, "\"a \"\"b\"\"\"", "0,0,a \"b\""},
        {jet::Type::Memo, "'x'", "0,0,x"},
        {jet::Type::Text, "12", "0,0,12"},
        {jet::Type::Long, "1.5", nullptr},       // not a whole number
        {jet::Type::Long, "\"1\"", nullptr},     // text for a number
        {jet::Type::DateTime, "Now()", nullptr}, // expressions are not evaluated
        {jet::Type::Text, "\"a\" & \"b\"", nullptr},
        {jet::Type::Long, "", nullptr},
    };
    for (const Row& r : rows) {
        jet::Column c;
        c.type = r.type;
        c.defaultValue = r.expression;
        jet::Value v;
        ASSERT_EQ(jet::defaultFor(c, v), r.value != nullptr) << r.expression;
        if (!r.value) continue;
        std::ostringstream got;
        got << v.i << "," << v.d << "," << v.s;
        EXPECT_FALSE(v.null);
        EXPECT_EQ(got.str(), r.value) << r.expression;
    }
    // the blob survives damage: truncated anywhere, it reads without fault
    std::string blob = jet::writeDefaultValues({{"a", "0"}, {"b", "\"x\""}});
    EXPECT_EQ(jet::readDefaultValues(reinterpret_cast<const std::uint8_t*>(blob.data()), blob.size()),
              (std::map<std::string, std::string>{{"a", "0"}, {"b", "\"x\""}}));
    for (std::size_t n = 0; n < blob.size(); ++n)
        jet::readDefaultValues(reinterpret_cast<const std::uint8_t*>(blob.data()), n);
}

} // namespace
