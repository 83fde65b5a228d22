// The billing job against the fixed database: the field rules, its runs (the files byte for byte with the marking, the
// re-output, the runs that end early, a failed read among them), and the marking rolled back.
#include "conveni/billingjob.h"
#include "tests/billing/billingtest.h"
#include "tests/support/datarow.h"
#include "tests/support/files.h"

#include <QDir>
#include <QFile>
#include <QTest>
#include <tuple>

using namespace pel;
using test::row;

namespace {

const QString kCount4 = QStringLiteral("該当件数は、4件です。作成しますか？");
const QString kMark = QStringLiteral("作成した、コンビニデータを出力済みに更新しますか？");
const QString kUnencodableHead =
    QStringLiteral("Shift-JIS で書けない文字があります。ファイルでは「?」になっています。");
const QString kUnencodableM = QStringLiteral("\r\n受注番号 104　m.name　「\U00020BB7」 U+20BB7");
const QString kUnencodableO = QStringLiteral("\r\n受注番号 104　o.name　「\U00020BB7」 U+20BB7");

// The run up to the marking question: the four orders written, order 104's name reported (908997 also writes the
// orderer's).
test::Steps writtenFour(int agency)
{
    return {{kCount4, answer::Yes},
            {QStringLiteral("folder"), 1},
            {test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok},
            {kUnencodableHead + (agency == 0 ? kUnencodableM : QString()) + kUnencodableO, answer::Ok}};
}

} // namespace

class BillingTest : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        qputenv("PEL008_LOCK_WAIT_MS", "20");
        out_ = std::make_unique<QTemporaryDir>();
        test::openHome(home_, test::billingRows(), &db_);
    }
    void cleanup() { test::closeHome(home_, &db_); }
    void fieldRules();
    void runs_data();
    void runs();
    void markingRolledBackAfterElevenAttempts();

private:
    BillingRequest request(int agency) const
    {
        BillingRequest r;
        r.agency = agency;
        r.fromDate = 20240101;
        r.toDate = 20240131;
        r.companyCode = QStringLiteral("1234");
        r.folder = out_->path();
        return r;
    }
    QString cflags() { return home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno < 105")); }

    std::unique_ptr<test::TestHome> home_;
    std::unique_ptr<QTemporaryDir> out_;
    std::unique_ptr<clsDbClass> db_;
};

// The rules beyond what the golden files show.
void BillingTest::fieldRules()
{
    const QList<std::tuple<QString, int, QString>> pads{
        {"", 14, "0000000000000 "}, {"  ", 17, "0000000000000000 "}, {"123456789012345", 14, "23456789012345"}};
    for (const auto& [value, width, padded] : pads)
        QCOMPARE(BillingJob::padNumber(value, width), padded);
    // name, short name: family and given name
    const QList<std::tuple<QString, QString, QString, QString>> names{{"山田　太郎", "", "山田", "太郎"},
                                                                      {"山田　太郎 様", "", "山田　太郎", "様"}};
    for (const auto& [name, sname, family, given] : names)
        QCOMPARE(BillingJob::splitName(name, sname), qMakePair(family, given));
    const QList<std::pair<double, QString>> amounts{
        {999999.0, "999999"}, {1000000.0, "999999"}, {-100000.0, "-999999"}, {3.5, "4"}, {-2.5, "-2"}};
    for (const auto& [value, text] : amounts)
        QCOMPARE(BillingJob::clampAmount(value), text);
    const QList<std::pair<QString, QString>> days{{"0", ""}, {"20240230", ""}, {"", ""}};
    for (const auto& [sday, text] : days)
        QCOMPARE(BillingJob::shipDate(sday), text);
}

void BillingTest::runs_data()
{
    using test::Steps;
    QTest::addColumn<int>("agency");
    QTest::addColumn<qint64>("from");    // the first day of the month the run selects
    QTest::addColumn<bool>("reoutput");  // the orders exported before
    QTest::addColumn<QString>("change"); // what makes one of the run's reads fail
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QStringList>("files"); // written, each against its golden copy: "name=golden"
    QTest::addColumn<int>("marked");
    const QString unreadable = QStringLiteral("データ参照エラーです。\r\n\r\n"),
                  saved = test::catalogueText("ＣＳＶ出力");
    const int y = answer::Yes, n = answer::No, ok = answer::Ok, read = int(BillingResult::Outcome::ReadFailed);
    const int written = int(BillingResult::Outcome::Written);
    const qint64 january = 20240101;
    row("908997, marked", 0, january, false, QString(), writtenFour(0) + Steps{{kMark, y}}, written,
        QStringList{"顧客一括登録.txt=customers_908997.txt", "請求一括登録.txt=billing_908997.txt"}, 4);
    row("929023", 1, january, false, QString(), writtenFour(1) + Steps{{kMark, n}}, written,
        QStringList{"コンビニ.csv=conveni_929023.csv"}, 0);
    row("929023 re-output: no marking question", 1, january, true, QString(),
        Steps{{"該当件数は、1件です。作成しますか？", y}, {"folder", 1}, {saved, ok}}, written,
        QStringList{"コンビニ.csv=conveni_929023_reoutput.csv"}, 0);
    // runs that end early: no completion message or marking question, no file before the folder is chosen
    row("no orders", 0, qint64(20230101), false, QString(), Steps{{"該当件数は０件です", answer::Continue}},
        int(BillingResult::Outcome::NoOrders), QStringList{}, 0);
    row("count question No", 0, january, false, QString(), Steps{{kCount4, n}}, int(BillingResult::Outcome::Declined),
        QStringList{}, 0);
    row("folder cancelled", 0, january, false, QString(), Steps{{kCount4, y}, {"folder", 0}},
        int(BillingResult::Outcome::NoFolder), QStringList{}, 0);
    // a read that fails is reported in the engine's words, never as "no orders" or as an order without its lines
    row("selection unreadable", 0, january, false, "ALTER TABLE member RENAME COLUMN code TO code2",
        Steps{{unreadable, ok}}, read, QStringList{}, 0);
    row("order lines unreadable", 0, january, false, "ALTER TABLE jyumei RENAME COLUMN line TO line2",
        Steps{{kCount4, y}, {"folder", 1}, {unreadable, ok}}, read, QStringList{}, 0);
    row("goods name unreadable", 0, january, false, "ALTER TABLE goods RENAME COLUMN name TO name2",
        Steps{{kCount4, y}, {"folder", 1}, {unreadable, ok}}, read, QStringList{}, 0);
}

void BillingTest::runs()
{
    QFETCH(int, agency);
    QFETCH(qint64, from);
    QFETCH(bool, reoutput);
    QFETCH(QString, change);
    QFETCH(test::Steps, steps);
    QFETCH(int, outcome);
    QFETCH(QStringList, files);
    QFETCH(int, marked);
    if (!change.isEmpty()) {
        if (home_->backend() == test::Backend::Jet)
            QSKIP(
                "a Jet file's tables cannot be altered through SQLite; its damaged rows are tested with the database");
        QVERIFY(home_->exec({change}));
    }
    BillingRequest q = request(agency);
    q.fromDate = from;
    q.toDate = from + 30;
    q.reoutput = reoutput;
    test::ScriptedDialogs dialogs;
    test::expectSteps(dialogs, steps, out_->path());
    test::RecordingInteraction ui;
    const BillingResult r = BillingJob(*db_).run(q, ui);
    QVERIFY(dialogs.done());
    QCOMPARE(int(r.outcome), outcome);
    if (outcome == int(BillingResult::Outcome::NoOrders))
        QCOMPARE(dialogs.shown.first(), QStringLiteral("確認|70|該当件数は０件です")); // Cancel/Try again/Continue
    if (!change.isEmpty())
        QCOMPARE(dialogs.shown.last().section(QLatin1Char('|'), 2), steps.last().first + db_->ErrMsg());
    if (!steps.contains({QStringLiteral("folder"), 1}))
        QVERIFY(QDir(out_->path()).isEmpty());
    for (qsizetype i = 0; i < files.size(); ++i) {
        QCOMPARE(r.files.value(i), out_->filePath(files.at(i).section(u'=', 0, 0)));
        QCOMPARE(test::fileBytes(r.files.value(i)),
                 test::fileBytes(QStringLiteral(BILLING_GOLDEN_DIR "/") + files.at(i).section(u'=', 1)));
    }
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
    if (outcome == int(BillingResult::Outcome::Written)) {
        QCOMPARE(r.written, r.count);
        QCOMPARE(ui.statuses, (QStringList{"処理中・・・", ""}));
        QCOMPARE(home_->scalar(QStringLiteral("select count(*) from operatlog where kubun = 5")), QStringLiteral("1"));
    }
    // only the orders written are marked (106 was before)
    QCOMPARE(r.marked, marked);
    QCOMPARE(cflags(), QString::number(marked));
    QCOMPARE(home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno >= 105")), QStringLiteral("1"));
    QCOMPARE(home_->scalar(QStringLiteral("select naiyou from operatlog where kubun = 2")),
             marked ? QStringLiteral("4件、印刷済みに更新") : QStringLiteral("<none>"));
}

void BillingTest::markingRolledBackAfterElevenAttempts()
{
    test::ScriptedDialogs dialogs;
    test::expectSteps(dialogs, writtenFour(0) + test::Steps{{kMark, answer::Yes}}, out_->path());
    dialogs.expect(test::catalogueText(QStringLiteral("記録エラー")), answer::Ok);
    test::RecordingInteraction ui;
    BillingResult r;
    {
        test::HeldLock lock(home_->backend(), QStringLiteral("SELECT * FROM jyuden WHERE denno = 103 FOR UPDATE"),
                            QStringLiteral("UPDATE jyuden SET cflag = cflag WHERE denno = -1"));
        QVERIFY(lock.ok());
        r = BillingJob(*db_).run(request(0), ui);
    }
    QVERIFY(dialogs.done());
    QVERIFY(r.markFailed);
    QCOMPARE(r.marked, 0);
    QCOMPARE(r.markAttempts, 11);
    QCOMPARE(cflags(), QStringLiteral("0")); // 101 and 102 rolled back with the rest
    QCOMPARE(home_->scalar(QStringLiteral("select count(*) from operatlog where kubun = 2")), QStringLiteral("0"));
    QVERIFY(QFile::exists(out_->filePath(QStringLiteral("請求一括登録.txt")))); // the files stay
}

QTEST_MAIN(BillingTest)
#include "tst_billing.moc"
