#pragma once
// The fuzz input as a file, for the readers that open one: one file per target, written anew for every input.
#include <QByteArray>
#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <cstdlib>

inline const QString& writtenInput(const char* name, const QByteArray& bytes)
{
    static QTemporaryDir dir;
    static const QString path = dir.filePath(QString::fromLatin1(name));
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate) || f.write(bytes) != bytes.size())
        std::abort();
    return path;
}
