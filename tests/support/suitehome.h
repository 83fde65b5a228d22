#pragma once
// What the job and screen suites do around each test: a program folder with the suite's rows and the program's
// connection open (and a job's, where the suite runs jobs), closed in reverse; a run's dialogs as a list of steps;
// a message's catalogue text.
#include "app/db/dbclass.h"
#include "app/db/dbglobals.h"
#include "tests/support/testhome.h"
#include "ui/msgcatalog.h"

#include <QList>
#include <QPair>
#include <QTest>
#include <memory>
#include <optional>

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

// A run's dialogs in order: the text shown and the answer given. The step "folder" is the folder choice (answer 1:
// chosen, 0: cancelled); a text ending in a blank line is followed by the engine's own words.
using Steps = QList<QPair<QString, int>>;

inline void expectSteps(ScriptedDialogs& dialogs, const Steps& steps, const QString& folder)
{
    for (const auto& [text, answer] : steps) {
        if (text == QLatin1String("folder"))
            dialogs.expectFolder(answer ? std::optional<QString>(folder) : std::nullopt);
        else if (text.endsWith(QLatin1String("\r\n\r\n")))
            dialogs.expectStart(text, answer);
        else
            dialogs.expect(text, answer);
    }
}

inline QString catalogueText(const QString& key)
{
    CatalogueEntry e;
    catalogueEntry(key, QString(), &e);
    return e.text;
}

} // namespace pel::test
