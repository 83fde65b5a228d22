// frmOffset against a fresh database: the row shown and saved, field limits, a save against a lock.
#include "app/db/dbglobals.h"
#include "offset/frmoffset.h"
#include "offset/offsetjob.h"
#include "tests/support/datarow.h"
#include "tests/support/enabledstate.h"
#include "tests/support/heldlock.h"
#include "tests/support/suitehome.h"

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

using namespace pel;
using test::row;

namespace {

const QString kRecordError =
    QStringLiteral("記録に失敗しました！\r\n\r\nすべて終了し、データメンテナンスから復旧をしてください");

// The dialog as the suite opens it: kind and code set, loaded, shown.
struct Opened {
    frmOffset dialog;
    Opened(int kind, int code)
    {
        dialog.kubun = kind;
        dialog.code = code;
        dialog.load();
        dialog.show();
        QApplication::setActiveWindow(&dialog);
    }
};

} // namespace

class OffsetTest : public QObject {
    Q_OBJECT
private slots:
    void init()
    {
        qputenv("PEL008_LOCK_WAIT_MS", "20");
        test::openHome(home_, {QStringLiteral("INSERT INTO offset VALUES (2, 7, 1.5, -2, 12.3)")});
    }
    void cleanup() { test::closeHome(home_); }
    void fieldLimits_data();
    void fieldLimits();
    void save_data();
    void save();
    void saveAgainstLockedRow();

private:
    std::unique_ptr<test::TestHome> home_;
};

void OffsetTest::fieldLimits_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("shown");
    row("above", "45", " 30.0");
    row("below", "-31.25", "-30.0");
    row("limit", "-30", "-30.0");
    row("rounded half up", "1.25", "  1.3");
    row("negative rounded", "-0.04", "  0.0");
    row("empty", "", "  0.0");
    row("letters and a sixth byte refused", "-12a,.55", "-12.5");
}

void OffsetTest::fieldLimits()
{
    QFETCH(QString, typed);
    QFETCH(QString, shown);
    test::ScriptedDialogs dialogs;
    Opened o(2, 8);
    QVERIFY(QTest::qWaitForWindowActive(&o.dialog));
    for (QLineEdit* box : {o.dialog.txtTop, o.dialog.txtLeft, o.dialog.txtHight}) {
        box->setFocus();
        box->clear();
        QTest::keyClicks(box, typed);
        QTest::keyClick(box, Qt::Key_Return); // leaves the field
        QVERIFY(!box->hasFocus());
        QCOMPARE(box->text(), shown);
    }
}

void OffsetTest::save_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<int>("code");
    QTest::addColumn<QStringList>("shown"); // top, left, height on opening
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QStringList>("saved");
    QTest::addColumn<int>("rows"); // in the table afterwards
    const QStringList none{"", "", ""};
    QTest::newRow("the row there") << 2 << 7 << QStringList{"  1.5", " -2.0", " 12.3"}
                                   << QStringList{"30.0", " -2.0", " 12.3"} << QStringList{"30", "-2", "12.3"} << 1;
    QTest::newRow("no row of that code") << 2 << 8 << none << QStringList{" 3.5", "-1.0 ", ""}
                                         << QStringList{"3.5", "-1", "0"} << 2;
    QTest::newRow("no row of that kind") << 3 << 7 << none << QStringList{"1", "2", "3"} << QStringList{"1", "2", "3"}
                                         << 2;
}

void OffsetTest::save()
{
    QFETCH(int, kind);
    QFETCH(int, code);
    QFETCH(QStringList, shown);
    QFETCH(QStringList, typed);
    QFETCH(QStringList, saved);
    QFETCH(int, rows);
    test::ScriptedDialogs dialogs;
    Opened o(kind, code);
    QLineEdit* const boxes[] = {o.dialog.txtTop, o.dialog.txtLeft, o.dialog.txtHight};
    QVERIFY(!o.dialog.lblName->text().isEmpty());
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(boxes[i]->text(), shown[i]);
        boxes[i]->setText(typed[i]);
    }
    o.dialog.cmdOk->click();
    QVERIFY(!o.dialog.isVisible());
    QCOMPARE(o.dialog.result(), int(QDialog::Accepted));
    const QString row = QStringLiteral(" from offset where kubun = %1 and code = %2").arg(kind).arg(code);
    QStringList got;
    for (const char* column : {"[top]", "[left]", "hight"})
        got << home_->scalar(QStringLiteral("select ") + column + row).left(4);
    QCOMPARE(got, saved);
    QCOMPARE(home_->scalar(QStringLiteral("select count(*) from offset")), QString::number(rows));
}

void OffsetTest::saveAgainstLockedRow()
{
    test::ScriptedDialogs dialogs;
    Opened o(2, 7);
    o.dialog.txtTop->setText(QStringLiteral("  4.0"));
    // another connection holding the offsets of kind 2, code 7
    auto lock = std::make_unique<test::HeldLock>(
        home_->backend(), QStringLiteral("SELECT * FROM offset WHERE kubun = 2 AND code = 7 FOR UPDATE"),
        QStringLiteral("UPDATE offset SET hight = hight WHERE kubun = -1"));
    QVERIFY(lock->ok());
    dialogs.expect(kRecordError, answer::Ok);
    const QStringList controls = test::enabledState(&o.dialog);
    o.dialog.cmdOk->click();
    QVERIFY(dialogs.done());
    QCOMPARE(dialogs.styles, QList<int>{mb::OkOnly | mb::Exclamation});
    QVERIFY(o.dialog.isVisible());
    QCOMPARE(test::enabledState(&o.dialog), controls);
    QCOMPARE(o.dialog.txtTop->text(), QStringLiteral("  4.0"));

    // The job itself: eleven attempts against the held row, then the one message; one on a free row.
    OffsetJob job(2, 7);
    test::RecordingInteraction ui;
    dialogs.expect(kRecordError, answer::Ok);
    QVERIFY(!job.save(QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"), ui));
    QCOMPARE(job.attempts(), 11);
    QVERIFY(dialogs.done());
    lock.reset();
    OffsetJob free(2, 7);
    QVERIFY(free.save(QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"), ui));
    QCOMPARE(free.attempts(), 1);
}

QTEST_MAIN(OffsetTest)
#include "tst_offset.moc"
