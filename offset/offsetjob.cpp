#include "offset/offsetjob.h"

#include "app/db/dbglobals.h"
#include "ui/textrules.h"

#include <algorithm>
#include <cmath>

namespace pel {

std::optional<OffsetValues> OffsetJob::read() const
{
    Recordset rs;
    fnOpenRs(rs, Sql("select [top],left,hight from offset where kubun = ") + Sql::n(kind_) + " and code = " +
                     Sql::n(code_),
             false, 1);
    if (!rs.isOpen() || rs.eof())
        return std::nullopt;
    OffsetValues v;
    v.top = rs.value(0).toDouble();
    v.left = rs.value(1).toDouble();
    v.hight = rs.value(2).toDouble();
    return v;
}

bool OffsetJob::saveOnce(const QString& top, const QString& left, const QString& hight)
{
    // A record another program holds opens all the same; its Update fails and the caller tries again at once.
    Recordset rs;
    QString err;
    fnOpenRs(rs, Sql("select * from offset where kubun = ") + Sql::n(kind_) + " And code = " + Sql::n(code_), true, 1);
    if (!rs.isOpen())
        return false;
    if (rs.isNewRow()) {
        if (!fnSetFields(rs, QStringLiteral("kubun"), QString::number(kind_)) ||
            !fnSetFields(rs, QStringLiteral("code"), QString::number(code_)))
            return false;
    }
    return fnSetFields(rs, QStringLiteral("top"), top.trimmed()) &&
           fnSetFields(rs, QStringLiteral("left"), left.trimmed()) &&
           fnSetFields(rs, QStringLiteral("hight"), hight.trimmed()) && rs.update(&err);
}

bool OffsetJob::save(const QString& top, const QString& left, const QString& hight, Interaction& ui)
{
    for (attempts_ = 1; attempts_ <= kAttempts; ++attempts_) {
        if (saveOnce(top, left, hight))
            return true;
    }
    attempts_ = kAttempts;
    ui.msg(QStringLiteral("記録エラー"), QString(), true);
    return false;
}

QString OffsetJob::format(double value, int width)
{
    // Halves away from zero, as the format does; no "-0.0".
    double r = std::round(value * 10) / 10;
    if (r == 0)
        r = 0;
    return fnPadLeft(QString::number(r, 'f', 1), width);
}

QString OffsetJob::fieldText(const QString& typed, int width)
{
    return format(std::clamp(fnToNum(typed), -kLimit, kLimit), width);
}

} // namespace pel
