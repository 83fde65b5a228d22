#pragma once
// Making a new Jet 4 file with the given tables and indexes (no rows).
#include "jet/jet.h"

#include <string>
#include <utility>
#include <vector>

namespace jet
{

struct ColumnDef {
    std::string name;
    Type type = Type::Long;
    std::uint16_t length = 0; // Text: characters; Binary: bytes
    bool required = false;
    std::string defaultValue{}; // stored as the column's DefaultValue property: 0, "text"; "" none
};

struct IndexDef {
    std::string name;
    std::vector<std::pair<std::string, bool>> columns; // name, ascending
    bool primary = false;
    bool unique = false;
};

struct TableDef {
    std::string name;
    std::vector<ColumnDef> columns;
    std::vector<IndexDef> indexes;
};

constexpr std::uint16_t kSortGeneral = 0x409;
constexpr std::uint16_t kSortJapanese = 0x411;

// Writes a new file at `path` (which must not exist): header with the password (may be empty) and the sort
// order of its text columns, the catalogue, and one definition per table with an empty tree per index.
Status createDatabase(const std::string& path, const std::string& password, std::uint16_t sortOrder,
                      const std::vector<TableDef>& tables, std::string* error);

} // namespace jet
