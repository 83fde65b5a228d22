// libFuzzer target for the text the program reads from others: mirabo.ini (read, integer read, a write that must
// keep every other line) and the quoted-field splitter of the import files.
#include "app/inifile.h"
#include "app/startup.h"
#include "tests/fuzz/input.h"

#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

void settings(const QByteArray& bytes)
{
    const QString& path = writtenInput("mirabo.ini", bytes);
    QString v;
    static const char* const keys[][2] = {{"mirabo", "dbmode"},
                                          {"mirabo", "dbpath"},
                                          {"I-CAT", "MakeFile"},
                                          {"CvsRead", "CheckWait"},
                                          {"", ""},
                                          {"[", "="}};
    for (const auto& k : keys) {
        pel::fnGetIni(QString::fromLatin1(k[0]), QString::fromLatin1(k[1]), QStringLiteral("d"), v, 1024, path);
        (void)pel::fnGetIniInt(QString::fromLatin1(k[0]), QString::fromLatin1(k[1]), -1, path);
    }
    if (pel::fnPutIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), QStringLiteral("C:\\受信\\MT.txt"),
                      path)) {
        QString back;
        pel::fnGetIni(QStringLiteral("CvsRead"), QStringLiteral("ReadFile"), QString(), back, 1024, path);
        if (back != QStringLiteral("C:\\受信\\MT.txt"))
            std::abort(); // a written value must read back
    }
}

void split(const QByteArray& bytes)
{
    const QString line = QString::fromUtf8(bytes);
    QStringList fields;
    const int n = pel::fnSplitQuoted(line, fields, QStringLiteral(","));
    if (n > 0 && fields.size() <= n)
        std::abort(); // fields[1..n] must exist
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), static_cast<qsizetype>(size - 1));
    if (data[0] & 1)
        split(bytes);
    else
        settings(bytes);
    return 0;
}
