// frmConveniMake on the fixed database: opening presets, the activation close, the entry check, a run with its
// marking, the abort with F6, and the rollback while another connection holds an order.
#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "app/startup.h"
#include "conveni/frmconvenimake.h"
#include "tests/billing/billingtest.h"
#include "tests/billing/fixture.h"
#include "tests/ui/enabledstate.h"
#include "ui/dateentry.h"
#include "ui/textrules.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDate>
#include <QDateEdit>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

using namespace pel;

namespace
{

const QString kMark = QStringLiteral("作成した、コンビニデータを出力済みに更新しますか？");

// The script of a test, and F6 pressed in the screen at a chosen yield of the run.
class Dialogs : public test::ScriptedDialogs
{
public:
    QWidget* pressF6In = nullptr;
    int pressAtYield = -1;
    int yields = 0;
    void processEvents() override
    {
        if (++yields == pressAtYield && pressF6In)
            QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : pressF6In, Qt::Key_F6);
    }
};

struct Opened {
    frmConveniMake form;
    explicit Opened(const QStringList& args = {QStringLiteral("6")})
    {
        gstrArgs = args;
        gintArgCnt = static_cast<qint16>(args.size());
        form.load();
        form.show();
        QApplication::setActiveWindow(&form);
        (void)QTest::qWaitForWindowActive(&form);
        QCoreApplication::processEvents(); // the activation check
    }
    void range(const QString& from, const QString& to, const QString& first, const QString& last)
    {
        form.dates->entry(0)->setYmd(from.toLongLong());
        form.dates->entry(1)->setYmd(to.toLongLong());
        form.txtDenno[0]->setText(first);
        form.txtDenno[1]->setText(last);
    }
};

} // namespace

class ConveniMakeTest : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void opening_data();
    void opening();
    void closesWithoutCompanyCode_data();
    void closesWithoutCompanyCode();
    void entryCheckEmptyBox();
    void entryCheckSwaps();
    void runMarksAndRemembersFolder();
    void abortWithF6();
    void markingRolledBack();
    void controlsAfterRun_data();
    void controlsAfterRun();
    void closeDuringRun_data();
    void closeDuringRun();

private:
    std::unique_ptr<test::TestHome> home_;
    std::unique_ptr<QTemporaryDir> out_;
};

void ConveniMakeTest::init()
{
    qputenv("PEL008_LOCK_WAIT_MS", "20");
    if (test::backendUnderTest() == test::Backend::Postgres && test::testServer().isEmpty())
        QSKIP("PEL008_TEST_PG is not set");
    home_ = std::make_unique<test::TestHome>();
    QVERIFY2(home_->ok(), qPrintable(home_->error()));
    QVERIFY(test::fillBillingDatabase(*home_));
    // no character outside Shift-JIS here: the report has its own tests
    QVERIFY(home_->exec({QStringLiteral("UPDATE member SET name = '吉田 一郎', sname = '吉田' WHERE code = 4")}));
    out_ = std::make_unique<QTemporaryDir>();
    QVERIFY(fnOpenDB(1));
}

void ConveniMakeTest::cleanup()
{
    fnCloseDB(1);
    home_.reset();
}

void ConveniMakeTest::opening_data()
{
    QTest::addColumn<QString>("conveni");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("index");
    QTest::addColumn<QStringList>("shown"); // yy mm dd of both dates, both order numbers
    QTest::addColumn<bool>("reoutput");
    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    const QStringList todays{today.left(4), fnPadLeft(QString::number(today.mid(4, 2).toInt()), 2),
                             fnPadLeft(QString::number(today.mid(6, 2).toInt()), 2)};
    QTest::newRow("defaults") << "1" << QStringList{"6"} << 0 << todays + todays + QStringList{"1", "99999999"}
                              << false;
    QTest::newRow("929023 and presets") << "2" << QStringList{"6", "x", "20240105", "20240131", "104", "101", "1"} << 1
                                        << QStringList{"2024", " 1", " 5", "2024", " 1", "31", "104", "101"} << true;
}

void ConveniMakeTest::opening()
{
    QFETCH(QString, conveni);
    QFETCH(QStringList, args);
    QFETCH(int, index);
    QFETCH(QStringList, shown);
    QFETCH(bool, reoutput);
    QVERIFY(home_->exec({QStringLiteral("UPDATE sysfile SET conveni = ") + conveni}));
    QVERIFY(fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), out_->path(), iniPath()));
    test::ScriptedDialogs dialogs;
    Opened o(args);
    QVERIFY(o.form.isVisible());
    QCOMPARE(o.form.cboConveni->currentIndex(), index);
    QCOMPARE(o.form.cboConveni->itemText(0),
             QStringLiteral("[908997]アプラス・コンビニ（おまかせ袋仕様 CSV出力仕様）"));
    QStringList actual;
    for (int i = 0; i < 2; ++i)
        actual << o.form.txtYy(i)->text() << o.form.txtMm(i)->text() << o.form.txtDd(i)->text();
    actual << o.form.txtDenno[0]->text() << o.form.txtDenno[1]->text();
    QCOMPARE(actual, shown);
    QCOMPARE(o.form.chkSaiPrint->isChecked(), reoutput);
    QCOMPARE(o.form.folder(), out_->path());
}

void ConveniMakeTest::closesWithoutCompanyCode_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("message"); // how the message starts
    QTest::newRow("no code") << "UPDATE cvsset SET ckcode1 = ''"
                             << "企業コードが設定されていません。\r\n\r\n「コンビニ収納代行設定」で、企業コードを登録して"
                                "ください。";
    // a read that fails is not "nothing registered": the engine's words are shown
    QTest::newRow("code unreadable") << "ALTER TABLE cvsset RENAME COLUMN ckcode1 TO ckcode9"
                                     << "データ参照エラーです。\r\n\r\n";
    QTest::newRow("agency unreadable") << "ALTER TABLE sysfile RENAME COLUMN conveni TO conveni9"
                                       << "データ参照エラーです。\r\n\r\n";
}

void ConveniMakeTest::closesWithoutCompanyCode()
{
    QFETCH(QString, change);
    QFETCH(QString, message);
    if (home_->backend() == test::Backend::Jet && change.startsWith(QLatin1String("ALTER")))
        QSKIP("a Jet file's tables cannot be altered through SQLite");
    QVERIFY(home_->exec({change}));
    test::ScriptedDialogs dialogs;
    dialogs.expectStart(message, answer::Ok);
    Opened o;
    QVERIFY(dialogs.done());
    QCOMPARE(dialogs.styles, QList<int>{mb::Critical});
    QVERIFY(!o.form.isVisible());
    if (change.startsWith(QLatin1String("ALTER")))
        QVERIFY(dialogs.shown.last().section(QLatin1Char('|'), 2).size() > message.size()); // the engine's text
}

void ConveniMakeTest::entryCheckEmptyBox()
{
    test::ScriptedDialogs dialogs;
    Opened o;
    o.form.txtDd(1)->clear();
    o.form.txtDenno[0]->clear(); // index 0 is checked first
    dialogs.expect(test::catalogueText(QStringLiteral("未記入")), answer::Ok);
    o.form.cmdFile->click();
    QVERIFY(dialogs.done());
    QCOMPARE(QApplication::focusWidget(), o.form.txtDenno[0]);
}

void ConveniMakeTest::entryCheckSwaps()
{
    test::ScriptedDialogs dialogs;
    Opened o;
    o.range(QStringLiteral("20240131"), QStringLiteral("20240101"), QStringLiteral("104"), QStringLiteral("101"));
    dialogs.expect(QStringLiteral("該当件数は、4件です。作成しますか？"), answer::No);
    o.form.cmdFile->click();
    QVERIFY(dialogs.done());
    QCOMPARE(o.form.dates->entry(0)->ymd(), 20240101LL);
    QCOMPARE(o.form.dates->entry(1)->ymd(), 20240131LL);
    QCOMPARE(o.form.dates->entry(0)->dtpDay()->date(), QDate(2024, 1, 1));
    QCOMPARE(o.form.txtDenno[0]->text(), QStringLiteral("     101"));
    QCOMPARE(o.form.txtDenno[1]->text(), QStringLiteral("     104"));
    // the closing state
    QCOMPARE(QApplication::focusWidget(), o.form.txtMm(0));
    QVERIFY(o.form.cmdFile->isEnabled());
    QVERIFY(!o.form.toolbar()->button(QStringLiteral("F6"))->isEnabled());
}

void ConveniMakeTest::runMarksAndRemembersFolder()
{
    QVERIFY(fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), QStringLiteral("/old"), iniPath()));
    test::ScriptedDialogs dialogs;
    {
        Opened o;
        o.range(QStringLiteral("20240101"), QStringLiteral("20240131"), QStringLiteral("1"), QStringLiteral("103"));
        dialogs.expect(QStringLiteral("該当件数は、3件です。作成しますか？"), answer::Yes);
        dialogs.expectFolder(out_->path());
        dialogs.expect(test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok);
        dialogs.expect(kMark, answer::Yes);
        o.form.cmdFile->click();
        QVERIFY(dialogs.done());
        QVERIFY(dialogs.shown.contains(QStringLiteral("folder|/old")));
        QCOMPARE(home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno <= 104")),
                 QStringLiteral("3"));
        QCOMPARE(o.form.lblMsg->text(), QString());
        o.form.close();
    }
    QString folder;
    fnGetIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), QString(), folder, 1024, iniPath());
    QCOMPARE(folder, out_->path());
}

void ConveniMakeTest::abortWithF6()
{
    Dialogs dialogs;
    Opened o;
    o.range(QStringLiteral("20240101"), QStringLiteral("20240131"), QStringLiteral("1"), QStringLiteral("99999999"));
    dialogs.pressF6In = &o.form;
    dialogs.pressAtYield = 3; // after the count, before the first order, before the second
    dialogs.expect(QStringLiteral("該当件数は、4件です。作成しますか？"), answer::Yes);
    dialogs.expectFolder(out_->path());
    dialogs.expect(test::catalogueText(QStringLiteral("処理中止")), answer::Yes);
    dialogs.expect(QStringLiteral("中止しました。"), answer::Ok);
    o.form.cmdFile->click();
    QVERIFY(dialogs.done());
    QFile customers(out_->filePath(QStringLiteral("顧客一括登録.txt")));
    QVERIFY(customers.open(QIODevice::ReadOnly));
    QCOMPARE(customers.readAll().count("\r\n"), 1);
    QCOMPARE(home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno <= 104")), QStringLiteral("0"));
    QCOMPARE(QApplication::focusWidget(), o.form.txtMm(0));
}

void ConveniMakeTest::markingRolledBack()
{
    test::ScriptedDialogs dialogs;
    Opened o;
    o.range(QStringLiteral("20240101"), QStringLiteral("20240131"), QStringLiteral("1"), QStringLiteral("99999999"));
    dialogs.expect(QStringLiteral("該当件数は、4件です。作成しますか？"), answer::Yes);
    dialogs.expectFolder(out_->path());
    dialogs.expect(test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok);
    dialogs.expect(kMark, answer::Yes);
    dialogs.expect(test::catalogueText(QStringLiteral("記録エラー")), answer::Ok);
    {
        test::RecordHolder holder(Sql("select * from jyuden where denno=104"));
        QVERIFY(holder.ok());
        o.form.cmdFile->click();
    }
    QVERIFY(dialogs.done());
    QCOMPARE(home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno <= 104")), QStringLiteral("0"));
    QCOMPARE(QApplication::focusWidget(), o.form.txtMm(0));
    QVERIFY(o.form.txtDenno[0]->isEnabled());
}

void ConveniMakeTest::controlsAfterRun_data()
{
    // -1: no orders in the range, 0: the count question answered No, 1: the folder choice cancelled, 2: done
    QTest::addColumn<int>("reached");
    QTest::newRow("no orders") << -1;
    QTest::newRow("refused") << 0;
    QTest::newRow("cancelled") << 1;
    QTest::newRow("completed") << 2;
}

void ConveniMakeTest::controlsAfterRun()
{
    QFETCH(int, reached);
    test::ScriptedDialogs dialogs;
    Opened o;
    o.range(QStringLiteral("20240101"), QStringLiteral("20240131"),
            reached < 0 ? QStringLiteral("900") : QStringLiteral("1"), QStringLiteral("999"));
    const QStringList before = test::enabledState(&o.form);
    if (reached < 0)
        dialogs.expect(QStringLiteral("該当件数は０件です"), answer::Cancel);
    else
        dialogs.expect(QStringLiteral("該当件数は、4件です。作成しますか？"), reached > 0 ? answer::Yes : answer::No);
    if (reached > 0)
        dialogs.expectFolder(reached > 1 ? std::optional<QString>(out_->path()) : std::nullopt);
    if (reached > 1) {
        dialogs.expect(test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok);
        dialogs.expect(kMark, answer::No);
    }
    o.form.cmdFile->click();
    QVERIFY(dialogs.done());
    QCOMPARE(test::enabledState(&o.form), before);
}

void ConveniMakeTest::closeDuringRun_data()
{
    QTest::addColumn<bool>("titleBar"); // the title-bar button (a close event), else reject()
    QTest::addColumn<int>("stop");      // the answer to "処理中止"
    QTest::newRow("title bar, stopped") << true << int(answer::Yes);
    QTest::newRow("title bar, not stopped") << true << int(answer::No);
    QTest::newRow("reject, stopped") << false << int(answer::Yes);
}

void ConveniMakeTest::closeDuringRun()
{
    QFETCH(bool, titleBar);
    QFETCH(int, stop);
    test::ActingDialogs dialogs;
    Opened o;
    o.range(QStringLiteral("20240101"), QStringLiteral("20240131"), QStringLiteral("1"), QStringLiteral("99999999"));
    dialogs.atYield = 3; // after the first order
    dialogs.action = [&] { titleBar ? (void)o.form.close() : o.form.reject(); };
    dialogs.expect(QStringLiteral("該当件数は、4件です。作成しますか？"), answer::Yes);
    dialogs.expectFolder(out_->path());
    dialogs.expect(test::catalogueText(QStringLiteral("処理中止")), stop);
    if (stop == answer::Yes) {
        dialogs.expect(QStringLiteral("中止しました。"), answer::Ok);
    } else {
        dialogs.expect(test::catalogueText(QStringLiteral("ＣＳＶ出力")), answer::Ok);
        dialogs.expect(kMark, answer::Yes);
    }
    o.form.cmdFile->click();
    QVERIFY(dialogs.done());
    // the run kept its screen and connection to its end
    QVERIFY(o.form.isVisible());
    QCOMPARE(home_->scalar(QStringLiteral("select sum(cflag) from jyuden where denno <= 104")),
             stop == answer::Yes ? QStringLiteral("0") : QStringLiteral("4"));
    QFile customers(out_->filePath(QStringLiteral("顧客一括登録.txt")));
    QVERIFY(customers.open(QIODevice::ReadOnly));
    QCOMPARE(customers.readAll().count("\r\n"), stop == answer::Yes ? 1 : 4);
    QCoreApplication::processEvents();
    QCOMPARE(o.form.isVisible(), stop != answer::Yes);
}

QTEST_MAIN(ConveniMakeTest)
#include "tst_convenimake.moc"
