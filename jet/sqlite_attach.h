#pragma once
// Seam between the database layer and the Jet engine: a Jet 4 file is read through SQLite virtual tables.
#include <cstddef>
#include <string>

struct sqlite3;

namespace jet {

class Database;

// True when the first bytes of a file are a Jet database header (any version); the caller then refuses or attaches.
bool looksLikeJet(const unsigned char* head, std::size_t n);

// Makes every user table of the Jet 4 file at `path` a virtual table of the connection's main schema, with the
// file's own table and column names. Checks the database password. Returns 0 on success; otherwise a non-zero
// status with a clear text in *error (wrong password, not a Jet 4 file, damaged file, ...).
// One engine per file per process, shared by every connection that attached it; the tables are read-only.
int attach(sqlite3* db, const std::string& path, const std::string& password, std::string* error);

// The engine behind a file attached to `db` (page-read counter, table definitions); null when not attached.
Database* engineOf(sqlite3* db, const std::string& path);

} // namespace jet
