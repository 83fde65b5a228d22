// Seeded random inserts, updates, deletes and rollbacks on a Jet table and on a plain SQLite table: both end
// equal and the Jet file stays consistent. JET_RANDOM_OPS sets the operations per file (1500 by default).
#include "jet/create.h"
#include "jet/sqlite_attach.h"
#include "test_util.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <random>

namespace
{

using namespace jettest;

std::string exec(sqlite3* db, const std::string& sql)
{
    char* msg = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return "";
    std::string m = msg ? msg : "error";
    sqlite3_free(msg);
    return m;
}

std::string rows(sqlite3* db, const std::string& sql)
{
    std::string out;
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) return sqlite3_errmsg(db);
    while (sqlite3_step(st) == SQLITE_ROW) {
        for (int i = 0; i < sqlite3_column_count(st); ++i) {
            const unsigned char* t = sqlite3_column_text(st, i);
            out += (i ? "|" : "") + std::string(t ? reinterpret_cast<const char*>(t) : "NULL");
        }
        out += '\n';
    }
    sqlite3_finalize(st);
    return out;
}

// One table with a numeric key (unique), a text key and a memo: the same statements go to both connections.
void runSequence(const std::string& path, const std::string& password, const std::string& table,
                 const std::string& keyCol, const std::string& textCol, const std::string& memoCol, unsigned seed)
{
    const char* env = std::getenv("JET_RANDOM_OPS");
    const int ops = env ? std::atoi(env) : 1500;
    sqlite3* j = nullptr;
    sqlite3* s = nullptr;
    sqlite3_open(":memory:", &j);
    sqlite3_open(":memory:", &s);
    std::string err;
    ASSERT_EQ(jet::attach(j, path, password, &err), 0) << err;
    // Without a memo column the text column stands in for it.
    const std::string memo = memoCol.empty() ? textCol : memoCol;
    const std::string cols = keyCol + ", " + textCol + (memoCol.empty() ? "" : ", " + memoCol);
    ASSERT_EQ(exec(s, "CREATE TABLE t (" + keyCol + " INTEGER, " + textCol + " TEXT" +
                          (memoCol.empty() ? "" : ", " + memoCol + " TEXT") + ")"),
              "");
    // Start from the rows the Jet table holds.
    for (const std::string& line : {rows(j, "SELECT " + cols + " FROM [" + table + "]")}) {
        std::size_t at = 0;
        while (at < line.size()) {
            std::size_t end = line.find('\n', at);
            std::string r = line.substr(at, end - at);
            at = end + 1;
            std::size_t a = r.find('|'), b = r.find('|', a + 1);
            auto q = [](const std::string& v) { return v == "NULL" ? v : "'" + v + "'"; };
            ASSERT_EQ(exec(s, "INSERT INTO t VALUES (" + r.substr(0, a) + ", " + q(r.substr(a + 1, b - a - 1)) +
                                  (memoCol.empty() ? "" : ", " + q(r.substr(b + 1))) + ")"),
                      "");
        }
    }
    std::mt19937 rng(seed);
    auto pick = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
    const char* words[] = {"alpha", "beta row", "Gamma", "delta_x", "epsilon", "quiet", "shop 12", "w"};
    bool inTxn = false, haveSavepoint = false;
    for (int op = 0; op < ops; ++op) {
        int key = 500000 + pick(400);
        std::string text = std::string(words[pick(8)]) + std::to_string(pick(50));
        std::string memoText(memoCol.empty() ? 0 : static_cast<std::size_t>(pick(3) == 0 ? pick(6000) : pick(40)),
                             static_cast<char>('a' + pick(26)));
        if (memoCol.empty()) memoText = text;
        std::string stmt;
        switch (pick(10)) {
        case 0:
        case 1:
        case 2:
        case 3:
            stmt = "INSERT INTO %T (" + cols + ") VALUES (" + std::to_string(key) + ", '" + text + "'" +
                   (memoCol.empty() ? "" : ", '" + memoText + "'") + ")";
            break;
        case 4:
        case 5:
            stmt = "UPDATE %T SET " + textCol + " = '" + text + "', " + memo + " = '" + memoText + "' WHERE " + keyCol +
                   " BETWEEN " + std::to_string(key) + " AND " + std::to_string(key + 3);
            break;
        case 6:
            stmt = "UPDATE %T SET " + keyCol + " = " + keyCol + " + 1000 WHERE " + keyCol + " = " + std::to_string(key);
            break;
        case 7:
            stmt = "DELETE FROM %T WHERE " + keyCol + " BETWEEN " + std::to_string(key) + " AND " +
                   std::to_string(key + 5);
            break;
        case 8:
            stmt = inTxn ? (pick(2) ? "ROLLBACK" : "COMMIT") : "BEGIN";
            inTxn = !inTxn;
            haveSavepoint = false;
            break;
        default:
            stmt = !inTxn ? "SELECT 1" : (pick(2) || !haveSavepoint) ? "SAVEPOINT sp" : "ROLLBACK TO sp";
            haveSavepoint = haveSavepoint || stmt == "SAVEPOINT sp";
            break;
        }
        auto subst = [&](const std::string& t) {
            std::string x = stmt;
            if (auto p = x.find("%T"); p != std::string::npos) x.replace(p, 2, t);
            return x;
        };
        std::string je = exec(j, subst("[" + table + "]"));
        // A key that exists already fails on Jet (unique index); the same statement is then not run on SQLite.
        if (!je.empty()) {
            ASSERT_NE(je.find("duplicate values"), std::string::npos) << stmt << ": " << je;
            continue;
        }
        std::string se = exec(s, subst("t"));
        ASSERT_EQ(se, "") << stmt;
        if (op % 250 == 0 && !inTxn) {
            ASSERT_EQ(checkProblems(path, password), "") << "after op " << op;
        }
    }
    if (inTxn) {
        ASSERT_EQ(exec(j, "COMMIT"), exec(s, "COMMIT"));
    }
    const std::string order = " ORDER BY 1, 2";
    EXPECT_EQ(rows(j, "SELECT " + cols + " FROM [" + table + "]" + order), rows(s, "SELECT " + cols + " FROM t" + order));
    sqlite3_close(j);
    sqlite3_close(s);
    EXPECT_EQ(checkProblems(path, password), "");
}

TEST(JetRandom, MadeFileMatchesSqlite)
{
    auto dir = std::filesystem::temp_directory_path() / ("jet-random-" + std::to_string(::getpid()));
    std::filesystem::create_directories(dir);
    const std::string path = (dir / "made.mdb").string();
    std::filesystem::remove(path);
    jet::TableDef t;
    t.name = "ledger";
    t.columns = {{"id", jet::Type::Long}, {"label", jet::Type::Text, 60}, {"note", jet::Type::Memo}};
    t.indexes = {{"PrimaryKey", {{"id", true}}, true, true}, {"ledger_label", {{"label", true}}, false, false}};
    std::string err;
    ASSERT_EQ(jet::createDatabase(path, "VelQuarto", jet::kSortGeneral, {t}, &err), jet::OK) << err;
    runSequence(path, "VelQuarto", "ledger", "id", "label", "note", 7);
    std::filesystem::remove_all(dir);
}

TEST(JetRandom, CorpusCopyMatchesSqlite)
{
    // Table2 of indexTestV2000.mdb: id with a unique and a plain index, data text.
    std::string path = scratchCopy("indexTestV2000.mdb", "random.mdb");
    runSequence(path, "", "Table2", "id", "data", "", 11);
}

} // namespace
