#pragma once
// Qt-free helpers for the command-line runner and for the SQLite module: value formatting, table listing,
// JSON dumps, and the one header write the engine offers (the database password).
#include "jet/jet.h"

#include <ostream>
#include <string>

namespace jet
{

// Days since 1899-12-30 as "yyyy<sep>mm<sep>dd hh:nn:ss", seconds rounded; "" when not representable.
std::string formatDateTime(double days, char dateSep);
// 16 stored bytes as "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
std::string formatGuid(const std::string& raw);
// Exact currency text from the value * 10000 ("-12.3456", "7").
std::string formatMoney(std::int64_t scaled);
std::string base64(const std::string& raw);
// Name of the type as the SQLite module declares it: LONG, TEXT(50), DECIMAL(18,2), ...
std::string sqlTypeName(const Column& c);

// One line per user table: "<name>\t<rows>". Returns 0 or a Status with *error set.
int listTables(const std::string& path, const std::string& password, std::ostream& out, std::string* error);
// One JSON object per row, keys = column names in table order.
int dumpTable(const std::string& path, const std::string& password, const std::string& table, std::ostream& out,
              std::string* error);
int dumpTable(const Database& db, const Table& table, std::ostream& out, std::string* error);
// Walks every table and index (Database::check) and prints one line per inconsistency. OK when clean,
// ERR_CORRUPT when something disagrees, another Status (with *error) when the file cannot be read.
int checkFile(const std::string& path, const std::string& password, std::ostream& out, std::string* error);
// Writes a new database password into the header of a Jet 4 file (in place: copy the file first). ERR_BUSY while
// anyone else holds the file, or a write of ours left its journal.
int setPassword(const std::string& path, const std::string& newPassword, std::string* error);

} // namespace jet
