// frmSetCvs2 and its job against a fresh database: what the opening shows or why it ends, save with its questions,
// cancel, and a save against a record another connection holds.
#include "conveni/frmsetcvs2.h"
#include "conveni/settingsjob.h"
#include "tests/billing/billingtest.h"
#include "tests/support/datarow.h"
#include "tests/support/enabledstate.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

using namespace pel;
using test::row;

namespace {

const QString kConfirm1 = QStringLiteral("ファイナンス会社の変更をしますがよろしいですか？");
const QString kConfirm2 = QStringLiteral("本当に変更してもよろしいですか？\r\n再度、間違いがないか確認してください\r\n"
                                         "契約外のファイナンス会社を選択した場合、正しい入金データを取得できません");
const QString kConfirm3 =
    QStringLiteral("ファイナンス会社の変更をする場合、企業コードの変更もしてください\r\n変更しましたか？");
const QString kSaveUsed = QStringLiteral("コンビニ収納代行設定 を記録します");
const QString kSaveUnused = QStringLiteral("コンビニ収納代行設定 を記録します　（コンビニを使用しない）");
const QString kSaved = QStringLiteral("記録しました。");
const QString kReadError = QStringLiteral("データ参照エラーです。\r\n\r\n");
const QString kNoPrinter = QStringLiteral("プリンターがインストールされていません。確認してください。");

struct Opened {
    frmSetCvs2 form;
    Opened()
    {
        form.load();
        if (!form.ended()) {
            form.show();
            QApplication::setActiveWindow(&form);
            (void)QTest::qWaitForWindowActive(&form);
        }
    }
};

} // namespace

class SettingsTest : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        qputenv("PEL008_LOCK_WAIT_MS", "20");
        frmSetCvs2::printerNames = [] { return QStringList{QStringLiteral("printer")}; };
        test::openHome(home_, test::collectionRows());
    }
    void cleanup() { test::closeHome(home_); }
    void opening_data();
    void opening();
    void save_data();
    void save();
    void cancelKeepsTheCheckBox();
    void saveAgainstHeldRecord();

private:
    QString stored() const
    {
        return home_->scalar(QStringLiteral("select conveni from sysfile where id=1")) + QLatin1Char('|') +
               home_->scalar(QStringLiteral("select cfcode1 from cvsset where code=1")) + QLatin1Char('|') +
               home_->scalar(QStringLiteral("select ckcode1 from cvsset where code=1"));
    }
    std::unique_ptr<test::TestHome> home_;
};

void SettingsTest::opening_data()
{
    QTest::addColumn<QStringList>("statements");
    QTest::addColumn<bool>("printer");    // one is installed
    QTest::addColumn<QString>("message"); // how the one message starts; "" when there is none
    QTest::addColumn<int>("style");
    QTest::addColumn<QString>("shown"); // used, agency index, code; "" when the opening ends the screen
    const QStringList none;
    const int critical = mb::Critical;
    row("as stored", none, true, QString(), 0, "1|0|1234");
    row("929023 in use",
        QStringList{"UPDATE sysfile SET conveni = 2", "UPDATE cvsset SET cfcode1 = '929023', ckcode1 = ' 12345 '"},
        true, QString(), 0, "1|1|12345");
    // the code is shown, the agency stays at the first item
    row("not used", QStringList{"UPDATE sysfile SET conveni = 0", "UPDATE cvsset SET cfcode1 = '929023'"}, true,
        QString(), 0, "0|0|1234");
    row("no agency stored", QStringList{"UPDATE cvsset SET cfcode1 = '  '"}, true, QString(), 0, "1|0|");
    row("no cvsset row", QStringList{"DELETE FROM cvsset"}, true, QString(), 0, "1|0|");
    row("no sysfile row", QStringList{"DELETE FROM sysfile"}, true, QString(), 0, "");
    row("929023 layout of kind 1 only", QStringList{"UPDATE cvsini SET kubun = 1 WHERE code = '929023'"}, true,
        QString(), 0, "");
    row("sysfile unreadable", QStringList{"ALTER TABLE sysfile RENAME COLUMN id TO id9"}, true, kReadError, critical,
        "");
    row("layouts unreadable", QStringList{"ALTER TABLE cvsini RENAME COLUMN kubun TO kubun9"}, true, kReadError,
        critical, "");
    row("settings unreadable", QStringList{"ALTER TABLE cvsset RENAME TO cvsset9"}, true, kReadError, critical, "");
    // the screen goes on; the printer is asked about once the screen is on view
    row("no printer", none, false, kNoPrinter, int(mb::Exclamation), "1|0|1234");
}

void SettingsTest::opening()
{
    QFETCH(QStringList, statements);
    QFETCH(bool, printer);
    QFETCH(QString, message);
    QFETCH(int, style);
    QFETCH(QString, shown);
    if (home_->backend() == test::Backend::Jet && statements.value(0).startsWith(QLatin1String("ALTER")))
        QSKIP("a Jet file's tables cannot be altered through SQLite");
    QVERIFY(home_->exec(statements));
    if (!printer)
        frmSetCvs2::printerNames = [] { return QStringList(); };
    test::ScriptedDialogs dialogs;
    if (!message.isEmpty())
        dialogs.expectStart(message, answer::Ok);
    Opened o;
    QTRY_VERIFY(dialogs.done());
    QCOMPARE(dialogs.styles, message.isEmpty() ? QList<int>() : QList<int>{style});
    if (message == kReadError) // followed by the engine's text
        QVERIFY(dialogs.shown.last().section(QLatin1Char('|'), 2).size() > message.size());
    QCOMPARE(o.form.ended(), shown.isEmpty());
    if (shown.isEmpty())
        return;
    const bool used = o.form.chkCvs->isChecked();
    QCOMPARE(QStringLiteral("%1|%2|").arg(int(used)).arg(o.form.cboCFcode->currentIndex()) + o.form.txtCkcode->text(),
             shown);
    QCOMPARE(o.form.txtCkcode->isEnabled(), used);
    QCOMPARE(o.form.cboCFcode->isEnabled(), used);
}

void SettingsTest::save_data()
{
    using test::Steps;
    QTest::addColumn<bool>("checked");
    QTest::addColumn<QString>("code");
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<Steps>("steps");
    QTest::addColumn<QString>("focus");
    const int y = answer::Yes, n = answer::No, ok = answer::Ok;
    const Steps all{{kConfirm1, y}, {kConfirm2, y}, {kConfirm3, y}, {kSaveUsed, y}, {kSaved, ok}};
    const QString before = QStringLiteral("1|908997|1234");
    const auto refused = [&](const char* message) { return Steps{{QString::fromUtf8(message), ok}}; };
    row("908997, four digits", true, "4321", 0, "1|908997|4321", all, "cboCFcode");
    row("929023, five digits with spaces", true, " 12345 ", 1, "2|929023| 12345 ", all, "cboCFcode");
    row("908997, a full-width space is not trimmed", true, "1234　", 0, before,
        refused("アプラスの企業コードは４桁です"), "txtCkcode");
    row("929023, four digits", true, "1234", 1, before, refused("ＤＳＫの企業コードは５桁です"), "txtCkcode");
    row("blank code", true, "   ", 0, before, refused("企業コードを入力してください"), "txtCkcode");
    row("second confirmation No", true, "12345", 1, before, Steps{{kConfirm1, y}, {kConfirm2, n}}, "");
    row("final question No", true, "12345", 1, before,
        Steps{{kConfirm1, y}, {kConfirm2, y}, {kConfirm3, y}, {kSaveUsed, n}}, "");
    // unchecked: only conveni changes, the agency and code stay
    row("not used", false, "", 1, "0|908997|1234", Steps{{kSaveUnused, y}, {kSaved, ok}}, "chkCvs");
}

void SettingsTest::save()
{
    QFETCH(bool, checked);
    QFETCH(int, index);
    QFETCH(QString, code);
    QFETCH(test::Steps, steps);
    QFETCH(QString, stored);
    QFETCH(QString, focus);
    test::ScriptedDialogs dialogs;
    Opened o;
    o.form.chkCvs->setChecked(checked);
    o.form.cboCFcode->setCurrentIndex(index);
    o.form.txtCkcode->setText(code);
    o.form.chkCvs->setFocus();
    test::expectSteps(dialogs, steps, QString());
    const QStringList controls = test::enabledState(&o.form);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_F5);
    QVERIFY(dialogs.done());
    QCOMPARE(test::enabledState(&o.form), controls); // saved or not, each control as it was
    QCOMPARE(this->stored(), stored);
    if (!focus.isEmpty())
        QCOMPARE(QApplication::focusWidget() ? QApplication::focusWidget()->objectName() : QString(), focus);
    const bool saved = steps.last().first == kSaved;
    QCOMPARE(home_->scalar(QStringLiteral("select count(*) from operatlog where kubun = 2")), saved ? "1" : "0");
    if (saved)
        QCOMPARE(home_->scalar(QStringLiteral("select naiyou from operatlog where kubun = 2")),
                 checked ? QStringLiteral("コンビニを使用する") : QStringLiteral("コンビニを使用しない"));
    // the confirmations default to No
    for (int i = 0; i < dialogs.shown.size(); ++i)
        if (dialogs.shown.at(i).endsWith(kConfirm1))
            QCOMPARE(dialogs.styles.at(i), mb::YesNo | mb::Information | mb::DefaultButton2);
}

void SettingsTest::cancelKeepsTheCheckBox()
{
    test::ScriptedDialogs dialogs;
    Opened o;
    o.form.chkCvs->click();
    QVERIFY(!o.form.txtCkcode->isEnabled());
    o.form.cboCFcode->setCurrentIndex(1);
    o.form.txtCkcode->setText(QStringLiteral("99999"));
    dialogs.expect(test::catalogueText(QStringLiteral("ｷｬﾝｾﾙ")), answer::No);
    o.form.cmdCancel->click();
    QCOMPARE(o.form.txtCkcode->text(), QStringLiteral("99999"));
    dialogs.expect(test::catalogueText(QStringLiteral("ｷｬﾝｾﾙ")), answer::Yes);
    o.form.cboCFcode->setFocus();
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape); // Escape is F6
    QVERIFY(dialogs.done());
    QCOMPARE(o.form.txtCkcode->text(), QStringLiteral("1234"));
    QCOMPARE(o.form.cboCFcode->currentIndex(), 0);
    QVERIFY(!o.form.chkCvs->isChecked());
}

void SettingsTest::saveAgainstHeldRecord()
{
    test::ScriptedDialogs dialogs;
    for (const char* table : {"sysfile", "cvsset"}) {
        const QString key = QByteArray(table) == "sysfile" ? QStringLiteral("id") : QStringLiteral("code");
        test::HeldLock lock(home_->backend(),
                            QStringLiteral("SELECT * FROM %1 WHERE %2 = 1 FOR UPDATE").arg(table, key),
                            QStringLiteral("UPDATE sysfile SET id = id WHERE id = -1"));
        QVERIFY(lock.ok());
        clsDbClass db;
        QVERIFY(db.OpenDb());
        SettingsJob job(db);
        test::RecordingInteraction ui;
        for (const QString& q : {kConfirm1, kConfirm2, kConfirm3, kSaveUsed})
            dialogs.expect(q, answer::Yes);
        dialogs.expect(test::catalogueText(QStringLiteral("記録エラー")), answer::Ok);
        QCOMPARE(job.save(true, QStringLiteral("929023"), QStringLiteral("54321"), ui), SettingsJob::Saved::Failed);
        QVERIFY(dialogs.done());
        // SQLite and Jet hold the whole database for an edit: there the first table already fails
        if (QByteArray(table) == "sysfile" || home_->backend() != test::Backend::Postgres) {
            QCOMPARE(job.sysfileAttempts(), 11);
        } else {
            QCOMPARE(job.sysfileAttempts(), 1);
            QCOMPARE(job.cvssetAttempts(), 11);
        }
        QCOMPARE(ui.locks, (QList<bool>{true, false}));
        db.CloseDb();
    }
    // both tables rolled back
    QCOMPARE(stored(), QStringLiteral("1|908997|1234"));
}

QTEST_MAIN(SettingsTest)
#include "tst_settings.moc"
