#pragma once
// Test fixtures: a program folder with a fresh data1.dat (SQLite) or a fresh PostgreSQL database, and a dialog
// service that answers from a script and fails the test on a dialog nobody expected.
#include "ui/dialogs.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <memory>

namespace pel::test {

enum class Backend { Sqlite, Postgres };

// The backend chosen for this test run: PEL008_TEST_BACKEND=pg selects PostgreSQL (needs PEL008_TEST_PG).
Backend backendUnderTest();
// libpq connection string of the test server, "" when none.
QString testServer();

class TestHome {
public:
    // Creates the folder, points PEL008_HOME at it, writes mirabo.ini and an empty database with every table.
    explicit TestHome(Backend backend = backendUnderTest());
    ~TestHome();
    bool ok() const { return error_.isEmpty(); }
    const QString& error() const { return error_; }
    QString path() const { return dir_.path(); }
    QString file(const QString& name) const;
    Backend backend() const { return backend_; }
    // Runs statements through a private connection (setting up rows for a test).
    bool exec(const QStringList& statements, QString* error = nullptr);
    // One value of a select, as text.
    QString scalar(const QString& select);

private:
    QTemporaryDir dir_;
    Backend backend_;
    QString database_; // PostgreSQL database name
    QString error_;
    QByteArray previousHome_;
};

class ScriptedDialogs : public DialogService {
public:
    struct Step {
        QString expected; // the exact text the dialog must show
        int answer;
    };
    ScriptedDialogs();
    ~ScriptedDialogs() override;
    void expect(const QString& text, int answer) { steps_.append({text, answer}); }
    int messageBox(const QString& text, int style, const QString& title) override;
    // Every dialog shown, as "title|style|text".
    QStringList shown;
    QList<int> styles;
    bool done() const { return steps_.isEmpty(); }

private:
    QList<Step> steps_;
    DialogService* previous_;
};

} // namespace pel::test
