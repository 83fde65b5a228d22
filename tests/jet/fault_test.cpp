// Several writers and readers of one file, and commits that fail part-way: a journal is played back only by whoever
// holds the file, a failed commit leaves the file as it was, a journal never lands on another file, and what
// another program wrote meanwhile is never overwritten.
#include "jet/tool.h"
#include "sql.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>

namespace
{

using namespace jettest;

std::string journalOf(const std::string& path)
{
    return path + "-pel008-journal";
}

std::string inserts(int from, int count)
{
    std::string sql = "BEGIN;";
    for (int i = 0; i < count; ++i)
        sql += "INSERT INTO Table2 (id) VALUES (" + std::to_string(from + i) + ");";
    return sql + "COMMIT;";
}

// A child running `sql` on `path` with the given environment; its pid.
pid_t writer(const std::string& path, const std::string& sql, const char* crashAt)
{
    pid_t pid = ::fork();
    if (pid == 0) {
        if (crashAt) ::setenv("PEL008_JET_CRASH_AT", crashAt, 1);
        ::_exit(Sql(path).exec(sql).empty() ? 0 : 4);
    }
    return pid;
}

// Pages the 300 inserts below change.
long changedPages(const WorkCopy& s)
{
    std::string probe = s.base + ".probe";
    std::filesystem::copy_file(s.base, probe, std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(Sql(probe).exec(inserts(700000, 300)), "");
    return jettest::changedPages(readFile(s.base), readFile(probe));
}

// A writer stopped mid-commit (journal forced, some pages written) holds the file: an opener, a check and a reader
// opened before wait for it and give up after the wait limit (busy, not damaged) without touching its journal;
// continued, the writer commits.
TEST(JetFault, OpenerLeavesTheJournalOfALiveWriter)
{
    WorkCopy s("indexTestV2000.mdb", "live.mdb");
    jet::Database early;
    ASSERT_EQ(early.open(s.path, ""), jet::OK) << early.error();
    const std::uint32_t before = early.table("Table2")->rowCount;
    early.setCacheLimit(1);
    // stopped after the journal is forced and the first page is written
    std::string stop = std::to_string(changedPages(s) + 4) + ":stop";
    pid_t pid = writer(s.path, inserts(700000, 300), stop.c_str());
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, WUNTRACED), pid);
    ASSERT_TRUE(WIFSTOPPED(status));
    ASSERT_TRUE(std::filesystem::exists(journalOf(s.path)));
    auto midway = readFile(s.path);

    ::setenv("PEL008_LOCK_WAIT_MS", "100", 1);
    jet::Database reader;
    EXPECT_EQ(reader.open(s.path, ""), jet::ERR_BUSY) << reader.error();
    std::ostringstream problems;
    std::string err;
    EXPECT_NE(jet::checkFile(s.path, "", problems, &err), 0);
    EXPECT_EQ(problems.str(), "");
    jet::Cursor scan(early, *early.table("Table2"));
    EXPECT_EQ(scan.rewind(), jet::ERR_BUSY) << scan.error();
    ::unsetenv("PEL008_LOCK_WAIT_MS");
    EXPECT_TRUE(std::filesystem::exists(journalOf(s.path)));
    EXPECT_EQ(readFile(s.path), midway);

    ::kill(pid, SIGCONT);
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    jet::Database after;
    ASSERT_EQ(after.open(s.path, ""), jet::OK) << after.error();
    EXPECT_EQ(after.notice(), "");
    EXPECT_EQ(after.table("Table2")->rowCount, before + 300);
    EXPECT_EQ(problemsOf(after), "");
}

// A commit whose file cannot grow (the size limit stands for a full disk): the pages it wrote go back, the
// journal goes, and the next commit of the same process works.
TEST(JetFault, CommitThatCannotWriteLeavesTheFileAsItWas)
{
    WorkCopy s("indexTestV2000.mdb", "full.mdb");
    auto original = readFile(s.path);
    pid_t pid = ::fork();
    if (pid == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        Sql db(s.path);
        if (db.exec("SELECT 1") != "") ::_exit(2);
        struct rlimit lim {
        };
        ::getrlimit(RLIMIT_FSIZE, &lim);
        struct rlimit tight = lim;
        tight.rlim_cur = std::filesystem::file_size(s.path);
        ::setrlimit(RLIMIT_FSIZE, &tight);
        // many new pages: the file must grow, the journal of the few changed ones fits
        if (db.exec(inserts(800000, 3000)) == "") ::_exit(3);
        db.exec("ROLLBACK");
        if (readFile(s.path) != original) ::_exit(4);
        if (std::filesystem::exists(journalOf(s.path))) ::_exit(5);
        ::setrlimit(RLIMIT_FSIZE, &lim);
        ::_exit(db.exec(inserts(800000, 3000)) == "" ? 0 : 6);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(checkProblems(s.path), "");
    EXPECT_FALSE(std::filesystem::exists(journalOf(s.path)));
}

// A journal a crash left is played back only on the file it was written for: a restored backup or a compacted
// file under the same name is refused and both stay as they are.
TEST(JetFault, JournalIsRefusedForAnotherFile)
{
    const std::pair<const char*, std::function<void(const WorkCopy&)>> cases[] = {
        {"a backup of the day before",
         [](const WorkCopy& s) {
             std::string old = s.base + ".old";
             std::filesystem::copy_file(s.base, old, std::filesystem::copy_options::overwrite_existing);
             ASSERT_EQ(Sql(old).exec(inserts(900000, 20)), "");
             std::filesystem::copy_file(old, s.path, std::filesystem::copy_options::overwrite_existing);
         }},
        {"another file (a compacted one)",
         [](const WorkCopy& s) {
             std::filesystem::copy_file(corpus("bigIndexTestV2000.mdb"), s.path,
                                        std::filesystem::copy_options::overwrite_existing);
         }},
    };
    for (const auto& [what, replace] : cases) {
        SCOPED_TRACE(what);
        WorkCopy s("indexTestV2000.mdb", "other.mdb");
        pid_t pid = writer(s.path, inserts(700000, 300), "6");
        int status = 0;
        ::waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
        ASSERT_TRUE(std::filesystem::exists(journalOf(s.path)));
        replace(s);
        auto replaced = readFile(s.path);
        jet::Database db;
        EXPECT_EQ(db.open(s.path, ""), jet::ERR_CORRUPT) << db.error();
        EXPECT_NE(db.error().find("not the file its journal"), std::string::npos) << db.error();
        EXPECT_TRUE(std::filesystem::exists(journalOf(s.path)));
        EXPECT_EQ(readFile(s.path), replaced);
    }
}

// What begin() saw is checked again before the journal: a change by another program, or a user of the suite who
// came meanwhile, refuses the commit and leaves their file alone.
TEST(JetFault, CommitRechecksTheFileAndItsUsers)
{
    struct Case {
        const char* what;
        // what happens meanwhile; a lock it takes lasts as long as the File it gives back
        std::function<std::shared_ptr<OtherUser>(const std::string&)> meanwhile;
        const char* error;
        std::uint32_t rowsTheyAdded;
    };
    const Case cases[] = {
        {"another program wrote",
         [](const std::string& path) {
             // a row more, written elsewhere and copied over the file in place
             std::string other = path + ".other";
             std::filesystem::copy_file(path, other, std::filesystem::copy_options::overwrite_existing);
             EXPECT_EQ(Sql(other).exec(inserts(777777, 1)), "");
             std::filesystem::copy_file(other, path, std::filesystem::copy_options::overwrite_existing);
             std::filesystem::last_write_time(path,
                                              std::filesystem::file_time_type::clock::now() + std::chrono::seconds(5));
             return nullptr;
         },
         "was changed by another program", 1},
        {"a user of the suite opened it",
         [](const std::string& path) {
             writeSlot(jet::ldbPath(path), 7, "PC07", "Admin");
             return std::make_shared<OtherUser>(jet::ldbPath(path), jet::kLdbLockBase + 7);
         },
         "PC07 の Admin で使用中です", 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        WorkCopy s("indexTestV2000.mdb", "recheck.mdb");
        jet::Database db;
        ASSERT_EQ(db.open(s.path, ""), jet::OK) << db.error();
        const jet::Table* t = db.table("Table2");
        ASSERT_TRUE(t);
        const std::uint32_t rowsBefore = t->rowCount;
        ASSERT_EQ(db.begin(), jet::OK) << db.error();
        std::vector<jet::Value> v(t->columns.size());
        for (std::size_t k = 0; k < t->columns.size(); ++k)
            if (t->columns[k].name == "id") {
                v[k].null = false;
                v[k].i = 123456;
            }
        jet::RowId id = 0;
        ASSERT_EQ(db.insertRow(*t, v, &id), jet::OK) << db.error();
        auto holder = c.meanwhile(s.path);
        auto theirs = readFile(s.path);
        EXPECT_EQ(db.commit(), jet::ERR_BUSY);
        EXPECT_NE(db.error().find(c.error), std::string::npos) << db.error();
        EXPECT_EQ(db.rollback(), jet::OK) << db.error();
        EXPECT_EQ(readFile(s.path), theirs);
        EXPECT_FALSE(std::filesystem::exists(journalOf(s.path)));
        // The next write starts from what they wrote: a changed file is read again, nothing kept from before.
        holder.reset();
        ASSERT_EQ(db.begin(), jet::OK) << db.error();
        EXPECT_EQ(db.table("Table2")->rowCount, rowsBefore + c.rowsTheyAdded);
        EXPECT_EQ(db.rollback(), jet::OK);
    }
}

// A new password changes the header every open connection compares: it waits for nobody and refuses while anyone
// else holds the file, leaving the file as it was.
TEST(JetFault, PasswordOnlyOnAFileNobodyHolds)
{
    // a connection of ours in the middle of a write or a read
    static const auto ours = [](const std::string& path, jet::Status (jet::Database::*start)()) {
        auto db = std::make_shared<jet::Database>();
        EXPECT_EQ(db->open(path, ""), jet::OK);
        EXPECT_EQ(((*db).*start)(), jet::OK) << db->error();
        return std::shared_ptr<void>(db);
    };
    struct Case {
        const char* what;
        std::function<std::shared_ptr<void>(const std::string&)> hold;
        const char* error;
    };
    const Case cases[] = {
        {"a writer of ours", [](const std::string& path) { return ours(path, &jet::Database::begin); },
         "in use by another program of ours"},
        {"a reader of ours", [](const std::string& path) { return ours(path, &jet::Database::beginRead); },
         "in use by another program of ours"},
        {"a user of the suite",
         [](const std::string& path) {
             writeSlot(jet::ldbPath(path), 3, "PC03", "Admin");
             return std::make_shared<OtherUser>(jet::ldbPath(path), jet::kLdbLockBase + 3);
         },
         "PC03 の Admin で使用中です"},
        {"an unfinished write",
         [](const std::string& path) {
             EXPECT_TRUE(jet::os::File().open(journalOf(path), jet::os::Mode::CreateNew));
             return std::shared_ptr<void>();
         },
         "unfinished write"},
    };
    ::setenv("PEL008_LOCK_WAIT_MS", "20", 1);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        WorkCopy s("emptyJet4.mdb", "password.mdb");
        std::filesystem::remove(jet::ldbPath(s.path));
        const auto before = readFile(s.path);
        auto holder = c.hold(s.path);
        std::string err;
        EXPECT_EQ(jet::setPassword(s.path, "secret", &err), jet::ERR_BUSY);
        EXPECT_NE(err.find(c.error), std::string::npos) << err;
        EXPECT_TRUE(readFile(s.path) == before);
        holder.reset();
        std::filesystem::remove(journalOf(s.path));
        EXPECT_EQ(jet::setPassword(s.path, "secret", &err), jet::OK) << err;
    }
    ::unsetenv("PEL008_LOCK_WAIT_MS");
}

} // namespace
