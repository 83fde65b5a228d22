#include "conveni/reportdata.h"

#include "conveni/importjob.h"
#include "ui/textrules.h"

namespace pel {

bool CvsMtReportData::selected(const QStringList& row, int selector)
{
    const QString result = row.value(0);
    switch (selector) {
    case 0:
        return result.startsWith(u'○') || result.startsWith(u'△');
    case 1:
        return result.startsWith(u'×') && row.value(1) != QStringLiteral("取消");
    case 2:
        return row.value(1) == QStringLiteral("取消");
    default:
        return true;
    }
}

CvsMtReportRow CvsMtReportData::fields(const QStringList& row)
{
    const QString result = row.value(0);
    return {row.value(1), row.value(2), row.value(3), row.value(4),
            row.value(5), row.value(6), row.value(7), result.startsWith(u'○') ? QString() : result.mid(2)};
}

CvsMtReportData CvsMtReportData::build(const QList<QStringList>& list, int selector)
{
    static const QString suffixes[] = {QStringLiteral("（正常）"), QStringLiteral("（エラー）"),
                                       QStringLiteral("（取消）"), QStringLiteral("（合計）")};
    CvsMtReportData d;
    d.title =
        QStringLiteral("コンビニＭＴ入金データ読込一覧表") + suffixes[selector >= 0 && selector < 3 ? selector : 3];
    for (const QStringList& row : list) {
        if (!selected(row, selector))
            continue;
        d.rows.append(fields(row));
        ++d.count;
        d.dmoney += fnToNum(fnDelStr(row.value(3), QStringLiteral(",")));
        d.ymoney += fnToNum(fnDelStr(row.value(4), QStringLiteral(",")));
    }
    return d;
}

QString CvsMtReportData::countText() const
{
    return PaymentImportJob::formatAmount(count) + QStringLiteral("件");
}

QString CvsMtReportData::amountText(double value)
{
    return PaymentImportJob::formatAmount(value);
}

} // namespace pel
