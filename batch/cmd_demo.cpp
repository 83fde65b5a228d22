// demo [--orders N] [--seed S] [--jet | --dbserver CONN]: a demo program folder for trying the screens and for benchmarks.
#include "app/db/schema.h"
#include "app/home.h"
#include "batch/command.h"
#include "batch/demohome.h"
#include "batch/jetfile.h"
#include "jet/create.h"
#include "jet/sqlite_attach.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>

#include <sqlite3.h>

namespace pel::batch {

namespace {

// The demo's SQLite data1.dat becomes a Jet one: a made file, every row copied through our engine in one
// transaction.
bool convertToJet(const QString& home, QString* error)
{
    const QString jetPath = home + QStringLiteral("/data1.dat");
    const QString sqlitePath = home + QStringLiteral("/data1.sqlite-demo");
    QFile::remove(sqlitePath);
    if (!QFile::rename(jetPath, sqlitePath)) {
        *error = QStringLiteral("Cannot move ") + jetPath;
        return false;
    }
    if (!createJetDatabase(jetPath, jet::kSortJapanese, error)) return false;
    sqlite3* db = nullptr;
    sqlite3_open(":memory:", &db);
    std::string why;
    bool ok = jet::attach(db, jetPath.toStdString(), kJetPassword, &why) == 0;
    std::string sql = "ATTACH DATABASE '" + sqlitePath.toStdString() + "' AS demo; BEGIN;";
    for (const SchemaTable& t : schema().tables)
        sql += "INSERT INTO main.[" + t.name.toStdString() + "] SELECT * FROM demo.[" + t.name.toStdString() + "];";
    sql += "COMMIT;";
    char* msg = nullptr;
    if (ok && sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &msg) != SQLITE_OK) {
        why = msg ? msg : "error";
        ok = false;
    }
    sqlite3_free(msg);
    sqlite3_close(db);
    QFile::remove(sqlitePath);
    if (!ok) *error = QString::fromStdString(why);
    return ok;
}

int run(Context& ctx)
{
    demo::Options o;
    bool jetFile = false;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args[i];
        bool ok = false;
        if (a == QLatin1String("--jet")) {
            jetFile = true;
            continue;
        }
        if (a == QLatin1String("--dbserver") && i + 1 < ctx.args.size()) {
            o.dbserver = ctx.args[++i];
            continue;
        }
        if (a == QLatin1String("--orders") && i + 1 < ctx.args.size())
            o.orders = ctx.args[++i].toInt(&ok);
        else if (a == QLatin1String("--seed") && i + 1 < ctx.args.size())
            o.seed = ctx.args[++i].toULongLong(&ok);
        if (!ok || o.orders < 1)
            return ctx.usage(QStringLiteral("bad argument: ") + a);
    }
    const QString home = programFolder();
    QElapsedTimer t;
    t.start();
    demo::Summary s;
    QString error;
    if (jetFile && !o.dbserver.isEmpty())
        return ctx.usage(QStringLiteral("--jet and --dbserver exclude each other"));
    if (!demo::makeDemoHome(home, o, &s, &error) || (jetFile && !convertToJet(home, &error))) {
        ctx.err << error << Qt::endl;
        return Stopped;
    }
    if (ctx.json) {
        ctx.summary({{QStringLiteral("home"), home},
                     {QStringLiteral("orders"), s.orders},
                     {QStringLiteral("lines"), s.lines},
                     {QStringLiteral("members"), s.members},
                     {QStringLiteral("files"), QJsonArray::fromStringList(s.files)},
                     {QStringLiteral("seconds"), t.elapsed() / 1000.0}});
    } else {
        ctx.out << "demo home " << home << ": " << s.orders << " orders, " << s.lines << " lines, " << s.members
                << " customers (" << t.elapsed() / 1000.0 << " s)" << Qt::endl;
        for (const QString& f : s.files)
            ctx.out << "  " << f << Qt::endl;
    }
    return Done;
}

Registrar reg{{"demo",
               "demo [--orders N] [--seed S] [--jet | --dbserver CONN]   make a demo home (data1.dat, mirabo.ini, "
               "sample files); --jet: data1.dat in the suite's Jet 4 format; --dbserver: the data on an empty "
               "PostgreSQL database instead (libpq key=value), written as dbserver into mirabo.ini",
               &run}};

} // namespace
} // namespace pel::batch
