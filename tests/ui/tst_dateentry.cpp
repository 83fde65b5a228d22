// The year/month/day boxes and picker: clamping while typing, year completion on leaving, conversions.
#include "tests/support/datarow.h"
#include "ui/dateentry.h"

#include <QDateEdit>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTest>

using namespace pel;
using test::row;

namespace {

struct Window {
    DateRange range;
    DateEntry* d;
    Window() : d(range.entry(0))
    {
        range.show();
        QApplication::setActiveWindow(&range);
    }
};

} // namespace

class DateEntryTest : public QObject {
    Q_OBJECT
private slots:
    void trioRule_data();
    void trioRule();
    void yearLeft_data();
    void yearLeft();
    void conversions_data();
    void conversions();
    void entryReportsIndexAndSelects();
};

void DateEntryTest::trioRule_data()
{
    QTest::addColumn<QString>("yy");
    QTest::addColumn<QString>("mm");
    QTest::addColumn<QString>("dd");
    QTest::addColumn<QString>("month");
    QTest::addColumn<QString>("day");
    row("leap 2024", "2024", "2", "30", "2", "29");
    row("2100 not leap", "2100", "2", "29", "2", "28");
    row("2000 leap", "2000", "2", "30", "2", "29");
    row("2023", "2023", "2", "29", "2", "28");
    row("month 13", "2023", "13", "5", "12", "5");
    row("month -3", "2023", "-3", "31", "1", "31");
    row("april", "2023", "4", "31", "4", "30");
    row("no month allows 31", "2023", "", "31", "", "31");
}

void DateEntryTest::trioRule()
{
    QFETCH(QString, yy);
    QFETCH(QString, mm);
    QFETCH(QString, dd);
    QFETCH(QString, month);
    QFETCH(QString, day);
    Window w;
    // The day first: the later month must still clamp it.
    w.d->txtDd()->setText(dd);
    w.d->txtYy()->setText(yy);
    w.d->txtMm()->setText(mm);
    QCOMPARE(w.d->txtMm()->text(), month);
    QCOMPARE(w.d->txtDd()->text(), day);
}

void DateEntryTest::yearLeft_data()
{
    QTest::addColumn<QString>("yy");
    QTest::addColumn<QString>("mm");
    QTest::addColumn<QString>("dd");
    QTest::addColumn<QString>("year");
    QTest::addColumn<QString>("month");
    QTest::addColumn<QString>("day");
    row("24", "24", "", "", "2024", "", ""); // the century rule itself is fnYear's
    row("empty stays empty", "", "3", "", "", "3", "");
    row("full date through the picker", "24", "2", "9", "2024", " 2", " 9");
    row("month 0: year only", "2023", "0", "5", "2023", "0", "5");
}

void DateEntryTest::yearLeft()
{
    QFETCH(QString, yy);
    QFETCH(QString, mm);
    QFETCH(QString, dd);
    QFETCH(QString, year);
    QFETCH(QString, month);
    QFETCH(QString, day);
    Window w;
    QVERIFY(QTest::qWaitForWindowActive(&w.range));
    w.d->txtMm()->setText(mm);
    w.d->txtDd()->setText(dd);
    w.d->txtYy()->setFocus();
    w.d->txtYy()->setText(yy);
    w.d->txtMm()->setFocus();
    QCOMPARE(w.d->txtYy()->text(), year);
    QCOMPARE(w.d->txtMm()->text(), month);
    QCOMPARE(w.d->txtDd()->text(), day);
    if (!day.trimmed().isEmpty() && !month.trimmed().isEmpty() && month != QLatin1String("0"))
        QCOMPARE(w.d->dtpDay()->date(), QDate(year.toInt(), month.trimmed().toInt(), day.trimmed().toInt()));
}

void DateEntryTest::conversions_data()
{
    QTest::addColumn<QString>("yy");
    QTest::addColumn<QString>("mm");
    QTest::addColumn<QString>("dd");
    QTest::addColumn<qlonglong>("ymd");
    row("padded", "2024", " 2", "29", 20240229LL);
    row("plain", "2024", "3", "5", 20240305LL);
    row("blank day", "2024", "3", "  ", 0LL);
}

void DateEntryTest::conversions()
{
    QFETCH(QString, yy);
    QFETCH(QString, mm);
    QFETCH(QString, dd);
    QFETCH(qlonglong, ymd);
    QCOMPARE(trioToYmd(yy, mm, dd), ymd);
    if (ymd == 0)
        return;
    Window w;
    w.d->setYmd(ymd);
    QCOMPARE(w.d->txtYy()->text(), yy);
    QCOMPARE(w.d->txtMm()->text(), QString::number(mm.toInt()).rightJustified(2));
    QCOMPARE(w.d->txtDd()->text(), QString::number(dd.toInt()).rightJustified(2));
    QCOMPARE(w.d->ymd(), ymd);
}

void DateEntryTest::entryReportsIndexAndSelects()
{
    Window w;
    QVERIFY(QTest::qWaitForWindowActive(&w.range));
    QSignalSpy spy(&w.range, &DateRange::entered);
    DateEntry* end = w.range.entry(1);
    end->txtMm()->setText(QStringLiteral("11"));
    end->txtMm()->setFocus();
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.at(0).at(0).toInt(), 1);
    QCOMPARE(end->txtMm()->selectedText(), QStringLiteral("11"));
    w.d->dtpDay()->setFocus();
    QCOMPARE(spy.size(), 2);
    QCOMPARE(spy.at(1).at(0).toInt(), 0);
}

QTEST_MAIN(DateEntryTest)
#include "tst_dateentry.moc"
