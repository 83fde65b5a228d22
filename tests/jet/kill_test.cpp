// A child process killed at random points of a write transaction: after reopening, the file is exactly as
// before or as after it. JET_KILL_ROUNDS sets the number of kills (100 by default).
#include "child.h"
#include "sql.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

namespace
{

using namespace jettest;

// Inserts, updates and deletes on an indexed table in one transaction; the same bytes each run.
[[noreturn]] void writeTransaction(const std::string& path)
{
    std::string sql = "BEGIN;";
    for (int i = 0; i < 400; ++i)
        sql += "INSERT INTO Table2 (id) VALUES (" + std::to_string(500000 + i * 37 % 400) + ");";
    sql += "UPDATE Table2 SET id = id + 1000000 WHERE id BETWEEN 500100 AND 500199;";
    sql += "DELETE FROM Table2 WHERE id BETWEEN 500300 AND 500349;";
    sql += "COMMIT;";
    std::_Exit(Sql(path).exec(sql).empty() ? 0 : 4);
}

// The child's side: started as "write", it does the transaction and ends.
const bool isChild = childDoes("write", [] { writeTransaction(envValue("JET_TEST_PATH")); });

int runChild(const std::string& path, long crashAt, long killAfterUs)
{
    Child child;
    std::vector<std::pair<std::string, std::string>> env = {{"JET_TEST_PATH", path}};
    if (crashAt > 0) env.emplace_back("PEL008_JET_CRASH_AT", std::to_string(crashAt));
    if (!child.start("write", env)) return -2;
    if (killAfterUs >= 0) {
        std::this_thread::sleep_for(std::chrono::microseconds(killAfterUs));
        child.kill();
    }
    return child.wait();
}

TEST(JetKill, FileIsBeforeOrAfterTheTransaction)
{
    const WorkCopy w("indexTestV2000.mdb", "kill-base.mdb");
    const std::string& path = w.path;
    auto before = readFile(w.base);
    ASSERT_EQ(runChild(path, 0, -1), 0);
    auto after = readFile(path);
    ASSERT_NE(after, before);
    // Steps of the commit's disk work: journal header and records, each page written, forcing, removal.
    const long changed = changedPages(before, after);
    long steps = 2 * changed + 8;

    const char* env = std::getenv("JET_KILL_ROUNDS");
    int rounds = env ? std::atoi(env) : 100;
    std::mt19937 rng(12);
    int sawBefore = 0, sawAfter = 0, recovered = 0;
    for (int r = 0; r < rounds; ++r) {
        w.reset();
        // Half the kills at a chosen step of the disk work, half after a random time.
        if (r % 2 == 0)
            runChild(path, std::uniform_int_distribution<long>(1, steps)(rng), -1);
        else
            runChild(path, 0, std::uniform_int_distribution<long>(0, 400000)(rng));
        bool journal = std::filesystem::exists(path + "-pel008-journal");
        jet::Database db;
        ASSERT_EQ(db.open(path, ""), jet::OK) << db.error();
        // A journal whose header never reached the disk is dropped quietly: the file was not touched yet.
        EXPECT_TRUE(journal || db.notice().empty()) << db.notice();
        recovered += !db.notice().empty();
        EXPECT_FALSE(std::filesystem::exists(path + "-pel008-journal"));
        auto now = readFile(path);
        bool isBefore = now == before, isAfter = now == after;
        EXPECT_TRUE(isBefore || isAfter) << "round " << r;
        EXPECT_EQ(checkProblems(path), "") << "round " << r;
        sawBefore += isBefore;
        sawAfter += isAfter;
    }
    std::printf("kills: %d, before: %d, after: %d, journals played back: %d\n", rounds, sawBefore, sawAfter, recovered);
}

} // namespace
