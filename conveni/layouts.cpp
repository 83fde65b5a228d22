#include "conveni/layouts.h"

#include <cmath>
#include <limits>

namespace pel {

CvsLayout gCvsLayout;

namespace {

bool toShort(double value, qint16* out)
{
    // the current rounding mode is to nearest, halves to even
    const double r = std::nearbyint(value);
    if (!(r >= std::numeric_limits<qint16>::min() && r <= std::numeric_limits<qint16>::max()))
        return false;
    *out = static_cast<qint16>(r);
    return true;
}

} // namespace

double fnLayoutValue(const QString& text)
{
    QString r;
    bool dot = false;
    for (const QChar c : text) {
        if (c >= u'0' && c <= u'9') {
            r += c;
        } else if (c == u'.' && !dot) {
            dot = true;
            if (r.isEmpty())
                r += u'0';
            r += c;
        }
    }
    return r.isEmpty() ? 0.0 : r.toDouble();
}

bool fnSplitPos(double value, LayoutPos* pos)
{
    const double n = std::nearbyint(value * 100);
    if (!(n >= 0 && n <= std::numeric_limits<qint16>::max() * 100.0 + 99))
        return false;
    const auto whole = static_cast<qint64>(n);
    pos->start = static_cast<qint16>(whole / 100);
    pos->length = static_cast<qint16>(whole % 100);
    return true;
}

bool fnFieldNo(double value, qint16* number)
{
    return toShort(value, number);
}

QString fnItem(const QString& text, LayoutPos pos)
{
    if (pos.start <= 0 || pos.length <= 0)
        return QString();
    return text.mid(pos.start - 1, pos.length);
}

} // namespace pel
