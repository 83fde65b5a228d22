#include "ui/dateentry.h"

#include "ui/keys.h"
#include "ui/textrules.h"

#include <QDateEdit>
#include <QEvent>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>

#include <cmath>

namespace pel {
namespace {

long long numberOf(const QString& text)
{
    return static_cast<long long>(fnToNum(text));
}

QLineEdit* makeBox(const QString& name, int index, int max, QWidget* parent)
{
    auto* box = new QLineEdit(parent);
    box->setObjectName(name);
    box->setProperty("index", index);
    box->setMaxLength(max);
    setFieldKind(box, QStringLiteral("6"));
    box->setAlignment(Qt::AlignRight);
    box->setFixedWidth(box->fontMetrics().horizontalAdvance(QLatin1Char('0')) * max + 14);
    return box;
}

} // namespace

int daysInMonth(long long year, long long month)
{
    switch (month) {
    case 4: case 6: case 9: case 11:
        return 30;
    case 2:
        return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
    default:
        return 31;
    }
}

DateEntry::DateEntry(int index, QWidget* parent) : QWidget(parent), index_(index)
{
    yy_ = makeBox(QStringLiteral("txtYy"), index, 4, this);
    mm_ = makeBox(QStringLiteral("txtMm"), index, 2, this);
    dd_ = makeBox(QStringLiteral("txtDd"), index, 2, this);
    day_ = new QDateEdit(this);
    day_->setObjectName(QStringLiteral("dtpDay"));
    day_->setProperty("index", index);
    day_->setCalendarPopup(true);
    day_->setDisplayFormat(QStringLiteral("yyyy/MM/dd"));
    day_->setMinimumDate(QDate(1601, 1, 1));
    day_->setMaximumDate(QDate(9999, 12, 31));
    day_->setDate(QDate::currentDate());

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(yy_);
    layout->addWidget(new QLabel(QStringLiteral("年"), this));
    layout->addWidget(mm_);
    layout->addWidget(new QLabel(QStringLiteral("月"), this));
    layout->addWidget(dd_);
    layout->addWidget(new QLabel(QStringLiteral("日"), this));
    layout->addWidget(day_);

    for (QWidget* w : {static_cast<QWidget*>(yy_), static_cast<QWidget*>(mm_), static_cast<QWidget*>(dd_),
                       static_cast<QWidget*>(day_)})
        w->installEventFilter(this);
    for (QLineEdit* box : {yy_, mm_, dd_})
        connect(box, &QLineEdit::textChanged, this, &DateEntry::trioChanged);
    connect(day_, &QDateEdit::dateChanged, this, [this] {
        if (!writing_)
            pickerToTrio();
    });
}

void DateEntry::trioChanged()
{
    const long long month = numberOf(mm_->text());
    if (month < 0)
        mm_->setText(QStringLiteral("1"));
    else if (month > 12)
        mm_->setText(QStringLiteral("12"));
    const int largest = daysInMonth(numberOf(yy_->text()), numberOf(mm_->text()));
    if (numberOf(dd_->text()) > largest)
        dd_->setText(QString::number(largest));
}

void DateEntry::yearLeft()
{
    yy_->setText(fnYear(yy_->text(), false));
    const long long y = numberOf(yy_->text()), m = numberOf(mm_->text()), d = numberOf(dd_->text());
    if (y != 0 && m != 0 && d != 0) {
        const QDate date(static_cast<int>(y), static_cast<int>(m), static_cast<int>(d));
        if (date.isValid()) {
            writing_ = true;
            day_->setDate(date);
            writing_ = false;
        }
        pickerToTrio();
    } else if (y != 0) {
        yy_->setText(fnPadLeft(yy_->text(), 4));
    }
}

void DateEntry::pickerToTrio()
{
    const QString text = day_->date().toString(QStringLiteral("yyyy/MM/dd"));
    yy_->setText(text.left(4));
    mm_->setText(fnPadLeft(QString::number(numberOf(text.mid(5, 2))), 2));
    dd_->setText(fnPadLeft(QString::number(numberOf(text.mid(8, 2))), 2));
}

long long DateEntry::ymd() const
{
    return trioToYmd(yy_->text(), mm_->text(), dd_->text());
}

void DateEntry::setYmd(long long ymd)
{
    QString text = QString::number(ymd);
    text = fnPadLeft(text, 8); // "@@@@@@@@"
    yy_->setText(fnPadLeft(text.left(4), yy_->maxLength()));
    mm_->setText(fnPadLeft(QString::number(numberOf(text.mid(4, 2))), mm_->maxLength()));
    dd_->setText(fnPadLeft(QString::number(numberOf(text.mid(6, 2))), dd_->maxLength()));
}

bool DateEntry::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::FocusIn) {
        if (auto* box = qobject_cast<QLineEdit*>(watched))
            box->selectAll();
        emit entered(index_);
    } else if (event->type() == QEvent::FocusOut && watched == yy_) {
        // Switching windows or opening a popup is not leaving the box.
        const Qt::FocusReason r = static_cast<QFocusEvent*>(event)->reason();
        if (r != Qt::ActiveWindowFocusReason && r != Qt::PopupFocusReason)
            yearLeft();
    }
    return QWidget::eventFilter(watched, event);
}

DateRange::DateRange(QWidget* parent) : QWidget(parent)
{
    from_ = new DateEntry(0, this);
    to_ = new DateEntry(1, this);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(from_);
    layout->addWidget(new QLabel(QStringLiteral("～"), this));
    layout->addWidget(to_);
    layout->addStretch();
    connect(from_, &DateEntry::entered, this, &DateRange::entered);
    connect(to_, &DateEntry::entered, this, &DateRange::entered);
}

} // namespace pel
