#pragma once
// A SQLite connection with a Jet file attached through the module, new files made for a test, and other users of
// the suite in its lock file.
#include "jet/create.h"
#include "jet/file.h"
#include "jet/ldb.h"
#include "jet/sqlite_attach.h"
#include "test_util.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstring>

namespace jettest
{

class Sql
{
public:
    sqlite3* db = nullptr;

    // Attaches `path` unless it is empty. A file that does not attach makes every statement fail with the reason.
    explicit Sql(const std::string& path = "", const std::string& password = "")
    {
        sqlite3_open(":memory:", &db);
        std::string err;
        if (!path.empty() && jet::attach(db, path, password, &err) != 0) attachError_ = "attach: " + err;
    }
    ~Sql() { close(); }
    void close()
    {
        sqlite3_close(db);
        db = nullptr;
    }
    Sql(const Sql&) = delete;
    Sql& operator=(const Sql&) = delete;

    // "" when the statements ran, else SQLite's message.
    std::string exec(const std::string& sql)
    {
        if (!attachError_.empty()) return attachError_;
        char* msg = nullptr;
        if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return "";
        std::string m = msg ? msg : "error";
        sqlite3_free(msg);
        return m;
    }

    // One statement with ?1 bound to `text`, or to `number` when `text` is null.
    std::string exec(const std::string& sql, const char* text, double number = 0)
    {
        if (!attachError_.empty()) return attachError_;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK) return sqlite3_errmsg(db);
        if (text)
            sqlite3_bind_text(st, 1, text, -1, SQLITE_TRANSIENT);
        else
            sqlite3_bind_double(st, 1, number);
        const std::string out = sqlite3_step(st) == SQLITE_DONE ? "" : sqlite3_errmsg(db);
        sqlite3_finalize(st);
        return out;
    }

    // Rows as text, values joined by '|', each row ended by '\n'; with `kinds`, numbers and blobs carry their
    // SQLite type ("i:2", "r:3.500000", "b:16"). A statement that fails gives "error: " and the message.
    std::string query(const std::string& sql, bool kinds = false)
    {
        if (!attachError_.empty()) return "error: " + attachError_;
        sqlite3_stmt* st = nullptr;
        if (sqlite3_prepare_v2(db, sql.c_str(), -1, &st, nullptr) != SQLITE_OK)
            return std::string("error: ") + sqlite3_errmsg(db);
        std::string out;
        int rc;
        while ((rc = sqlite3_step(st)) == SQLITE_ROW) {
            for (int i = 0; i < sqlite3_column_count(st); ++i) {
                if (i) out += '|';
                const int type = sqlite3_column_type(st, i);
                if (type == SQLITE_NULL)
                    out += "NULL";
                else if (kinds && type == SQLITE_INTEGER)
                    out += "i:" + std::to_string(sqlite3_column_int64(st, i));
                else if (kinds && type == SQLITE_FLOAT)
                    out += "r:" + std::to_string(sqlite3_column_double(st, i));
                else if (kinds && type == SQLITE_BLOB)
                    out += "b:" + std::to_string(sqlite3_column_bytes(st, i));
                else
                    out += reinterpret_cast<const char*>(sqlite3_column_text(st, i));
            }
            out += '\n';
        }
        if (rc != SQLITE_DONE) out = std::string("error: ") + sqlite3_errmsg(db);
        sqlite3_finalize(st);
        return out;
    }

private:
    std::string attachError_;
};

// A new file of `tables` at `path`.
inline ::testing::AssertionResult made(const std::string& path, const std::vector<jet::TableDef>& tables,
                                       std::uint16_t sortOrder = jet::kSortGeneral, const std::string& password = "")
{
    std::string err;
    if (jet::createDatabase(path, password, sortOrder, tables, &err) == jet::OK) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "cannot make " << path << ": " << err;
}

// Another user of the suite: a lock on one byte of the lock file through an open of its own, held while this lives.
struct OtherUser {
    jet::os::File file;
    OtherUser(const std::string& ldb, std::uint64_t byte)
    {
        if (!file.open(ldb, jet::os::Mode::ReadWrite) || file.lock(byte, 1, true, 0) != jet::os::Lock::Got)
            ADD_FAILURE() << "no lock on " << ldb;
    }
};

inline void writeSlot(const std::string& ldb, int slot, const char* computer, const char* user)
{
    jet::os::File f;
    ASSERT_TRUE(f.open(ldb, jet::os::Mode::ReadWrite) || f.open(ldb, jet::os::Mode::CreateNew));
    unsigned char s[jet::kLdbSlotSize] = {};
    std::memcpy(s, computer, std::strlen(computer));
    std::memcpy(s + 32, user, std::strlen(user));
    EXPECT_TRUE(f.write(s, sizeof s, std::uint64_t(slot) * jet::kLdbSlotSize));
}

} // namespace jettest
