// sql STATEMENT: one statement through the program's database layer.
#include "app/db/dbclass.h"
#include "app/db/dialect.h"
#include "batch/command.h"

#include <QJsonArray>

namespace pel::batch {
namespace {

QString csvField(const QString& s)
{
    if (!s.contains(QLatin1Char(',')) && !s.contains(QLatin1Char('"')) && !s.contains(QLatin1Char('\n')) &&
        !s.contains(QLatin1Char('\r')))
        return s;
    QString q = s;
    q.replace(QLatin1Char('"'), QLatin1String("\"\""));
    return QLatin1Char('"') + q + QLatin1Char('"');
}

int run(Context& ctx)
{
    if (ctx.args.size() != 1)
        return ctx.usage(QStringLiteral("sql takes one statement"));
    const QString statement = ctx.args.front();
    clsDbClass db;
    if (!db.OpenDb()) {
        ctx.err << db.ErrMsg() << Qt::endl;
        return Stopped;
    }
    if (returnsRows(statement)) {
        Recordset rs;
        if (!db.DbSql(Sql::raw(statement), rs)) {
            ctx.err << db.ErrMsg() << Qt::endl;
            return Stopped;
        }
        if (ctx.json) { // one form of output only: the JSON object
            QJsonArray rows;
            for (; !rs.eof(); rs.moveNext()) {
                QJsonArray row;
                for (int i = 0; i < rs.fieldCount(); ++i)
                    row.append(rs.text(i));
                rows.append(row);
            }
            ctx.summary({{QStringLiteral("fields"), QJsonArray::fromStringList(rs.fieldNames())},
                         {QStringLiteral("rows"), rows}});
        } else {
            QStringList header;
            for (const QString& n : rs.fieldNames())
                header << csvField(n);
            ctx.out << header.join(QLatin1Char(',')) << '\n';
            for (; !rs.eof(); rs.moveNext()) {
                QStringList line;
                for (int i = 0; i < rs.fieldCount(); ++i)
                    line << csvField(rs.text(i));
                ctx.out << line.join(QLatin1Char(',')) << '\n';
            }
        }
    } else {
        if (!db.DbSqlExec(Sql::raw(statement))) {
            ctx.err << db.ErrMsg() << Qt::endl;
            return Stopped;
        }
        if (ctx.json)
            ctx.summary({{QStringLiteral("affected"), static_cast<qint64>(db.RecCnt())}});
        else
            ctx.out << db.RecCnt() << Qt::endl;
    }
    db.CloseDb();
    return Done;
}

Registrar reg{{"sql", "sql STATEMENT            run one statement; a select prints CSV with the field names", &run}};

} // namespace
} // namespace pel::batch
