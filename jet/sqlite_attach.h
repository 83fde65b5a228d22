#pragma once
// Seam between the database layer and the Jet engine: a Jet 4 file is read through SQLite virtual tables.
#include <cstddef>
#include <string>

struct sqlite3;

namespace jet
{

class Database;

// True when the first bytes of a file are a Jet database header (any version); the caller then refuses or attaches.
bool looksLikeJet(const unsigned char* head, std::size_t n);

// Makes every user table of the Jet 4 file at `path` a virtual table of the connection's main schema, with the
// file's own table and column names. Checks the database password. Returns 0 on success; otherwise a non-zero
// status with a clear text in *error (wrong password, not a Jet 4 file, damaged file, ...).
// One engine per file per process, shared by every connection that attached it. Inserts, updates and deletes
// go through SQLite's transaction hooks (savepoints too): one connection writes at a time (others get
// SQLITE_BUSY and read the file as of the last commit), the file is written at commit through a rollback
// journal. A file marked read-only is not written. Changes of an index with text keys are refused per row
// ("…の索引 … に書き込めない文字があります").
//
// Declared column types name the Jet type: BIT, BYTE, SHORT, LONG, CURRENCY, SINGLE, DOUBLE, DATETIME, TEXT(n),
// LONGTEXT, LONGBINARY, BINARY(n), GUID, DECIMAL(p,s); text columns compare COLLATE NOCASE like Jet.
// Values: integers as integers; Boolean -1/0; Currency an integer when whole, else real; Single/Double real;
// Date/Time text "yyyy/mm/dd hh:nn:ss"; Text/Memo UTF-8; Binary/OLE blob; GUID text "{...}";
// Decimal exact text ("-12.50"), since a real would lose digits beyond 15.
// rowid = page << 8 | row of the row's slot. Equality and range constraints on the first column of an index
// seek (numbers, dates; text: equality); everything else scans.
int attach(sqlite3* db, const std::string& path, const std::string& password, std::string* error);

// Takes the write lock of every Jet file attached to `db` inside the connection's open transaction, as SQLite's
// BEGIN IMMEDIATE takes its own file: SQLITE_BUSY with "database is locked" while another connection writes the
// file, the engine's refusal otherwise. Released by the transaction's COMMIT or ROLLBACK. Returns an SQLite code.
int lockForWrite(sqlite3* db, std::string* error);

// The engine behind a file attached to `db` (page-read counter, table definitions); null when not attached.
Database* engineOf(sqlite3* db, const std::string& path);

} // namespace jet
