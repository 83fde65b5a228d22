// The payment import screen end to end with scripted dialogs, and the result report's groups and preview.
#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "conveni/frmreadcvsmt.h"
#include "conveni/rptcvsmtprint.h"
#include "tests/payment/fixtures.h"
#include "tests/support/enabledstate.h"
#include "ui/dateentry.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPrintPreviewWidget>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

using namespace pel;
using namespace pel::test;

namespace {

// A list long enough for four pages of the report.
QList<QStringList> fourPages()
{
    QList<QStringList> list;
    for (int i = 0; i < 70; ++i)
        list << QStringList{
            "×：受注伝票がありません", "速報", "2024/05/10", "", "1,000", QString::number(5000 + i), "", ""};
    return list;
}

// One row of each outcome the report groups.
const QList<QStringList> kResults{
    {"○：正常に読込ました", "速報", "2024/05/10", "5,000", "5,000", "1001", "101", "山田 太郎"},
    {"△：金額に相違があります", "速報", "2024/05/10", "3,000", "2,900", "1002", "102", "ｻﾄｳ ﾊﾅｺ"},
    {"×：取消データです。　入金処理で調整してください。", "取消", "2024/05/10", "2,000", "2,000", "1005", "101",
     "山田 太郎"},
    {"×：受注伝票がありません", "速報", "2024/05/10", "", "13,000", "99999999", "", ""}};

} // namespace

class ReadCvsMtTest : public QObject {
    Q_OBJECT
private slots:
    void init() { openShop(home_); }
    void cleanup() { closeShop(home_); }
    void loadWithoutAgency();
    void importByF5();
    void runByOk_data();
    void runByOk();
    void reportGroups_data();
    void reportGroups();
    void previewKeys();
    void fileChoice_data();
    void fileChoice();

private:
    std::unique_ptr<TestHome> home_;
};

void ReadCvsMtTest::loadWithoutAgency()
{
    QVERIFY(home_->exec({QStringLiteral("DELETE FROM cvsset")}));
    ScriptedDialogs d;
    d.expect(QStringLiteral("ファイナンス会社の登録がありません"), answer::Ok);
    frmReadCVSMT form;
    form.load();
    QVERIFY(form.closeAtActivation());
    QVERIFY(d.done());
}

void ReadCvsMtTest::importByF5()
{
    const QString path = home_->file(QStringLiteral("MT.txt"));
    QVERIFY(writeBytes(path, cp932Lines(fwBasic())));
    ScriptedDialogs d;
    frmReadCVSMT form;
    form.load();
    form.show();
    QApplication::setActiveWindow(&form);
    QVERIFY(!form.closeAtActivation());
    QVERIFY(!form.txtDay->txtYy()->isEnabled()); // 収納日
    form.cboDkbn->setCurrentIndex(1);
    QVERIFY(form.txtDay->txtYy()->isEnabled());
    form.txtDay->setYmd(20240620);
    form.txtFname->setText(QStringLiteral("  ") + path + QStringLiteral(" "));
    expectFullRun(d, 4);
    QVERIFY(form.toolbar()->press(5)); // F5
    QVERIFY(d.done());
    QCOMPARE(form.txtFname->text(), path);
    QCOMPARE(form.ListView->topLevelItem(0)->text(2), QStringLiteral("2024/06/20"));
    const QStringList totals{"4", "20,745", "3", "14,000", "2", "3,200", "7", "34,745", "2", "3,200"};
    for (int i = 0; i < 10; ++i)
        QCOMPARE(form.lblTotal[static_cast<size_t>(i)]->text(), totals[i]);
    QCOMPARE(form.prbCnt->value(), 0);
    form.close();
}

void ReadCvsMtTest::runByOk_data()
{
    QTest::addColumn<QString>("how"); // once a row is listed: F6 or the title-bar button (a close event)
    QTest::addColumn<Steps>("dialogs");
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("closes"); // once the run has ended
    const QString stop = QStringLiteral("処理を中止します");
    const Steps stopped{{kStart, answer::Yes},
                        {stop, answer::Yes},
                        {QStringLiteral("処理を中止しました。\r\n2件の入金処理をしました"), answer::Ok}};
    const Steps finished{{kStart, answer::Yes},
                         {stop, answer::No},
                         {QStringLiteral("4件の入金処理をしました"), answer::Ok},
                         {QStringLiteral("読込データをバックアップしますか？"), answer::No}};
    const Steps noFile{{kStart, answer::Yes}, {QStringLiteral("ファイルオープンに失敗しました！"), answer::Ok}};
    QTest::newRow("F6") << "F6" << stopped << "MT.txt" << false;
    QTest::newRow("title bar, stopped") << "close" << stopped << "MT.txt" << true;
    QTest::newRow("title bar, not stopped") << "close" << finished << "MT.txt" << false;
    QTest::newRow("no file") << "" << noFile << "none.txt" << false;
}

// Done while the second record waits for its check (a wait set before each check keeps the run going): a stopped
// run still posts that record and begins no other; the run keeps its screen and connection to its end. Every run
// gives the controls back as they were.
void ReadCvsMtTest::runByOk()
{
    QFETCH(QString, how);
    QFETCH(Steps, dialogs);
    QFETCH(QString, file);
    QFETCH(bool, closes);
    QVERIFY(appendIni(*home_, "[CvsRead]\r\nCheckWait=300\r\n"));
    QVERIFY(writeBytes(home_->file(QStringLiteral("MT.txt")), cp932Lines(fwBasic())));
    ScriptedDialogs d;
    expectSteps(d, dialogs, {});
    frmReadCVSMT form;
    form.load();
    form.show();
    form.txtFname->setText(home_->file(file));
    const QStringList before = enabledState(&form);
    bool done = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &form, [&] {
        if (how.isEmpty() || done || form.ListView->topLevelItemCount() < 1)
            return;
        done = true;
        QVERIFY(form.job().busy());
        QVERIFY(!form.cmdOK->isEnabled());
        form.cmdOK_Click(); // a second OK only puts the focus back
        if (how == QLatin1String("F6"))
            form.toolbar()->press(6);
        else
            form.close();
    });
    poll.start(20);
    form.cmdOK_Click();
    poll.stop();
    QCOMPARE(done, !how.isEmpty());
    QVERIFY(d.done());
    QVERIFY(!form.job().busy());
    QVERIFY(form.isVisible());
    QCOMPARE(enabledState(&form), before);
    QCoreApplication::processEvents();
    QCOMPARE(form.isVisible(), !closes);
}

void ReadCvsMtTest::reportGroups_data()
{
    QTest::addColumn<int>("selector");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("dennos");
    QTest::addColumn<QString>("errOfFirst");
    QTest::addColumn<qint64>("ymoney");
    QTest::newRow("正常") << 0 << "（正常）" << QStringList{"1001", "1002"} << "" << qint64(7900);
    QTest::newRow("エラー") << 1 << "（エラー）" << QStringList{"99999999"} << "受注伝票がありません" << qint64(13000);
    QTest::newRow("取消") << 2 << "（取消）" << QStringList{"1005"} << "取消データです。　入金処理で調整してください。"
                          << qint64(2000);
    QTest::newRow("合計") << 3 << "（合計）" << QStringList{"1001", "1002", "1005", "99999999"} << "" << qint64(22900);
}

// Each frame's 確認 previews its own group of the list.
void ReadCvsMtTest::reportGroups()
{
    QFETCH(int, selector);
    QFETCH(QString, title);
    QFETCH(QStringList, dennos);
    QFETCH(QString, errOfFirst);
    QFETCH(qint64, ymoney);
    ScriptedDialogs d;
    frmReadCVSMT form;
    form.load();
    form.show();
    for (const QStringList& r : kResults)
        form.ListView->addTopLevelItem(new QTreeWidgetItem(r));
    QString shown;
    QTimer::singleShot(50, &form, [&] {
        if (auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget())) {
            shown = dialog->windowTitle();
            dialog->reject();
        }
    });
    form.cmdPreview[static_cast<size_t>(selector)]->click();
    QCOMPARE(shown, QStringLiteral("コンビニＭＴ入金データ読込一覧表") + title);
    QCOMPARE(form.reportSelector(), selector);
    const CvsMtReportData data = rptCVSMTPrint(form.ListView, selector).data();
    QStringList got;
    for (const auto& r : data.rows)
        got << r.denno;
    QCOMPARE(got, dennos);
    QCOMPARE(data.rows.value(0).err, errOfFirst);
    QCOMPARE(qint64(data.ymoney), ymoney);
    QVERIFY(d.done());
    form.close();
}

void ReadCvsMtTest::previewKeys()
{
    const rptCVSMTPrint report(CvsMtReportData::build(fourPages(), 3), QDate(2024, 5, 12));
    QList<int> pages; // the count, then the page shown on opening and after each key or number typed
    qreal zoom = 0, out = 0, in = 0;
    bool closedByF12 = false;
    QTimer timer;
    connect(&timer, &QTimer::timeout, this, [&] {
        auto* dialog = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (!dialog || dialog->objectName() != QLatin1String("rptCVSMTPrint"))
            return;
        timer.stop();
        QApplication::setActiveWindow(dialog);
        auto* view = dialog->findChild<QPrintPreviewWidget*>(QStringLiteral("view"));
        auto* box = dialog->findChild<QLineEdit*>(QStringLiteral("pageBox"));
        pages << view->pageCount() << view->currentPage();
        for (const Qt::Key k : {Qt::Key_F3, Qt::Key_F2, Qt::Key_F2, Qt::Key_F2, Qt::Key_F2, Qt::Key_F3}) {
            QTest::keyClick(dialog, k);
            pages << view->currentPage();
        }
        for (const char* typed : {"1", "9", "4"}) {
            box->setText(QString::fromLatin1(typed));
            QTest::keyClick(box, Qt::Key_Return);
            pages << view->currentPage();
        }
        zoom = view->zoomFactor();
        QTest::keyClick(dialog, Qt::Key_F9);
        out = view->zoomFactor();
        QTest::keyClick(dialog, Qt::Key_F9, Qt::ShiftModifier);
        QTest::keyClick(dialog, Qt::Key_F9, Qt::ShiftModifier);
        in = view->zoomFactor();
        QTest::keyClick(dialog, Qt::Key_F12);
        closedByF12 = !dialog->isVisible();
        if (dialog->isVisible())
            dialog->reject();
    });
    timer.start(20);
    report.preview(nullptr);
    // F2 and F3 stop at the last and the first page; a page beyond the last is not taken
    QCOMPARE(pages, (QList<int>{4, 1, 1, 2, 3, 4, 4, 3, 1, 1, 4}));
    QVERIFY(out < zoom && in > zoom);
    QVERIFY(closedByF12);
}

void ReadCvsMtTest::fileChoice_data()
{
    QTest::addColumn<QString>("name"); // @: the home, where "in" and "out" exist and "in/MT0.txt" is remembered
    QTest::addColumn<bool>("warned");
    QTest::addColumn<bool>("chosen");
    QTest::addColumn<QString>("opens");
    QTest::newRow("a name without a folder: told first") << "MT.txt" << true << true << "@/in";
    QTest::newRow("a full path, cancelled") << "@/out/MT.txt" << false << false << "@/out";
}

void ReadCvsMtTest::fileChoice()
{
    QFETCH(QString, name);
    QFETCH(bool, warned);
    QFETCH(bool, chosen);
    QFETCH(QString, opens);
    name.replace(u'@', home_->path());
    opens.replace(u'@', home_->path());
    QVERIFY(QDir(home_->path()).mkpath(QStringLiteral("in")) && QDir(home_->path()).mkpath(QStringLiteral("out")));
    QVERIFY(fnPutIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), home_->file(QStringLiteral("in/MT0.txt")),
                     iniPath()));
    const QString picked = home_->file(QStringLiteral("MT908997.txt"));
    ScriptedDialogs d;
    frmReadCVSMT form;
    form.load();
    form.show();
    QApplication::setActiveWindow(&form);
    form.txtFname->setText(name);
    if (warned)
        d.expect(QStringLiteral("ファイル名を指定してください。"), answer::Ok);
    d.expectFile(chosen ? std::optional<QString>(picked) : std::nullopt);
    // F4 opens the choice only from the file name
    form.cboDkbn->setFocus();
    QVERIFY(form.toolbar()->press(4));
    QCOMPARE(d.shown.size(), 0);
    form.txtFname->setFocus();
    QVERIFY(form.toolbar()->press(4));
    QVERIFY(d.done());
    if (warned)
        QCOMPARE(d.shown.first(), QStringLiteral("確認|0|ファイル名を指定してください。"));
    QCOMPARE(d.shown.last(), QStringLiteral("file|") + opens);
    QCOMPARE(form.txtFname->text(), chosen ? picked : name);
    form.close();
}

QTEST_MAIN(ReadCvsMtTest)
#include "tst_frmreadcvsmt.moc"
