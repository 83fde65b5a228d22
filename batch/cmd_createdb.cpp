// createdb [--jet [--sort general|japanese]]: a new, empty database with every table of the program.
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "app/db/schema.h"
#include "app/home.h"
#include "app/inifile.h"
#include "batch/command.h"
#include "batch/jetfile.h"
#include "jet/create.h"

namespace pel::batch {

namespace {

int run(Context& ctx)
{
    bool jetFile = false;
    std::uint16_t sort = jet::kSortJapanese;
    for (qsizetype i = 0; i < ctx.args.size(); ++i) {
        const QString& a = ctx.args[i];
        if (a == QLatin1String("--jet")) {
            jetFile = true;
        } else if (a == QLatin1String("--sort") && i + 1 < ctx.args.size()) {
            const QString v = ctx.args[++i];
            if (v == QLatin1String("general"))
                sort = jet::kSortGeneral;
            else if (v == QLatin1String("japanese"))
                sort = jet::kSortJapanese;
            else
                return ctx.usage(QStringLiteral("--sort takes general or japanese"));
        } else {
            return ctx.usage(QStringLiteral("bad argument: ") + a);
        }
    }
    QString err;
    if (jetFile) {
        const QString path = programFile(QStringLiteral("data1.dat"));
        if (!createJetDatabase(path, sort, &err)) {
            ctx.err << err << Qt::endl;
            return Stopped;
        }
        ctx.out << path << Qt::endl;
        return Done;
    }
    const QString server = iniDbServer();
    if (server.isEmpty()) {
        const QString path = programFile(QStringLiteral("data1.dat"));
        if (!createSqliteDatabase(path, &err)) {
            ctx.err << err << Qt::endl;
            return Stopped;
        }
        ctx.out << path << Qt::endl;
        return Done;
    }
    auto c = Connection::create();
    if (!c->open(fnConnectString(0, QStringLiteral("data1.dat")), &err) || !createSchema(*c, &err)) {
        ctx.err << err << Qt::endl;
        return Stopped;
    }
    ctx.out << server << Qt::endl;
    return Done;
}

Registrar reg{{"createdb",
               "createdb [--jet [--sort general|japanese]]   create data1.dat (SQLite, or the suite's Jet 4 format with "
               "its password; or the tables on the dbserver) empty",
               &run}};

} // namespace
} // namespace pel::batch
