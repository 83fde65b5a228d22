#include "offset/offsetjob.h"

#include "app/db/dbglobals.h"
#include "app/db/retry.h"
#include "ui/textrules.h"

#include <algorithm>
#include <cmath>

namespace pel {

std::optional<OffsetValues> OffsetJob::read() const
{
    Recordset rs;
    fnOpenRs(rs,
             Sql("select [top],left,hight from offset where kubun = ") + Sql::n(kind_) + " and code = " + Sql::n(code_),
             false, 1);
    if (!rs.isOpen() || rs.eof())
        return std::nullopt;
    OffsetValues v;
    v.top = rs.value(0).toDouble();
    v.left = rs.value(1).toDouble();
    v.hight = rs.value(2).toDouble();
    return v;
}

bool OffsetJob::save(const QString& top, const QString& left, const QString& hight, Interaction& ui)
{
    // A record another program holds opens all the same; its Update fails and the save is tried again at once.
    const Sql select = Sql("select * from offset where kubun = ") + Sql::n(kind_) + " And code = " + Sql::n(code_);
    const auto fill = [&](Recordset& rs) {
        if (rs.isNewRow() && (!fnSetFields(rs, QStringLiteral("kubun"), QString::number(kind_)) ||
                              !fnSetFields(rs, QStringLiteral("code"), QString::number(code_))))
            return false;
        return fnSetFields(rs, QStringLiteral("top"), top.trimmed()) &&
               fnSetFields(rs, QStringLiteral("left"), left.trimmed()) &&
               fnSetFields(rs, QStringLiteral("hight"), hight.trimmed());
    };
    const RetryResult r =
        retrySilently(kAttempts, [&](QString* error) { return editRecordGlobal(select, fill, error); });
    attempts_ = r.attempts;
    if (!r.ok)
        ui.msg(QStringLiteral("記録エラー"), QString(), true);
    return r.ok;
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
