#pragma once
// The lock file the suite's engine keeps beside a shared Jet file (data1.dat -> data1.ldb): up to 255 slots of
// 64 bytes, the computer name in the first 32 and the user name in the other 32, NUL-padded.
//
// Our reading of "in use": someone other than this open file holds a byte-range lock (fcntl; a Samba server
// maps the Windows lock ranges of its clients to these) on a byte of the lock file beyond the slots (offset
// 16320 or more). Then
// every filled slot names a user of the file. Filled slots without such a lock were left by a program that
// ended without clearing them and are ignored.
//
// We register while we write: our computer name and "Admin" in a free slot (or a slot of ours left by a crash),
// and a lock on byte 16320 + slot; the slot is cleared and the lock given back when the write ends. The lock file
// itself stays: removing it could take the slot of a user who opened it just before.
#include "jet/file.h"

#include <string>
#include <vector>

namespace jet
{

constexpr int kLdbSlots = 255;
constexpr int kLdbSlotSize = 64;
constexpr long kLdbLockBase = kLdbSlots * kLdbSlotSize; // first byte beyond the slots

struct LdbUser {
    std::string computer, user;
};

std::string ldbPath(const std::string& dbPath);

class LdbRegistration
{
public:
    LdbRegistration() = default;
    ~LdbRegistration() { leave(); }
    LdbRegistration(const LdbRegistration&) = delete;
    LdbRegistration& operator=(const LdbRegistration&) = delete;

    // Empty when we are registered now; otherwise why not: the users holding the file (`others` filled), or
    // a lock file we cannot make or write.
    std::string enter(const std::string& dbPath, std::vector<LdbUser>* others);
    void leave();
    // While registered: the users another process holds the file for now (empty when none).
    std::vector<LdbUser> others() const;

private:
    os::File file_;
    int slot_ = -1;
    std::string path_;
};

// The users registered in the lock file of `dbPath` while it is held by another process (see above); empty when
// the file is not in use by anyone else (no lock file, no lock held).
std::vector<LdbUser> ldbUsers(const std::string& dbPath);

// Our own name as we register it (the host name, at most 31 bytes).
std::string ldbComputerName();

} // namespace jet
