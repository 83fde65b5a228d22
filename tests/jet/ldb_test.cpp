// The suite's lock file: another user holding it refuses our writes by name; we register while we write and
// clear our slot afterwards (the lock file stays: a user may have just opened it); slots left without their lock do not
// count.
#include "jet/create.h"
#include "jet/ldb.h"
#include "jet/sqlite_attach.h"
#include "test_util.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <cstring>
#include <gtest/gtest.h>
#include <sqlite3.h>

namespace
{

using namespace jettest;

std::string exec(sqlite3* db, const std::string& sql)
{
    char* msg = nullptr;
    int rc = sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg);
    std::string out = rc == SQLITE_OK ? "" : (msg ? msg : "error");
    sqlite3_free(msg);
    return out;
}

void writeSlot(const std::string& ldb, int slot, const char* computer, const char* user)
{
    int fd = ::open(ldb.c_str(), O_RDWR | O_CREAT, 0644);
    unsigned char s[jet::kLdbSlotSize] = {};
    std::memcpy(s, computer, std::strlen(computer));
    std::memcpy(s + 32, user, std::strlen(user));
    EXPECT_EQ(::pwrite(fd, s, sizeof s, slot * jet::kLdbSlotSize), jet::kLdbSlotSize);
    ::close(fd);
}

// Another process holding a byte-range lock beyond the slots until told to go (write a byte into `go`).
struct OtherUser {
    pid_t pid = -1;
    int go[2] = {-1, -1};
    OtherUser(const std::string& ldb, long byte)
    {
        int ready[2];
        EXPECT_EQ(::pipe(ready), 0);
        EXPECT_EQ(::pipe(go), 0);
        pid = ::fork();
        if (pid == 0) {
            int fd = ::open(ldb.c_str(), O_RDWR);
            struct flock fl {
            };
            fl.l_type = F_WRLCK;
            fl.l_whence = SEEK_SET;
            fl.l_start = byte;
            fl.l_len = 1;
            char c = ::fcntl(fd, F_SETLK, &fl) == 0 ? 'y' : 'n';
            (void)!::write(ready[1], &c, 1);
            (void)!::read(go[0], &c, 1);
            ::_exit(0);
        }
        char c = 0;
        EXPECT_EQ(::read(ready[0], &c, 1), 1);
        EXPECT_EQ(c, 'y');
        ::close(ready[0]);
        ::close(ready[1]);
    }
    ~OtherUser() { leave(); }
    void leave()
    {
        if (pid <= 0) return;
        char c = 'x';
        (void)!::write(go[1], &c, 1);
        ::waitpid(pid, nullptr, 0);
        pid = -1;
        ::close(go[0]);
        ::close(go[1]);
    }
};

TEST(JetLdb, OtherUsersRefuseWritesOurSlotComesAndGoes)
{
    auto dir = std::filesystem::temp_directory_path() / ("jet-ldb-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    const std::string path = (dir / "data1.dat").string(), ldb = (dir / "data1.ldb").string();
    EXPECT_EQ(jet::ldbPath(path), ldb);
    std::vector<jet::TableDef> t(1);
    t[0].name = "offset";
    t[0].columns = {{"kubun", jet::Type::Int}, {"top", jet::Type::Float}};
    std::string err;
    ASSERT_EQ(jet::createDatabase(path, "", jet::kSortJapanese, t, &err), jet::OK) << err;
    EXPECT_TRUE(jet::ldbUsers(path).empty()); // making the file leaves nobody registered
    sqlite3* db = nullptr;
    sqlite3_open(":memory:", &db);
    ASSERT_EQ(jet::attach(db, path, "", &err), 0) << err;

    // Registered while writing: our name and a held lock, seen by another process; gone afterwards.
    EXPECT_EQ(exec(db, "BEGIN; INSERT INTO offset VALUES (1, 2)"), "");
    {
        auto bytes = readFile(ldb);
        ASSERT_GE(bytes.size(), std::size_t(64));
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data())), jet::ldbComputerName());
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(bytes.data() + 32)), "Admin");
        pid_t child = ::fork();
        if (child == 0) ::_exit(jet::ldbUsers(path).size() == 1 ? 0 : 1);
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << "another process does not see us";
    }
    EXPECT_EQ(exec(db, "COMMIT"), "");
    EXPECT_EQ(readFile(ldb), std::vector<std::uint8_t>(64, 0)); // our slot cleared, the file kept

    // A user who opened the lock file while we left keeps the slot they fill there.
    {
        EXPECT_EQ(exec(db, "BEGIN; INSERT INTO offset VALUES (5, 6)"), "");
        int early = ::open(ldb.c_str(), O_RDWR);
        EXPECT_EQ(exec(db, "COMMIT"), "");
        unsigned char slot[jet::kLdbSlotSize] = "LATE-PC";
        EXPECT_EQ(::pwrite(early, slot, sizeof slot, 4 * jet::kLdbSlotSize), jet::kLdbSlotSize);
        OtherUser late(ldb, jet::kLdbLockBase + 4);
        auto users = jet::ldbUsers(path);
        ASSERT_EQ(users.size(), 1u);
        EXPECT_EQ(users[0].computer, "LATE-PC");
        ::close(early);
    }
    EXPECT_EQ(exec(db, "DELETE FROM offset WHERE kubun = 5"), "");
    writeSlot(ldb, 4, "", "");

    // The suite's users: two slots, one lock beyond them held by another process.
    writeSlot(ldb, 0, "OFFICE-PC", "Admin");
    writeSlot(ldb, 2, "SHIP-PC", "staff");
    auto before = readFile(path);
    {
        OtherUser suite(ldb, jet::kLdbLockBase + 7);
        EXPECT_EQ(jet::ldbUsers(path).size(), 2u);
        EXPECT_EQ(exec(db, "INSERT INTO offset VALUES (2, 3)"),
                  "data1.dat は OFFICE-PC の Admin、SHIP-PC の staff で使用中です");
        EXPECT_EQ(exec(db, "UPDATE offset SET top = 9"),
                  "data1.dat は OFFICE-PC の Admin、SHIP-PC の staff で使用中です");
        EXPECT_EQ(readFile(path), before);
        EXPECT_EQ(exec(db, "SELECT count(*) FROM offset"), ""); // reads go on
    }
    // The suite gone without clearing its slots: they no longer count; ours goes into a free slot and the lock
    // file, not ours, stays with the suite's slots as they were.
    EXPECT_TRUE(jet::ldbUsers(path).empty());
    auto ldbBefore = readFile(ldb);
    EXPECT_EQ(exec(db, "INSERT INTO offset VALUES (2, 3)"), "");
    EXPECT_EQ(readFile(ldb), ldbBefore);
    // A lock inside the slots is not ours to read.
    {
        OtherUser other(ldb, 10);
        EXPECT_EQ(exec(db, "INSERT INTO offset VALUES (3, 4)"), "");
    }
    sqlite3_close(db);
    EXPECT_EQ(checkProblems(path), "");
    std::filesystem::remove_all(dir);
}

} // namespace
