#include "app/db/dbglobals.h"

#include "app/db/connection.h"
#include "app/home.h"
#include "app/inifile.h"
#include "app/runtimeerror.h"
#include "ui/dialogs.h"

#include <QDir>
#include <QFileInfo>

#include <cstdlib>

namespace pel {

quint8 gbytDbMode = 0;
std::shared_ptr<Connection> gcnData;
std::shared_ptr<Connection> gcnSub;
std::shared_ptr<Connection> gcnRecive;
std::unique_ptr<clsDbClass> gclsDb;

namespace {

const QString CRLF = QStringLiteral("\r\n");

std::shared_ptr<Connection>* slot(int kind)
{
    switch (kind) {
    case 1: return &gcnData;
    case 2: return &gcnSub;
    case 3: return &gcnRecive;
    default: return nullptr;
    }
}

QString folderFor(int mode)
{
    const QString program = QDir::toNativeSeparators(programFolder());
    if (mode == 0)
        return program;
    QString path;
    fnGetIni(QStringLiteral("mirabo"), QStringLiteral("dbpath"), program, path, 1024, iniPath());
    return path;
}

} // namespace

QString fnConnectString(int mode, const QString& file)
{
    if (mode != 0 && mode != 1)
        return QString();
    if (file.compare(QLatin1String("data1.dat"), Qt::CaseInsensitive) == 0) {
        const QString server = iniDbServer();
        if (!server.isEmpty())
            return QStringLiteral("provider=PostgreSQL;Data Source=") + server;
    }
    return QStringLiteral("provider=Microsoft.Jet.OLEDB.4.0;Data Source=") + joinPath(folderFor(mode), file) +
           QStringLiteral(";") + QStringLiteral("Jet OLEDB:Database Password=") + kDbPassword;
}

bool fnOpenDB(int kind)
{
    try {
        gbytDbMode = fnGetDbMode();
        if ((gbytDbMode == 0 || gbytDbMode == 1) && kind != 1 && kind != 3) {
            msgBox(QStringLiteral("fnOpenDB パラメータエラー"), mb::OkOnly | mb::Critical, kProductTitle);
            std::exit(0);
        }
        const QString file = kind == 3 ? QStringLiteral("recive.dat") : QStringLiteral("data1.dat");
        const QString connect = fnConnectString(gbytDbMode, file);
        auto* target = slot(kind);
        if (!target) {
            msgBox(QStringLiteral("fnOpenDB パラメータエラー"), mb::OkOnly | mb::Critical, kProductTitle);
            return false;
        }
        *target = Connection::create(); // replaces any previous one without closing it explicitly
        QString err;
        if ((*target)->open(connect, &err))
            return true;
        // A missing file leaves the connection closed; anything else is the engine's own error.
        if (isFileNotFound(err))
            msgBox(QStringLiteral("データベースに接続できませんでした"), mb::OkOnly | mb::Exclamation, kProductTitle);
        else
            msgBox(err, mb::OkOnly | mb::Critical, kProductTitle);
        return false;
    } catch (const RuntimeError& e) {
        msgBox(e.description(), mb::OkOnly | mb::Critical, kProductTitle);
        return false;
    }
}

void fnCloseDB(int kind)
{
    if (kind != 1 && kind != 3)
        return;
    auto* s = slot(kind);
    if (*s)
        (*s)->close();
    s->reset();
}

void fnOpenRs(Recordset& rs, const Sql& sql, bool edit, int kind)
{
    auto* s = slot(kind);
    if (!s)
        return;
    if (rs.isOpen())
        rs.close();
    QString err;
    bool ok = false;
    if (!*s || !(*s)->isOpen())
        err = QStringLiteral("Operation is not allowed when the object is closed.");
    else if (edit && kind != 2)
        ok = (*s)->queryForEdit(sql, rs, &err);
    else
        ok = (*s)->query(sql, rs, &err);
    if (!ok)
        msgBox(QStringLiteral("データ参照エラーです。") + CRLF + CRLF + sql.text(), mb::OkOnly | mb::Critical, err);
}

QString fnExecSql(Recordset& rs, const Sql& sql, int kind)
{
    if (kind != 1 && kind != 3)
        return QString();
    if (rs.isOpen())
        rs.close();
    auto& c = *slot(kind);
    if (!c || !c->isOpen())
        return QStringLiteral("Operation is not allowed when the object is closed.");
    QString err;
    const bool ok = returnsRows(sql.text()) ? c->query(sql, rs, &err) : c->execute(sql, nullptr, &err);
    return ok ? QString() : err;
}

QString fnGetFields(Recordset& rs, QString& field, int index)
{
    // Unnamed aggregates as the engine names them; only these spellings are recognised.
    static const char* const prefixes[] = {"MAX(", "max(", "Max(", "MIN(", "min(", "Min(", "SUM(", "sum(", "Sum(",
                                           "COUNT(", "count(", "Count("};
    for (const char* p : prefixes)
        if (field.startsWith(QLatin1String(p))) {
            field = QStringLiteral("Expr100") + QString::number(index - 1);
            break;
        }
    const int i = rs.fieldIndex(field);
    if (!rs.isOpen() || i < 0 || rs.eof() || rs.position() < 0) {
        msgBox(QStringLiteral("fnGetFields Error[") + field + QStringLiteral("][") + rs.source() + QStringLiteral("]"),
               mb::OkOnly | mb::Exclamation, kProductTitle);
        return QString();
    }
    return rs.text(i);
}

QString fnGetFields(Recordset& rs, const QString& field)
{
    QString f = field;
    return fnGetFields(rs, f, 1);
}

bool fnSetFields(Recordset& rs, const QString& field, const QString& value)
{
    QString v = value;
    const int i = rs.fieldIndex(field);
    if (i >= 0 && v.isEmpty()) {
        const int code = adoTypeCode(rs.field(i).type);
        if (code == 3 || code == 4 || code == 5 || code == 17)
            v = QStringLiteral("0");
    }
    return rs.setValue(field, v);
}

} // namespace pel
