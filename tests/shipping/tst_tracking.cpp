// The tracking number import job: result files line by line against a few orders, the error log, the closing
// messages, runs that stop (files that cannot be opened, engine errors, cancel), and the line reader on its own.
#include "shipping/trackingjob.h"
#include "tests/shipping/shippingtest.h"
#include "tests/support/datarow.h"
#include "tests/support/files.h"

#include <QFile>
#include <QTest>

#include <unistd.h>

using namespace pel;

namespace {

using test::readLines;
using test::resultLine;
using test::row;
using test::writeLines;
const QString kOk = QStringLiteral("正常に終了しました");
const QString kErrors = QStringLiteral("エラーデータがあります。確認して下さい");
const QStringList kOrders{"INSERT INTO jyuden (denno,okurino,total,memo) VALUES (201,'',1000,'a'),"
                          "(202,'400000000002',2000,'b'),(203,'',3000,'c'),(204,'777',4000,'d')"};

QByteArray cp932(const QString& text)
{
    return Cp932::encode(text).value_or("<not CP932>");
}

} // namespace

class TrackingTest : public QObject {
    Q_OBJECT
private slots:
    void init() { test::openHome(home_, kOrders, &db_); }
    void cleanup() { test::closeHome(home_, &db_); }
    void import_data();
    void import();
    void runsThatStop_data();
    void runsThatStop();
    void readLine_data();
    void readLine();

private:
    QStringList okurino(test::TestHome* home = nullptr);
    std::unique_ptr<test::TestHome> home_;
    std::unique_ptr<clsDbClass> db_;
};

QStringList TrackingTest::okurino(test::TestHome* home)
{
    QStringList v;
    for (int denno = 201; denno <= 204; ++denno)
        v << (home ? home : home_.get())
                 ->scalar(QStringLiteral("SELECT okurino FROM jyuden WHERE denno = %1").arg(denno));
    return v;
}

void TrackingTest::import_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<bool>("utf8");            // the file saved by an editor as UTF-8 with its mark, else CP932
    QTest::addColumn<QString>("stored");       // okurino of 201..204 afterwards
    QTest::addColumn<QStringList>("rejected"); // the lines the error log copies as they were read
    QTest::addColumn<qint64>("updated");
    const QString untouched = QStringLiteral("|400000000002||777");
    const QString unknown = resultLine("999", "499999999999", QStringLiteral("髙橋 一郎"));
    const QString quoted =
        "\"2025/03/01\",\"201\",\"0\",,,,,\"山田, 太郎\"" + QString(",").repeated(38) + ",\"412345678901\"";
    const QStringList none;
    row("empty file", none, false, untouched, none, qint64(0));
    row("quoted comma in a field", QStringList{quoted}, false, "412345678901|400000000002||777", none, qint64(1));
    row("last line wins, over a stored number too",
        QStringList{resultLine("203", "411111111111"), resultLine("203", "422222222222"), resultLine("202", "4202")},
        false, "|4202|422222222222|777", none, qint64(3));
    row("letters: not stored, not rejected",
        QStringList{resultLine("204", "4123AB"), resultLine("201", "1 or 1=1"), resultLine("203", "")}, false,
        untouched, none, qint64(0));
    row("unknown order rejected, the rest goes on", QStringList{unknown, resultLine("201", "412345678901")}, false,
        "412345678901|400000000002||777", QStringList{unknown}, qint64(1));
    row("UTF-8: the orders found, a rejected line logged as it was read",
        QStringList{resultLine("201", "411"), unknown}, true, "411|400000000002||777", QStringList{unknown}, qint64(1));
    row("short line keeps the previous values", QStringList{resultLine("201", "412345678901"), "x,203"}, false,
        "412345678901|400000000002|412345678901|777", none, qint64(2));
    row("first line without an order number: order 0", QStringList{"見出し,受注番号", resultLine("abc", "4")}, false,
        untouched, QStringList{"見出し,受注番号", resultLine("abc", "4")}, qint64(0));
}

void TrackingTest::import()
{
    QFETCH(QStringList, lines);
    QFETCH(bool, utf8);
    QFETCH(QString, stored);
    QFETCH(QStringList, rejected);
    QFETCH(qint64, updated);
    const auto bytes = [&](const QString& line) { return (utf8 ? line.toUtf8() : cp932(line)) + "\r\n"; };
    QByteArray file = utf8 ? "\xEF\xBB\xBF" : "", logged;
    for (const QString& l : lines)
        file += bytes(l);
    for (const QString& l : rejected)
        logged += cp932(QStringLiteral("【受注伝票なし】,")) + bytes(l);
    const QString in = home_->file(QStringLiteral("result.csv")), log = home_->file(QStringLiteral("error.txt"));
    QFile f(in);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(file) == file.size());
    f.close();
    QVERIFY(writeLines(log, {QStringLiteral("left from an earlier run")}));
    test::ScriptedDialogs dialogs;
    dialogs.expect(rejected.isEmpty() ? kOk : kErrors, answer::Ok);
    test::RecordingInteraction ui;
    TrackingImportJob job(*db_);
    const auto r = job.run(in, log, ui);
    QVERIFY(dialogs.done());
    QCOMPARE(dialogs.shown.value(0).section(QLatin1Char('|'), 0, 1),
             rejected.isEmpty() ? QStringLiteral("終了|64") : QStringLiteral("エラー確認|16"));
    QCOMPARE(int(r.outcome), int(TrackingImportJob::Outcome::Done));
    QCOMPARE(okurino().join(u'|'), stored);
    QCOMPARE(test::fileBytes(log), logged);
    QCOMPARE(r.lines, qint64(lines.size()));
    QCOMPARE(r.updated, updated);
    QCOMPARE(r.rejected, qint64(rejected.size()));
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
    // no other column moves
    QCOMPARE(home_->scalar(QStringLiteral("SELECT sum(total) FROM jyuden")).toDouble(), 10000.0);
    QCOMPARE(home_->scalar(QStringLiteral("SELECT count(*) FROM operatlog WHERE syori = 'Ｉ-ＣＡＴデータ読込'")),
             QStringLiteral("1"));
}

void TrackingTest::runsThatStop_data()
{
    // "damaged": order 202's row unreadable in a Jet file; "refused": its commit refused; "cancel": F6 confirmed
    QTest::addColumn<QString>("how");
    QTest::addColumn<QStringList>("orders"); // the result file's lines; none: no result file
    QTest::addColumn<QString>("log");        // the error log: a name in the home, or "hard link" to the result file
    QTest::addColumn<QString>("message");    // how the one message starts; "": none
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QStringList>("stored"); // okurino of 201..204 afterwards
    QTest::addColumn<int>("logged");         // the lines the error log holds; -1: there is none
    using O = TrackingImportJob::Outcome;
    const QStringList one{"201"}, untouched{"", "400000000002", "", "777"};
    const QString fileError = test::catalogueText(QStringLiteral("ファイルエラー"));
    const QString log = QStringLiteral("error.txt"), saveError = QStringLiteral("記録に失敗しました！\r\n");
    row("no result file", "", QStringList{}, log, fileError, int(O::InputError), untouched, -1);
    row("error log in no folder", "", one, "no folder/e.txt", fileError, int(O::LogError), untouched, -1);
    // the result file is read, never made the log (the one line there is its own)
    row("error log is the result file by another path", "", one, "./result.csv", fileError, int(O::LogError), untouched,
        1);
    row("error log is a hard link to the result file", "", one, "hard link", fileError, int(O::LogError), untouched, 1);
    row("lookup fails", "damaged", QStringList{"202", "201"}, log, "データ参照エラーです。\r\n\r\n", int(O::ReadFailed),
        untouched, 0);
    // a row on a damaged page: the update fails too
    row("update fails", "damaged", QStringList{"201", "203"}, log, saveError, int(O::SaveFailed), untouched, 0);
    row("commit refused", "refused", QStringList{"201", "202", "203"}, log, saveError, int(O::SaveFailed),
        QStringList{"4201", "400000000002", "", "777"}, 0);
    // while the second line was read: the line before kept
    row("cancel", "cancel", QStringList{"201", "999", "203"}, log, "", int(O::Stopped),
        QStringList{"4201", "400000000002", "", "777"}, 1);
}

// Neither an unknown order nor a stored number: the engine's text, a file error or the user's stop, no closing
// message and no log row, the rest left unread and the result file as it was.
void TrackingTest::runsThatStop()
{
    QFETCH(QString, how);
    QFETCH(QStringList, orders);
    QFETCH(QString, log);
    QFETCH(QString, message);
    QFETCH(int, outcome);
    QFETCH(QStringList, stored);
    QFETCH(int, logged);
    std::optional<test::TestHome> jet;
    std::optional<test::DamagedJetRow> damage;
    if (how == QLatin1String("damaged")) {
        if (test::backendUnderTest() != test::Backend::Sqlite)
            QSKIP("makes a Jet home of its own: once is enough");
        db_.reset();
        fnCloseDB(1);
        jet.emplace(test::Backend::Jet);
        QVERIFY2(jet->ok(), qPrintable(jet->error()));
        QVERIFY(jet->exec(kOrders));
        damage.emplace(jet->file(QStringLiteral("data1.dat")), QStringLiteral("jyuden"), 1);
        QVERIFY2(damage->ok(), qPrintable(damage->error()));
        db_ = std::make_unique<clsDbClass>();
        QVERIFY(db_->OpenDb());
    } else if (how == QLatin1String("refused")) {
        QString why;
        if (!test::refuseCommitsOfOrder(*db_, 202, &why))
            QSKIP(qPrintable(why));
    }
    test::TestHome* home = jet ? &*jet : home_.get();
    const QString in = home->file(QStringLiteral("result.csv"));
    QStringList lines;
    for (const QString& denno : orders)
        lines << resultLine(denno, QLatin1Char('4') + denno);
    QVERIFY(orders.isEmpty() || writeLines(in, lines));
    const QByteArray before = test::fileBytes(in);
    if (log == QLatin1String("hard link"))
        QCOMPARE(::link(QFile::encodeName(in).constData(), QFile::encodeName(home->file("e.txt")).constData()), 0);
    log = home->file(log == QLatin1String("hard link") ? QStringLiteral("e.txt") : log);
    test::ScriptedDialogs dialogs;
    if (!message.isEmpty())
        dialogs.expectStart(message, answer::Ok);
    test::RecordingInteraction ui;
    if (how == QLatin1String("cancel"))
        ui.cancelAfterYields = 3;
    const auto r = TrackingImportJob(*db_).run(in, log, ui);
    QVERIFY(dialogs.done());
    QCOMPARE(int(r.outcome), outcome);
    QCOMPARE(r.updated, qint64(stored.first().isEmpty() ? 0 : 1));
    QCOMPARE(QFile::exists(log) ? readLines(log).size() : -1, logged);
    QCOMPARE(test::fileBytes(in), before);
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
    QCOMPARE(home->scalar(QStringLiteral("SELECT count(*) FROM operatlog WHERE syori = 'Ｉ-ＣＡＴデータ読込'")),
             QStringLiteral("0"));
    db_.reset();
    damage.reset();
    QCOMPARE(okurino(home), stored);
}

void TrackingTest::readLine_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<bool>("decoded");
    QTest::addColumn<qint32>("denno");
    QTest::addColumn<QString>("tracking");
    // the values before the line: order 7, tracking "old"
    QTest::newRow("both fields") << cp932(resultLine("12", "499")) << true << 12 << "499";
    QTest::newRow("quotes dropped, blanks kept") << cp932(resultLine("\"13\"", " 4\"9\"9 ")) << true << 13 << " 499 ";
    QTest::newRow("empty line") << QByteArray() << true << 7 << "old";
    QTest::newRow("not a number") << cp932(resultLine("1x", "5")) << true << 7 << "5";
    QTest::newRow("rounded half to even") << cp932(resultLine("12.5", "5")) << true << 12 << "5";
    QTest::newRow("beyond 32 bits") << cp932(resultLine("2147483648", "5")) << true << 7 << "5";
    QTest::newRow("negative") << cp932(resultLine("-3", "5")) << true << -3 << "5";
    QTest::newRow("46 fields") << QByteArray("a,15") + QByteArray(44, ',') << true << 15 << "old";
    QTest::newRow("not CP932") << QByteArray("a,\x81\x20,x") << false << 7 << "old";
    QTest::newRow("bytes of no encoding elsewhere") << QByteArray("\x81\x20,16,\"\xFF,\"") << true << 16 << "old";
}

void TrackingTest::readLine()
{
    QFETCH(QByteArray, raw);
    QFETCH(bool, decoded);
    QFETCH(qint32, denno);
    QFETCH(QString, tracking);
    TrackingImportJob::Values v{7, QStringLiteral("old")};
    QCOMPARE(TrackingImportJob::readLine(raw, v), decoded);
    QCOMPARE(v.denno, denno);
    QCOMPARE(v.tracking, tracking);
}

QTEST_GUILESS_MAIN(TrackingTest)
#include "tst_tracking.moc"
