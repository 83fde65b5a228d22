#pragma once
// The executables started as the suite and scripts start them: headless, messages on stderr, on one home.
#include <QProcess>
#include <QStringList>

#include <functional>

namespace pel::test {

struct Ran {
    int code = -1; // -1: killed or crashed
    QString out, err;
};

// `inChild` runs in the started process before the program (a limit set there).
inline Ran runIn(const QString& home, const QString& program, const QStringList& args,
                 const std::function<void()>& inChild = {}, int timeoutMs = 60000)
{
    QProcess p;
    QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
    e.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    e.insert(QStringLiteral("PEL008_NO_DIALOGS"), QStringLiteral("1"));
    if (!home.isEmpty())
        e.insert(QStringLiteral("PEL008_HOME"), home);
    p.setProcessEnvironment(e);
    if (inChild)
        p.setChildProcessModifier(inChild);
    p.start(program, args);
    if (!p.waitForFinished(timeoutMs))
        p.kill();
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

} // namespace pel::test
