// The executables as the suite and scripts run them.
#include "app/inifile.h"
#include "jet/tool.h"
#include "tests/batch/process.h"
#include "tests/support/files.h"
#include "tests/support/testhome.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using pel::test::fileBytes;
using pel::test::Ran;

class TstPrograms : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void programEndsSilently_data();
    void programEndsSilently();
    void runnerExitCodes_data();
    void runnerExitCodes();
    void jetCommandListsTables();
    void demoHomeOnPostgres();

private:
    // The runner on the demo home, or on another.
    Ran batch(const QStringList& args, const QString& home = {})
    {
        return pel::test::runIn({}, batch_, QStringList{"--home", home.isEmpty() ? home_.path() : home} + args);
    }
    QString pel008_, batch_;
    QTemporaryDir home_;
};

void TstPrograms::initTestCase()
{
    pel008_ = QStringLiteral(PEL008_EXE);
    batch_ = QStringLiteral(PEL008_BATCH_EXE);
    const Ran r = batch({"--json", "demo", "--orders", "200"});
    QVERIFY2(r.code == 0, qPrintable(r.err));
    QVERIFY(r.out.contains(QStringLiteral("\"orders\":200")));
    for (const char* f : {"data1.dat", "mirabo.ini", "samples/MT908997.txt", "samples/MT929023.csv",
                          "samples/MT908997_trailer_error.txt", "samples/icat_result.csv"})
        QVERIFY2(QFile::exists(home_.filePath(QLatin1String(f))), f);
}

void TstPrograms::programEndsSilently_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("error"); // the run-time error; none: the program ends with 0
    QTest::newRow("no argument") << QStringList{} << "";
    QTest::newRow("01") << QStringList{"01"} << "";
    QTest::newRow("leading spaces") << QStringList{"  1"} << "";
    QStringList twelve;
    for (int i = 1; i <= 12; ++i)
        twelve << QString::number(i);
    QTest::newRow("twelve arguments") << twelve << "インデックスが有効範囲にありません";
}

// Nothing shown, nothing written.
void TstPrograms::programEndsSilently()
{
    QFETCH(QStringList, args);
    QFETCH(QString, error);
    const QString db = home_.filePath(QStringLiteral("data1.dat"));
    const QByteArray before = fileBytes(db);
    const Ran r = pel::test::runIn(home_.path(), pel008_, args);
    QCOMPARE(r.code == 0, error.isEmpty());
    QCOMPARE(r.out, QString());
    QVERIFY2(error.isEmpty() ? !r.err.contains(QStringLiteral("エラー")) : r.err.contains(error), qPrintable(r.err));
    QCOMPARE(fileBytes(db), before);
    QCOMPARE(batch({"sql", "select count(*) from operatlog"}).out, QStringLiteral("Expr1000\n0\n"));
}

void TstPrograms::runnerExitCodes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("stderrHas");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("stdoutIs");
    QTest::newRow("no command") << QStringList{} << "usage" << 2 << "";
    QTest::newRow("unknown command") << QStringList{"frobnicate"} << "unknown command" << 2 << "";
    QTest::newRow("sql without statement") << QStringList{"sql"} << "usage" << 2 << "";
    QTest::newRow("bad statement") << QStringList{"sql", "select * from nosuchtable"} << "nosuchtable" << 1 << "";
    QTest::newRow("update counts rows") << QStringList{"sql", "update jyuden set nflag=1 where denno<=3"} << "" << 0
                                        << "3\n";
    QTest::newRow("json select is JSON alone")
        << QStringList{"--json", "sql", "select denno, nflag from jyuden where denno=1"} << "" << 0
        << "{\"fields\":[\"denno\",\"nflag\"],\"rows\":[[\"1\",\"1\"]]}\n";
    QTest::newRow("json update") << QStringList{"--json", "sql", "update jyuden set nflag=0 where denno=2"} << "" << 0
                                 << "{\"affected\":1}\n";
    QTest::newRow("offset with a word for a number")
        << QStringList{"offset", "set", "1", "1", "1.25", "x", "3"} << "TOP, LEFT and HEIGHT are numbers" << 2 << "";
    QTest::newRow("offset get of a missing row") << QStringList{"offset", "get", "1", "3"} << "no row" << 1 << "";
    QTest::newRow("offset set") << QStringList{"offset", "set", "1", "3", "45", "-1.25", "2"} << "" << 0 << "";
    QTest::newRow("offset get as the dialog shows it")
        << QStringList{"offset", "get", "1", "3"} << "" << 0 << "30.0 -1.3 2.0\n";
    QTest::newRow("demo over a home") << QStringList{"demo"} << "exists" << 1 << "";
    QTest::newRow("mail without a server") << QStringList{"mail", "--to", "a@example.jp"} << "usage" << 2 << "";
}

void TstPrograms::runnerExitCodes()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, stderrHas);
    QFETCH(QString, stdoutIs);
    const Ran r = batch(args);
    QCOMPARE(r.code, code);
    if (!stderrHas.isEmpty())
        QVERIFY2((r.err + r.out).contains(stderrHas), qPrintable(r.err));
    QCOMPARE(r.out, stdoutIs);
}

void TstPrograms::jetCommandListsTables()
{
    QTemporaryDir home;
    const QString db = home.filePath(QStringLiteral("data1.dat"));
    QVERIFY(QFile::copy(QStringLiteral(JET_CORPUS "/testV2000.mdb"), db));
    QFile::setPermissions(db, QFile::ReadOwner | QFile::WriteOwner);
    std::string error;
    QVERIFY2(jet::setPassword(db.toStdString(), "VelQuarto", &error) == 0, error.c_str());
    const Ran listed = batch({"jet", db, "--password", "VelQuarto"}, home.path());
    QVERIFY2(listed.code == 0 && listed.out.contains(QStringLiteral("Table1\t")), qPrintable(listed.err));
}

void TstPrograms::demoHomeOnPostgres()
{
    if (pel::test::testServer().isEmpty())
        QSKIP("PEL008_TEST_PG is not set");
    pel::test::TestHome pg(pel::test::Backend::Postgres); // a fresh database with every table
    QVERIFY2(pg.ok(), qPrintable(pg.error()));
    QString server;
    pel::fnGetIni(QStringLiteral("mirabo"), QStringLiteral("dbserver"), QString(), server, 1024, pg.file("mirabo.ini"));
    QVERIFY(!server.isEmpty());
    QTemporaryDir home;
    const QStringList demo{"demo", "--orders", "60", "--dbserver", server};
    const Ran refused = batch(demo, home.path()); // never over a shop's tables
    QCOMPARE(refused.code, 1);
    QVERIFY2(refused.err.contains(QStringLiteral("already holds the tables")), qPrintable(refused.err));
    QStringList drops;
    for (const QString& t : pg.tables())
        drops << QStringLiteral("DROP TABLE ") + t;
    QVERIFY(pg.exec(drops));
    const Ran made = batch(demo, home.path());
    QVERIFY2(made.code == 0, qPrintable(made.err));
    QVERIFY(!QFile::exists(home.filePath(QStringLiteral("data1.dat"))));
    QCOMPARE(batch({"sql", "select count(*) from jyuden"}, home.path()).out, QStringLiteral("Expr1000\n60\n"));
}

QTEST_GUILESS_MAIN(TstPrograms)
#include "tst_programs.moc"
