#include "jet/jet.h"
#include "jet/sqlite_attach.h"
#include "jet/tool.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sqlite3.h>

#include "test_util.h"

using namespace jettest;

namespace
{

struct Conn {
    sqlite3* db = nullptr;
    Conn() { sqlite3_open(":memory:", &db); }
    ~Conn() { sqlite3_close(db); }
    Conn(const Conn&) = delete;
    Conn& operator=(const Conn&) = delete;

    // Rows as text, one string per row ("a|b|c"); *err gets the failure text.
    std::vector<std::string> query(const std::string& sql, std::string* err = nullptr) const
    {
        std::vector<std::string> rows;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) {
            if (err) *err = sqlite3_errmsg(db);
            return rows;
        }
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            std::string row;
            for (int i = 0; i < sqlite3_column_count(st); ++i) {
                if (i) row += '|';
                switch (sqlite3_column_type(st, i)) {
                case SQLITE_NULL:
                    row += "NULL";
                    break;
                case SQLITE_INTEGER:
                    row += "i:" + std::to_string(sqlite3_column_int64(st, i));
                    break;
                case SQLITE_FLOAT:
                    row += "r:" + std::to_string(sqlite3_column_double(st, i));
                    break;
                case SQLITE_BLOB:
                    row += "b:" + std::to_string(sqlite3_column_bytes(st, i));
                    break;
                default:
                    row += reinterpret_cast<const char*>(sqlite3_column_text(st, i));
                }
            }
            rows.push_back(row);
        }
        if (rc != SQLITE_DONE && err) *err = sqlite3_errmsg(db);
        sqlite3_finalize(st);
        return rows;
    }
};

TEST(Sqlite, AttachExposesEveryUserTableWithJetTypes)
{
    Conn c;
    std::string err;
    ASSERT_EQ(jet::attach(c.db, corpus("testV2000.mdb"), "", &err), 0) << err;
    EXPECT_EQ(
        c.query("SELECT name FROM pragma_table_list WHERE schema='main' AND name NOT LIKE 'sqlite%' ORDER BY name"),
        (std::vector<std::string>{"Table1", "Table2", "Table3", "Table4"}));
    EXPECT_EQ(c.query("SELECT group_concat(name || ' ' || type, ', ') FROM pragma_table_info('Table1')"),
              (std::vector<std::string>{"A TEXT(50), B TEXT(100), C BYTE, D SHORT, E LONG, F DOUBLE, G DATETIME, "
                                        "H CURRENCY, I BIT"}));
    EXPECT_EQ(c.query("SELECT * FROM Table1", &err),
              (std::vector<std::string>{"abcdefg|hijklmnop|i:2|i:222|i:333333333|r:444.555000|1974/09/21 00:00:00|"
                                        "r:3.500000|i:-1",
                                        "a|b|i:0|i:0|i:0|r:0.000000|1981/12/12 00:00:00|i:0|i:0"}))
        << err;
}

TEST(Sqlite, ValueKindsOfOtherTypes)
{
    struct Case {
        const char* file;
        const char* sql;
        std::vector<std::string> want;
    } cases[] = {
        {"fixedNumericTestV2000.mdb", "SELECT col2, col6, typeof(col6) FROM test", {"1|-1|text"}},
        {"testRefGlobalV2000.mdb", "SELECT typeof(data) FROM Table4 LIMIT 1", {}},
        {"dateTest.mdb", "SELECT DateTimeCol FROM DateTest WHERE IDCol = 2", {"9999/01/01 00:00:00"}},
        {"test2V2000.mdb", "SELECT typeof(PROJ_PROP_AUTHOR), PROJ_OPT_CALC_ACT_COSTS FROM MSP_PROJECTS", {}},
    };
    for (const Case& k : cases) {
        Conn c;
        std::string err;
        ASSERT_EQ(jet::attach(c.db, corpus(k.file), "", &err), 0) << err;
        auto rows = c.query(k.sql, &err);
        EXPECT_EQ(err, "") << k.sql;
        if (!k.want.empty()) {
            EXPECT_EQ(rows, k.want) << k.sql;
        }
    }
}

// A file marked read-only is never written, whoever runs the program.
TEST(Sqlite, ReadOnlyFileRefusesWrites)
{
    std::string path = scratchCopy("testV2000.mdb", "readonly.mdb");
    std::filesystem::permissions(path, std::filesystem::perms::all, std::filesystem::perm_options::remove);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read, std::filesystem::perm_options::add);
    auto original = readFile(path);
    Conn c;
    std::string err;
    ASSERT_EQ(jet::attach(c.db, path, "", &err), 0) << err;
    for (const char* sql : {"INSERT INTO Table1 (A) VALUES ('x')", "UPDATE Table1 SET C = 1", "DELETE FROM Table1"}) {
        char* msg = nullptr;
        EXPECT_NE(sqlite3_exec(c.db, sql, nullptr, nullptr, &msg), SQLITE_OK) << sql;
        EXPECT_NE(std::string(msg ? msg : "").find("is read-only"), std::string::npos)
            << sql << ": " << (msg ? msg : "");
        sqlite3_free(msg);
    }
    EXPECT_EQ(c.query("SELECT count(*) FROM Table1"), (std::vector<std::string>{"i:2"}));
    EXPECT_EQ(readFile(path), original);
}

TEST(Sqlite, PasswordAndSharedEngine)
{
    struct Case {
        const char* file;
        const char* password;
        bool ok;
    } cases[] = {
        {"passwordV2000.mdb", "password", true},    {"passwordV2000.mdb", "wrong", false},
        {"passwordV2000.mdb", "", false},           {"noPasswordV2000.mdb", "", true},
        {"noPasswordV2000.mdb", "password", false}, {"encodedJet4.mdb", "", true},
    };
    for (const Case& k : cases) {
        Conn c;
        std::string err;
        EXPECT_EQ(jet::attach(c.db, corpus(k.file), k.password, &err) == 0, k.ok) << k.file << " " << k.password;
        if (!k.ok) {
            EXPECT_EQ(err, "Not a valid password.");
        } else {
            EXPECT_FALSE(c.query("SELECT * FROM Table1").empty()) << k.file;
        }
    }

    // One engine per file: a second connection shares it and survives the first one closing.
    auto a = std::make_unique<Conn>();
    Conn b;
    std::string err;
    ASSERT_EQ(jet::attach(a->db, corpus("encodedJet4.mdb"), "", &err), 0) << err;
    ASSERT_EQ(jet::attach(b.db, corpus("encodedJet4.mdb"), "", &err), 0) << err;
    EXPECT_EQ(jet::engineOf(a->db, corpus("encodedJet4.mdb")), jet::engineOf(b.db, corpus("encodedJet4.mdb")));
    EXPECT_NE(jet::engineOf(b.db, corpus("encodedJet4.mdb")), nullptr);
    EXPECT_EQ(jet::attach(b.db, corpus("encodedJet4.mdb"), "x", &err), jet::ERR_PASSWORD);
    a.reset();
    EXPECT_EQ(b.query("SELECT ID, col1, col2 FROM Table1"),
              (std::vector<std::string>{"i:1|hello|i:0", "i:2|world|i:42"}));
}

TEST(Sqlite, RefusesFilesThatAreNotJet4)
{
    Conn c;
    std::string err;
    EXPECT_NE(jet::attach(c.db, "/nonexistent/data1.dat", "", &err), 0);
    EXPECT_NE(err.find("Cannot open"), std::string::npos) << err;
    EXPECT_NE(jet::attach(c.db, corpus("README.md"), "", &err), 0);
    EXPECT_NE(err.find("Not a Jet"), std::string::npos) << err;
}

TEST(Sqlite, SetPasswordThenAttach)
{
    std::string path = scratchCopy("testV2000.mdb", "data1.dat");
    std::string err;
    ASSERT_EQ(jet::setPassword(path, "VelQuarto", &err), 0) << err;
    Conn c;
    EXPECT_NE(jet::attach(c.db, path, "", &err), 0);
    ASSERT_EQ(jet::attach(c.db, path, "VelQuarto", &err), 0) << err;
    EXPECT_EQ(c.query("SELECT count(*) FROM Table1"), (std::vector<std::string>{"i:2"}));

    // Another file copied over the same path while the first engine is still in use: the new file is read.
    std::filesystem::copy_file(corpus("passwordV2000.mdb"), path, std::filesystem::copy_options::overwrite_existing);
    Conn d;
    EXPECT_EQ(jet::attach(d.db, path, "VelQuarto", &err), jet::ERR_PASSWORD);
    ASSERT_EQ(jet::attach(d.db, path, "password", &err), 0) << err;
    EXPECT_EQ(d.query("SELECT count(*) FROM Table1"), (std::vector<std::string>{"i:3"}));
    EXPECT_EQ(c.query("SELECT count(*) FROM Table1"), (std::vector<std::string>{"i:2"}));
}

// Lookups on an indexed column seek: same rows as a scan, a handful of page reads.
TEST(Sqlite, IndexedLookupsSeek)
{
    Conn c;
    std::string err;
    const std::string file = corpus("compIndexTestV2000.mdb");
    ASSERT_EQ(jet::attach(c.db, file, "", &err), 0) << err;
    jet::Database* db = jet::engineOf(c.db, file);
    ASSERT_NE(db, nullptr);
    std::vector<std::uint32_t> pages;
    ASSERT_EQ(db->dataPages(*db->table("Table1"), pages), jet::OK);
    ASSERT_GE(pages.size(), 4u);

    struct Case {
        std::string where;      // on the indexed column
        std::string scan;       // the same test the index cannot serve
        std::uint64_t maxReads; // page accesses: index pages plus one per row read
    } cases[] = {
        {"CD_AGENTE = 35", "+CD_AGENTE = 35", 6},
        {"CD_AGENTE = 36", "+CD_AGENTE = 36", 6},
        {"CD_AGENTE = 35.0", "+CD_AGENTE = 35.0", 6},
        {"CD_AGENTE = '35'", "+CD_AGENTE = 35", 6}, // the column's affinity makes '35' a number,
        {"CD_AGENTE BETWEEN 100 AND 140", "+CD_AGENTE BETWEEN 100 AND 140", 12},
        {"CD_AGENTE > 4000", "+CD_AGENTE > 4000", 250},
        {"CD_AGENTE < 60", "+CD_AGENTE < 60", 100},
        {"CD_AGENTE >= 4000 AND CD_AGENTE < 4100", "+CD_AGENTE >= 4000 AND +CD_AGENTE < 4100", 12},
        {"CD_AGENTE = -5", "+CD_AGENTE = -5", 6},
    };
    for (const Case& k : cases) {
        auto scanned = c.query("SELECT rowid, * FROM Table1 WHERE " + k.scan + " ORDER BY rowid", &err);
        ASSERT_EQ(err, "");
        db->resetPageReads();
        auto seeked = c.query("SELECT rowid, * FROM Table1 WHERE " + k.where + " ORDER BY rowid", &err);
        std::uint64_t reads = db->pageReads();
        EXPECT_EQ(err, "");
        EXPECT_EQ(seeked, scanned) << k.where;
        EXPECT_LE(reads, k.maxReads) << k.where;
    }
    db->resetPageReads();
    EXPECT_EQ(c.query("SELECT count(*) FROM Table1 WHERE CD_AGENTE = 35"), (std::vector<std::string>{"i:1"}));
    EXPECT_LE(db->pageReads(), 6u);
}

// Date/Time and text bounds through the index equal a scan (fixedTextTestV2000 has an index on a date).
TEST(Sqlite, DateLookupsSeek)
{
    Conn c;
    std::string err;
    const std::string file = corpus("fixedTextTestV2000.mdb");
    ASSERT_EQ(jet::attach(c.db, file, "", &err), 0) << err;
    auto all = c.query("SELECT d_stamp_ FROM users ORDER BY rowid", &err);
    ASSERT_EQ(all.size(), 2u) << err;
    const std::string d0 = all[0];
    const std::string day = d0.substr(0, 10);
    const std::string cases[] = {
        "d_stamp_ = '" + d0 + "'",
        "d_stamp_ = '" + day + "'",
        "d_stamp_ >= '" + day + "'",
        "d_stamp_ > '" + d0 + "'",
        "d_stamp_ <= '" + d0 + "'",
        "d_stamp_ < '" + day + "'",
        "d_stamp_ BETWEEN '" + day + "' AND '" + day + " 23:59:59'",
        "d_stamp_ = '2021-12-02'",
        "d_stamp_ > '1800/01/01'",
        "d_stamp_ < 5",
    };
    for (const std::string& where : cases) {
        auto scanned = c.query("SELECT rowid FROM users WHERE +d_stamp_ || '' " + where.substr(8) + " ORDER BY rowid");
        auto seeked = c.query("SELECT rowid FROM users WHERE " + where + " ORDER BY rowid", &err);
        EXPECT_EQ(err, "");
        EXPECT_EQ(seeked, scanned) << where;
    }
}

// Text equality seeks (General sort order keys) find every row a scan finds, case-insensitively as Jet does.
TEST(Sqlite, TextLookupsSeek)
{
    Conn c;
    std::string err;
    const std::string file = corpus("testIndexPropertiesV2000.mdb");
    ASSERT_EQ(jet::attach(c.db, file, "", &err), 0) << err;
    jet::Database* db = jet::engineOf(c.db, file);
    ASSERT_NE(db, nullptr);
    struct Case {
        std::string column, value;
        std::size_t rows;
        bool seeks; // false: a value whose key we cannot encode, answered by a scan
    } cases[] = {
        {"row", "row5", 1, true},           {"row", "ROW5", 1, true},
        {"row", "row10", 0, true},          {"row", "row", 0, true},
        {"data", "lots of stuff", 1, true}, {"data", "Lots Of Stuff", 1, true},
        {"data", "stuff", 1, true},         {"data", "quux", 0, true},
        {"data", "zulu", 0, false},
        {"data", "row-5", 0, false},        {"data", "still more rows", 1, true},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.column + " = " + k.value);
        std::string q = "SELECT rowid, * FROM TableIgnoreNulls1 WHERE ";
        auto scanned = c.query(q + "lower(" + k.column + ") = lower('" + k.value + "') ORDER BY rowid", &err);
        db->resetPageReads();
        auto seeked = c.query(q + k.column + " = '" + k.value + "' ORDER BY rowid", &err);
        std::uint64_t reads = db->pageReads();
        EXPECT_EQ(err, "");
        EXPECT_EQ(seeked, scanned);
        EXPECT_EQ(seeked.size(), k.rows);
        if (k.seeks) {
            EXPECT_LE(reads, 4u);
        } else {
            EXPECT_GE(reads, 10u);
        }
    }
    EXPECT_EQ(c.query("SELECT type FROM pragma_table_info('TableIgnoreNulls1') WHERE name = 'row'"),
              (std::vector<std::string>{"TEXT(50)"}));
}

} // namespace

// A text that looks like a number is stored as typed: codes keep their leading zeros and blanks.
TEST(Sqlite, TextLikeANumberStaysText)
{
    std::string path = scratchCopy("testV2000.mdb", "numbertext.mdb");
    Conn c;
    std::string err;
    ASSERT_EQ(jet::attach(c.db, path, "", &err), 0) << err;
    for (const char* text : {"01234", " 12345 ", "1e3", "+7", "0.50"}) {
        for (const char* sql : {"INSERT INTO Table2 (column1, column2) VALUES ('new', ?1)",
                                "UPDATE Table2 SET column2 = ?1 WHERE column1 = 'new'"}) {
            sqlite3_stmt* st = nullptr;
            ASSERT_EQ(sqlite3_prepare_v2(c.db, sql, -1, &st, nullptr), SQLITE_OK);
            sqlite3_bind_text(st, 1, text, -1, SQLITE_STATIC);
            EXPECT_EQ(sqlite3_step(st), SQLITE_DONE) << sqlite3_errmsg(c.db);
            sqlite3_finalize(st);
            EXPECT_EQ(c.query("SELECT '[' || column2 || ']' FROM Table2 WHERE column1 = 'new'", &err),
                      std::vector<std::string>{"[" + std::string(text) + "]"})
                << sql << err;
        }
        c.query("DELETE FROM Table2 WHERE column1 = 'new'");
    }
}
