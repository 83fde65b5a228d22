#include "jet/ldb.h"

#include <algorithm>
#include <cstring>

namespace jet
{

namespace
{

constexpr const char* kUser = "Admin"; // the engine's default account, under which the suite's users appear

std::string field(const unsigned char* p)
{
    std::string s;
    for (int i = 0; i < 32 && p[i]; ++i) {
        if (p[i] >= 0x20 && p[i] < 0x7F) {
            s += static_cast<char>(p[i]);
        } else {
            static const char hex[] = "0123456789ABCDEF";
            s += "\\x";
            s += hex[p[i] >> 4];
            s += hex[p[i] & 15];
        }
    }
    return s;
}

// Someone else holds a lock on some byte beyond the slots. The file layer's locks belong to the open file:
// closing another descriptor of the file in this process (a second engine, a check) does not drop ours, and a
// lock taken through another open of the file, even in this process, counts.
bool heldByOthers(const os::File& f)
{
    return f.lockedByOthers(static_cast<std::uint64_t>(kLdbLockBase), 0);
}

std::vector<unsigned char> readSlots(const os::File& f)
{
    std::vector<unsigned char> b(static_cast<std::size_t>(kLdbLockBase), 0);
    std::uint64_t size = 0;
    if (!f.size(&size)) return b;
    std::size_t n = static_cast<std::size_t>(std::min<std::uint64_t>(size, b.size()));
    if (n > 0 && !f.read(b.data(), n, 0)) std::fill(b.begin(), b.end(), 0);
    return b;
}

std::vector<LdbUser> filled(const std::vector<unsigned char>& b, int skip)
{
    std::vector<LdbUser> out;
    for (int i = 0; i < kLdbSlots; ++i) {
        const unsigned char* s = b.data() + i * kLdbSlotSize;
        if (i != skip && (s[0] || s[32])) out.push_back({field(s), field(s + 32)});
    }
    return out;
}

} // namespace

std::string ldbPath(const std::string& dbPath)
{
    std::size_t slash = dbPath.find_last_of(os::kPathSeparators);
    std::size_t dot = dbPath.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return dbPath + ".ldb";
    return dbPath.substr(0, dot) + ".ldb";
}

std::string ldbComputerName()
{
    return os::hostName().substr(0, 31);
}

std::vector<LdbUser> ldbUsers(const std::string& dbPath)
{
    os::File f;
    if (!f.open(ldbPath(dbPath), os::Mode::Read)) return {};
    return heldByOthers(f) ? filled(readSlots(f), -1) : std::vector<LdbUser>{};
}

std::string LdbRegistration::enter(const std::string& dbPath, std::vector<LdbUser>* others)
{
    leave();
    path_ = ldbPath(dbPath);
    if (!file_.open(path_, os::Mode::ReadWrite) && !file_.open(path_, os::Mode::CreateNew) &&
        !file_.open(path_, os::Mode::ReadWrite))
        return "Cannot open the lock file '" + path_ + "': " + os::lastError();
    std::vector<unsigned char> b = readSlots(file_);
    if (heldByOthers(file_)) {
        *others = filled(b, -1);
        if (others->empty()) others->push_back({"?", "?"});
        leave();
        return "in use";
    }
    // a slot of ours a crash left filled, else the first empty one
    unsigned char mine[kLdbSlotSize] = {};
    std::string computer = ldbComputerName();
    std::memcpy(mine, computer.data(), computer.size());
    std::memcpy(mine + 32, kUser, std::strlen(kUser));
    for (int i = 0; i < kLdbSlots && slot_ < 0; ++i)
        if (std::memcmp(b.data() + i * kLdbSlotSize, mine, kLdbSlotSize) == 0) slot_ = i;
    for (int i = 0; i < kLdbSlots && slot_ < 0; ++i) {
        const unsigned char* s = b.data() + i * kLdbSlotSize;
        if (!s[0] && !s[32]) slot_ = i;
    }
    if (slot_ < 0) {
        leave();
        return "The lock file '" + path_ + "' has no free slot.";
    }
    if (!file_.write(mine, sizeof mine, std::uint64_t(slot_) * kLdbSlotSize) ||
        file_.lock(std::uint64_t(kLdbLockBase + slot_), 1, true, 0) != os::Lock::Got) {
        std::string why = "Cannot register in the lock file '" + path_ + "': " + os::lastError();
        leave();
        return why;
    }
    return {};
}

std::vector<LdbUser> LdbRegistration::others() const
{
    if (!file_.isOpen() || !heldByOthers(file_)) return {};
    std::vector<LdbUser> out = filled(readSlots(file_), slot_);
    if (out.empty()) out.push_back({"?", "?"});
    return out;
}

void LdbRegistration::leave()
{
    if (!file_.isOpen()) return;
    if (slot_ >= 0) {
        static const unsigned char zero[kLdbSlotSize] = {};
        if (!file_.write(zero, sizeof zero, std::uint64_t(slot_) * kLdbSlotSize)) {
            // the slot stays filled; without our lock it counts as left behind
        }
    }
    // The lock file stays even when we made it and no slot is filled: someone may have opened it since we looked
    // and would write their slot into a removed file.
    file_.close(); // gives our lock back
    slot_ = -1;
}

} // namespace jet
