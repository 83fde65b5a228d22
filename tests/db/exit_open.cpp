// Ends with connections still open, as a screen killed mid-run or the layout loader's gclsDb leave them: the
// process must exit cleanly (Qt's SQL registry goes away before such globals).
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "tests/support/testhome.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    static pel::test::TestHome home; // outlives main, as a global would
    if (!home.ok()) {
        std::fprintf(stderr, "%s\n", qPrintable(home.error()));
        return 1;
    }
    pel::gclsDb = std::make_unique<pel::clsDbClass>();
    if (!pel::gclsDb->OpenDb() || !pel::fnOpenDB(1))
        return 1;
    static pel::clsDbClass screen;
    screen.OpenDb();
    pel::Recordset rs;
    return pel::gclsDb->DbSql(pel::Sql("select * from cvsini"), rs) ? 0 : 1;
}
