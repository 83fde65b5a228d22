#pragma once
// A file's bytes as a test compares them, and a file a test sets up.
#include <QByteArray>
#include <QFile>
#include <QString>

namespace pel::test {

// A file that cannot be read gives a marker that no test file holds.
inline QByteArray fileBytes(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
}

inline bool writeFileBytes(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

} // namespace pel::test
