#pragma once
// The global connections and the free database functions that work on them.
#include "app/db/dbclass.h"
#include "app/db/recordset.h"
#include "app/db/sql.h"

#include <memory>

namespace pel {

class Connection;

extern quint8 gbytDbMode;
extern std::shared_ptr<Connection> gcnData;   // kind 1: data1.dat
extern std::shared_ptr<Connection> gcnSub;    // kind 2: never opened by this program
extern std::shared_ptr<Connection> gcnRecive; // kind 3: recive.dat
extern std::unique_ptr<clsDbClass> gclsDb;    // the record layout loader's connection

inline const QString kDbPassword = QStringLiteral("VelQuarto");

// The one place where a database is named: mode 0 = program folder, 1 = "dbpath"; other modes give "".
// With the "dbserver" setting, data1.dat is the PostgreSQL server instead.
QString fnConnectString(int mode, const QString& file);

// Opens the global connection of a kind (1 data1.dat, 3 recive.dat); shows the failure to the user.
bool fnOpenDB(int kind);
void fnCloseDB(int kind);
// Opens a statement on a global connection into rs: read-only, or locked for editing; shows a failure.
void fnOpenRs(Recordset& rs, const Sql& sql, bool edit, int kind);
// Runs a statement on a global connection; "" on success, else the engine's error text (nothing shown).
QString fnExecSql(Recordset& rs, const Sql& sql, int kind);
// One field of the current row as text. An aggregate written as in the statement ("SUM(x)") is read as the
// engine names it ("Expr1000" for index 1) and that name is written back into field.
QString fnGetFields(Recordset& rs, QString& field, int index);
QString fnGetFields(Recordset& rs, const QString& field);
// Sets a field from text; "" stores 0 in Long, Single, Double and Byte fields. False (with the error kept on the
// recordset) when the engine refuses the value.
bool fnSetFields(Recordset& rs, const QString& field, const QString& value);

} // namespace pel
