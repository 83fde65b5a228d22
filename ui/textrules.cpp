#include "ui/textrules.h"

#include "app/cp932.h"

namespace pel {

double fnToNum(const QString& text, bool decimals, bool minus)
{
    QString r;
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u >= u'0' && u <= u'9') {
            r += c;
        } else if (u == u'.') {
            if (decimals && !r.contains(u'.')) {
                if (r.isEmpty() || r == QLatin1String("-"))
                    r += u'0';
                r += c;
            }
        } else if (u == u'-') {
            if (minus && r.isEmpty())
                r += c;
        }
    }
    if (r == QLatin1String("-"))
        r.clear();
    return r.isEmpty() ? 0.0 : r.toDouble();
}

QString fnDelStr(const QString& text, const QString& sub)
{
    if (text.isEmpty() || sub.isEmpty())
        return text;
    QString r = text;
    qsizetype p;
    while ((p = r.indexOf(sub)) >= 0)
        r.remove(p, sub.size());
    return r;
}

QString fnTrim(const QString& text)
{
    qsizetype begin = 0, end = text.size();
    while (begin < end && text[begin] == u' ')
        ++begin;
    while (end > begin && text[end - 1] == u' ')
        --end;
    return text.mid(begin, end - begin);
}

QString fnCutByte(QString& text, int n)
{
    int bytes = 0;
    qsizetype i = 0;
    while (i < text.size()) {
        const qsizetype w = (text[i].isHighSurrogate() && i + 1 < text.size()) ? 2 : 1;
        const int len = static_cast<int>(Cp932::byteLength(QStringView(text).mid(i, w)));
        if (bytes + len > n)
            break;
        bytes += len;
        i += w;
    }
    const QString piece = text.left(i);
    text = text.mid(i);
    return piece;
}

QString fnYear(const QString& year, bool flag)
{
    if (fnTrim(year).isEmpty())
        return QString();
    const double v = fnToNum(year);
    const long long y = static_cast<long long>(v);
    if (v != static_cast<double>(y))
        return QString::number(v);
    long long r = y;
    if (y == 0)
        r = 2000;
    else if (y >= 1 && y <= 10)
        r = 2000 + y;
    else if (y >= 11 && y <= 50)
        r = (flag ? 1900 : 2000) + y;
    else if (y >= 51 && y <= 99)
        r = 1900 + y;
    else if (y >= 100 && y <= 999)
        r = 2000 + y;
    return QString::number(r);
}

QString fnPadLeft(const QString& text, int width, QChar fill)
{
    return text.size() >= width ? text : QString(width - text.size(), fill) + text;
}

int fnByteLen(const QString& text)
{
    return static_cast<int>(Cp932::byteLength(text));
}

long long trioToYmd(const QString& yy, const QString& mm, const QString& dd)
{
    if (fnTrim(yy).isEmpty() || fnTrim(mm).isEmpty() || fnTrim(dd).isEmpty())
        return 0;
    const auto n = [](const QString& t) { return static_cast<long long>(fnToNum(t)); };
    return n(yy) * 10000 + n(mm) * 100 + n(dd);
}

QString joinedTexts(std::initializer_list<QString> parts)
{
    qsizetype size = 0;
    for (const QString& p : parts)
        size += p.size();
    QString out;
    out.reserve(size);
    for (const QString& p : parts)
        out += p;
    return out;
}

} // namespace pel
