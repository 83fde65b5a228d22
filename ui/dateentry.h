#pragma once
// Date entry: year, month and day boxes with a picker, kept consistent with each other; used as a start/end pair.
#include "ui/textrules.h"
#include <QString>
#include <QWidget>

class QDateEdit;
class QLineEdit;

namespace pel {

// Largest day of a month (a month outside 1..12 allows 31).
int daysInMonth(long long year, long long month);

// One date: txtYy (max 4), txtMm (2), txtDd (2) and the picker dtpDay.
class DateEntry : public QWidget {
    Q_OBJECT
public:
    explicit DateEntry(int index, QWidget* parent = nullptr);

    int index() const { return index_; }
    QLineEdit* txtYy() const { return yy_; }
    QLineEdit* txtMm() const { return mm_; }
    QLineEdit* txtDd() const { return dd_; }
    QDateEdit* dtpDay() const { return day_; }

    long long ymd() const;
    // yyyymmdd (as "@@@@@@@@") into the three boxes.
    void setYmd(long long ymd);

signals:
    // Focus came into one of the boxes or the picker (the screen sets its toolbar mask).
    void entered(int index);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void trioChanged();
    void yearLeft();
    void pickerToTrio();

    int index_;
    QLineEdit* yy_;
    QLineEdit* mm_;
    QLineEdit* dd_;
    QDateEdit* day_;
    bool writing_ = false;
};

// The start (index 0) and end (index 1) dates of a range.
class DateRange : public QWidget {
    Q_OBJECT
public:
    explicit DateRange(QWidget* parent = nullptr);
    DateEntry* entry(int index) const { return index == 0 ? from_ : to_; }

signals:
    void entered(int index);

private:
    DateEntry* from_;
    DateEntry* to_;
};

} // namespace pel
