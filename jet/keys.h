#pragma once
// Index internals shared by seeks, index upkeep and the consistency check: page parsing and key bytes.
#include "jet/jet.h"

#include <string>
#include <vector>

namespace jet::detail
{

constexpr std::size_t kIndexEntriesStart = 0x1E0; // entry area; the start bitmap sits at 0x1B before it
constexpr std::size_t kIndexMaskStart = 0x1B;

struct IndexEntry {
    std::string key;
    std::uint32_t page = 0;
    unsigned row = 0;
    std::uint32_t child = 0; // intermediate pages only
};

// Entries of an index page (0x03 intermediate, 0x04 leaf) with their shared prefix restored.
bool parseIndexPage(const std::uint8_t* d, std::vector<IndexEntry>& out);

// Stored key bytes of one non-null value of a column: 0x7F flag, then the value in an order-preserving form
// (numbers big-endian with the sign flipped; text as sort weights ending 01 00). Descending keys are the
// complement. False when we cannot produce the key; *bad then names the first character (or the kind of
// value) we cannot write.
bool encodeKey(const Column& c, const Value& v, bool ascending, std::string& out, std::string* bad);

// Key of one row for a real index (every column, nulls as 00 / FF). False with *bad set as above; *allNull
// when every key column is null (an ignore-nulls index holds no entry for such a row).
bool rowKey(const Table& t, const RealIndex& ri, const std::vector<Value>& row, std::string& key, bool* allNull,
            std::string* bad);

// Entry bytes: key, then the row's 3-byte page (big-endian) and 1-byte slot.
std::string entryOf(const std::string& key, RowId id);

} // namespace jet::detail
