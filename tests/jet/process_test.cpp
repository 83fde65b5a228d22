// The file layer as the engine relies on it, on each system it is built for: locks between open files, offsets
// beyond 4 GiB, identity; and two processes writing one file in a folder with a Japanese name.
#include "child.h"
#include "jet/file.h"
#include "jet/ldb.h"
#include "sql.h"

#include <gtest/gtest.h>

namespace
{

using namespace jettest;
using jet::os::File;
using jet::os::Lock;
using jet::os::Mode;

// Rows inserted one by one, each its own write; the exit code says how far it got.
[[noreturn]] void insertRows(const std::string& path, int first, int count)
{
    Sql db(path);
    for (int i = 0; i < count; ++i)
        if (std::string e = db.exec("INSERT INTO offset VALUES (" + std::to_string(first + i) + ", 1.5)"); !e.empty()) {
            std::fprintf(stderr, "%s\n", e.c_str());
            std::_Exit(10);
        }
    std::_Exit(0);
}

const bool isChild = childDoes(
    "insert", [] { insertRows(envValue("JET_TEST_PATH"), std::atoi(envValue("JET_TEST_FIRST").c_str()), 25); });

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
    std::int64_t start = jet::os::monotonicMs();
    EXPECT_EQ(b.lock(lockAt, 1, true, 150), Lock::Busy);
    EXPECT_GE(jet::os::monotonicMs() - start, 140);
    EXPECT_EQ(b.lock(lockAt + 1, 1, true, 0), Lock::Got);
    EXPECT_TRUE(a.lockedByOthers(lockAt, 0)) << "b's byte beside ours";
    EXPECT_FALSE(b.lockedByOthers(lockAt + 1, 1));

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
    EXPECT_FALSE(jet::os::exists(other));
    EXPECT_TRUE(jet::os::remove(path));
    EXPECT_FALSE(jet::os::identity(path, &after));
    File none;
    EXPECT_FALSE(none.open(path, Mode::Read));
    EXPECT_FALSE(jet::os::lastError().empty());
}

TEST(JetProcesses, TwoWritersOneFileInAJapaneseFolder)
{
    ScratchDir dir("販売管理");
    const std::string path = dir / "data1.dat";
    ASSERT_TRUE(
        made(path, {{"offset", {{"kubun", jet::Type::Long}, {"top", jet::Type::Float}}, {}}}, jet::kSortJapanese));
    EXPECT_EQ(jet::ldbPath(path), dir / "data1.ldb");

    // Each waits for the other's writes as long as it takes here (instrumented, or under an emulator).
    Child one, two;
    ASSERT_TRUE(
        one.start("insert", {{"JET_TEST_PATH", path}, {"JET_TEST_FIRST", "1000"}, {"PEL008_LOCK_WAIT_MS", "20000"}}));
    ASSERT_TRUE(
        two.start("insert", {{"JET_TEST_PATH", path}, {"JET_TEST_FIRST", "2000"}, {"PEL008_LOCK_WAIT_MS", "20000"}}));
    EXPECT_EQ(one.wait(), 0);
    EXPECT_EQ(two.wait(), 0);

    jet::Database db;
    ASSERT_EQ(db.open(path, ""), jet::OK) << db.error();
    EXPECT_EQ(db.table("offset")->rowCount, 50u);
    EXPECT_EQ(checkProblems(path), "");
}

#ifdef _WIN32
TEST(JetFile, WindowsPathsEndFolderNamesWithEitherSlash)
{
    struct Case {
        const char* db;
        const char* ldb;
    };
    const Case cases[] = {
        {"C:\\販売管理\\data1.dat", "C:\\販売管理\\data1.ldb"},
        {"\\\\server\\share.v2\\data1", "\\\\server\\share.v2\\data1.ldb"},
        {"D:/shop.old/data1", "D:/shop.old/data1.ldb"},
    };
    for (const Case& k : cases)
        EXPECT_EQ(jet::ldbPath(k.db), k.ldb) << k.db;
}
#endif

} // namespace
