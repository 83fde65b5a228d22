#include "app/inifile.h"

#include "app/cp932.h"
#include "app/home.h"
#include "app/outputfile.h"
#include "app/runtimeerror.h"

#include <QFile>
#include <QList>

#include <unistd.h>

namespace pel {
namespace {

// The file as byte lines; lines we do not write keep their bytes exactly.
struct Lines {
    QList<QByteArray> raw;
    bool readable = true; // false: the file is there but could not be read whole

    static Lines read(const QString& path)
    {
        Lines l;
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly)) {
            l.readable = !f.exists();
            return l;
        }
        const QByteArray all = f.readAll();
        if (f.error() != QFileDevice::NoError) {
            l.readable = false;
            return l;
        }
        qsizetype start = 0;
        while (start < all.size()) {
            qsizetype nl = all.indexOf('\n', start);
            if (nl < 0)
                nl = all.size();
            QByteArray line = all.mid(start, nl - start);
            if (line.endsWith('\r'))
                line.chop(1);
            l.raw.append(line);
            start = nl + 1;
        }
        return l;
    }

    static QString text(const QByteArray& line)
    {
        if (auto s = Cp932::decode(line))
            return *s;
        return QString::fromLatin1(line);
    }
};

bool isBlank(QChar c)
{
    return c == QLatin1Char(' ') || c == QLatin1Char('\t');
}

QString trimBlanks(const QString& s)
{
    qsizetype b = 0, e = s.size();
    while (b < e && isBlank(s[b]))
        ++b;
    while (e > b && isBlank(s[e - 1]))
        --e;
    return s.mid(b, e - b);
}

// Section name of a "[name]" line, or a null string.
QString sectionOf(const QString& line)
{
    const QString t = trimBlanks(line);
    if (!t.startsWith(QLatin1Char('[')))
        return QString();
    const qsizetype close = t.indexOf(QLatin1Char(']'));
    return trimBlanks(close < 0 ? t.mid(1) : t.mid(1, close - 1));
}

bool keyOf(const QString& line, QString* key, QString* value)
{
    const qsizetype eq = line.indexOf(QLatin1Char('='));
    if (eq < 0)
        return false;
    *key = trimBlanks(line.left(eq));
    if (value)
        *value = line.mid(eq + 1);
    return true;
}

bool sameName(const QString& a, const QString& b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

// Index range [begin, end) of the lines inside the first section named section (after its header), or -1.
qsizetype findSection(const Lines& l, const QString& section, qsizetype* end)
{
    for (qsizetype i = 0; i < l.raw.size(); ++i) {
        const QString s = sectionOf(Lines::text(l.raw[i]));
        if (!s.isNull() && sameName(s, section)) {
            qsizetype j = i + 1;
            while (j < l.raw.size() && sectionOf(Lines::text(l.raw[j])).isNull())
                ++j;
            *end = j;
            return i + 1;
        }
    }
    return -1;
}

bool lookup(const QString& section, const QString& key, const QString& file, QString* value)
{
    const Lines l = Lines::read(file);
    qsizetype end = 0;
    const qsizetype begin = findSection(l, section, &end);
    if (begin < 0)
        return false;
    for (qsizetype i = begin; i < end; ++i) {
        QString k, v;
        if (keyOf(Lines::text(l.raw[i]), &k, &v) && sameName(k, key)) {
            v = trimBlanks(v);
            if (v.size() >= 2 && (v.front() == QLatin1Char('"') || v.front() == QLatin1Char('\'')) &&
                v.back() == v.front())
                v = v.mid(1, v.size() - 2);
            *value = v;
            return true;
        }
    }
    return false;
}

} // namespace

long fnGetIni(const QString& section, const QString& key, const QString& defaultValue, QString& value, int size,
              const QString& file)
{
    QString v;
    if (!lookup(section, key, file, &v))
        v = defaultValue;
    if (size <= 0)
        v.clear();
    else if (v.size() > size - 1)
        v.truncate(size - 1);
    // The value ends at the first NUL, as the buffer the suite reads into does.
    const qsizetype nul = v.indexOf(QChar(u'\0'));
    if (nul >= 0)
        v.truncate(nul);
    value = v;
    return static_cast<long>(v.size());
}

long fnPutIni(const QString& section, const QString& key, const QString& value, const QString& file)
{
    const auto entry = Cp932::encode(QString(key + QLatin1Char('=') + value));
    const auto header = Cp932::encode(QString(QLatin1Char('[') + section + QLatin1Char(']')));
    if (!entry || !header)
        return 0;
    Lines l = Lines::read(file);
    if (!l.readable)
        return 0; // written back from what could be read, the other settings would be lost
    qsizetype end = 0;
    const qsizetype begin = findSection(l, section, &end);
    if (begin < 0) {
        if (!l.raw.isEmpty() && !l.raw.back().isEmpty())
            l.raw.append(QByteArray());
        l.raw.append(*header);
        l.raw.append(*entry);
    } else {
        qsizetype at = -1;
        qsizetype lastKey = begin - 1;
        for (qsizetype i = begin; i < end; ++i) {
            QString k;
            if (keyOf(Lines::text(l.raw[i]), &k, nullptr)) {
                lastKey = i;
                if (at < 0 && sameName(k, key))
                    at = i;
            }
        }
        if (at >= 0)
            l.raw[at] = *entry;
        else
            l.raw.insert(lastKey + 1, *entry);
    }
    QByteArray text;
    for (const QByteArray& line : std::as_const(l.raw))
        text += line + "\r\n";
    // Replaced through a temporary file; in place where the folder takes no new file but the file may be written
    // (a read-only or immutable folder, some shares).
    OutputFile out(file);
    if (out.open())
        return out.write(text) && out.commit() ? 1 : 0;
    QFile direct(file);
    if (!direct.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return 0;
    const bool written = direct.write(text) == text.size() && direct.flush() && ::fsync(direct.handle()) == 0;
    direct.close();
    return written && direct.error() == QFileDevice::NoError ? 1 : 0;
}

long fnGetIniInt(const QString& section, const QString& key, long defaultValue, const QString& file)
{
    QString v;
    if (!lookup(section, key, file, &v))
        return defaultValue;
    v = trimBlanks(v);
    qsizetype i = 0;
    bool negative = false;
    if (i < v.size() && (v[i] == QLatin1Char('-') || v[i] == QLatin1Char('+')))
        negative = v[i++] == QLatin1Char('-');
    long long n = 0;
    for (; i < v.size() && v[i] >= QLatin1Char('0') && v[i] <= QLatin1Char('9'); ++i) {
        n = n * 10 + (v[i].unicode() - u'0');
        if (n > 0xFFFFFFFFLL)
            break;
    }
    return static_cast<long>(negative ? -n : n);
}

quint8 fnGetDbMode()
{
    const long mode = fnGetIniInt(QStringLiteral("mirabo"), QStringLiteral("dbmode"), 0, iniPath());
    if (mode < 0 || mode > 255)
        throw RuntimeError::overflow();
    return static_cast<quint8>(mode);
}

QString iniDbServer()
{
    QString v;
    fnGetIni(QStringLiteral("mirabo"), QStringLiteral("dbserver"), QString(), v, 1024, iniPath());
    return v;
}

// No wait unless a site asks for one: every engine we use shows a commit to the next statement of any connection.
std::optional<int> iniCheckWait(QString* text)
{
    QString v;
    if (!lookup(QStringLiteral("CvsRead"), QStringLiteral("CheckWait"), iniPath(), &v))
        return 0;
    v = trimBlanks(v);
    if (text)
        *text = v;
    bool ok = !v.isEmpty();
    for (const QChar c : v)
        ok = ok && c >= QLatin1Char('0') && c <= QLatin1Char('9');
    const int ms = ok ? v.toInt(&ok) : 0;
    return ok ? std::optional<int>(ms) : std::nullopt;
}

} // namespace pel
