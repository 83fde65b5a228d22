#include "app/home.h"

#include "app/runtimeerror.h"

#include <QCoreApplication>
#include <QDir>

namespace pel {

QString programFolder()
{
    const QString home = qEnvironmentVariable("PEL008_HOME");
    if (!home.isEmpty())
        return QDir::cleanPath(home);
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    return QDir::currentPath();
}

QString joinPath(const QString& folder, const QString& name)
{
    if (folder.endsWith(QLatin1Char('/')) || folder.endsWith(QDir::separator()))
        return folder + name;
    return folder + QDir::separator() + name;
}

QString programFile(const QString& name)
{
    return joinPath(QDir::toNativeSeparators(programFolder()), name);
}

QString iniPath()
{
    return programFile(QStringLiteral("mirabo.ini"));
}

namespace {
thread_local QString gLastError;
}

QString lastErrorDescription()
{
    return gLastError;
}

void setLastErrorDescription(const QString& description)
{
    gLastError = description;
}

} // namespace pel
