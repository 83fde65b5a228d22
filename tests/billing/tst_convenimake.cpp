// frmConveniMake on the fixed database: opening presets, the activation close, the entry check, runs to each of
// their ends (marking, F6 or a close during the run) and the screen afterwards, the remembered folder.
#include "app/home.h"
#include "app/inifile.h"
#include "app/startup.h"
#include "conveni/frmconvenimake.h"
#include "tests/billing/billingtest.h"
#include "tests/support/datarow.h"
#include "tests/support/enabledstate.h"
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
using test::row;

namespace {

const QString kMark = QStringLiteral("作成した、コンビニデータを出力済みに更新しますか？");

struct Opened {
    frmConveniMake form;
    explicit Opened(const QStringList& args = {QStringLiteral("6")})
    {
        gstrArgs = args;
        gintArgCnt = static_cast<qint16>(args.size());
        form.load();
        form.show();
        QApplication::setActiveWindow(&form);
        // a screen its activation closes never becomes active
        (void)QTest::qWaitFor([this] { return form.isActiveWindow() || !form.isVisible(); });
        QCoreApplication::processEvents(); // the activation check
    }
};

} // namespace

class ConveniMakeTest : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        qputenv("PEL008_LOCK_WAIT_MS", "20");
        out_ = std::make_unique<QTemporaryDir>();
        // no character outside Shift-JIS here: the report has its own tests
        test::openHome(home_, test::billingRows()
                                  << "UPDATE member SET name = '吉田 一郎', sname = '吉田' WHERE code = 4");
    }
    void cleanup() { test::closeHome(home_); }
    void opening_data();
    void opening();
    void entryCheckEmptyBox();
    void runs_data();
    void runs();

private:
    std::unique_ptr<test::TestHome> home_;
    std::unique_ptr<QTemporaryDir> out_;
};

void ConveniMakeTest::opening_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("message"); // how the one message starts; "" when there is none
    QTest::addColumn<QStringList>(
        "shown"); // agency, yy mm dd of both dates, both order numbers, re-output; none: closed
    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    const QStringList todays{today.left(4), fnPadLeft(QString::number(today.mid(4, 2).toInt()), 2),
                             fnPadLeft(QString::number(today.mid(6, 2).toInt()), 2)};
    const QStringList menu{"6"}, closed;
    const QString unreadable = QStringLiteral("データ参照エラーです。\r\n\r\n");
    row("defaults", "UPDATE sysfile SET conveni = 1", menu, QString(),
        QStringList{"0"} + todays + todays + QStringList{"1", "99999999", "0"});
    row("929023 and presets", "UPDATE sysfile SET conveni = 2",
        QStringList{"6", "x", "20240105", "20240131", "104", "101", "1"}, QString(),
        QStringList{"1", "2024", " 1", " 5", "2024", " 1", "31", "104", "101", "1"});
    row("no code", "UPDATE cvsset SET ckcode1 = ''", menu,
        "企業コードが設定されていません。\r\n\r\n「コンビニ収納代行設定」で、企業コードを登録してください。", closed);
    // a read that fails is not "nothing registered": the engine's words are shown
    row("code unreadable", "ALTER TABLE cvsset RENAME COLUMN ckcode1 TO ckcode9", menu, unreadable, closed);
    row("agency unreadable", "ALTER TABLE sysfile RENAME COLUMN conveni TO conveni9", menu, unreadable, closed);
}

void ConveniMakeTest::opening()
{
    QFETCH(QString, change);
    QFETCH(QStringList, args);
    QFETCH(QString, message);
    QFETCH(QStringList, shown);
    if (home_->backend() == test::Backend::Jet && change.startsWith(QLatin1String("ALTER")))
        QSKIP("a Jet file's tables cannot be altered through SQLite");
    QVERIFY(home_->exec({change}));
    test::ScriptedDialogs dialogs;
    if (!message.isEmpty())
        dialogs.expectStart(message, answer::Ok);
    Opened o(args);
    QVERIFY(dialogs.done());
    QCOMPARE(dialogs.styles, message.isEmpty() ? QList<int>() : QList<int>{mb::Critical});
    if (change.startsWith(QLatin1String("ALTER")))
        QVERIFY(dialogs.shown.last().section(QLatin1Char('|'), 2).size() > message.size()); // the engine's text
    QCOMPARE(o.form.isVisible(), !shown.isEmpty());
    if (shown.isEmpty())
        return;
    QStringList actual{QString::number(o.form.cboConveni->currentIndex())};
    for (int i = 0; i < 2; ++i)
        actual << o.form.txtYy(i)->text() << o.form.txtMm(i)->text() << o.form.txtDd(i)->text();
    actual << o.form.txtDenno[0]->text() << o.form.txtDenno[1]->text();
    QCOMPARE(actual << QString::number(int(o.form.chkSaiPrint->isChecked())), shown);
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

// A run from the screen to each of its ends, and the screen afterwards. Both ranges are entered the wrong way round
// (the entry check swaps them); the choose-folder dialog is the step "folder" (1: chosen, 0: cancelled).
void ConveniMakeTest::runs_data()
{
    using test::Steps;
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<QString>("stop"); // what stops the run before its second order: F6 or "title bar"
    QTest::addColumn<int>("written");  // the orders in the customer file; -1: no file
    const QString count = QStringLiteral("該当件数は、3件です。作成しますか？"), stop = test::catalogueText("処理中止");
    const QString saved = test::catalogueText("ＣＳＶ出力"), aborted = QStringLiteral("中止しました。");
    const int y = answer::Yes, n = answer::No, ok = answer::Ok;
    const Steps stopped{{count, y}, {"folder", 1}, {stop, y}, {aborted, ok}};
    row("folder cancelled", Steps{{count, y}, {"folder", 0}}, "", -1);
    row("completed", Steps{{count, y}, {"folder", 1}, {saved, ok}, {kMark, n}}, "", 3);
    row("F6", stopped, "F6", 1);
    row("title bar, stopped", stopped, "title bar", 1);
    row("title bar, not stopped", Steps{{count, y}, {"folder", 1}, {stop, n}, {saved, ok}, {kMark, y}}, "title bar", 3);
}

void ConveniMakeTest::runs()
{
    using test::Steps;
    QFETCH(Steps, steps);
    QFETCH(QString, stop);
    QFETCH(int, written);
    QVERIFY(fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), QStringLiteral("/old"), iniPath()));
    test::ActingDialogs dialogs;
    Opened o;
    o.form.dates->entry(0)->setYmd(20240131);
    o.form.dates->entry(1)->setYmd(20240101);
    o.form.txtDenno[0]->setText(QStringLiteral("103"));
    o.form.txtDenno[1]->setText(QStringLiteral("1"));
    const QStringList before = test::enabledState(&o.form);
    test::expectSteps(dialogs, steps, out_->path());
    const bool chosen = steps.contains({QStringLiteral("folder"), 1});
    dialogs.atYield = stop.isEmpty() ? -1 : 3; // after the count, before the first order, before the second
    dialogs.action = [&] {
        if (stop == QLatin1String("F6"))
            QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &o.form, Qt::Key_F6);
        else
            o.form.close();
    };
    o.form.cmdFile->click();
    QVERIFY(dialogs.done());
    QFile customers(out_->filePath(QStringLiteral("顧客一括登録.txt")));
    QCOMPARE(customers.open(QIODevice::ReadOnly) ? int(customers.readAll().count("\r\n")) : -1, written);
    QCOMPARE(o.form.dates->entry(0)->ymd(), 20240101LL);
    QCOMPARE(o.form.dates->entry(1)->ymd(), 20240131LL);
    QCOMPARE(o.form.dates->entry(0)->dtpDay()->date(), QDate(2024, 1, 1));
    QCOMPARE(o.form.txtDenno[0]->text(), QStringLiteral("       1"));
    QCOMPARE(o.form.txtDenno[1]->text(), QStringLiteral("     103"));
    // the closing state after every run; a close waits for the run's end
    QCOMPARE(test::enabledState(&o.form), before);
    QCOMPARE(QApplication::focusWidget(), o.form.txtMm(0));
    QCOMPARE(o.form.lblMsg->text(), QString());
    QVERIFY(!o.form.toolbar()->button(QStringLiteral("F6"))->isEnabled());
    QVERIFY(o.form.isVisible());
    QCoreApplication::processEvents();
    const bool stopped = steps.contains({test::catalogueText(QStringLiteral("処理中止")), answer::Yes});
    QCOMPARE(o.form.isVisible(), !stopped || stop == QLatin1String("F6"));
    // the folder choice starts in the remembered folder, and the one chosen is remembered when the screen closes
    if (steps.size() > 1)
        QCOMPARE(dialogs.shown.at(1), QStringLiteral("folder|/old"));
    o.form.close();
    QString folder;
    fnGetIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), QString(), folder, 1024, iniPath());
    QCOMPARE(folder, chosen ? out_->path() : QStringLiteral("/old"));
}

QTEST_MAIN(ConveniMakeTest)
#include "tst_convenimake.moc"
