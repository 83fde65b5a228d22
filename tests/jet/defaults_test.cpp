// Column defaults read from the file's column properties, date texts the program writes, and the write lock an edit
// takes before its first write.
#include "jet/props.h"
#include "sql.h"

#include <gtest/gtest.h>
#include <sstream>

namespace
{

using namespace jettest;

TEST(JetDefaults, CorpusPropertiesAreRead)
{
    jet::Database db;
    ASSERT_EQ(db.open(corpus("indexTestV2000.mdb"), ""), jet::OK) << db.error();
    const jet::Table* t = db.table("Table1");
    ASSERT_NE(t, nullptr);
    std::string seen;
    for (const jet::Column& c : t->columns)
        seen += c.name + "=" + c.defaultValue + ";";
    // as mdb-prop lists them: every number column 0, the text column none
    EXPECT_EQ(seen, "id=0;otherfk1=0;otherfk2=0;data=;otherfk3=0;");
}

TEST(JetDefaults, StoredExpressionsAsValues)
{
    struct Row {
        jet::Type type;
        const char* expression;
        const char* value; // "i,d,s" of the value taken; null when the expression is not used
    };
    const Row rows[] = {
        {jet::Type::Int, "0", "0,0,"},
        {jet::Type::Long, "-12", "-12,0,"},
        {jet::Type::Money, "1.5", "15000,0,"},
        {jet::Type::Double, "10", "0,10,"},
        {jet::Type::Bool, "1", "1,0,"},
        {jet::Type::Text, "\"\"", "0,0,"},
        {jet::Type::Text, "\"a \"\"b\"\"\"", "0,0,a \"b\""},
        {jet::Type::Memo, "'x'", "0,0,x"},
        {jet::Type::Text, "12", "0,0,12"},
        {jet::Type::Long, "1.5", nullptr},       // not a whole number
        {jet::Type::Long, "\"1\"", nullptr},     // text for a number
        {jet::Type::DateTime, "Now()", nullptr}, // expressions are not evaluated
        {jet::Type::Guid, "GenGUID()", nullptr},
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

TEST(JetDates, TextsTheProgramWrites)
{
    ScratchDir dir("jet-dates");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(made(path, {{"log", {{"id", jet::Type::Long}, {"jikan", jet::Type::DateTime}}, {}}}));
    Sql db(path);
    const std::pair<const char*, const char*> rows[] = {
        {"2026/11/23", "2026/11/23 00:00:00"},
        {"2026/11/23 9:05:07", "2026/11/23 09:05:07"},
        {"2026/11/23 09:05:07", "2026/11/23 09:05:07"},
        {"2026/11/23 23:59", "2026/11/23 23:59:00"},
        {"2026-11-23T09:05:07", "2026/11/23 09:05:07"},
        {"2026/11/23 9:5:07", nullptr},
        {"2026/11/23 24:00:00", nullptr},
        {"2026/1/23", nullptr},
        {"2026/11/23 ", nullptr},
        {"2026/11/23 9:05:07 ", nullptr},
        {"abc", nullptr},
    };
    int id = 0;
    for (const auto& [text, stored] : rows) {
        const std::string key = std::to_string(++id);
        std::string e = db.exec("INSERT INTO log VALUES (" + key + ", '" + text + "')");
        EXPECT_EQ(e, stored ? "" : "Data type mismatch in criteria expression.") << text;
        if (stored) {
            EXPECT_EQ(db.query("SELECT jikan FROM log WHERE id = " + key), std::string(stored) + "\n") << text;
        }
    }
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
