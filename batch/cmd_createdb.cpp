// createdb: a new, empty database with every table of the program.
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "app/db/schema.h"
#include "app/home.h"
#include "app/inifile.h"
#include "batch/command.h"

namespace pel::batch {
namespace {

int run(Context& ctx)
{
    if (!ctx.args.isEmpty())
        return ctx.usage(QStringLiteral("createdb takes no arguments"));
    QString err;
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

Registrar reg{{"createdb", "createdb                 create data1.dat (or the tables on the dbserver) empty", &run}};

} // namespace
} // namespace pel::batch
