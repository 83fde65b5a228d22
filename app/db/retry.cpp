#include "app/db/retry.h"

#include "app/db/dbglobals.h"

namespace pel {
namespace {

bool fillAndUpdate(Recordset& rs, const FillRecord& fill, QString* error)
{
    if (!fill(rs)) {
        if (error)
            *error = rs.lastError();
        return false;
    }
    return rs.update(error);
}

} // namespace

bool editRecord(clsDbClass& db, const Sql& select, const FillRecord& fill, QString* error)
{
    Recordset rs;
    if (!db.DbSqlEdit(select, rs)) {
        if (error)
            *error = db.ErrMsg();
        return false;
    }
    return fillAndUpdate(rs, fill, error);
}

bool editRecordGlobal(const Sql& select, const FillRecord& fill, QString* error)
{
    Recordset rs;
    fnOpenRs(rs, select, true, 1);
    if (!rs.isOpen()) {
        if (error)
            *error = QStringLiteral("The record could not be opened for editing.");
        return false;
    }
    return fillAndUpdate(rs, fill, error);
}

RetryResult retrySilently(int attempts, const std::function<bool(QString* error)>& attempt)
{
    RetryResult r;
    while (r.attempts < attempts) {
        ++r.attempts;
        r.error.clear();
        if (attempt(&r.error)) {
            r.ok = true;
            return r;
        }
    }
    return r;
}

} // namespace pel
