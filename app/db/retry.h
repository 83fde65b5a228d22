#pragma once
// The system's way of changing one record that another program may hold locked: open it for editing (the matched
// row, or a new one when none matched), set its fields, Update; on failure try again at once, silently, a fixed
// number of times. Only the caller decides what to tell the user after the last attempt.
#include "app/db/dbclass.h"
#include "app/db/recordset.h"
#include "app/db/sql.h"

#include <functional>

namespace pel {

// Sets the fields of the record the statement opened; false when a value was refused.
using FillRecord = std::function<bool(Recordset& rs)>;

// One attempt on a screen's own connection (DbSqlEdit) or on the global one (fnOpenRs for editing, kind 1).
bool editRecord(clsDbClass& db, const Sql& select, const FillRecord& fill, QString* error = nullptr);
bool editRecordGlobal(const Sql& select, const FillRecord& fill, QString* error = nullptr);

struct RetryResult {
    bool ok = false;
    int attempts = 0; // attempts made, the successful one included
    QString error;    // the last attempt's failure
};
// Runs attempt until it succeeds, at most `attempts` times, without a word to the user.
RetryResult retrySilently(int attempts, const std::function<bool(QString* error)>& attempt);

} // namespace pel
