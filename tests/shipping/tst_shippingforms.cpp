// frmICatMake and frmICatRead on the small shop: the opening (defaults, presets, unreadable kinds), the required-field
// check, the choosers' folders and the paths they remember, and an export and an import through the screens to each end
// of a run (F6, done, the screen closed) with the screen afterwards.
#include "app/home.h"
#include "app/inifile.h"
#include "app/startup.h"
#include "shipping/frmicatmake.h"
#include "shipping/frmicatread.h"
#include "tests/shipping/shippingtest.h"
#include "tests/support/datarow.h"
#include "tests/support/enabledstate.h"
#include "ui/dateentry.h"
#include "ui/functionbar.h"

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDateEdit>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

using namespace pel;
using test::catalogueText;
using test::row;

namespace {

// The screen loaded and shown as the active window, as the menu starts it.
bool loadActive(Form& form)
{
    form.load();
    form.show();
    QApplication::setActiveWindow(&form);
    return QTest::qWaitForWindowActive(&form);
}

} // namespace

class ShippingFormsTest : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        test::openHome(home_, test::shippingTestRows()
                                  << "INSERT INTO bunrui (kubun,code,name,jun) VALUES (3,1,'ゆうパック',1),"
                                     "(3,9,'宅急便',1),(3,10,'宅急便コレクト',2),(3,12,'クール',0)");
        fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), file("icat.csv"), iniPath());
        gstrArgs = QStringList{QStringLiteral("1")};
    }
    void cleanup()
    {
        gstrArgs.clear();
        test::closeHome(home_);
    }
    void opening_data();
    void opening();
    void requiredFieldGetsTheFocus();
    void chooserStartFolder_data();
    void chooserStartFolder();
    void runThroughTheScreen_data();
    void runThroughTheScreen();

private:
    QString file(const char* name) const { return home_->file(QString::fromUtf8(name)); }

    std::unique_ptr<test::TestHome> home_;
};

void ShippingFormsTest::opening_data()
{
    QTest::addColumn<QString>("statement"); // makes a read of the opening fail
    QTest::addColumn<QStringList>("args");  // none: set through the screen's properties once loaded
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QStringList>("shown"); // both dates, both order numbers
    const QString today = QDate::currentDate().toString(QStringLiteral("yyyyMMdd"));
    const QStringList menu{"1"}, defaults{today, today, "       1", "99999999"};
    const QStringList preset{"20250301", "20250310", "101", "104"};
    row("menu's defaults", QString(), menu, "宅急便", defaults);
    row("arguments", QString(), QStringList{"1", "10", "20250301", "20250310", "101", "104", "1"}, "宅急便コレクト",
        preset);
    row("arguments, kind not listed: first entry stays", QString(),
        QStringList{"1", "12", "20250301", "20250310", "101", "104", "1"}, "宅急便", preset);
    row("properties", QString(), QStringList{}, "宅急便コレクト", QStringList{"20250302", "20250302", "104", "104"});
    // a list that cannot be read is said in the engine's words, not shown as an empty list alone
    row("kinds unreadable", "ALTER TABLE bunrui RENAME COLUMN jun TO jun9", menu, "", defaults);
    // which kinds are listed depends on the shop's row
    row("shop unreadable", "ALTER TABLE sysfile RENAME COLUMN id TO id9", menu, "", defaults);
}

void ShippingFormsTest::opening()
{
    QFETCH(QString, statement);
    QFETCH(QStringList, args);
    QFETCH(QString, kind);
    QFETCH(QStringList, shown);
    if (!statement.isEmpty() && home_->backend() == test::Backend::Jet)
        QSKIP("a Jet file's tables cannot be altered through SQLite");
    if (!statement.isEmpty())
        QVERIFY(home_->exec({statement}));
    if (!args.isEmpty())
        gstrArgs = args;
    const QString unreadable = QStringLiteral("データ参照エラーです。\r\n\r\n");
    test::ScriptedDialogs dialogs;
    if (!statement.isEmpty())
        dialogs.expectStart(unreadable, answer::Ok);
    frmICatMake f;
    f.load();
    QVERIFY(dialogs.done());
    if (!statement.isEmpty()) {
        QCOMPARE(dialogs.styles, QList<int>{mb::Critical});
        QVERIFY(dialogs.shown.last().section(QLatin1Char('|'), 2).size() > unreadable.size());
        QCOMPARE(f.cboHaisou->count(), 0);
    }
    if (args.isEmpty()) {
        f.setHcode(10);
        f.setSday(20250302);
        f.setDenno(104);
        f.setSaiPrint(1);
    }
    QCOMPARE(f.cboHaisou->currentText(), kind);
    QCOMPARE(f.cboHaisou->isEnabled(), args.size() < 2); // a caller's kind stays
    QCOMPARE((QStringList{QString::number(f.dates->entry(0)->ymd()), QString::number(f.dates->entry(1)->ymd()),
                          f.txtDenno[0]->text(), f.txtDenno[1]->text()}),
             shown);
    QCOMPARE(f.dates->entry(1)->dtpDay()->date(), QDate::fromString(shown.at(1), QStringLiteral("yyyyMMdd")));
    QCOMPARE(f.chkSaiPrint->isChecked(), args.size() != 1);
    QVERIFY(!f.toolbar()->button(QStringLiteral("F4"))->isEnabled());
    QVERIFY(f.toolbar()->button(QStringLiteral("F6"))->isEnabled());
}

void ShippingFormsTest::requiredFieldGetsTheFocus()
{
    test::ScriptedDialogs dialogs;
    frmICatMake f;
    QVERIFY(loadActive(f));
    f.txtDenno[1]->clear();
    f.txtFile->clear();
    dialogs.expect(catalogueText("未記入"), answer::Ok);
    QTest::mouseClick(f.cmdFile, Qt::LeftButton);
    QVERIFY(dialogs.done());
    QCOMPARE(QApplication::focusWidget(), f.txtDenno[1]);
}

void ShippingFormsTest::chooserStartFolder_data()
{
    QTest::addColumn<int>("screen");   // 1 export (its file box), 2 import (the result file box, then the log box)
    QTest::addColumn<QString>("path"); // @: the home, with the folders "in" and "out"
    QTest::addColumn<QString>("opens");
    // the folder rules are the shared chooser's: every rule once through the import screen's two boxes
    // a file to write: its name stays filled in
    row("export: the box's file", 1, "@/out/icat.csv", "@/out/icat.csv");
    row("export: the box empty: the remembered file", 1, "", "@/in/last.csv");
    row("import: the box's folder", 2, "@/out/icat.csv", "@/out");
    row("import: the box empty: the remembered folder", 2, "", "@/in");
    row("import: a name without a folder: the remembered one", 2, "icat.csv", "@/in");
    row("import: a folder gone: the one above", 2, "@/gone/icat.csv", "@");
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
        fnPutIni(QStringLiteral("I-CAT"), QString::fromLatin1(key), file("in/last.csv"), iniPath());
    test::ScriptedDialogs dialogs;
    frmICatMake make;
    frmICatRead read;
    Form& form = screen == 1 ? static_cast<Form&>(make) : read;
    QVERIFY(loadActive(form));
    for (QLineEdit* box :
         screen == 1 ? QList<QLineEdit*>{make.txtFile} : QList<QLineEdit*>{read.txtFile[0], read.txtFile[1]}) {
        box->setText(path);
        box->setFocus();
        dialogs.expectFile(file("chosen.txt"));
        QTest::keyClick(box, Qt::Key_F4);
        QVERIFY(dialogs.done());
        QCOMPARE(dialogs.shown.last(), QStringLiteral("file|") + opens);
        QCOMPARE(box->text(), file("chosen.txt"));
    }
    form.unload();
    QString saved;
    fnGetIni(QStringLiteral("I-CAT"), screen == 1 ? "MakeFile" : "ErrFile", QString(), saved, 1024, iniPath());
    QCOMPARE(saved, file("chosen.txt"));
}

// How a run ends, and the screen afterwards. F6 or a close while the first order or line is handled: the close
// waits for the stopped run and the run keeps its screen and connection to its end.
void ShippingFormsTest::runThroughTheScreen_data()
{
    QTest::addColumn<int>("screen");  // 1 export, 2 import
    QTest::addColumn<bool>("preset"); // started with a label kind (the kind list then stays off)
    QTest::addColumn<QString>("end");
    for (int screen : {1, 2})
        for (const char* end : {"F6", "completed", "title bar"})
            QTest::addRow("%s: %s", screen == 1 ? "export" : "import", end)
                << screen << false << QString::fromLatin1(end);
    row("export: completed, kind preset", 1, true, QStringLiteral("completed"));
}

void ShippingFormsTest::runThroughTheScreen()
{
    QFETCH(int, screen);
    QFETCH(bool, preset);
    QFETCH(QString, end);
    if (preset)
        gstrArgs = QStringList{"1", "9", "20250301", "20250310", "1", "99999999", "0"};
    QVERIFY(test::writeLines(file("result.csv"), {test::resultLine("101", "411"), test::resultLine("102", "412")}));
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ReadFile"), file("result.csv"), iniPath());
    fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("ErrFile"), file("err.txt"), iniPath());
    test::ActingDialogs dialogs;
    frmICatMake make;
    frmICatRead read;
    Form& f = screen == 1 ? static_cast<Form&>(make) : read;
    QVERIFY(loadActive(f));
    make.dates->entry(0)->setYmd(20250310); // later than the end: swapped by the run
    make.dates->entry(1)->setYmd(20250301);
    QCOMPARE(make.cboHaisou->isEnabled(), !preset);
    const QStringList before = test::enabledState(&f);
    const bool completed = end == QLatin1String("completed");
    if (screen == 1)
        dialogs.expect(test::countQuestion(5), answer::Yes);
    if (completed && screen == 1) {
        dialogs.expect(catalogueText("ＣＳＶ出力"), answer::Ok);
        dialogs.expect(test::kUnencodable104, answer::Ok);
        dialogs.expect(test::kMarkQuestion, answer::Yes);
    } else if (completed) {
        dialogs.expect(QStringLiteral("正常に終了しました"), answer::Ok);
    } else {
        dialogs.atYield = 2;
        dialogs.action = [&] { end == QLatin1String("F6") ? (void)f.toolbar()->press(6) : (void)f.close(); };
        dialogs.expect(catalogueText("処理中止"), answer::Yes);
        if (screen == 1 && end == QLatin1String("F6")) // the export asks again before the second order
            dialogs.expect(catalogueText("処理中止"), answer::No);
        if (screen == 1)
            dialogs.expect(catalogueText("処理中止"), answer::Yes);
    }
    screen == 1 ? QTest::mouseClick(make.cmdFile, Qt::LeftButton) : read.cmdRead_Click();
    QVERIFY(dialogs.done());
    // where the stop took effect; the lines and the stored numbers themselves are the jobs' part
    if (screen == 1) {
        const int lines = completed ? 5 : end == QLatin1String("F6") ? 2 : 1;
        QCOMPARE(QFile::exists(file("icat.csv")) ? test::readLines(file("icat.csv")).size() : 0, lines);
        QCOMPARE(make.dates->entry(0)->ymd(), 20250301);
        QCOMPARE(make.dates->entry(1)->ymd(), 20250310);
        QCOMPARE(make.dates->entry(0)->dtpDay()->date(), QDate(2025, 3, 1));
        // F6 off until the focus next leaves the file box
        QVERIFY(!make.toolbar()->button(QStringLiteral("F6"))->isEnabled());
        QVERIFY(make.lblMsg->text().isEmpty());
    } else {
        QCOMPARE(home_->scalar(QStringLiteral("SELECT okurino FROM jyuden WHERE denno = 102")),
                 completed ? QStringLiteral("412") : QString());
    }
    QCOMPARE(test::enabledState(&f), before);
    QVERIFY(!f.busy());
    if (!preset)
        QCOMPARE(QApplication::focusWidget(), screen == 1 ? static_cast<QWidget*>(make.cboHaisou) : read.txtFile[0]);
    QVERIFY(f.isVisible());
    QCoreApplication::processEvents();
    QCOMPARE(f.isVisible(), end != QLatin1String("title bar"));
}

QTEST_MAIN(ShippingFormsTest)
#include "tst_shippingforms.moc"
