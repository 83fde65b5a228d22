#include "conveni/mtfile.h"

#include "app/cp932.h"
#include "app/outputfile.h"

#include <QDateTime>

namespace pel {
namespace {

// 0: not valid UTF-8; 1: valid, at most two-byte sequences; 2: valid with a three- or four-byte sequence.
int utf8Kind(const QByteArray& bytes)
{
    int kind = 1;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.constData());
    const qsizetype n = bytes.size();
    for (qsizetype i = 0; i < n;) {
        const unsigned char c = p[i];
        int len = 0;
        if (c < 0x80)
            len = 1;
        else if (c >= 0xC2 && c <= 0xDF)
            len = 2;
        else if (c >= 0xE0 && c <= 0xEF)
            len = 3;
        else if (c >= 0xF0 && c <= 0xF4)
            len = 4;
        else
            return 0;
        if (i + len > n)
            return 0;
        for (int k = 1; k < len; ++k)
            if ((p[i + k] & 0xC0) != 0x80)
                return 0;
        if (len >= 3)
            kind = 2;
        i += len;
    }
    return kind;
}

} // namespace

bool MtFile::open(const QString& path)
{
    close();
    file_.setFileName(path);
    if (!file_.open(QIODevice::ReadOnly))
        return false;
    lineNo_ = 0;
    utf8Lines_ = 0;
    nonUtf8_ = false;
    message_.clear();
    return fill();
}

void MtFile::close()
{
    if (file_.isOpen())
        file_.close();
    pending_.clear();
    havePending_ = false;
}

bool MtFile::fill()
{
    havePending_ = false;
    while (!file_.atEnd()) {
        QByteArray raw = file_.readLine();
        if (raw.isEmpty() && file_.error() != QFileDevice::NoError)
            return false;
        if (raw.endsWith('\n'))
            raw.chop(1);
        if (raw.endsWith('\r'))
            raw.chop(1);
        const bool hadText = !raw.isEmpty();
        while (raw.endsWith('\x1A'))
            raw.chop(1);
        if (hadText && raw.isEmpty())
            continue; // an end-of-file byte on a line of its own
        pending_ = std::move(raw);
        havePending_ = true;
        break;
    }
    return true;
}

bool MtFile::atEnd()
{
    return !havePending_;
}

MtFile::Status MtFile::next(QString* line)
{
    if (!havePending_)
        return Status::End;
    const QByteArray bytes = std::move(pending_);
    pending_ = QByteArray();
    ++lineNo_;
    if (!fill()) {
        message_ = file_.errorString();
        return Status::Error;
    }
    if (lineNo_ == 1 && bytes.startsWith("\xEF\xBB\xBF")) {
        message_ = utf8Message();
        return Status::Error;
    }
    bool high = false;
    for (const char c : bytes)
        if (static_cast<unsigned char>(c) >= 0x80) {
            high = true;
            break;
        }
    if (!high) {
        *line = QString::fromLatin1(bytes);
        return Status::Line;
    }
    const int u = utf8Kind(bytes);
    if (u == 0)
        nonUtf8_ = true;
    else if (u == 2)
        ++utf8Lines_;
    Cp932Error err;
    const auto text = Cp932::decode(bytes, &err);
    if (!text) {
        message_ = u == 2 ? utf8Message() : notCp932Message(lineNo_, err.message);
        return Status::Error;
    }
    *line = *text;
    return Status::Line;
}

QString MtFile::utf8Message()
{
    return QStringLiteral(
        "UTF-8で保存されたファイルは読み込めません。\r\nShift-JIS（CP932）のファイルを指定してください。");
}

QString MtFile::notCp932Message(qint64 line, const QString& detail)
{
    return QStringLiteral("%1行目にShift-JIS（CP932）として読めない文字があります。\r\n%2").arg(line).arg(detail);
}

bool appendReadMark(const QString& path)
{
    // the line break first when the last line has none
    QByteArray out;
    {
        QFile f(path);
        if (!f.open(QIODevice::ReadOnly))
            return false;
        if (f.size() > 0) {
            char last = 0;
            if (!f.seek(f.size() - 1) || !f.getChar(&last))
                return false;
            if (last != '\n')
                out += "\r\n";
        }
    }
    out += *Cp932::encode(u"読込済") + "\r\n";
    // a copy extended and renamed into place: a full disk leaves the file unmarked, never half marked
    OutputFile file(path);
    return file.open(OutputFile::Mode::Append) && file.write(out) && file.commit();
}

QString backupName(const QString& path, const QDateTime& at)
{
    // "yyyymmddhh24miss" as the date formatter reads it: hh is the hour, "24" is literal, m the month again
    // (it does not follow an hour), i is literal, ss the seconds.
    return path + QLatin1Char('.') + at.toString(QStringLiteral("yyyyMMddHH")) + QStringLiteral("24") +
           QString::number(at.date().month()) + QLatin1Char('i') + at.toString(QStringLiteral("ss"));
}

} // namespace pel
