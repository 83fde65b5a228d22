#pragma once
// Test fixtures: a program folder with a fresh data1.dat (SQLite or the suite's Jet 4 file) or a fresh PostgreSQL
// database, and a dialog service that answers from a script and fails the test on a dialog nobody expected.
#include "app/interaction.h"
#include "ui/dialogs.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <functional>
#include <memory>
#include <optional>

namespace pel {
class clsDbClass;
}

namespace pel::test {

enum class Backend { Sqlite, Postgres, Jet };

// The backend chosen for this test run: PEL008_TEST_BACKEND=pg selects PostgreSQL (needs PEL008_TEST_PG), jet a
// Jet data1.dat made as createdb --jet makes it (Japanese sort).
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
    // The tables of the database.
    QStringList tables();

private:
    QTemporaryDir dir_;
    Backend backend_;
    QString database_; // PostgreSQL database name
    QString error_;
    QByteArray previousHome_;
};

// The row offset of one row (the index-th of a full scan) of a Jet table made unreadable for as long as this lives;
// put back afterwards, so that the home's closing check finds the file whole.
class DamagedJetRow {
public:
    DamagedJetRow(const QString& file, const QString& table, int index);
    ~DamagedJetRow();
    bool ok() const { return error_.isEmpty(); }
    const QString& error() const { return error_; }

private:
    QString file_;
    qint64 at_ = -1;
    QByteArray original_;
    QString error_;
};

// From now on the commit of a transaction that changed the jyuden row of order denno fails on db's connection (a
// check the engine defers to the commit), while the change itself succeeds. False on Jet, which defers none.
bool refuseCommitsOfOrder(clsDbClass& db, qint64 denno, QString* error);

class ScriptedDialogs : public DialogService {
public:
    enum class Kind { Message, Folder, File };
    struct Step {
        Kind kind;
        QString expected; // the exact text the dialog must show (messages)
        int answer;
        std::optional<QString> path; // folder/file answer; nullopt = cancelled
        bool prefix = false;         // the text must begin with `expected` (the engine's own words follow)
    };
    ScriptedDialogs();
    ~ScriptedDialogs() override;
    void expect(const QString& text, int answer) { steps_.append({Kind::Message, text, answer, std::nullopt}); }
    void expectStart(const QString& start, int answer)
    {
        steps_.append({Kind::Message, start, answer, std::nullopt, true});
    }
    void expectFolder(const std::optional<QString>& folder) { steps_.append({Kind::Folder, {}, 0, folder}); }
    void expectFile(const std::optional<QString>& file) { steps_.append({Kind::File, {}, 0, file}); }
    int messageBox(const QString& text, int style, const QString& title) override;
    std::optional<QString> chooseFolder(const QString& title, const QString& start) override;
    std::optional<QString> chooseFile(FileChoice kind, const QString& title, const QString& start,
                                      const QString& filter) override;
    // Every dialog shown, as "title|style|text"; folder and file choices as "folder|start" and "file|start".
    QStringList shown;
    QList<int> styles;
    bool done() const { return steps_.isEmpty(); }

private:
    std::optional<QString> choice(Kind kind, const QString& what);
    QList<Step> steps_;
    DialogService* previous_;
};

// A script that also does something at one yield of a run (a key pressed, the screen closed).
class ActingDialogs : public ScriptedDialogs {
public:
    std::function<void()> action;
    int atYield = -1;
    int yields = 0;
    void processEvents() override
    {
        if (++yields == atYield && action)
            action();
    }
};

// A job's user as a test sees it: locks, rows and statuses recorded; cancel after a number of yields.
class RecordingInteraction : public Interaction {
public:
    void lock(bool on) override { locks << on; }
    void status(const QString& text) override { statuses << text; }
    void yieldOnce() override { ++yields; }
    void resultRow(const QStringList& row) override { rows << row; }
    bool cancelRequested() override { return cancelAfterYields >= 0 && yields >= cancelAfterYields; }

    QList<bool> locks;
    QStringList statuses;
    QList<QStringList> rows;
    int yields = 0;
    int cancelAfterYields = -1; // -1: never
};

} // namespace pel::test
