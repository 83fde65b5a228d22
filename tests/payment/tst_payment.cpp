// The payment import job and its posting against a small shop, on SQLite, PostgreSQL and Jet.
#include "app/db/dbglobals.h"
#include "app/inifile.h"
#include "conveni/importjob.h"
#include "conveni/layouts.h"
#include "conveni/mtfile.h"
#include "conveni/posting.h"
#include "tests/batch/process.h"
#include "tests/payment/fixtures.h"
#include "tests/support/files.h"
#include "tests/support/heldlock.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <chrono>
#include <thread>

#include <csignal>
#include <sys/resource.h>

using namespace pel;
using namespace pel::test;

namespace {

using Totals = QList<qint64>;

// A job as the screen holds it: its own connection, a recording user, no wait before the checks.
struct Run {
    clsDbClass db;
    RecordingInteraction ui;
    PaymentImportJob job{db, ui};
    Run()
    {
        (void)db.OpenDb();
        job.setCheckWait(0);
    }
    Totals totals() const
    {
        Totals t;
        for (int i = 0; i < 10; ++i)
            t << job.total(i);
        return t;
    }
};

// Another connection holding what the posting of order 1001 needs: on PostgreSQL its ledger line.
std::unique_ptr<HeldLock> holdOrder1001(Backend backend)
{
    return std::make_unique<HeldLock>(backend, QStringLiteral("SELECT * FROM cdai WHERE denno = 1001 FOR UPDATE"),
                                      QStringLiteral("UPDATE cdai SET line = line WHERE denno = -1"));
}

// The runner on the test's home.
Ran batch(const QStringList& args)
{
    return runIn(qEnvironmentVariable("PEL008_HOME"), QStringLiteral(PEL008_BATCH), args);
}

} // namespace

class PaymentTest : public QObject {
    Q_OBJECT
private slots:
    void init() { openShop(home_); }
    void cleanup() { closeShop(home_); }

    void layoutValue_data();
    void layoutValue();
    void layoutLoad();
    void checkWait_data();
    void checkWait();
    void texts();
    void readMarkOnAFullDisk();

    void outcomes_data();
    void outcomes();
    void refused_data();
    void refused();
    void postingAgainstALock_data();
    void postingAgainstALock();
    void postingEditsOneRow();
    void interrupted_data();
    void interrupted();
    void runnerKilledAndRunAgain();
    void runner();

private:
    qint64 count(const QString& select) { return home_->scalar(select).toLongLong(); }
    // MT.txt of the home with these bytes.
    QString mt(const QByteArray& bytes)
    {
        const QString path = home_->file(QStringLiteral("MT.txt"));
        if (!writeBytes(path, bytes))
            qWarning("cannot write %s", qPrintable(path));
        return path;
    }
    std::unique_ptr<TestHome> home_;
};

void PaymentTest::layoutValue_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("start");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("fieldNo");
    QTest::newRow("third digit rounded away") << "12.005" << 12 << 0 << 12;
    QTest::newRow("half to even") << "2.5" << 2 << 50 << 2;
    QTest::newRow("half to even up") << "3.5" << 3 << 50 << 4;
    QTest::newRow("blanks, a sign and a second point dropped") << " -1.2.3" << 1 << 23 << 1;
    QTest::newRow("empty") << "" << 0 << 0 << 0;
}

void PaymentTest::layoutValue()
{
    QFETCH(QString, text);
    QFETCH(int, start);
    QFETCH(int, length);
    QFETCH(int, fieldNo);
    LayoutPos p;
    QVERIFY(fnSplitPos(fnLayoutValue(text), &p));
    QCOMPARE(p.start, start);
    QCOMPARE(p.length, length);
    qint16 n = -1;
    QVERIFY(fnFieldNo(fnLayoutValue(text), &n));
    QCOMPARE(n, fieldNo);
}

// A cut past the end of a line keeps what there is; the loader's connection stays open for whoever reads next.
void PaymentTest::layoutLoad()
{
    QCOMPARE(fnItem(QStringLiteral("abcdef"), LayoutPos{5, 10}), QStringLiteral("ef"));
    QCOMPARE(fnItem(QStringLiteral("abcdef"), LayoutPos{0, 3}), QString());
    QVERIFY(fnLoadCvsIni(QStringLiteral("908997"), 0));
    QVERIFY(gclsDb && gclsDb->connection() && gclsDb->connection()->isOpen());
}

void PaymentTest::checkWait_data()
{
    QTest::addColumn<QByteArray>("line"); // in section CvsRead of mirabo.ini
    QTest::addColumn<int>("wait");        // -1: refused
    QTest::newRow("absent: no wait") << QByteArray() << 0;
    QTest::newRow("blanks around") << QByteArray("checkwait = 150 ") << 150;
    QTest::newRow("empty") << QByteArray("CheckWait=") << -1;
    QTest::newRow("beyond 32 bits") << QByteArray("CheckWait=4294967296") << -1;
}

// A refused value comes back as written, for the message that names it (a run refused by it: see refused).
void PaymentTest::checkWait()
{
    QFETCH(QByteArray, line);
    QFETCH(int, wait);
    QVERIFY(appendIni(*home_, "[CvsRead]\r\n" + line + "\r\n"));
    QString written;
    QCOMPARE(iniCheckWait(&written).value_or(-1), wait);
    if (wait < 0)
        QCOMPARE(written, QString::fromLatin1(line.mid(int(sizeof("CheckWait=")) - 1)));
}

void PaymentTest::texts()
{
    QCOMPARE(PaymentImportJob::formatDate(12345), QStringLiteral("1/23/45"));
    QCOMPARE(PaymentImportJob::formatAmount(999.5), QStringLiteral("1,000"));
    const QDateTime at(QDate(2024, 11, 3), QTime(14, 7, 9));
    QCOMPARE(pel::backupName(QStringLiteral("/x/MT.txt"), at), QStringLiteral("/x/MT.txt.20241103142411i09"));
    QCOMPARE(pel::backupName(QStringLiteral("a"), QDateTime(QDate(2025, 1, 2), QTime(3, 4, 5))),
             QStringLiteral("a.2025010203241i05"));
}

// The mark goes in whole or not at all: a write that stops part-way (the disk full) leaves the file as it was.
void PaymentTest::readMarkOnAFullDisk()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("mt.txt"));
    QVERIFY(writeBytes(path, "a\r\n"));
    rlimit saved{};
    QVERIFY(getrlimit(RLIMIT_FSIZE, &saved) == 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN); // a refused write, not a killed test
    rlimit limited = saved;
    limited.rlim_cur = 3 + 3; // room for half the mark
    QVERIFY(setrlimit(RLIMIT_FSIZE, &limited) == 0);
    const bool marked = appendReadMark(path);
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, oldHandler);
    QVERIFY(!marked);
    QCOMPARE(fileBytes(path), QByteArray("a\r\n"));
}

void PaymentTest::outcomes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("agency");
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<Totals>("totals");
    QTest::addColumn<QString>("log");    // the run's line in operatlog
    QTest::addColumn<int>("screenDate"); // 0: each record's date
    const QString ok = QStringLiteral("○：正常に読込ました"), differs = QStringLiteral("△：金額に相違があります");
    const QString cancel = QStringLiteral("×：取消データです。　入金処理で調整してください。");
    const QString noOrder = QStringLiteral("×：受注伝票がありません"), paid = QStringLiteral("×：入金伝票が存在します");
    const QString yamada = QStringLiteral("山田 太郎"), sato = QStringLiteral("ｻﾄｳ ﾊﾅｺ");
    // the first five records of both formats: paid, paid another amount, postal, postal corrected, cancelled
    const auto firstFive = [&](const QString& day) {
        return QList<QStringList>{{ok, "速報", day, "5,000", "5,000", "1001", "101", yamada},
                                  {differs, "速報", day, "3,000", "2,900", "1002", "102", sato},
                                  {ok, "郵振", day, "12,345", "12,345", "1003", "101", yamada},
                                  {ok, "郵振訂", day, "800", "500", "1004", "102", sato},
                                  {cancel, "取消", day, "2,000", "2,000", "1005", "101", yamada}};
    };
    QString day = QStringLiteral("2024/05/10");
    QTest::newRow("fixed width") << cp932Lines(fwBasic()) << "908997"
                                 << firstFive(day) +
                                        QList<QStringList>{{noOrder, "速報", day, "", "3,000", "99999999", "", ""},
                                                           {noOrder, "取消", day, "", "1,200", "99999998", "", ""},
                                                           {paid, "速報", day, "7,000", "7,000", "1006", "102", sato},
                                                           {"×：ﾌｧｲﾅﾝｽｺｰﾄﾞｴﾗｰ", "速報", "", "", "", "", "", ""}}
                                 << Totals{4, 20745, 3, 14000, 2, 3200, 7, 34745, 2, 3200} << "4件 20,745円" << 0;
    day = QStringLiteral("2024/05/11");
    QTest::newRow("comma-separated")
        << cp932Lines(QStringList{
               csvRecord("1", digitsOf(1001, 17), 5000),          // code written "1"
               csvRecord("01", "EAN" + digitsOf(1002, 17), 2900), // EAN prefix, amount differs
               csvRecord("12", digitsOf(1003, 17), 12345),
               csvRecord("22", digitsOf(1004, 17), 500),
               csvRecord("03", digitsOf(1005, 17), 2000),
               csvRecord("02", digitsOf(1001, 17), 5000), // not a code of this format: passed over
               "",
               csvRecord("01", digitsOf(1007, 17), 4000, "929999"),
           })
        << "929023"
        << firstFive(day) + QList<QStringList>{{"×：ﾌｧｲﾅﾝｽｺｰﾄﾞｴﾗｰ", "速報", "", "", "", "", "", ""}}
        // the agency error's amount is cut from the whole line: "\"01\",\"9299" reads as 19299
        << Totals{4, 20745, 1, 19299, 1, 2000, 5, 20745 + 19299, 1, 2000} << "4件 20,745円" << 0;
    QTest::newRow("comma-separated, a field missing")
        << cp932Lines({csvRecord("01", digitsOf(1001, 17), 5000), QStringLiteral("\"01\",\"929023\",\"1\"")})
        << "929023"
        << QList<QStringList>{{ok, "速報", day, "5,000", "5,000", "1001", "101", yamada},
                              {"×：読込データに誤りがあります", "速報", "", "", "", "", "", ""}}
        << Totals{1, 5000, 1, 0, 0, 0, 2, 5000, 0, 0} << "1件 5,000円" << 0;
    QTest::newRow("comma-separated, an order number beyond 32 bits")
        << cp932Lines({csvRecord("01", "99999999999999999", 5000)}) << "929023"
        << QList<QStringList>{{"×：読込データに誤りがあります", "速報", day, "", "5,000", "", "", ""}}
        << Totals{0, 0, 1, 5000, 0, 0, 1, 5000, 0, 0} << "0件 0円" << 0;
    // the screen's date goes to fixed-width records only
    const Totals one{1, 5000, 0, 0, 0, 0, 1, 5000, 0, 0};
    QTest::newRow("fixed width, the screen's date")
        << cp932Lines(fwOne()) << "908997"
        << QList<QStringList>{{ok, "速報", "2024/06/20", "5,000", "5,000", "1001", "101", yamada}} << one
        << "1件 5,000円" << 20240620;
    QTest::newRow("comma-separated, the screen's date")
        << cp932Lines({csvRecord("01", digitsOf(1001, 17), 5000)}) << "929023"
        << QList<QStringList>{{ok, "速報", "", "5,000", "5,000", "1001", "101", yamada}} << one << "1件 5,000円"
        << 20240620;
    // one record read to the end of the file, whatever its last bytes; trailers that agree in other ways
    const auto readsOne = [&](const char* name, const QByteArray& bytes) {
        const QList<QStringList> rows{{ok, "速報", "2024/05/10", "5,000", "5,000", "1001", "101", yamada}};
        QTest::newRow(name) << bytes << "908997" << rows << one << "1件 5,000円" << 0;
    };
    readsOne("LF only", cp932Lines(fwOne(), "\n"));
    readsOne("end-of-file byte", cp932Lines(fwOne()) + "\x1A");
    readsOne("end-of-file byte on the last line", cp932Lines(fwOne(), "\r\n", false) + "\x1A");
    const QString head = fwHeader(), r1 = fwRecord("01", 1001, 5000);
    readsOne("extras ignored without postal records", cp932Lines({head, r1, fwTrailer(1, 5000, 0, 0, 1, 12345)}));
    readsOne("two trailers add up", cp932Lines({head, r1, fwTrailer(1, 0, 0, 0), fwTrailer(0, 5000, 0, 0)}));
}

// Every outcome a record can have, listed and summed; the paid ones posted, each with its ledger line; the file
// marked as read on a line of its own, where a second run stops, and copied.
void PaymentTest::outcomes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, agency);
    QFETCH(QList<QStringList>, rows);
    QFETCH(Totals, totals);
    QFETCH(QString, log);
    QFETCH(int, screenDate);
    const QString path = mt(bytes);
    ScriptedDialogs d;
    expectFullRun(d, totals[0], answer::Yes);
    const QDateTime started = QDateTime::currentDateTime();
    Run r;
    const int dateKind = screenDate ? PaymentImportJob::ScreenDate : PaymentImportJob::RecordDate;
    QCOMPARE(r.job.run({path, dateKind, screenDate}), PaymentImportJob::Result::Done);
    const QDateTime ended = QDateTime::currentDateTime();
    QVERIFY(d.done());
    QCOMPARE(d.shown.last(), "読込データバックアップ確認|" + QString::number(mb::YesNo | mb::Information) +
                                 "|読込データをバックアップしますか？");
    QCOMPARE(r.job.agencyCode(), agency);
    QCOMPARE(r.job.commaFlag(), qint16(agency == QLatin1String("929023")));
    QCOMPARE(r.ui.rows, rows);
    QCOMPARE(r.totals(), totals);
    const QString posted = QStringLiteral(" where denno <> 1006 and pcode = 6 and inflag = 1");
    QCOMPARE(count("select count(*) from inmoney" + posted), totals[0]);
    QCOMPARE(count("select sum(money) from inmoney" + posted), totals[1]);
    QCOMPARE(count("select count(*) from cdai where kubun = 3 and line = 1"), totals[0]);
    // each on the date listed (none listed: 0), the ledger line with the order's customer
    for (const QStringList& row : rows) {
        if (!row[0].startsWith(u'○') && !row[0].startsWith(u'△'))
            continue;
        const QString day = row[2].isEmpty() ? QStringLiteral("0") : QString(row[2]).remove(u'/');
        QCOMPARE(home_->scalar("select nday from inmoney where denno = " + row[5]), day);
        QCOMPARE(home_->scalar("select day from cdai where denno = " + row[5]), day);
        QCOMPARE(home_->scalar("select mcode from cdai where denno = " + row[5]), row[6]);
        QVERIFY(!home_->scalar("select sdate from inmoney where denno = " + row[5]).isEmpty());
    }
    QCOMPARE(home_->scalar("select naiyou from operatlog where kubun = 1"), log);
    QVERIFY(fileBytes(path).endsWith("\n" + *Cp932::encode(u"読込済") + "\r\n"));
    // the marked file copied beside it, named for the time of the run
    const QStringList copies = QDir(home_->path()).entryList({QStringLiteral("MT.txt.*")});
    QCOMPARE(copies.size(), 1);
    QStringList names; // any second of the run
    for (QDateTime at = started; at <= ended.addSecs(1); at = at.addSecs(1))
        names << QFileInfo(pel::backupName(path, at)).fileName();
    QVERIFY2(names.contains(copies[0]), qPrintable(copies[0]));
    QCOMPARE(fileBytes(home_->file(copies[0])), fileBytes(path));
    ScriptedDialogs again;
    again.expect(kStart, answer::Yes);
    again.expect(QStringLiteral("読込済みデータです"), answer::Ok);
    QCOMPARE(r.job.run({path, dateKind, screenDate}), PaymentImportJob::Result::Refused);
    QCOMPARE(again.shown.last(), PaymentImportJob::kTitle + "|64|読込済みデータです");
    QCOMPARE(count("select count(*) from inmoney" + posted), totals[0]);
}

void PaymentTest::refused_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("setUp");   // a statement run first, or a CheckWait line of mirabo.ini
    QTest::addColumn<QString>("message"); // ending in a line break: how it begins, the codec's or engine's words follow
    QTest::addColumn<int>("style");
    QTest::addColumn<QString>("agency"); // the agency detected ("999999" before the run); empty: not looked at
    const QByteArray good = cp932Lines(fwOne());
    const int critical = mb::OkOnly | mb::Critical;
    const QString utf8 = QStringLiteral(
        "UTF-8で保存されたファイルは読み込めません。\r\nShift-JIS（CP932）のファイルを指定してください。");
    const QString line4 = QStringLiteral("4行目にShift-JIS（CP932）として読めない文字があります。\r\n");
    QTest::newRow("HEAD") << QByteArray("HEAD00001908997\r\n") << ""
                          << "現在おまかせ袋のデーターフォーマットには、対応してません。\r\n\r\n"
                             "標準フォーマットを指定してください。"
                          << critical << "999999";
    QTest::newRow("UTF-8 with BOM") << QByteArray("\xEF\xBB\xBF") + good << "" << utf8 << critical << "";
    QTest::newRow("UTF-8 without BOM") << (fwHeader().left(20) + QStringLiteral("さくら物産\r\n")).toUtf8() +
                                              good.mid(good.indexOf('\n') + 1)
                                       << "" << utf8 << critical << "";
    QTest::newRow("UTF-8 in a later line")
        << good + QStringLiteral("9 株式会社さくら\r\n").toUtf8() << "" << utf8 << critical << "";
    QTest::newRow("not CP932") << good + QByteArray("9 \x82\x20\r\n") << "" << line4 << critical << "";
    QTest::newRow("empty file") << QByteArray() << ""
                                << "該当データがありません" << int(mb::OkOnly | mb::Information) << "";
    QTest::newRow("wait not in milliseconds")
        << good << "CheckWait=20s"
        << "mirabo.ini の [CvsRead] CheckWait の値「20s」はミリ秒の整数ではありません" << critical << "999999";
    // a layout that cannot be read is not a missing one: the file is refused with what is wrong
    QTest::newRow("layout statement fails") << good << "ALTER TABLE cvsini RENAME COLUMN kubun TO kubun2"
                                            << "データ参照エラーです。\r\n\r\n"
                                            << critical << "";
    QTest::newRow("layout value does not fit")
        << good << "UPDATE cvsini SET money = 40000 WHERE code = '908997'"
        << "基本情報 (cvsini) の money の値「40000」は使えません" << critical << "";
    // only 908997 has a layout here
    const int noLayout = mb::OkOnly | mb::Exclamation;
    const auto agency = [](const QString& item) {
        return cp932Lines({fwHeader(), fwRecord("01", 1001, 5000, item), fwTrailer(1, 5000, 0, 0)});
    };
    // no agency named: the last run's stays
    for (const auto& [item, code] :
         {std::pair{"59951", "959951"}, {"08082", "908082"}, {"xxx929023", "929023"}, {"12345", "999999"}})
        QTest::addRow("agency %s", item) << agency(item) << ""
                                         << "基本情報がありません" << noLayout << code;
    const QString sums = QStringLiteral("データ合計とトレーラー合計が違います。");
    const QString head = fwHeader(), r1 = fwRecord("01", 1001, 5000);
    QTest::newRow("trailer count differs")
        << cp932Lines({head, r1, fwTrailer(2, 5000, 0, 0)}) << "" << sums << int(mb::OkOnly) << "";
    QTest::newRow("trailer cancellation amount differs")
        << cp932Lines({head, r1, fwRecord("03", 1005, 2000), fwTrailer(1, 5000, 1, 2001)}) << "" << sums
        << int(mb::OkOnly) << "";
    QTest::newRow("postal records without their extras")
        << cp932Lines({head, r1, fwRecord("12", 1003, 12345), fwTrailer(1, 5000, 0, 0)}) << "" << sums
        << int(mb::OkOnly) << "";
    QTest::newRow("no trailer") << cp932Lines({head, r1}) << "" << sums << int(mb::OkOnly) << "";
}

// A refused file: nothing posted, the file not marked, the screen given back; the file sums read stay shown.
void PaymentTest::refused()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, setUp);
    QFETCH(QString, message);
    QFETCH(int, style);
    QFETCH(QString, agency);
    if (setUp.startsWith(QLatin1String("CheckWait")))
        QVERIFY(appendIni(*home_, "[CvsRead]\r\n" + setUp.toLatin1() + "\r\n"));
    else if (setUp.startsWith(QLatin1String("ALTER")) && home_->backend() == Backend::Jet)
        QSKIP("a Jet file's tables cannot be altered through SQLite");
    else if (!setUp.isEmpty())
        QVERIFY(home_->exec({setUp}));
    const QString path = mt(bytes);
    ScriptedDialogs d;
    d.expect(kStart, answer::Yes);
    if (message.endsWith(QLatin1String("\r\n")))
        d.expectStart(message, answer::Ok);
    else
        d.expect(message, answer::Ok);
    Run r;
    r.job.setCheckWait(-1); // as the screen runs it: the wait of mirabo.ini
    r.job.setAgencyCode(QStringLiteral("999999"));
    QCOMPARE(r.job.run({path, 0, 0}), PaymentImportJob::Result::Refused);
    QVERIFY(d.done());
    QCOMPARE(d.styles.last(), style);
    if (!agency.isEmpty())
        QCOMPARE(r.job.agencyCode(), agency);
    QCOMPARE(count("select count(*) from inmoney"), 1);
    QVERIFY(!r.job.busy());
    QCOMPARE(r.ui.locks, (QList<bool>{true, false}));
    QVERIFY(r.ui.rows.isEmpty());
    QCOMPARE(fileBytes(path), bytes);
    if (style == mb::OkOnly) // the sums that disagree
        QVERIFY(r.job.total(6) > 0);
}

// A table that refuses every write, as a record held beyond the attempts would.
QStringList refuseWrites(Backend backend, const QString& table)
{
    if (backend == Backend::Postgres)
        return {QStringLiteral("CREATE FUNCTION refuse_%1() RETURNS trigger AS 'BEGIN RAISE EXCEPTION ''held''; END' "
                               "LANGUAGE plpgsql")
                    .arg(table),
                QStringLiteral("CREATE TRIGGER refuse_%1 BEFORE INSERT OR UPDATE ON %1 FOR EACH ROW EXECUTE FUNCTION "
                               "refuse_%1()")
                    .arg(table)};
    return {QStringLiteral("CREATE TRIGGER refuse_%1 BEFORE INSERT ON %1 BEGIN SELECT RAISE(ABORT, 'held'); END")
                .arg(table)};
}

void PaymentTest::postingAgainstALock_data()
{
    QTest::addColumn<QString>("refused"); // a table that refuses writes; empty: another connection holds the lock
    QTest::addColumn<int>("heldMs");      // how long it is held; -1: beyond the eleven attempts
    QTest::addColumn<qint64>("payments");
    QTest::addColumn<qint64>("ledger");
    // the payment refused: nothing is left; the ledger line refused: the payment stays and the record is listed
    // as failed (the next import reports it as paid)
    QTest::newRow("payment refused") << "inmoney" << -1 << qint64(0) << qint64(0);
    QTest::newRow("ledger line refused") << "cdai" << -1 << qint64(1) << qint64(0);
    // a real lock: on SQLite the database's write lock stops the payment already, on PostgreSQL the held ledger line
    // (one there already) stops the ledger write
    const qint64 pg = backendUnderTest() == Backend::Postgres ? 1 : 0;
    QTest::newRow("held by another connection") << "" << -1 << pg << pg;
    QTest::newRow("held over a few attempts") << "" << 350 << qint64(1) << qint64(1);
}

void PaymentTest::postingAgainstALock()
{
    QFETCH(QString, refused);
    QFETCH(int, heldMs);
    QFETCH(qint64, payments);
    QFETCH(qint64, ledger);
    if (home_->backend() == Backend::Jet && !refused.isEmpty())
        QSKIP("Jet has no triggers to refuse a write with");
    if (home_->backend() == Backend::Jet && heldMs >= 0)
        QSKIP("a Jet file held by another writer fails at once: the attempts do not wait for it");
    const QString path = mt(cp932Lines(fwOne()));
    if (!refused.isEmpty())
        QVERIFY(home_->exec(refuseWrites(home_->backend(), refused)));
    else if (home_->backend() == Backend::Postgres) // a ledger line of that order and date that another program holds
        QVERIFY(home_->exec({"INSERT INTO cdai (mcode,day,kubun,denno,line) VALUES ('101',20240510,3,1001,1)"}));
    if (heldMs >= 0) { // attempts that last long enough to outwait the holder
        qputenv("PEL008_LOCK_WAIT_MS", "100");
        fnCloseDB(1);
        QVERIFY(fnOpenDB(1));
    }
    std::unique_ptr<HeldLock> lock;
    std::atomic<int> held{0}; // 1 held, -1 could not lock
    std::jthread holder;      // joined on every way out, a failed comparison included
    if (refused.isEmpty() && heldMs < 0) {
        lock = holdOrder1001(home_->backend());
        QVERIFY(lock->ok());
    } else if (heldMs >= 0) {
        holder = std::jthread([&] {
            const auto lock = holdOrder1001(home_->backend());
            held = lock->ok() ? 1 : -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(heldMs));
        });
        while (held == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ScriptedDialogs d;
    expectFullRun(d, heldMs >= 0 ? 1 : 0);
    Run r;
    QElapsedTimer t;
    t.start();
    QCOMPARE(r.job.run({path, 0, 0}), PaymentImportJob::Result::Done);
    const qint64 waited = t.elapsed();
    lock.reset();
    if (holder.joinable()) {
        holder.join();
        QCOMPARE(held.load(), 1);
        QVERIFY2(waited >= 200, qPrintable(QString::number(waited))); // it did meet the lock
    }
    if (heldMs >= 0) {
        QCOMPARE(r.ui.rows.value(0).value(0), QStringLiteral("○：正常に読込ました"));
        QCOMPARE(r.totals(), (Totals{1, 5000, 0, 0, 0, 0, 1, 5000, 0, 0}));
    } else {
        QCOMPARE(r.ui.rows.value(0).value(0), QStringLiteral("×：記録中にエラーが発生しました"));
        QCOMPARE(r.totals(), (Totals{0, 0, 1, 5000, 0, 0, 1, 5000, 0, 0}));
    }
    QCOMPARE(count("select count(*) from inmoney where denno = 1001"), payments);
    QCOMPARE(count("select count(*) from cdai where denno = 1001 and mcode = '101' and day = 20240510"), ledger);
}

void PaymentTest::postingEditsOneRow()
{
    PaymentPosting p(0);
    QVERIFY(p.postPayment(QString(), 1001, 20240510, 5000, 6));
    QVERIFY(p.postPayment(QString(), 1001, 20240510, 4000, 6));
    QCOMPARE(count("select count(*) from inmoney where denno = 1001"), 1);
    QCOMPARE(count("select money from inmoney where denno = 1001"), 4000);
    QCOMPARE(count("select count(*) from cdai where denno = 1001"), 1);
    // an order without a header: the payment alone
    QVERIFY(p.postPayment(QString(), 5555, 20240510, 100, 6));
    QCOMPARE(count("select count(*) from inmoney where denno = 5555"), 1);
    QCOMPARE(count("select count(*) from cdai where denno = 5555"), 0);
}

void PaymentTest::interrupted_data()
{
    QTest::addColumn<int>("cancelAt"); // the yields before a cancel; -1: none
    QTest::addColumn<bool>("closeDb"); // the screen's connection closed under the job after the first row
    QTest::addColumn<int>("result");
    QTest::addColumn<QString>("message");
    QTest::addColumn<int>("posted");
    QTest::addColumn<QString>("log"); // the run's line in operatlog, none for a failed run
    // pass 1 yields once per line (13), pass 2 stops before its fourth record
    QTest::newRow("cancelled") << 13 + 3 << false << int(PaymentImportJob::Result::Cancelled)
                               << "処理を中止しました。\r\n2件の入金処理をしました" << 2 << "2件 7,900円";
    // the next lookup fails with the engine's text, inside the run's transaction
    QTest::newRow("engine error") << -1 << true << int(PaymentImportJob::Result::Failed)
                                  << "Operation is not allowed when the object is closed." << 1 << "<none>";
}

// What an interrupted run posted stays, the file unmarked for the next run.
void PaymentTest::interrupted()
{
    QFETCH(int, cancelAt);
    QFETCH(bool, closeDb);
    QFETCH(int, result);
    QFETCH(QString, message);
    QFETCH(int, posted);
    QFETCH(QString, log);
    struct ClosingUser final : RecordingInteraction {
        clsDbClass* db = nullptr;
        void resultRow(const QStringList& row) override
        {
            RecordingInteraction::resultRow(row);
            if (db && rows.size() == 1)
                db->CloseDb();
        }
    };
    const QString path = mt(cp932Lines(fwBasic()));
    clsDbClass db;
    QVERIFY(db.OpenDb());
    ClosingUser ui;
    ui.db = closeDb ? &db : nullptr;
    ui.cancelAfterYields = cancelAt;
    PaymentImportJob job(db, ui);
    job.setCheckWait(0);
    ScriptedDialogs d;
    d.expect(kStart, answer::Yes);
    d.expect(message, answer::Ok);
    QCOMPARE(int(job.run({path, 0, 0})), result);
    QVERIFY(!job.busy());
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
    QCOMPARE(count("select count(*) from inmoney"), 1 + posted);
    QCOMPARE(home_->scalar("select naiyou from operatlog where kubun = 1"), log);
    QVERIFY(!fileBytes(path).contains("\x93\xC7\x8D\x9E\x8D\xCF")); // 読込済
}

void PaymentTest::runnerKilledAndRunAgain()
{
    // a real kill part-way through pass 2: whatever was posted stays, and the next run posts nothing twice
    const QString path = mt(cp932Lines(fwBasic()));
    QVERIFY(appendIni(*home_, "[CvsRead]\r\nCheckWait=150\r\n"));
    QProcess first;
    first.start(QStringLiteral(PEL008_BATCH), {QStringLiteral("--yes"), QStringLiteral("import-payments"), path});
    QVERIFY(first.waitForStarted());
    QElapsedTimer t;
    t.start();
    while (count("select count(*) from inmoney") < 3 && t.elapsed() < 20000)
        QTest::qWait(20);
    first.kill();
    first.waitForFinished();
    const qint64 afterKill = count("select count(*) from inmoney");
    QVERIFY2(afterKill >= 3 && afterKill < 5, qPrintable(QString::number(afterKill)));

    QProcess second;
    second.start(QStringLiteral(PEL008_BATCH), {QStringLiteral("--yes"), QStringLiteral("import-payments"), path});
    QVERIFY(second.waitForFinished(60000));
    QCOMPARE(second.exitCode(), 0);
    QCOMPARE(count("select count(*) from inmoney"), 5);
    QCOMPARE(count("select count(distinct denno) from inmoney"), 5);
    QCOMPARE(count("select count(*) from cdai"), 4);
    QCOMPARE(count("select count(distinct denno) from cdai"), 4);
}

// What only the runner does: the question without --yes, a dry run that writes nothing, the lines and the totals
// on stdout, the summary alone with --json, the report PDF with its Japanese font, usage errors.
void PaymentTest::runner()
{
    // the same order twice (the second finds the first's payment without a wait), a cancel of a paid order
    const QString path = mt(cp932Lines({fwHeader(), fwRecord("01", 1001, 5000), fwRecord("12", 1001, 5000),
                                        fwRecord("03", 1006, 7000), fwTrailer(1, 5000, 1, 7000, 1, 5000)}));
    QVERIFY(appendIni(*home_, "[CvsRead]\r\nCheckWait=0\r\n"));
    // what a run changes: the payments and ledger lines, the log, the file's mark and its copy
    const auto state = [&] {
        return QStringList{home_->scalar("select count(*) from inmoney"), home_->scalar("select count(*) from cdai"),
                           home_->scalar("select count(*) from operatlog"), QString::fromLatin1(fileBytes(path)),
                           QDir(home_->path()).entryList({QStringLiteral("MT.txt*")}).join(u',')};
    };
    const QStringList before = state();
    Ran b = batch({"import-payments", path}); // stops at the question, as a user pressing No would
    QCOMPARE(b.code, 1);
    QCOMPARE(b.err, QStringLiteral("作業を開始しますか？\n"));
    b = batch({"--json", "import-payments", path, "--dry-run"}); // asks nothing
    QCOMPARE(b.code, 0);
    QCOMPARE(
        b.out.trimmed(),
        R"({"dryRun":true,"posted":1,"rows":[["○：正常に読込ました","速報","2024/05/10","5,000","5,000","1001",)"
        R"("101","山田 太郎"],["×：入金伝票が存在します","郵振","2024/05/10","5,000","5,000","1001","101","山田 太郎"],)"
        R"(["×：取消データです。　入金処理で調整してください。","取消","2024/05/10","7,000","7,000","1006","102",)"
        R"("ｻﾄｳ ﾊﾅｺ"]],"totals":[1,5000,1,5000,1,7000,2,10000,1,7000]})");
    QCOMPARE(state(), before);
    const QString pdf = home_->file(QStringLiteral("正常.pdf"));
    b = batch({"--yes", "import-payments", path, "--screen-date", "20240620", "--report", pdf, "--group", "0"});
    QCOMPARE(b.code, 0);
    const QStringList lines = b.out.split(u'\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines[0], QStringLiteral("○：正常に読込ました\t速報\t2024/06/20\t5,000\t5,000\t1001\t101\t山田 太郎"));
    QCOMPARE(lines[3], QStringLiteral("1\t5000\t1\t5000\t1\t7000\t2\t10000\t1\t7000"));
    QVERIFY(b.err.contains(QStringLiteral("1件の入金処理をしました\n")));
    QCOMPARE(count("select count(*) from inmoney where denno = 1001"), 1);
    QVERIFY(QFileInfo(pdf).size() > 0);
    if (const std::optional<QString> fonts = pdfFonts(pdf)) // the Japanese font embedded
        QVERIFY2(fonts->contains(QStringLiteral("IPAexGothic")) && fonts->contains(QStringLiteral(" yes ")),
                 qPrintable(*fonts));
    // a second run is refused in pass 1 (the file sums read so far stay); a report that cannot be written says so
    b = batch({"--yes", "--json", "import-payments", path, "--report", home_->file("no/such/r.pdf"), "--group", "1"});
    QCOMPARE(b.code, 1);
    QCOMPARE(b.out.trimmed(), QStringLiteral(R"({"posted":0,"rows":[],"totals":[0,0,0,0,0,0,2,10000,1,7000]})"));
    QVERIFY(b.err.contains(QStringLiteral("読込済みデータです")) && b.err.contains(QStringLiteral("cannot write")));
    QCOMPARE(batch({"import-payments", path, "--screen-date", "20241301"}).code, 2);
    QCOMPARE(batch({"import-payments", path, "--group", "1"}).code, 2);
}

QTEST_GUILESS_MAIN(PaymentTest)
#include "tst_payment.moc"
