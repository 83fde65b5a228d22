#include "app/outputfile.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace pel {

bool OutputFile::open(Mode mode)
{
    error_.clear();
    failed_ = false;
    QFile existing(file_.fileName());
    const bool extend = mode == Mode::Append && existing.exists();
    if (extend && !existing.open(QIODevice::ReadOnly)) {
        error_ = existing.errorString();
        return false;
    }
    if (!file_.open(QIODevice::WriteOnly)) {
        error_ = file_.errorString();
        return false;
    }
    if (extend) {
        while (!existing.atEnd()) {
            const QByteArray block = existing.read(1 << 16);
            if (block.isEmpty() && existing.error() != QFileDevice::NoError) {
                error_ = existing.errorString();
                discard();
                return false;
            }
            if (!write(block)) {
                discard();
                return false;
            }
        }
    }
    return true;
}

bool OutputFile::write(const QByteArray& bytes)
{
    if (failed_ || !file_.isOpen())
        return false;
    if (file_.write(bytes) != bytes.size())
        return fail();
    return true;
}

bool OutputFile::flush()
{
    if (failed_ || !file_.isOpen())
        return false;
    if (!file_.flush())
        return fail();
    // synced here, so that a full disk or a failing device is seen before the rename
    if (::fsync(file_.handle()) != 0 && errno != EINVAL && errno != EROFS) {
        failed_ = true;
        error_ = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    return true;
}

bool OutputFile::commit()
{
    if (!flush()) {
        discard();
        return false;
    }
    if (!file_.commit()) {
        error_ = file_.errorString();
        failed_ = true;
        return false;
    }
    return true;
}

void OutputFile::discard()
{
    if (file_.isOpen())
        file_.cancelWriting();
    if (file_.isOpen())
        (void)file_.commit(); // a cancelled save file only removes its temporary file
}

QString OutputFile::failureText() const
{
    return writeFailureText(path(), error_);
}

bool OutputFile::fail()
{
    failed_ = true;
    error_ = file_.errorString();
    return false;
}

QString writeFailureText(const QString& path, const QString& reason)
{
    return QStringLiteral("ファイルの書き込みに失敗しました！\r\n") + path + QStringLiteral("\r\n") + reason;
}

bool copyFileSafely(const QString& from, const QString& to, QString* reason)
{
    QFile in(from);
    if (!in.open(QIODevice::ReadOnly)) {
        *reason = in.errorString();
        return false;
    }
    OutputFile out(to);
    if (!out.open()) {
        *reason = out.error();
        return false;
    }
    while (!in.atEnd()) {
        const QByteArray block = in.read(1 << 16);
        if (block.isEmpty() && in.error() != QFileDevice::NoError) {
            *reason = in.errorString();
            return false;
        }
        if (!out.write(block)) {
            *reason = out.error();
            return false;
        }
    }
    if (!out.commit()) {
        *reason = out.error();
        return false;
    }
    return true;
}

bool sameFile(const QString& a, const QString& b)
{
    const QString ca = QFileInfo(a).canonicalFilePath(), cb = QFileInfo(b).canonicalFilePath();
    if (!ca.isEmpty() && ca == cb)
        return true;
    // hard links and other names of one file
    struct stat sa {
    }, sb{};
    const QByteArray na = QFile::encodeName(a), nb = QFile::encodeName(b);
    return ::stat(na.constData(), &sa) == 0 && ::stat(nb.constData(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

} // namespace pel
