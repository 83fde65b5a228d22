// Column defaults kept as the file's column properties, date texts the program writes, and the write lock an edit
// takes before its first write.
#include "jet/create.h"
#include "jet/props.h"
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

std::string one(sqlite3* db, const std::string& sql)
{
    sqlite3_stmt* st = nullptr;
    std::string out = "<error>";
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) == SQLITE_OK && sqlite3_step(st) == SQLITE_ROW)
        out = sqlite3_column_type(st, 0) == SQLITE_NULL ? "NULL"
                                                        : reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    sqlite3_finalize(st);
    return out;
}

struct MadeFile {
    std::string dir, path;
    explicit MadeFile(const std::string& name)
    {
        dir = (std::filesystem::temp_directory_path() / (name + "-" + std::to_string(::getpid()))).string();
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        path = dir + "/data1.dat";
    }
    ~MadeFile() { std::filesystem::remove_all(dir); }
};

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
        bool used;
        std::int64_t i;
        double d;
        const char* s;
    };
    const Row rows[] = {
        {jet::Type::Int, "0", true, 0, 0, ""},
        {jet::Type::Long, "-12", true, -12, 0, ""},
        {jet::Type::Money, "1.5", true, 15000, 0, ""},
        {jet::Type::Double, "10", true, 0, 10, ""},
        {jet::Type::Bool, "1", true, 1, 0, ""},
        {jet::Type::Text, "\"\"", true, 0, 0, ""},
        {jet::Type::Text, "\"a \"\"b\"\"\"", true, 0, 0, "a \"b\""},
        {jet::Type::Memo, "'x'", true, 0, 0, "x"},
        {jet::Type::Text, "12", true, 0, 0, "12"},
        {jet::Type::Long, "1.5", false, 0, 0, ""},       // not a whole number
        {jet::Type::Long, "\"1\"", false, 0, 0, ""},     // text for a number
        {jet::Type::DateTime, "Now()", false, 0, 0, ""}, // expressions are not evaluated
        {jet::Type::Guid, "GenGUID()", false, 0, 0, ""},
        {jet::Type::Text, "\"a\" & \"b\"", false, 0, 0, ""},
        {jet::Type::Long, "", false, 0, 0, ""},
    };
    for (const Row& r : rows) {
        jet::Column c;
        c.type = r.type;
        c.defaultValue = r.expression;
        jet::Value v;
        ASSERT_EQ(jet::defaultFor(c, v), r.used) << r.expression;
        if (!r.used)
            continue;
        EXPECT_FALSE(v.null);
        EXPECT_EQ(v.i, r.i) << r.expression;
        EXPECT_EQ(v.d, r.d) << r.expression;
        EXPECT_EQ(v.s, r.s) << r.expression;
    }
    // the blob survives damage: truncated anywhere, it reads without fault
    std::string blob = jet::writeDefaultValues({{"a", "0"}, {"b", "\"x\""}});
    EXPECT_EQ(jet::readDefaultValues(reinterpret_cast<const std::uint8_t*>(blob.data()), blob.size()),
              (std::map<std::string, std::string>{{"a", "0"}, {"b", "\"x\""}}));
    for (std::size_t n = 0; n < blob.size(); ++n)
        jet::readDefaultValues(reinterpret_cast<const std::uint8_t*>(blob.data()), n);
}

TEST(JetDefaults, MadeFileKeepsThemAndInsertsTakeThem)
{
    JET_NEEDS_MDB_TOOLS();
    MadeFile f("jet-defaults");
    std::vector<jet::TableDef> t(1);
    t[0].name = "inmoney";
    t[0].columns = {{"denno", jet::Type::Long, 0, true, ""},          {"pcode", jet::Type::Int, 0, false, "6"},
                    {"money", jet::Type::Money, 0, false, "0"},       {"rate", jet::Type::Double, 0, false, "10"},
                    {"bikou", jet::Type::Text, 50, false, "\"\""},    {"note", jet::Type::Text, 50, false, "\"済\""},
                    {"sdate", jet::Type::DateTime, 0, false, "Now()"}};
    t[0].indexes = {{"PrimaryKey", {{"denno", true}}, true, true}};
    std::string err;
    ASSERT_EQ(jet::createDatabase(f.path, "VelQuarto", jet::kSortJapanese, t, &err), jet::OK) << err;
    // an independent reader sees the properties
    std::string props = run("mdb-prop '" + f.path + "' inmoney");
    EXPECT_NE(props.find("name: pcode\n\tDefaultValue: 6"), std::string::npos) << props;
    EXPECT_NE(props.find("name: note\n\tDefaultValue: \"済\""), std::string::npos) << props;

    sqlite3* db = nullptr;
    sqlite3_open(":memory:", &db);
    ASSERT_EQ(jet::attach(db, f.path, "VelQuarto", &err), 0) << err;
    EXPECT_EQ(exec(db, "INSERT INTO inmoney (denno) VALUES (1); INSERT INTO inmoney (denno, pcode, bikou, note) "
                       "VALUES (2, 1, 'x', 'y')"),
              "");
    EXPECT_EQ(one(db, "SELECT pcode || '|' || money || '|' || rate || '|' || bikou || '|' || note || '|' || "
                      "ifnull(sdate, 'NULL') FROM inmoney WHERE denno = 1"),
              "6|0|10.0||済|NULL");
    EXPECT_EQ(one(db, "SELECT pcode || '|' || bikou || '|' || note FROM inmoney WHERE denno = 2"), "1|x|y");
    // an update to null stays null
    EXPECT_EQ(exec(db, "UPDATE inmoney SET pcode = NULL WHERE denno = 2"), "");
    EXPECT_EQ(one(db, "SELECT ifnull(pcode, 'NULL') FROM inmoney WHERE denno = 2"), "NULL");
    sqlite3_close(db);
    EXPECT_EQ(checkProblems(f.path, "VelQuarto"), "");
}

TEST(JetDates, TextsTheProgramWrites)
{
    MadeFile f("jet-dates");
    std::vector<jet::TableDef> t(1);
    t[0].name = "log";
    t[0].columns = {{"id", jet::Type::Long}, {"jikan", jet::Type::DateTime}};
    std::string err;
    ASSERT_EQ(jet::createDatabase(f.path, "", jet::kSortGeneral, t, &err), jet::OK) << err;
    sqlite3* db = nullptr;
    sqlite3_open(":memory:", &db);
    ASSERT_EQ(jet::attach(db, f.path, "", &err), 0) << err;
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
        ++id;
        std::string e = exec(db, "INSERT INTO log VALUES (" + std::to_string(id) + ", '" + text + "')");
        if (!stored) {
            EXPECT_EQ(e, "Data type mismatch in criteria expression.") << text;
            continue;
        }
        EXPECT_EQ(e, "") << text;
        EXPECT_EQ(one(db, "SELECT jikan FROM log WHERE id = " + std::to_string(id)), stored) << text;
    }
    sqlite3_close(db);
}

TEST(JetLock, AnEditTakesTheWriterBeforeItsFirstWrite)
{
    MadeFile f("jet-lock");
    std::vector<jet::TableDef> t(1);
    t[0].name = "offset";
    t[0].columns = {{"kubun", jet::Type::Int}, {"top", jet::Type::Float}};
    std::string err;
    ASSERT_EQ(jet::createDatabase(f.path, "", jet::kSortGeneral, t, &err), jet::OK) << err;
    sqlite3 *a = nullptr, *b = nullptr;
    sqlite3_open(":memory:", &a);
    sqlite3_open(":memory:", &b);
    ASSERT_EQ(jet::attach(a, f.path, "", &err), 0) << err;
    ASSERT_EQ(jet::attach(b, f.path, "", &err), 0) << err;
    EXPECT_EQ(exec(a, "BEGIN IMMEDIATE"), "");
    EXPECT_EQ(jet::lockForWrite(a, &err), SQLITE_OK) << err;
    EXPECT_EQ(exec(b, "INSERT INTO offset VALUES (1, 2)"), "database is locked");
    EXPECT_EQ(exec(b, "BEGIN IMMEDIATE"), "");
    EXPECT_EQ(jet::lockForWrite(b, &err), SQLITE_BUSY);
    EXPECT_EQ(err, "database is locked");
    EXPECT_EQ(exec(b, "ROLLBACK"), "");
    EXPECT_EQ(exec(a, "INSERT INTO offset VALUES (3, 4); COMMIT"), "");
    EXPECT_EQ(exec(b, "INSERT INTO offset VALUES (1, 2)"), "");
    // a lock taken and given back without a write leaves the file as it was
    auto before = readFile(f.path);
    EXPECT_EQ(exec(a, "BEGIN IMMEDIATE"), "");
    EXPECT_EQ(jet::lockForWrite(a, &err), SQLITE_OK);
    EXPECT_EQ(exec(a, "ROLLBACK"), "");
    EXPECT_EQ(readFile(f.path), before);
    EXPECT_EQ(one(a, "SELECT count(*) FROM offset"), "2");
    sqlite3_close(a);
    sqlite3_close(b);
}

} // namespace
