// The file layer as the engine relies on it, on each system it is built for: locks between open files, offsets
// beyond 4 GiB, identity; and processes writing and checking one file in a folder with a Japanese name.
#include "child.h"
#include "jet/file.h"
#include "jet/ldb.h"
#include "jet/tool.h"
#include "sql.h"

#include <gtest/gtest.h>
#include <memory>
#include <sstream>

namespace
{

using namespace jettest;
using jet::os::File;
using jet::os::Lock;
using jet::os::Mode;

constexpr int kWriters = 3, kSaves = 40;

// Writer `w`: saves of two rows each; the first writer keeps its connection, the others open the file for every
// save. The exit code counts the saves refused.
[[noreturn]] void writeRows(const std::string& path, int w)
{
    std::unique_ptr<Sql> kept = w == 0 ? std::make_unique<Sql>(path) : nullptr;
    int failed = 0;
    for (int i = 0; i < kSaves; ++i) {
        const std::string id = std::to_string(1000000 + w * 1000 + i * 2);
        const std::string sql = "BEGIN; INSERT INTO offset VALUES (" + id + ", 1.5); INSERT INTO offset VALUES (" + id +
                                " + 1, 2.5); COMMIT";
        if (std::string e = kept ? kept->exec(sql) : Sql(path).exec(sql); !e.empty()) {
            std::fprintf(stderr, "writer %d: %s\n", w, e.c_str());
            if (kept) kept->exec("ROLLBACK");
            ++failed;
        }
    }
    std::_Exit(failed);
}

// Checks the file again and again until `done` appears: 0 when every check, and more than one, found it whole.
[[noreturn]] void checkUntil(const std::string& path, const std::string& done)
{
    int checks = 0, bad = 0;
    for (bool last = false; !last; ++checks) {
        last = jet::os::exists(done);
        std::ostringstream problems;
        std::string err;
        if (jet::checkFile(path, "", problems, &err) != 0) {
            std::fprintf(stderr, "check: %s\n%s", err.c_str(), problems.str().c_str());
            ++bad;
        }
    }
    std::_Exit(checks > 1 && bad == 0 ? 0 : 1);
}

const bool isWriter =
    childDoes("write", [] { writeRows(envValue("JET_TEST_PATH"), std::atoi(envValue("JET_TEST_WRITER").c_str())); });
const bool isChecker = childDoes("check", [] { checkUntil(envValue("JET_TEST_PATH"), envValue("JET_TEST_DONE")); });

TEST(JetFile, LocksBelongToTheOpenFile)
{
    ScratchDir dir("jet-file");
    const std::string path = dir / "locks";
    File a, b, c, d;
    ASSERT_TRUE(a.open(path, Mode::CreateNew)) << jet::os::lastError();
    ASSERT_TRUE(b.open(path, Mode::ReadWrite));
    ASSERT_TRUE(c.open(path, Mode::Read));
    ASSERT_TRUE(d.open(path, Mode::ReadWrite));
    const std::uint64_t lockAt = std::uint64_t(1) << 31;
    EXPECT_EQ(a.lock(lockAt, 1, true, 0), Lock::Got);
    struct Case {
        const char* what;
        const File& asker;
        std::uint64_t at, len;
        bool others;
    };
    const Case cases[] = {
        {"our own lock is not another's", a, lockAt, 0, false},
        {"another open of the file sees it", b, lockAt, 0, true},
        {"a read-only open sees it too", c, 0, 0, true},
        {"a range before it is free", b, 0, lockAt, false},
        {"a range after it is free", b, lockAt + 1, 100, false},
    };
    for (const Case& k : cases)
        EXPECT_EQ(k.asker.lockedByOthers(k.at, k.len), k.others) << k.what;

    EXPECT_EQ(b.lock(lockAt, 1, true, 0), Lock::Busy);
    EXPECT_EQ(b.lock(lockAt, 1, false, 0), Lock::Busy);
    EXPECT_EQ(b.lock(lockAt + 1, 1, true, 0), Lock::Got);
    EXPECT_TRUE(a.lockedByOthers(lockAt, 0)) << "b's byte beside ours";

    a.unlock(lockAt, 1);
    EXPECT_FALSE(b.lockedByOthers(lockAt, 1));
    EXPECT_EQ(b.lock(lockAt, 1, true, 0), Lock::Got);
    b.close(); // closing gives every lock back
    EXPECT_FALSE(a.lockedByOthers(lockAt, 0));

    // Shared locks share, and keep an exclusive one out.
    ASSERT_TRUE(b.open(path, Mode::ReadWrite));
    EXPECT_EQ(a.lock(lockAt + 5, 1, false, 0), Lock::Got);
    EXPECT_EQ(b.lock(lockAt + 5, 1, false, 0), Lock::Got);
    EXPECT_EQ(d.lock(lockAt + 5, 1, true, 0), Lock::Busy);
}

TEST(JetFile, OffsetsBeyondFourGiBAndIdentity)
{
    ScratchDir dir("jet-file");
    const std::string path = dir / "big", other = dir / "other";
    jet::os::Identity before, after, moved;
    {
        File f;
        ASSERT_TRUE(f.open(path, Mode::CreateNew));
        const std::uint64_t at = (std::uint64_t(1) << 32) + 4096 + 7;
        const char text[] = "lockAt";
        ASSERT_TRUE(f.write(text, sizeof text, at)) << jet::os::lastError();
        std::uint64_t size = 0;
        ASSERT_TRUE(f.size(&size));
        EXPECT_EQ(size, at + sizeof text);
        char back[sizeof text] = {}, low[sizeof text] = {};
        ASSERT_TRUE(f.read(back, sizeof back, at));
        EXPECT_STREQ(back, text);
        ASSERT_TRUE(f.read(low, sizeof low, 4096 + 7)); // not folded onto the low 32 bits
        EXPECT_EQ(std::string(low, sizeof low), std::string(sizeof low, '\0'));
        EXPECT_FALSE(f.read(back, sizeof back, at + 1)) << "a short read is a failure";
        ASSERT_TRUE(f.truncate(10));
        ASSERT_TRUE(f.size(&size));
        EXPECT_EQ(size, 10u);
        EXPECT_EQ(jet::os::stamp(path).size, 10);
    }
    ASSERT_TRUE(jet::os::identity(path, &before));
    {
        File g;
        ASSERT_TRUE(g.open(other, Mode::CreateNew));
    }
    ASSERT_TRUE(jet::os::identity(other, &moved));
    EXPECT_NE(before, moved);
    ASSERT_TRUE(jet::os::rename(other, path));
    ASSERT_TRUE(jet::os::identity(path, &after));
    EXPECT_EQ(after, moved) << "a file put in the other's place is that file";
    EXPECT_TRUE(jet::os::remove(path));
    EXPECT_FALSE(jet::os::identity(path, &after));
    File none;
    EXPECT_FALSE(none.open(path, Mode::Read));
    EXPECT_FALSE(jet::os::lastError().empty());
}

// Three writers of one file in a folder with a Japanese name and a fourth process checking it meanwhile: every save
// is waited for, not refused (as long as it takes here: instrumented, or under an emulator); every row saved is
// there; every check finds the file whole.
const bool isInserter = childDoes("insert", [] {
    std::_Exit(Sql(envValue("JET_TEST_PATH")).exec("INSERT INTO offset VALUES (7, 1.5)").empty() ? 0 : 1);
});

TEST(JetProcesses, AnOpenReaderSeesAnotherProgramsCommit)
{
    ScratchDir dir("reader");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(made(path,
                     {{"offset",
                       {{"kubun", jet::Type::Long}, {"top", jet::Type::Float}},
                       {{"offset_kubun", {{"kubun", true}}, false, false}}}},
                     jet::kSortJapanese));
    Sql reader(path);
    EXPECT_EQ(reader.query("SELECT count(*) FROM offset"), "0\n");
    Child inserter;
    ASSERT_TRUE(inserter.start("insert", {{"JET_TEST_PATH", path}}));
    EXPECT_EQ(inserter.wait(), 0);
    EXPECT_EQ(reader.query("SELECT count(*) FROM offset"), "1\n");
    EXPECT_EQ(reader.query("SELECT top FROM offset WHERE kubun = 7"), "1.5\n");
}

TEST(JetProcesses, WritersWaitForEachOtherAndChecksStayClean)
{
    ScratchDir dir("販売管理");
    const std::string path = dir / "data1.dat", done = dir / "done";
    ASSERT_TRUE(made(path,
                     {{"offset",
                       {{"kubun", jet::Type::Long}, {"top", jet::Type::Float}},
                       {{"offset_kubun", {{"kubun", true}}, false, false}}}},
                     jet::kSortJapanese));
    EXPECT_EQ(jet::ldbPath(path), dir / "data1.ldb");
    const std::pair<std::string, std::string> wait = {"PEL008_LOCK_WAIT_MS", "20000"};
    Child checker, writers[kWriters];
    ASSERT_TRUE(checker.start("check", {{"JET_TEST_PATH", path}, {"JET_TEST_DONE", done}, wait}));
    for (int w = 0; w < kWriters; ++w)
        ASSERT_TRUE(writers[w].start("write", {{"JET_TEST_PATH", path}, {"JET_TEST_WRITER", std::to_string(w)}, wait}));
    for (Child& w : writers)
        EXPECT_EQ(w.wait(), 0) << "saves refused";
    File mark;
    ASSERT_TRUE(mark.open(done, Mode::CreateNew));
    mark.close();
    EXPECT_EQ(checker.wait(), 0) << "a check found damage or never ran";

    jet::Database db;
    ASSERT_EQ(db.open(path, ""), jet::OK) << db.error();
    EXPECT_EQ(db.table("offset")->rowCount, std::uint32_t(kWriters * kSaves * 2));
    EXPECT_EQ(problemsOf(db), "");
    EXPECT_FALSE(jet::os::exists(path + "-pel008-journal"));
}

#ifdef _WIN32
TEST(JetFile, WindowsPathsEndFolderNamesWithEitherSlash)
{
    const std::pair<const char*, const char*> cases[] = {
        {"C:\\販売管理\\data1.dat", "C:\\販売管理\\data1.ldb"},
        {"\\\\server\\share.v2\\data1", "\\\\server\\share.v2\\data1.ldb"},
        {"D:/shop.old/data1", "D:/shop.old/data1.ldb"},
    };
    for (const auto& [db, ldb] : cases)
        EXPECT_EQ(jet::ldbPath(db), ldb) << db;
}
#endif

} // namespace
