#include "tests/support/testhome.h"

#include "app/db/connection.h"
#include "app/db/dbclass.h"
#include "app/db/dbglobals.h"
#include "app/db/schema.h"
#include "batch/jetfile.h"
#include "jet/create.h"
#include "jet/jet.h"
#include "jet/tool.h"
#include "tests/support/files.h"

#include <QFile>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

#include <sstream>

namespace pel::test {

Backend backendUnderTest()
{
    const QString b = qEnvironmentVariable("PEL008_TEST_BACKEND");
    if (b == QLatin1String("pg"))
        return Backend::Postgres;
    return b == QLatin1String("jet") ? Backend::Jet : Backend::Sqlite;
}

QString testServer()
{
    return qEnvironmentVariable("PEL008_TEST_PG");
}

namespace {

bool adminExec(const QString& statement, QString* error)
{
    const QString name = QStringLiteral("pel008-test-admin");
    bool ok = false;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QPSQL"), name);
        db.setConnectOptions(testServer());
        if (!db.open()) {
            *error = db.lastError().text();
        } else {
            QSqlQuery q(db);
            ok = q.exec(statement);
            if (!ok)
                *error = q.lastError().text();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(name);
    return ok;
}

QString withDatabase(QString conninfo, const QString& db)
{
    static const QRegularExpression dbname(QStringLiteral(R"(dbname=\S+)"));
    if (conninfo.contains(dbname))
        conninfo.replace(dbname, QStringLiteral("dbname=") + db);
    else
        conninfo += QStringLiteral(" dbname=") + db;
    return conninfo;
}

} // namespace

TestHome::TestHome(Backend backend) : backend_(backend)
{
    previousHome_ = qgetenv("PEL008_HOME");
    qputenv("PEL008_HOME", dir_.path().toLocal8Bit());
    QByteArray ini("[mirabo]\r\ndbmode=0\r\n");
    if (backend == Backend::Postgres) {
        if (testServer().isEmpty()) {
            error_ = QStringLiteral("PEL008_TEST_PG is not set");
            return;
        }
        database_ = QStringLiteral("t%1").arg(QRandomGenerator::global()->generate64() % 1000000000000ULL);
        if (!adminExec(QStringLiteral("CREATE DATABASE ") + database_, &error_))
            return;
        ini += "dbserver=" + withDatabase(testServer(), database_).toUtf8() + "\r\n";
    }
    if (!writeFileBytes(file(QStringLiteral("mirabo.ini")), ini)) {
        error_ = QStringLiteral("mirabo.ini cannot be written");
        return;
    }
    if (backend == Backend::Postgres) {
        auto c = Connection::create();
        if (c->open(fnConnectString(0, QStringLiteral("data1.dat")), &error_))
            createSchema(*c, &error_);
    } else if (backend == Backend::Jet) {
        batch::createJetDatabase(file(QStringLiteral("data1.dat")), jet::kSortJapanese, &error_);
    } else {
        createSqliteDatabase(file(QStringLiteral("data1.dat")), &error_);
    }
}

TestHome::~TestHome()
{
    fnCloseDB(1);
    // whatever a test wrote, a Jet file it leaves is consistent
    if (backend_ == Backend::Jet && QFile::exists(file(QStringLiteral("data1.dat")))) {
        std::ostringstream problems;
        std::string why;
        if (jet::checkFile(file(QStringLiteral("data1.dat")).toStdString(), batch::kJetPassword, problems, &why) !=
            jet::OK)
            QTest::qFail(qPrintable(QStringLiteral("jet check: ") + QString::fromStdString(problems.str() + why)),
                         __FILE__, __LINE__);
    }
    if (!database_.isEmpty()) {
        QString ignored;
        adminExec(QStringLiteral("DROP DATABASE IF EXISTS %1 WITH (FORCE)").arg(database_), &ignored);
    }
    // a home made to replace this one has set the variable already
    if (qgetenv("PEL008_HOME") == dir_.path().toLocal8Bit())
        qputenv("PEL008_HOME", previousHome_);
}

DamagedJetRow::DamagedJetRow(const QString& file, const QString& table, int index) : file_(file)
{
    jet::Database db;
    if (db.open(file.toStdString(), batch::kJetPassword) != jet::OK) {
        error_ = QString::fromStdString(db.error());
        return;
    }
    const jet::Table* t = db.table(table.toStdString());
    if (!t || db.encoded()) {
        error_ = QStringLiteral("no plain table ") + table;
        return;
    }
    jet::Cursor c(db, *t);
    jet::Status s = c.rewind();
    for (int i = 0; i < index && s == jet::OK; ++i)
        s = c.next();
    if (s != jet::OK) {
        error_ = QStringLiteral("no row %1 in ").arg(index) + table;
        return;
    }
    const auto page = static_cast<qint64>(c.rowId() >> 8), row = static_cast<qint64>(c.rowId() & 0xFF);
    at_ = page * static_cast<qint64>(jet::kPageSize) + 14 + 2 * row;
    QFile f(file);
    if (!f.open(QIODevice::ReadWrite) || !f.seek(at_) || (original_ = f.read(2)).size() != 2) {
        error_ = f.errorString();
        return;
    }
    // the row's start beyond the page: its bounds no longer hold
    const char damaged[2] = {'\xFF', static_cast<char>((original_[1] & '\xC0') | '\x1F')};
    if (!f.seek(at_) || f.write(damaged, 2) != 2 || !f.flush())
        error_ = f.errorString();
}

DamagedJetRow::~DamagedJetRow()
{
    if (original_.size() != 2)
        return;
    QFile f(file_);
    if (!f.open(QIODevice::ReadWrite) || !f.seek(at_) || f.write(original_) != 2 || !f.flush())
        QTest::qFail("the damaged row could not be put back", __FILE__, __LINE__);
}

bool refuseCommitsOfOrder(clsDbClass& db, qint64 denno, QString* error)
{
    QStringList statements;
    const QString n = QString::number(denno);
    switch (db.connection()->backend()) {
    case Connection::Backend::Sqlite:
        statements = {"CREATE TABLE commit_parent (id INTEGER PRIMARY KEY)",
                      "CREATE TABLE commit_child (ref INTEGER REFERENCES commit_parent(id) DEFERRABLE INITIALLY "
                      "DEFERRED)",
                      "CREATE TRIGGER commit_refused AFTER UPDATE ON jyuden WHEN NEW.denno = " + n +
                          " BEGIN INSERT INTO commit_child VALUES (1); END",
                      "PRAGMA foreign_keys = ON"};
        break;
    case Connection::Backend::Postgres:
        statements = {"CREATE FUNCTION commit_refused() RETURNS trigger LANGUAGE plpgsql AS $$ BEGIN RAISE EXCEPTION "
                      "'commit refused for order %', NEW.denno; END $$",
                      "CREATE CONSTRAINT TRIGGER commit_refused AFTER UPDATE ON jyuden DEFERRABLE INITIALLY DEFERRED "
                      "FOR EACH ROW WHEN (NEW.denno = " +
                          n + ") EXECUTE FUNCTION commit_refused()"};
        break;
    default:
        *error = QStringLiteral("no check is deferred to the commit on this backend");
        return false;
    }
    QSqlQuery q(db.connection()->database());
    for (const QString& s : statements)
        if (!q.exec(s)) {
            *error = q.lastError().text();
            return false;
        }
    return true;
}

QString TestHome::file(const QString& name) const
{
    return dir_.filePath(name);
}

bool TestHome::exec(const QStringList& statements, QString* error)
{
    auto c = Connection::create();
    QString err;
    bool ok = c->open(fnConnectString(0, QStringLiteral("data1.dat")), &err);
    for (const QString& s : statements) {
        if (!ok)
            break;
        ok = c->executeRaw(c->dialect().adapt(s), {}, &err);
    }
    if (!ok) {
        if (error)
            *error = err;
        else
            qWarning("%s", qPrintable(err));
    }
    return ok;
}

QString TestHome::scalar(const QString& select)
{
    auto c = Connection::create();
    QString err;
    Recordset rs;
    if (!c->open(fnConnectString(0, QStringLiteral("data1.dat")), &err) || !c->query(Sql::raw(select), rs, &err)) {
        qWarning("%s", qPrintable(err));
        return QStringLiteral("<error>");
    }
    return rs.eof() ? QStringLiteral("<none>") : rs.text(0);
}

QStringList TestHome::tables()
{
    auto c = Connection::create();
    QString err;
    if (!c->open(fnConnectString(0, QStringLiteral("data1.dat")), &err))
        return {};
    return c->tables();
}

ScriptedDialogs::ScriptedDialogs() : previous_(setDialogService(this)) {}

ScriptedDialogs::~ScriptedDialogs()
{
    setDialogService(previous_);
    if (!steps_.isEmpty())
        QTest::qFail(qPrintable(QStringLiteral("expected dialog never shown: ") + steps_.front().expected), __FILE__,
                     __LINE__);
}

int ScriptedDialogs::messageBox(const QString& text, int style, const QString& title)
{
    shown << title + QLatin1Char('|') + QString::number(style) + QLatin1Char('|') + text;
    styles << style;
    const bool matches =
        !steps_.isEmpty() && steps_.front().kind == Kind::Message &&
        (steps_.front().prefix ? text.startsWith(steps_.front().expected) : steps_.front().expected == text);
    if (!matches) {
        const QString expected =
            steps_.isEmpty() ? QString() : QStringLiteral(" (expected: %1)").arg(steps_.front().expected);
        QTest::qFail(qPrintable(QStringLiteral("unexpected dialog: ") + text + expected), __FILE__, __LINE__);
        return defaultAnswer(style);
    }
    return steps_.takeFirst().answer;
}

std::optional<QString> ScriptedDialogs::choice(Kind kind, const QString& what)
{
    if (steps_.isEmpty() || steps_.front().kind != kind) {
        QTest::qFail(qPrintable(QStringLiteral("unexpected choice: ") + what), __FILE__, __LINE__);
        return std::nullopt;
    }
    return steps_.takeFirst().path;
}

std::optional<QString> ScriptedDialogs::chooseFolder(const QString&, const QString& start)
{
    shown << QStringLiteral("folder|") + start;
    return choice(Kind::Folder, shown.back());
}

std::optional<QString> ScriptedDialogs::chooseFile(FileChoice, const QString&, const QString& start, const QString&)
{
    shown << QStringLiteral("file|") + start;
    return choice(Kind::File, shown.back());
}

} // namespace pel::test
