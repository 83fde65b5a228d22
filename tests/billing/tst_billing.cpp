// The billing job against the fixed database: the field rules, the three files byte for byte with the marking, runs
// that end early (a failed read among them), the re-output, and the marking rolled back.
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
    void golden_data();
    void golden();
    void endsEarly_data();
    void endsEarly();
    void reoutputAsksNoMarking();
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
    // The run up to the marking question: the four orders written, order 104's name reported (908997 also writes
    // the orderer's).
    void expectWritten(test::ScriptedDialogs& dialogs, int agency)
    {
        dialogs.expect(kCount4, answer::Yes);
        dialogs.expectFolder(out_->path());
        dialogs.expect(test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok);
        dialogs.expect(kUnencodableHead + (agency == 0 ? kUnencodableM : QString()) + kUnencodableO, answer::Ok);
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

void BillingTest::golden_data()
{
    QTest::addColumn<int>("agency");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("golden");
    QTest::addColumn<bool>("mark"); // the answer to the marking question
    row("908997, marked", 0, QStringList{"顧客一括登録.txt", "請求一括登録.txt"},
        QStringList{"customers_908997.txt", "billing_908997.txt"}, true);
    row("929023", 1, QStringList{"コンビニ.csv"}, QStringList{"conveni_929023.csv"}, false);
}

void BillingTest::golden()
{
    QFETCH(int, agency);
    QFETCH(QStringList, files);
    QFETCH(QStringList, golden);
    QFETCH(bool, mark);
    test::ScriptedDialogs dialogs;
    expectWritten(dialogs, agency);
    dialogs.expect(kMark, mark ? answer::Yes : answer::No);
    test::RecordingInteraction ui;
    const BillingResult r = BillingJob(*db_).run(request(agency), ui);
    QVERIFY(dialogs.done());
    QCOMPARE(r.outcome, BillingResult::Outcome::Written);
    QCOMPARE(r.count, 4);
    QCOMPARE(r.written, 4);
    for (qsizetype i = 0; i < files.size(); ++i) {
        QCOMPARE(r.files.at(i), out_->filePath(files.at(i)));
        QCOMPARE(test::fileBytes(r.files.at(i)),
                 test::fileBytes(QStringLiteral(BILLING_GOLDEN_DIR "/") + golden.at(i)));
    }
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
    QCOMPARE(ui.statuses, (QStringList{"処理中・・・", ""}));
    QCOMPARE(home_->scalar(QStringLiteral("select count(*) from operatlog where kubun = 5")), QStringLiteral("1"));
    // only the orders written are marked (106 was before)
    QCOMPARE(r.marked, mark ? 4 : 0);
    QCOMPARE(cflags(), mark ? QStringLiteral("4") : QStringLiteral("0"));
    QCOMPARE(home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno >= 105")), QStringLiteral("1"));
    QCOMPARE(home_->scalar(QStringLiteral("select naiyou from operatlog where kubun = 2")),
             mark ? QStringLiteral("4件、印刷済みに更新") : QStringLiteral("<none>"));
}

void BillingTest::endsEarly_data()
{
    using test::Steps;
    QTest::addColumn<qint64>("from");    // the first day of the month the run selects
    QTest::addColumn<QString>("change"); // what makes one of the run's reads fail
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<int>("outcome");
    const QString unreadable = QStringLiteral("データ参照エラーです。\r\n\r\n");
    const int y = answer::Yes, ok = answer::Ok, read = int(BillingResult::Outcome::ReadFailed);
    row("no orders", qint64(20230101), QString(), Steps{{"該当件数は０件です", answer::Continue}},
        int(BillingResult::Outcome::NoOrders));
    row("count question No", qint64(20240101), QString(), Steps{{kCount4, answer::No}},
        int(BillingResult::Outcome::Declined));
    row("folder cancelled", qint64(20240101), QString(), Steps{{kCount4, y}, {"folder", 0}},
        int(BillingResult::Outcome::NoFolder));
    // a read that fails is reported in the engine's words, never as "no orders" or as an order without its lines
    row("selection unreadable", qint64(20240101), "ALTER TABLE member RENAME COLUMN code TO code2",
        Steps{{unreadable, ok}}, read);
    row("order lines unreadable", qint64(20240101), "ALTER TABLE jyumei RENAME COLUMN line TO line2",
        Steps{{kCount4, y}, {"folder", 1}, {unreadable, ok}}, read);
    row("goods name unreadable", qint64(20240101), "ALTER TABLE goods RENAME COLUMN name TO name2",
        Steps{{kCount4, y}, {"folder", 1}, {unreadable, ok}}, read);
}

// Runs that end early: no completion message or marking question, nothing marked, no file before the folder is
// chosen.
void BillingTest::endsEarly()
{
    QFETCH(qint64, from);
    QFETCH(QString, change);
    QFETCH(test::Steps, steps);
    QFETCH(int, outcome);
    if (!change.isEmpty()) {
        if (home_->backend() == test::Backend::Jet)
            QSKIP(
                "a Jet file's tables cannot be altered through SQLite; its damaged rows are tested with the database");
        QVERIFY(home_->exec({change}));
    }
    BillingRequest r = request(0);
    r.fromDate = from;
    r.toDate = from + 30;
    test::ScriptedDialogs dialogs;
    test::expectSteps(dialogs, steps, out_->path());
    test::RecordingInteraction ui;
    QCOMPARE(int(BillingJob(*db_).run(r, ui).outcome), outcome);
    QVERIFY(dialogs.done());
    if (outcome == int(BillingResult::Outcome::NoOrders))
        QCOMPARE(dialogs.shown.first(), QStringLiteral("確認|70|該当件数は０件です")); // Cancel/Try again/Continue
    if (!change.isEmpty())
        QCOMPARE(dialogs.shown.last().section(QLatin1Char('|'), 2), steps.last().first + db_->ErrMsg());
    if (!steps.contains({QStringLiteral("folder"), 1}))
        QVERIFY(QDir(out_->path()).isEmpty());
    QCOMPARE(cflags(), QStringLiteral("0"));
    QCOMPARE(ui.locks, (QList<bool>{true, false}));
}

void BillingTest::reoutputAsksNoMarking()
{
    test::ScriptedDialogs dialogs;
    dialogs.expect(QStringLiteral("該当件数は、1件です。作成しますか？"), answer::Yes);
    dialogs.expectFolder(out_->path());
    dialogs.expect(test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok);
    BillingRequest r = request(1);
    r.reoutput = true;
    test::RecordingInteraction ui;
    QCOMPARE(BillingJob(*db_).run(r, ui).outcome, BillingResult::Outcome::Written);
    QVERIFY(dialogs.done());
    QVERIFY(test::fileBytes(out_->filePath(QStringLiteral("コンビニ.csv"))).contains("\"00000000000000106\""));
}

void BillingTest::markingRolledBackAfterElevenAttempts()
{
    test::ScriptedDialogs dialogs;
    expectWritten(dialogs, 0);
    dialogs.expect(kMark, answer::Yes);
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
