// Ends with connections still open, as a screen killed mid-run or the layout loader's gclsDb leave them: the
// process must exit cleanly (Qt's SQL registry and the Jet engine's registries go away before such globals).
// Argument: "return" (main returns), "exit" (std::exit with the application object alive), "no-app" (no application
// object at the first open, then std::exit).
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "tests/support/testhome.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

int main(int argc, char** argv)
{
    const char* how = argc > 1 ? argv[1] : "return";
    static pel::test::TestHome home; // outlives main, as a global would
    if (!home.ok()) {
        std::fprintf(stderr, "%s\n", qPrintable(home.error()));
        return 1;
    }
    std::unique_ptr<QCoreApplication> app;
    if (std::strcmp(how, "no-app") != 0)
        app = std::make_unique<QCoreApplication>(argc, argv);
    pel::gclsDb = std::make_unique<pel::clsDbClass>();
    if (!pel::gclsDb->OpenDb() || !pel::fnOpenDB(1))
        return 1;
    static pel::clsDbClass screen;
    screen.OpenDb();
    // a write and an edit left pending, so that the engine's write side is in use too
    if (!screen.DbSqlExec(pel::Sql("update jyuden set cflag=1 where denno=1")))
        return 1;
    static pel::Recordset pending;
    if (!screen.DbSqlEdit(pel::Sql("select * from offset where kubun=1 and code=1"), pending))
        return 1;
    pel::Recordset rs;
    const bool ok = pel::gclsDb->DbSql(pel::Sql("select * from cvsini"), rs);
    if (std::strcmp(how, "return") != 0) {
        app.release(); // std::exit leaves it, as a program ending from inside its event loop does
        std::exit(ok ? 0 : 1);
    }
    return ok ? 0 : 1;
}
