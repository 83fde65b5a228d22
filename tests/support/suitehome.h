#pragma once
// What the job and screen suites do around each test: a program folder with the suite's rows and the program's
// connection open (and a job's, where the suite runs jobs), closed in reverse; a message's catalogue text.
#include "app/db/dbclass.h"
#include "app/db/dbglobals.h"
#include "tests/support/testhome.h"
#include "ui/msgcatalog.h"

#include <QTest>
#include <memory>

namespace pel::test {

// Skips the test where the backend has no server; fails it where the folder, a row or a connection cannot be made.
inline void openHome(std::unique_ptr<TestHome>& home, const QStringList& rows,
                     std::unique_ptr<clsDbClass>* db = nullptr)
{
    if (backendUnderTest() == Backend::Postgres && testServer().isEmpty())
        QSKIP("PEL008_TEST_PG is not set");
    home = std::make_unique<TestHome>();
    QVERIFY2(home->ok(), qPrintable(home->error()));
    QVERIFY(home->exec(rows));
    QVERIFY(fnOpenDB(1));
    if (db) {
        *db = std::make_unique<clsDbClass>();
        QVERIFY((*db)->OpenDb());
    }
}

inline void closeHome(std::unique_ptr<TestHome>& home, std::unique_ptr<clsDbClass>* db = nullptr)
{
    if (db)
        db->reset();
    fnCloseDB(1);
    home.reset();
}

inline QString catalogueText(const QString& key)
{
    CatalogueEntry e;
    catalogueEntry(key, QString(), &e);
    return e.text;
}

} // namespace pel::test
