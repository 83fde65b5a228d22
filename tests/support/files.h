#pragma once
// A file's bytes as a test compares them.
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

} // namespace pel::test
