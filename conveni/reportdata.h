#pragma once
// The rows and totals of the import result report: the list rows of one group, as the report's fields.
#include <QList>
#include <QString>
#include <QStringList>

namespace pel {

struct CvsMtReportRow {
    QString kubun, nday, dmoney, ymoney, denno, mcode, mname, err;
};

struct CvsMtReportData {
    QString title; // "コンビニＭＴ入金データ読込一覧表" and the group
    QList<CvsMtReportRow> rows;
    int count = 0;
    double dmoney = 0; // sum of 伝票金額 as shown
    double ymoney = 0; // sum of 読込金額 as shown

    // selector: 0 正常 (○ and △), 1 エラー (× but not 取消), 2 取消, 3 合計 (every row).
    static bool selected(const QStringList& row, int selector);
    static CvsMtReportRow fields(const QStringList& row);
    static CvsMtReportData build(const QList<QStringList>& list, int selector);
    // "###,##0件" and "##,###,##0".
    QString countText() const;
    static QString amountText(double value);
};

} // namespace pel
