#include "app/db/dbclass.h"

#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "app/inifile.h"
#include "app/runtimeerror.h"

namespace pel {
namespace {
const QString kClosed = QStringLiteral("Operation is not allowed when the object is closed.");
}

clsDbClass::clsDbClass()
{
    try {
        gbytDbMode = fnGetDbMode();
    } catch (const RuntimeError& e) {
        mstrErr = e.description();
        return;
    }
    if (gbytDbMode == 0 || gbytDbMode == 1)
        mstrConnect = fnConnectString(gbytDbMode, QStringLiteral("data1.dat"));
}

clsDbClass::~clsDbClass()
{
    mstrConnect.clear();
}

bool clsDbClass::OpenDb()
{
    mcnDb = Connection::create();
    QString err;
    if (!mcnDb->open(mstrConnect, &err)) {
        mstrErr = err;
        return false;
    }
    mstrErr.clear();
    return true;
}

void clsDbClass::CloseDb()
{
    if (mcnDb)
        mcnDb->close();
    mcnDb.reset();
}

bool clsDbClass::DbSql(const Sql& sql, Recordset& rs)
{
    if (!mcnDb || !mcnDb->isOpen()) {
        mstrErr = kClosed;
        return false;
    }
    QString err;
    if (!mcnDb->query(sql, rs, &err)) {
        mstrErr = err;
        return false;
    }
    mlngRecCnt = rs.recordCount();
    mstrErr.clear();
    return true;
}

bool clsDbClass::DbSqlEdit(const Sql& sql, Recordset& rs)
{
    if (!mcnDb || !mcnDb->isOpen()) {
        mstrErr = kClosed;
        return false;
    }
    QString err;
    if (!mcnDb->queryForEdit(sql, rs, &err)) {
        mstrErr = err;
        return false;
    }
    return true;
}

bool clsDbClass::DbSqlExec(const Sql& sql)
{
    if (!mcnDb || !mcnDb->isOpen()) {
        mstrErr = kClosed;
        return false;
    }
    QString err;
    long affected = 0;
    if (!mcnDb->execute(sql, &affected, &err)) {
        mstrErr = err;
        return false;
    }
    mlngRecCnt = affected;
    return true;
}

bool clsDbClass::transaction(bool (Connection::*step)(QString*))
{
    QString err;
    if (!mcnDb) {
        mstrErr = kClosed;
        return false;
    }
    if (!((*mcnDb).*step)(&err)) {
        mstrErr = err;
        return false;
    }
    return true;
}

bool clsDbClass::BeginTns()
{
    return transaction(&Connection::begin);
}

bool clsDbClass::CommitTns()
{
    return transaction(&Connection::commit);
}

bool clsDbClass::RollbackTns()
{
    return transaction(&Connection::rollback);
}

} // namespace pel
