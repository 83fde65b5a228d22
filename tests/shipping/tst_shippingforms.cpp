// frmICatMake and frmICatRead on the small shop: start, presets, an export and an import through the screens with
// scripted dialogs, F6 during the run, the required-field check and the remembered paths.
#include "app/cp932.h"
#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "app/startup.h"
#include "shipping/frmicatmake.h"
#include "shipping/frmicatread.h"
#include "tests/shipping/shippingtest.h"
#include "tests/support/testhome.h"
#include "tests/ui/enabledstate.h"
#include "ui/dateentry.h"
#include "ui/functionbar.h"
#include "ui/msgcatalog.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

#include <functional>

using namespace pel;

namespace {

QString catalogue(const char* key)
{
    CatalogueEntry e;
    catalogueEntry(QString::fromUtf8(key), QString(), &e);
    return e.text;
}

// Scripted dialogs that also let a test act while the job yields (F6 pressed mid-run).
class YieldingDialogs : public test::ScriptedDialogs
{
public:
    void processEvents() override
    {
        ++yields;
        if (onYield) onYield(yields);
    }
    int yields = 0;
    std::function<void(int)> onYield;
};

QStringList fileLines(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return {};
    QStringList lines;
    for (const QByteArray& l : f.readAll().split('\n'))
        if (!l.isEmpty()) lines << Cp932::decode(l.chopped(1)).value_or(QString());
    return lines;
}

const QString kUnencodable104 = QStringLiteral("Shift-JIS にない文字を「?」で書き出しました（3 文字）\r\n"
                                    "受注番号 104　項目 8　「𠮷」 U+20BB7\r\n"
                                    "受注番号 104　項目 18　「𠮷」 U+20BB7\r\n"
                                    "受注番号 104　項目 31　「🍣」 U+1F363");

} // namespace

class ShippingFormsTest : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void makeScreenStarts();
    void kindsUnreadable();
    void presetFromArguments_data();
    void presetFromArguments();
    void presetProperties();
    void exportThroughTheScreen();
    void requiredFieldGetsTheFocus();
    void f6AsksAgainBeforeTheNextOrder();
    void readScreenImports();
    void chooserStartFolder_data();
    void chooserStartFolder();
    void makeControlsAfterRun_data();
    void makeControlsAfterRun();
    void readControlsAfterRun_data();
    void readControlsAfterRun();
    void closeDuringRun_data();
    void closeDuringRun();

private:
    std::unique_ptr<test::TestHome> home_;
};

void ShippingFormsTest::init()
{
    if (test::backendUnderTest() == test::Backend::Postgres && test::testServer().isEmpty())
        QSKIP("PEL008_TEST_PG is not set");
    home_ = std::make_unique<test::TestHome>();
    QVERIFY2(home_->ok(), qPrintable(home_->error()));
    QStringList rows = shippingTestRows();
    rows << QStringLiteral("INSERT INTO bunrui (kubun,code,name,jun) VALUES (3,1,'ゆうパック',1),(3,9,'宅急便',1),"
                           "(3,10,'宅急便コレクト',2),(3,12,'クール',0)");
    QVERIFY(home_->exec(rows));
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), home_->file(QStringLiteral("icat.csv")), iniPath());
    QVERIFY(fnOpenDB(1));
    gstrArgs = QStringList{QStringLiteral("1")};
}

void ShippingFormsTest::cleanup()
{
    gstrArgs.clear();
    fnCloseDB(1);
    home_.reset();
}

void ShippingFormsTest::makeScreenStarts()
{
    test::ScriptedDialogs dialogs;
    frmICatMake f;
    f.load();
    QCOMPARE(f.windowTitle(), QStringLiteral("Ｉ-ＣＡＴデータ作成"));
    QCOMPARE(f.cboHaisou->count(), 2);
    QCOMPARE(f.cboHaisou->itemText(0), QStringLiteral("宅急便"));
    QCOMPARE(f.cboHaisou->itemData(1).toInt(), 10);
    QCOMPARE(f.cboHaisou->currentIndex(), 0);
    QVERIFY(f.cboHaisou->isEnabled());
    QCOMPARE(f.txtDenno[0]->text(), QStringLiteral("       1"));
    QCOMPARE(f.txtDenno[1]->text(), QStringLiteral("99999999"));
    QCOMPARE(f.txtFile->text(), home_->file(QStringLiteral("icat.csv")));
    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    QCOMPARE(f.dates->entry(1)->ymd(), today.toLongLong());
    QVERIFY(!f.toolbar()->button(QStringLiteral("F4"))->isEnabled());
    QVERIFY(f.toolbar()->button(QStringLiteral("F6"))->isEnabled());
    f.txtFile->setText(home_->file(QStringLiteral("other.csv")));
    f.unload();
    QString saved;
    fnGetIni(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), QString(), saved, 1024, iniPath());
    QCOMPARE(saved, home_->file(QStringLiteral("other.csv")));
}

// A label kind list that cannot be read is said in the engine's words, not shown as an empty list alone.
void ShippingFormsTest::kindsUnreadable()
{
    if (home_->backend() == test::Backend::Jet)
        QSKIP("a Jet file's tables cannot be altered through SQLite");
    QVERIFY(home_->exec({QStringLiteral("ALTER TABLE bunrui RENAME COLUMN jun TO jun9")}));
    const QString start = QStringLiteral("データ参照エラーです。\r\n\r\n");
    test::ScriptedDialogs dialogs;
    dialogs.expectStart(start, answer::Ok);
    frmICatMake f;
    f.load();
    QVERIFY(dialogs.done());
    QCOMPARE(dialogs.styles, QList<int>{mb::Critical});
    QVERIFY(dialogs.shown.last().section(QLatin1Char('|'), 2).size() > start.size());
    QCOMPARE(f.cboHaisou->count(), 0);
}

void ShippingFormsTest::presetFromArguments_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("index");
    QTest::newRow("second entry") << "10" << 1;
    QTest::newRow("kind not listed: first entry stays") << "12" << 0;
}

void ShippingFormsTest::presetFromArguments()
{
    QFETCH(QString, kind);
    QFETCH(int, index);
    gstrArgs = QStringList{"1", kind, "20250301", "20250310", "101", "104", "1"};
    test::ScriptedDialogs dialogs;
    frmICatMake f;
    f.load();
    QCOMPARE(f.cboHaisou->currentIndex(), index);
    QVERIFY(!f.cboHaisou->isEnabled());
    QCOMPARE(f.dates->entry(0)->ymd(), 20250301);
    QCOMPARE(f.dates->entry(1)->ymd(), 20250310);
    QCOMPARE(f.dates->entry(1)->dtpDay()->date(), QDate(2025, 3, 10));
    QCOMPARE(f.txtDenno[0]->text(), QStringLiteral("101"));
    QCOMPARE(f.txtDenno[1]->text(), QStringLiteral("104"));
    QVERIFY(f.chkSaiPrint->isChecked());
}

void ShippingFormsTest::presetProperties()
{
    test::ScriptedDialogs dialogs;
    frmICatMake f;
    f.load();
    f.setHcode(10);
    f.setSday(20250302);
    f.setDenno(104);
    f.setSaiPrint(1);
    QCOMPARE(f.cboHaisou->currentData().toInt(), 10);
    QCOMPARE(f.dates->entry(0)->ymd(), 20250302);
    QCOMPARE(f.dates->entry(1)->ymd(), 20250302);
    QCOMPARE(f.txtDenno[1]->text(), QStringLiteral("104"));
    QVERIFY(f.chkSaiPrint->isChecked());
}

void ShippingFormsTest::exportThroughTheScreen()
{
    test::ScriptedDialogs dialogs;
    frmICatMake f;
    f.load();
    f.show();
    QApplication::setActiveWindow(&f);
    QVERIFY(QTest::qWaitForWindowActive(&f));
    f.dates->entry(0)->setYmd(20250310); // later than the end: swapped by the run
    f.dates->entry(1)->setYmd(20250301);
    dialogs.expect(QStringLiteral("該当件数は5件です。作成しますか？"), answer::Yes);
    dialogs.expect(catalogue("ＣＳＶ出力"), answer::Ok);
    dialogs.expect(kUnencodable104, answer::Ok);
    dialogs.expect(QStringLiteral("印刷した受注伝票を送り状印刷済みに更新しますか？"), answer::Yes);
    QTest::mouseClick(f.cmdFile, Qt::LeftButton);
    QVERIFY(dialogs.done());
    QCOMPARE(fileLines(home_->file(QStringLiteral("icat.csv"))).size(), 5);
    QCOMPARE(f.dates->entry(0)->ymd(), 20250301);
    QCOMPARE(f.dates->entry(1)->ymd(), 20250310);
    QCOMPARE(f.dates->entry(0)->dtpDay()->date(), QDate(2025, 3, 1));
    QVERIFY(f.txtFile->isEnabled() && f.cmdFile->isEnabled());
    QVERIFY(f.lblMsg->text().isEmpty());
    QVERIFY(!f.toolbar()->button(QStringLiteral("F6"))->isEnabled()); // until the focus next leaves the file box
    QCOMPARE(QApplication::focusWidget(), f.cboHaisou);
    QCOMPARE(home_->scalar(QStringLiteral("SELECT count(*) FROM jyuden WHERE oflag = 1")), QStringLiteral("6"));
}

void ShippingFormsTest::requiredFieldGetsTheFocus()
{
    test::ScriptedDialogs dialogs;
    frmICatMake f;
    f.load();
    f.show();
    QApplication::setActiveWindow(&f);
    QVERIFY(QTest::qWaitForWindowActive(&f));
    f.txtDenno[1]->clear();
    f.txtFile->clear();
    dialogs.expect(catalogue("未記入"), answer::Ok);
    QTest::mouseClick(f.cmdFile, Qt::LeftButton);
    QVERIFY(dialogs.done());
    QCOMPARE(QApplication::focusWidget(), f.txtDenno[1]);
}

void ShippingFormsTest::f6AsksAgainBeforeTheNextOrder()
{
    YieldingDialogs dialogs;
    frmICatMake f;
    f.load();
    f.dates->entry(0)->setYmd(20250301);
    f.dates->entry(1)->setYmd(20250310);
    // F6 pressed while the first order is written (the toolbar key, only live during the run)
    dialogs.onYield = [&](int n) {
        if (n == 2) f.toolbar()->press(6);
    };
    dialogs.expect(QStringLiteral("該当件数は5件です。作成しますか？"), answer::Yes);
    dialogs.expect(catalogue("処理中止"), answer::Yes); // F6
    dialogs.expect(catalogue("処理中止"), answer::No);  // before the second order
    dialogs.expect(catalogue("処理中止"), answer::Yes); // before the third
    f.cmdFile_Click();
    QVERIFY(dialogs.done());
    QCOMPARE(fileLines(home_->file(QStringLiteral("icat.csv"))).size(), 2);
    QCOMPARE(home_->scalar(QStringLiteral("SELECT count(*) FROM jyuden WHERE oflag = 1")), QStringLiteral("1"));
    QVERIFY(!f.busy());
}

void ShippingFormsTest::readScreenImports()
{
    const QString in = home_->file(QStringLiteral("result.csv")), log = home_->file(QStringLiteral("err.txt"));
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ReadFile"), in, iniPath());
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), log, iniPath());
    QStringList f46(46);
    f46[1] = QStringLiteral("101");
    QFile result(in);
    QVERIFY(result.open(QIODevice::WriteOnly));
    result.write(f46.join(QLatin1Char(',')).toLatin1() + ",412345678901\r\n");
    result.close();

    test::ScriptedDialogs dialogs;
    frmICatRead f;
    f.load();
    f.show();
    QApplication::setActiveWindow(&f);
    QVERIFY(QTest::qWaitForWindowActive(&f));
    QCOMPARE(f.windowTitle(), QStringLiteral("Ｉ-ＣＡＴデータ読込"));
    QCOMPARE(f.txtFile[0]->text(), in);
    QCOMPARE(f.txtFile[1]->text(), log);
    f.txtFile[1]->setFocus();
    QVERIFY(f.toolbar()->button(QStringLiteral("F4"))->isEnabled());
    dialogs.expectFile(home_->file(QStringLiteral("chosen.txt")));
    QTest::keyClick(f.txtFile[1], Qt::Key_F4);
    QCOMPARE(f.txtFile[1]->text(), home_->file(QStringLiteral("chosen.txt")));
    f.txtFile[1]->setText(log);
    dialogs.expect(QStringLiteral("正常に終了しました"), answer::Ok);
    QTest::mouseClick(f.cmdRead, Qt::LeftButton);
    QVERIFY(dialogs.done());
    QCOMPARE(home_->scalar(QStringLiteral("SELECT okurino FROM jyuden WHERE denno = 101")),
             QStringLiteral("412345678901"));
    QVERIFY(QFile::exists(log));
    QCOMPARE(QApplication::focusWidget(), f.txtFile[0]);
    f.txtFile[1]->setText(home_->file(QStringLiteral("err2.txt")));
    f.unload();
    QString saved;
    fnGetIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), QString(), saved, 1024, iniPath());
    QCOMPARE(saved, home_->file(QStringLiteral("err2.txt")));
}

void ShippingFormsTest::chooserStartFolder_data()
{
    QTest::addColumn<int>("screen"); // 1 export (its file box), 2 import (the result file box, then the log box)
    QTest::addColumn<QString>("path"); // @: the home, with the folders "in" and "out"
    QTest::addColumn<QString>("opens");
    for (int screen : {1, 2}) {
        QTest::addRow("%d: the box's folder", screen) << screen << "@/out/icat.csv" << "@/out";
        QTest::addRow("%d: the box empty: the remembered folder", screen) << screen << "" << "@/in";
        QTest::addRow("%d: a name without a folder: the remembered one", screen) << screen << "icat.csv" << "@/in";
        QTest::addRow("%d: a folder gone: the one above", screen) << screen << "@/gone/icat.csv" << "@";
    }
}

void ShippingFormsTest::chooserStartFolder()
{
    QFETCH(int, screen);
    QFETCH(QString, path);
    QFETCH(QString, opens);
    const QString home = home_->path();
    path.replace(u'@', home);
    opens.replace(u'@', home);
    QVERIFY(QDir(home).mkpath(QStringLiteral("in")) && QDir(home).mkpath(QStringLiteral("out")));
    for (const char* key : {"MakeFile", "ReadFile", "ErrFile"})
        fnPutIni(QStringLiteral("I-CAT"), QString::fromLatin1(key), home_->file(QStringLiteral("in/last.csv")),
                 iniPath());
    test::ScriptedDialogs dialogs;
    std::unique_ptr<Form> form;
    QList<QLineEdit*> boxes;
    if (screen == 1) {
        auto* f = new frmICatMake;
        form.reset(f);
        boxes << f->txtFile;
    } else {
        auto* f = new frmICatRead;
        form.reset(f);
        boxes << f->txtFile[0] << f->txtFile[1];
    }
    form->load();
    form->show();
    QApplication::setActiveWindow(form.get());
    QVERIFY(QTest::qWaitForWindowActive(form.get()));
    for (QLineEdit* box : boxes) {
        box->setText(path);
        box->setFocus();
        dialogs.expectFile(std::nullopt);
        QTest::keyClick(box, Qt::Key_F4);
        QVERIFY(dialogs.done());
        QCOMPARE(dialogs.shown.last(), QStringLiteral("file|") + opens);
    }
}

void ShippingFormsTest::makeControlsAfterRun_data()
{
    QTest::addColumn<bool>("preset"); // started with a label kind (the kind list then stays off)
    QTest::addColumn<QString>("outcome");
    for (bool preset : {false, true})
        for (const char* outcome : {"refused", "cancelled", "completed"})
            QTest::addRow("%s%s", outcome, preset ? ", kind preset" : "") << preset << QString::fromLatin1(outcome);
}

void ShippingFormsTest::makeControlsAfterRun()
{
    QFETCH(bool, preset);
    QFETCH(QString, outcome);
    if (preset)
        gstrArgs = QStringList{"1", "9", "20250301", "20250310", "1", "99999999", "0"};
    YieldingDialogs dialogs;
    frmICatMake f;
    f.load();
    f.show();
    f.dates->entry(0)->setYmd(20250301);
    f.dates->entry(1)->setYmd(20250310);
    QCOMPARE(f.cboHaisou->isEnabled(), !preset);
    const QStringList before = test::enabledState(&f);
    dialogs.expect(QStringLiteral("該当件数は5件です。作成しますか？"),
                   outcome == QLatin1String("refused") ? answer::No : answer::Yes);
    if (outcome == QLatin1String("cancelled")) {
        dialogs.onYield = [&](int n) {
            if (n == 2) f.toolbar()->press(6);
        };
        dialogs.expect(catalogue("処理中止"), answer::Yes); // F6
        dialogs.expect(catalogue("処理中止"), answer::Yes); // before the second order
    } else if (outcome == QLatin1String("completed")) {
        dialogs.expect(catalogue("ＣＳＶ出力"), answer::Ok);
        dialogs.expect(kUnencodable104, answer::Ok);
        dialogs.expect(QStringLiteral("印刷した受注伝票を送り状印刷済みに更新しますか？"), answer::No);
    }
    f.cmdFile_Click();
    QVERIFY(dialogs.done());
    QCOMPARE(test::enabledState(&f), before);
}

void ShippingFormsTest::readControlsAfterRun_data()
{
    QTest::addColumn<QString>("outcome");
    QTest::newRow("refused") << "refused";
    QTest::newRow("cancelled") << "cancelled";
    QTest::newRow("completed") << "completed";
}

void ShippingFormsTest::readControlsAfterRun()
{
    QFETCH(QString, outcome);
    const QString in = home_->file(QStringLiteral("result.csv"));
    QFile result(in);
    QVERIFY(result.open(QIODevice::WriteOnly));
    QStringList f46(46);
    for (const char* denno : {"101", "102"}) {
        f46[1] = QString::fromLatin1(denno);
        result.write(f46.join(QLatin1Char(',')).toLatin1() + ",412345678901\r\n");
    }
    result.close();
    YieldingDialogs dialogs;
    frmICatRead f;
    f.load();
    f.show();
    f.txtFile[0]->setText(outcome == QLatin1String("refused") ? home_->file(QStringLiteral("none.csv")) : in);
    f.txtFile[1]->setText(home_->file(QStringLiteral("err.txt")));
    const QStringList before = test::enabledState(&f);
    if (outcome == QLatin1String("refused")) {
        dialogs.expect(catalogue("ファイルエラー"), answer::Ok);
    } else if (outcome == QLatin1String("cancelled")) {
        dialogs.onYield = [&](int n) {
            if (n == 2) f.toolbar()->press(6);
        };
        dialogs.expect(catalogue("処理中止"), answer::Yes);
    } else {
        dialogs.expect(QStringLiteral("正常に終了しました"), answer::Ok);
    }
    f.cmdRead_Click();
    QVERIFY(dialogs.done());
    QCOMPARE(test::enabledState(&f), before);
}

void ShippingFormsTest::closeDuringRun_data()
{
    QTest::addColumn<bool>("import"); // frmICatRead, else frmICatMake
    QTest::addColumn<bool>("titleBar"); // the title-bar button (a close event), else reject()
    QTest::newRow("export, title bar") << false << true;
    QTest::newRow("export, reject") << false << false;
    QTest::newRow("import, title bar") << true << true;
    QTest::newRow("import, reject") << true << false;
}

void ShippingFormsTest::closeDuringRun()
{
    QFETCH(bool, import);
    QFETCH(bool, titleBar);
    const QString in = home_->file(QStringLiteral("result.csv"));
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ReadFile"), in, iniPath());
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), home_->file(QStringLiteral("err.txt")), iniPath());
    QFile result(in);
    QVERIFY(result.open(QIODevice::WriteOnly));
    for (const char* denno : {"101", "102", "103"}) {
        QStringList f46(46);
        f46[1] = QString::fromLatin1(denno);
        result.write(f46.join(QLatin1Char(',')).toLatin1() + ",41234567890" + denno[2] + "\r\n");
    }
    result.close();

    YieldingDialogs dialogs;
    frmICatMake make;
    frmICatRead read;
    Form& form = import ? static_cast<Form&>(read) : make;
    form.load();
    form.show();
    make.dates->entry(0)->setYmd(20250301);
    make.dates->entry(1)->setYmd(20250310);
    // closed while the first order or line is handled
    dialogs.onYield = [&](int n) {
        if (n == 2) titleBar ? (void)form.close() : form.reject();
    };
    if (!import) dialogs.expect(QStringLiteral("該当件数は5件です。作成しますか？"), answer::Yes);
    dialogs.expect(catalogue("処理中止"), answer::Yes);
    if (!import) dialogs.expect(catalogue("処理中止"), answer::Yes); // the export asks again before the next order
    import ? read.cmdRead->click() : make.cmdFile_Click();
    QVERIFY(dialogs.done());
    // the run kept its screen and connection to its end
    QVERIFY(form.isVisible());
    if (import) {
        QCOMPARE(home_->scalar(QStringLiteral("SELECT okurino FROM jyuden WHERE denno = 101")),
                 QStringLiteral("412345678901"));
        QCOMPARE(home_->scalar(QStringLiteral("SELECT okurino FROM jyuden WHERE denno = 102")), QString());
    } else {
        QCOMPARE(fileLines(home_->file(QStringLiteral("icat.csv"))).size(), 1);
        QCOMPARE(home_->scalar(QStringLiteral("SELECT count(*) FROM jyuden WHERE oflag = 1")), QStringLiteral("1"));
    }
    QCoreApplication::processEvents();
    QVERIFY(!form.isVisible());
}

QTEST_MAIN(ShippingFormsTest)
#include "tst_shippingforms.moc"
