// The suite's lock file: another user holding it refuses our writes by name; we register while we write and
// clear our slot afterwards (the lock file stays: a user may have just opened it); slots left without their lock do not
// count.
#include "child.h"
#include "sql.h"

#include <gtest/gtest.h>

namespace
{

using namespace jettest;

const bool isLooker =
    childDoes("look", [] { std::_Exit(jet::ldbUsers(envValue("JET_TEST_PATH")).size() == 1 ? 0 : 1); });

TEST(JetLdb, OtherUsersRefuseWritesOurSlotComesAndGoes)
{
    ScratchDir dir("jet-ldb");
    const std::string path = dir / "data1.dat", ldb = dir / "data1.ldb";
    EXPECT_EQ(jet::ldbPath(path), ldb);
    ASSERT_TRUE(
        made(path, {{"offset", {{"kubun", jet::Type::Int}, {"top", jet::Type::Float}}, {}}}, jet::kSortJapanese));
    EXPECT_TRUE(jet::ldbUsers(path).empty()); // making the file leaves nobody registered
    Sql db(path);

    // Registered while writing: our name and a held lock, seen by another process; gone afterwards.
    EXPECT_EQ(db.exec("BEGIN; INSERT INTO offset VALUES (1, 2)"), "");
    {
        auto bytes = readFile(ldb);
        ASSERT_GE(bytes.size(), std::size_t(64));
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data())), jet::ldbComputerName());
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data() + 32)), "Admin");
        Child looker;
        ASSERT_TRUE(looker.start("look", {{"JET_TEST_PATH", path}}));
        EXPECT_EQ(looker.wait(), 0) << "another process does not see us";
    }
    EXPECT_EQ(db.exec("COMMIT"), "");
    EXPECT_EQ(readFile(ldb), std::vector<std::uint8_t>(64, 0)); // our slot cleared, the file kept

    // A user who opened the lock file while we left keeps the slot they fill there.
    {
        EXPECT_EQ(db.exec("BEGIN; INSERT INTO offset VALUES (5, 6)"), "");
        jet::os::File early;
        ASSERT_TRUE(early.open(ldb, jet::os::Mode::ReadWrite));
        EXPECT_EQ(db.exec("COMMIT"), "");
        unsigned char slot[jet::kLdbSlotSize] = "LATE-PC";
        EXPECT_TRUE(early.write(slot, sizeof slot, 4 * jet::kLdbSlotSize));
        OtherUser late(ldb, jet::kLdbLockBase + 4);
        auto users = jet::ldbUsers(path);
        ASSERT_EQ(users.size(), 1u);
        EXPECT_EQ(users[0].computer, "LATE-PC");
    }
    EXPECT_EQ(db.exec("DELETE FROM offset WHERE kubun = 5"), "");
    writeSlot(ldb, 4, "", "");

    // The suite's users: two slots, one lock beyond them held by another process.
    writeSlot(ldb, 0, "OFFICE-PC", "Admin");
    writeSlot(ldb, 2, "SHIP-PC", "staff");
    auto before = readFile(path);
    {
        OtherUser suite(ldb, jet::kLdbLockBase + 7);
        EXPECT_EQ(jet::ldbUsers(path).size(), 2u);
        EXPECT_EQ(db.exec("INSERT INTO offset VALUES (2, 3)"),
                  "data1.dat は OFFICE-PC の Admin、SHIP-PC の staff で使用中です");
        EXPECT_EQ(db.exec("UPDATE offset SET top = 9"),
                  "data1.dat は OFFICE-PC の Admin、SHIP-PC の staff で使用中です");
        EXPECT_EQ(readFile(path), before);
        EXPECT_EQ(db.exec("SELECT count(*) FROM offset"), ""); // reads go on
    }
    // The suite gone without clearing its slots: they no longer count; ours goes into a free slot and the lock
    // file, not ours, stays with the suite's slots as they were.
    EXPECT_TRUE(jet::ldbUsers(path).empty());
    auto ldbBefore = readFile(ldb);
    EXPECT_EQ(db.exec("INSERT INTO offset VALUES (2, 3)"), "");
    EXPECT_EQ(readFile(ldb), ldbBefore);
    // A lock inside the slots is not ours to read.
    {
        OtherUser other(ldb, 10);
        EXPECT_EQ(db.exec("INSERT INTO offset VALUES (3, 4)"), "");
    }
    db.close();
    EXPECT_EQ(checkProblems(path), "");
}

} // namespace
