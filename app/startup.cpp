#include "app/startup.h"

#include "app/runtimeerror.h"
#include "ui/textrules.h"

#include <QMap>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

namespace pel {

QStringList gstrArgs;
qint16 gintArgCnt = 0;

namespace {

QString trimSpaces(const QString& s)
{
    qsizetype b = 0, e = s.size();
    while (b < e && s[b] == QLatin1Char(' '))
        ++b;
    while (e > b && s[e - 1] == QLatin1Char(' '))
        --e;
    return s.mid(b, e - b);
}

QMap<QString, ScreenFactory>& screens()
{
    static QMap<QString, ScreenFactory> s;
    return s;
}

} // namespace

qint16 fnGetCommand(QStringList& args, const QString& commandLine)
{
    QString text = commandLine;
    if (text.isEmpty())
        return 0;
    constexpr int kMaxArgs = 11;
    int i = 0;
    for (; i < kMaxArgs; ++i) {
        while (args.size() < i + 1)
            args.append(QString());
        while (args.size() > i + 1)
            args.removeLast();
        const qsizetype p = text.indexOf(QLatin1Char(' '));
        if (p < 0)
            break;
        args[i] = text.left(p);
        text = trimSpaces(text.mid(p + 1));
    }
    // A twelfth token has no place in the array.
    if (i >= kMaxArgs)
        throw RuntimeError::subscriptOutOfRange();
    args[i] = text;
    return static_cast<qint16>(i + 1);
}

QString processCommandLine(int argc, char** argv)
{
#ifdef Q_OS_WIN
    // The menu's command line as it was written: everything after the program path and its separator.
    (void)argc;
    (void)argv;
    const QString line = QString::fromWCharArray(GetCommandLineW());
    qsizetype i = 0;
    if (line.startsWith(QLatin1Char('"'))) {
        const qsizetype close = line.indexOf(QLatin1Char('"'), 1);
        i = close < 0 ? line.size() : close + 1;
    } else {
        while (i < line.size() && line[i] != QLatin1Char(' ') && line[i] != QLatin1Char('\t'))
            ++i;
    }
    if (i < line.size() && (line[i] == QLatin1Char(' ') || line[i] == QLatin1Char('\t')))
        ++i;
    return line.mid(i);
#else
    // POSIX hands the arguments over split: join them as the menu wrote them.
    QStringList parts;
    for (int i = 1; i < argc; ++i)
        parts << QString::fromLocal8Bit(argv[i]);
    return parts.join(QLatin1Char(' '));
#endif
}

qint16 fnSplitQuoted(const QString& line, QStringList& fields, const QString& sep)
{
    if (line.isEmpty())
        return -1;
    fields = QStringList{QString(), QString()};
    int k = 1;
    bool quoted = false;
    const QChar quote(u'"');
    for (const QChar c : line) {
        if (c == quote)
            quoted = !quoted;
        if (!quoted && !sep.isEmpty() && c == sep.front()) {
            fields[k] = fnDelStr(fields[k], QString(quote));
            ++k;
            fields.append(QString());
            continue;
        }
        if (c != quote)
            fields[k] += c;
    }
    return static_cast<qint16>(k);
}

void registerScreen(const QString& number, ScreenFactory factory)
{
    screens().insert(number, std::move(factory));
}

ScreenFactory screenFor(const QString& arg0)
{
    static const char* const numbers[] = {"1", "2", "5", "6", "7"};
    for (const char* n : numbers)
        if (arg0 == QLatin1String(n))
            return screens().value(arg0);
    return nullptr;
}

} // namespace pel
