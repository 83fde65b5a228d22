// Writes on a made Jet file against the same statements on a SQLite file: 100 000 inserts into an indexed table
// in one transaction, then a flag update on every row. Prints times and ratios; never fails.
#include "jet/create.h"
#include "jet/sqlite_attach.h"

#include <sqlite3.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace
{

double timed(sqlite3* db, const std::string& sql)
{
    auto t0 = std::chrono::steady_clock::now();
    char* msg = nullptr;
    if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) std::printf("error: %s\n", msg);
    sqlite3_free(msg);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

} // namespace

int main(int argc, char** argv)
{
    const int rows = argc > 1 ? std::atoi(argv[1]) : 100000;
    auto dir = std::filesystem::temp_directory_path() / "jet-write-bench";
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const std::string jetPath = (dir / "data1.dat").string(), sqlitePath = (dir / "data1.sqlite").string();
    jet::TableDef t;
    t.name = "jyuden";
    t.columns = {{"denno", jet::Type::Long}, {"sday", jet::Type::Long}, {"total", jet::Type::Money},
                 {"cflag", jet::Type::Int},  {"memo", jet::Type::Text, 40}};
    t.indexes = {{"PrimaryKey", {{"denno", true}}, true, true}, {"jyuden_sday", {{"sday", true}}, false, false}};
    std::string err;
    if (jet::createDatabase(jetPath, "VelQuarto", jet::kSortJapanese, {t}, &err) != jet::OK) {
        std::printf("cannot make the file: %s\n", err.c_str());
        return 0;
    }
    sqlite3 *j = nullptr, *s = nullptr;
    sqlite3_open(":memory:", &j);
    sqlite3_open(sqlitePath.c_str(), &s);
    if (jet::attach(j, jetPath, "VelQuarto", &err) != 0) {
        std::printf("cannot attach: %s\n", err.c_str());
        return 0;
    }
    timed(s, "CREATE TABLE jyuden (denno INTEGER PRIMARY KEY, sday INTEGER, total NUMERIC, cflag INTEGER, memo TEXT);"
             "CREATE INDEX jyuden_sday ON jyuden (sday)");
    std::string inserts = "BEGIN;";
    for (int i = 0; i < rows; ++i)
        inserts += "INSERT INTO jyuden VALUES (" + std::to_string(i + 1) + ", " + std::to_string(20260000 + i % 365) +
                   ", " + std::to_string(i % 9000) + ".5, 0, '配送メモ " + std::to_string(i) + "');";
    inserts += "COMMIT;";
    const char* update = "UPDATE jyuden SET cflag = 1";
    double ji = timed(j, inserts), si = timed(s, inserts);
    double ju = timed(j, update), su = timed(s, update);
    std::printf("%d inserts into an indexed table: jet %.2f s, sqlite %.2f s, ratio %.1fx\n", rows, ji, si, ji / si);
    std::printf("flag update on %d rows:          jet %.2f s, sqlite %.2f s, ratio %.1fx\n", rows, ju, su, ju / su);
    sqlite3_close(j);
    sqlite3_close(s);
    std::filesystem::remove_all(dir);
    return 0;
}
