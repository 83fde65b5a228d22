// The screen base: what every screen gets from it on load, while busy and on unload.
#include "app/db/connection.h"
#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "tests/support/enabledstate.h"
#include "tests/support/suitehome.h"
#include "ui/dateentry.h"
#include "ui/form.h"
#include "ui/forminteraction.h"

#include <QApplication>
#include <QComboBox>
#include <QDateEdit>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTest>
#include <QTreeWidget>
#include <QVBoxLayout>

using namespace pel;

namespace {

class SampleForm : public Form {
public:
    SampleForm()
    {
        setWindowTitle(QStringLiteral("コンビニ収納代行　入金データ読込"));
        useToolbar(QStringLiteral("1001-1000-0001"));
        txtFname = new QLineEdit(body());
        txtNote = new QLineEdit(body());
        txtNote->setEnabled(false);
        cmdOK = new QPushButton(QStringLiteral("ＯＫ"), body());
    }
    QLineEdit* txtFname;
    QLineEdit* txtNote;
    QPushButton* cmdOK;
    long members = -1;
    using Form::body;
    using Form::setBusy;
    using Form::setIdle;

protected:
    void readSettings() override
    {
        txtFname->setText(getSetting(QStringLiteral("CvsRead"), QStringLiteral("ReadFile")));
    }
    void writeSettings() override
    {
        putSetting(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), txtFname->text());
    }
    void onLoad() override
    {
        Recordset rs;
        if (mclsDb.DbSql(Sql("select * from member"), rs))
            members = mclsDb.RecCnt();
    }
};

bool enabled(Form& f, const char* key)
{
    return f.toolbar()->button(QString::fromLatin1(key))->isEnabled();
}

} // namespace

class TstForm : public QObject {
    Q_OBJECT
private slots:
    void init() { test::openHome(home_, {QStringLiteral("insert into member (code,name) values (1,'山田')")}); }
    void cleanup() { test::closeHome(home_); }
    void loadAndUnload();
    void openingLoggedWhenNeverPainted();
    void jobOnTheScreen();
    void lockGivesBackEachControl();
    void closeWaitsForARunWithoutF6();

private:
    std::unique_ptr<test::TestHome> home_;
};

void TstForm::loadAndUnload()
{
    // a deep path: the system reads settings up to 1024 characters
    const QString deep = QStringLiteral("C:\\受信\\") + QString(300, QLatin1Char('d')) + QStringLiteral("\\MT①.txt");
    fnPutIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), deep, iniPath());

    auto* form = new SampleForm;
    form->load();
    QCOMPARE(form->txtFname->text(), deep);
    QCOMPARE(form->members, 1L);
    // the opening row waits for the first paint, then is written once
    QCOMPARE(home_->scalar("select count(*) from operatlog"), QStringLiteral("0"));
    form->show();
    QVERIFY(QTest::qWaitForWindowExposed(form));
    QTRY_COMPARE(home_->scalar("select syori from operatlog where kubun=0"), form->windowTitle());
    form->hide();
    form->show();
    QCoreApplication::processEvents();
    QCOMPARE(home_->scalar("select count(*) from operatlog"), QStringLiteral("1"));

    form->txtFname->setText(QStringLiteral("D:\\新しい=名前.txt"));
    form->done(0);
    QString v;
    fnGetIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), QString(), v, 1024, iniPath());
    QCOMPARE(v, QStringLiteral("D:\\新しい=名前.txt"));
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=9"), QStringLiteral("1"));
    QVERIFY(!gcnData); // the global connection is closed with the screen
    delete form;
    QCOMPARE(home_->scalar("select count(*) from operatlog"), QStringLiteral("2")); // unload runs once
}

void TstForm::openingLoggedWhenNeverPainted()
{
    // as a screen started minimised: shown, not painted
    SampleForm form;
    form.load();
    form.setUpdatesEnabled(false);
    form.show();
    QTRY_COMPARE(home_->scalar("select count(*) from operatlog where kubun=0"), QStringLiteral("1"));
    form.setUpdatesEnabled(true);
    form.repaint();
    QCoreApplication::processEvents();
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=0"), QStringLiteral("1"));
    form.done(0);
}

void TstForm::jobOnTheScreen()
{
    test::ScriptedDialogs dialogs;
    SampleForm form;
    form.load();
    QProgressBar bar;
    QLabel status;
    QTreeWidget list;
    FormInteraction ui(&form, QStringLiteral("0000-0100-0000"), QStringLiteral("1001-1000-0001"),
                       {&bar, &status, &list});
    QVERIFY(!ui.requestCancel()); // F6 means nothing while no job runs

    ui.lock(true);
    QVERIFY(form.busy() && !form.txtFname->isEnabled() && enabled(form, "F6") && !enabled(form, "F1"));
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
    ui.progress(40);
    ui.status(QStringLiteral("処理中・・・"));
    ui.resultRow({QStringLiteral("○"), QStringLiteral("12")});
    QCOMPARE(bar.value(), 40);
    QCOMPARE(status.text(), QStringLiteral("処理中・・・"));
    QCOMPARE(list.topLevelItemCount(), 1);
    QCOMPARE(list.topLevelItem(0)->text(1), QStringLiteral("12"));

    // questions and messages of the run are shown with the normal cursor, the hourglass comes back after them
    struct Cursors final : DialogService {
        int messageBox(const QString&, int, const QString&) override { return shape(); }
        std::optional<QString> chooseFolder(const QString&, const QString&) override
        {
            return QString::number(shape());
        }
        static int shape() { return QApplication::overrideCursor()->shape(); }
    } cursors;
    ui.lock(false);
    DialogService* const scripted = setDialogService(&cursors);
    ui.lock(true);
    QCOMPARE(ui.messageBox(QStringLiteral("?"), mb::YesNo), int(Qt::ArrowCursor));
    QCOMPARE(ui.chooseFolder(QString(), QString()), QString::number(Qt::ArrowCursor));
    QCOMPARE(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
    ui.lock(false);
    QCOMPARE(&pel::dialogs(), &cursors); // handed back after the run
    setDialogService(scripted);
    ui.lock(true);

    dialogs.expect(QStringLiteral("処理を中止します"), answer::No);
    QVERIFY(ui.requestCancel());
    QVERIFY(!ui.cancelRequested());
    dialogs.expect(QStringLiteral("処理を中止します"), answer::Yes);
    QVERIFY(ui.requestCancel());
    QVERIFY(ui.cancelRequested());

    ui.lock(false);
    QVERIFY(!form.busy() && form.txtFname->isEnabled() && enabled(form, "F1") && !enabled(form, "F6"));
    QVERIFY(!QApplication::overrideCursor());
    ui.lock(true); // a new run starts without the old cancel
    QVERIFY(!ui.cancelRequested());
    ui.lock(false);
    QVERIFY(dialogs.done());
    form.done(0);
}

void TstForm::lockGivesBackEachControl()
{
    SampleForm form;
    auto* layout = new QVBoxLayout(form.body());
    auto* dates = new DateRange(form.body());
    layout->addWidget(dates);
    auto* combo = new QComboBox(form.body());
    combo->setEditable(true);
    layout->addWidget(combo);
    auto* group = new QGroupBox(form.body()); // off as a whole: its box is off only through it
    auto* inGroup = new QLineEdit(group);
    group->setEnabled(false);
    layout->addWidget(group);
    form.show();
    QVERIFY(QTest::qWaitForWindowExposed(&form));
    // the picker's editor and the combo's editor are widgets of their own
    QVERIFY(dates->entry(0)->dtpDay()->findChild<QLineEdit*>() && combo->lineEdit());
    const QStringList before = test::enabledState(&form);

    for (int run = 0; run < 2; ++run) {
        form.setBusy(QStringLiteral("0000-0100-0000"));
        for (QWidget* w : {static_cast<QWidget*>(form.txtFname), static_cast<QWidget*>(form.cmdOK),
                           static_cast<QWidget*>(dates->entry(1)->txtYy()),
                           static_cast<QWidget*>(dates->entry(1)->dtpDay()), static_cast<QWidget*>(combo)})
            QVERIFY2(!w->isEnabled(), qPrintable(w->objectName()));
        QVERIFY(enabled(form, "F6") && !enabled(form, "F1") && !enabled(form, "F12"));
        form.setIdle(QStringLiteral("1000-0000-0001"));
        QCOMPARE(test::enabledState(&form), before);
        QVERIFY(enabled(form, "F1") && !enabled(form, "F6") && enabled(form, "F12"));
    }
    // a container switched on later gives its box back: the lock did not switch the box off on its own
    group->setEnabled(true);
    QVERIFY(inGroup->isEnabled());
}

// A run started before the first paint logs the opening first, and a close during the run waits for its end; a
// screen closed unseen logs its opening too, once.
void TstForm::closeWaitsForARunWithoutF6()
{
    test::ScriptedDialogs dialogs; // nothing is asked
    SampleForm form;
    form.load();
    FormInteraction ui(&form, QStringLiteral("0000-0000-0000"), QStringLiteral("1001-1000-0001"));
    ui.lock(true);
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=0"), QStringLiteral("1"));
    form.show();
    form.close();
    form.reject();
    QCoreApplication::processEvents();
    QVERIFY(form.isVisible());
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=9"), QStringLiteral("0"));
    ui.lock(false);
    QCoreApplication::processEvents();
    QVERIFY(!form.isVisible());
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=9"), QStringLiteral("1"));
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=0"), QStringLiteral("1"));
    QVERIFY(dialogs.done());
    QVERIFY(fnOpenDB(1));
    SampleForm unseen;
    unseen.load();
    unseen.done(0);
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=0"), QStringLiteral("2"));
    QCOMPARE(home_->scalar("select count(*) from operatlog where kubun=9"), QStringLiteral("2"));
}

QTEST_MAIN(TstForm)
#include "tst_form.moc"
