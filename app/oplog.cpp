#include "app/oplog.h"

#include "app/db/dbglobals.h"
#include "app/db/types.h"
#include "ui/textrules.h"

#include <QDateTime>
#include <QSysInfo>

namespace pel {
namespace {

QString limited(QString s)
{
    s = fnDelStr(s.left(40), QString(QChar(u'\0')));
    return fnTrim(s);
}

QString userName()
{
    QString u = qEnvironmentVariable("USERNAME");
    if (u.isEmpty())
        u = qEnvironmentVariable("USER");
    if (u.isEmpty())
        u = qEnvironmentVariable("LOGNAME");
    return limited(u);
}

Sql statement(QString& operation, int kind, QString& note)
{
    QString op = operation, nt = note;
    operation = fnTrim(fnCutByte(op, 80));
    note = fnTrim(fnCutByte(nt, 50));
    const QString now = fnDateText(QDateTime::currentDateTime());
    // Texts go in unescaped: a quote in one of them breaks the statement and the row is lost.
    return Sql("insert into operatlog values(") + Sql::q(limited(QSysInfo::machineHostName())) + "," +
           Sql::q(userName()) + "," + Sql::q(operation) + "," + Sql::n(kind) + "," + Sql::q(now) + "," +
           Sql::q(note) + ")";
}

} // namespace

void fnOpeLog(QString& operation, int kind, QString& note)
{
    const Sql sql = statement(operation, kind, note);
    Recordset rs;
    (void)fnExecSql(rs, sql, 1);
}

void fnOpeLogDb(QString& operation, int kind, QString& note)
{
    const Sql sql = statement(operation, kind, note);
    clsDbClass db;
    db.OpenDb();
    db.DbSqlExec(sql);
    db.CloseDb();
}

} // namespace pel
