// pel008-batch: every job of the program without the GUI, with the same outcomes as the screens.
#include "batch/command.h"
#include "batch/interaction.h"
#include "ui/dialogs.h"

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QJsonDocument>
#include <map>
#include <memory>

#ifdef Q_OS_UNIX
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace pel::batch {
namespace {

// std::map keeps the address of a value stable, so lookups may hand out pointers.
std::map<QString, Command>& registry()
{
    static std::map<QString, Command> r;
    return r;
}

QString mainUsage()
{
    QString u = QStringLiteral("usage: pel008-batch [--home DIR] [--yes|--no] [--json] COMMAND [ARGS]\ncommands:\n");
    for (const Command* c : commands())
        u += QStringLiteral("  ") + QString::fromUtf8(c->usage) + QLatin1Char('\n');
    return u;
}

// The command named on the command line, found before the application object exists (it decides its kind).
const Command* commandOf(int argc, char** argv)
{
    for (int i = 1; i < argc; ++i) {
        const QString a = QString::fromLocal8Bit(argv[i]);
        if (a == QLatin1String("--home"))
            ++i;
        else if (!a.startsWith(QLatin1String("--")))
            return findCommand(a);
    }
    return nullptr;
}

} // namespace

Registrar::Registrar(const Command& command)
{
    registry().emplace(QString::fromUtf8(command.name), command);
}

const Command* findCommand(const QString& name)
{
    const auto it = registry().find(name);
    return it == registry().end() ? nullptr : &it->second;
}

QList<const Command*> commands()
{
    QList<const Command*> list;
    for (const auto& [name, command] : registry())
        list << &command;
    return list;
}

void Context::summary(const QJsonObject& object) const
{
    if (json)
        out << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
}

int Context::usage(const QString& message) const
{
    err << message << Qt::endl << QStringLiteral("usage: pel008-batch ") << usageText << Qt::endl;
    return UsageError;
}

// Rows and totals that never reached their reader are no finished run (a full disk).
int delivered(QTextStream& out, QTextStream& err, int rc)
{
    errno = 0;
    out.flush();
    if (out.status() == QTextStream::Ok && std::fflush(stdout) == 0 && !std::ferror(stdout))
        return rc;
    const int why = errno;
    err << "pel008-batch: the output could not be written";
    if (why != 0)
        err << ": " << QString::fromLocal8Bit(std::strerror(why));
    err << Qt::endl;
    return rc == Done ? Stopped : rc;
}

} // namespace pel::batch

int main(int argc, char** argv)
{
    using namespace pel::batch;
    const Command* wanted = commandOf(argc, argv);
    std::unique_ptr<QCoreApplication> application;
    if (wanted && wanted->gui) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
#ifdef Q_OS_UNIX
        // A headless run has no session folder: a private one keeps Qt's warning about it off stderr, where only
        // the job's messages belong.
        if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
            const QByteArray dir = QDir::tempPath().toLocal8Bit() + "/pel008-runtime-" +
                                   QByteArray::number(static_cast<qulonglong>(getuid()));
            if (mkdir(dir.constData(), 0700) == 0 || errno == EEXIST)
                qputenv("XDG_RUNTIME_DIR", dir);
        }
#endif
        application = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        application = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication& app = *application;
    QTextStream out(stdout);
    QTextStream err(stderr);

    QStringList args = app.arguments().mid(1);
    bool yes = false, json = false;
    while (!args.isEmpty() && args.front().startsWith(QLatin1String("--"))) {
        const QString opt = args.takeFirst();
        if (opt == QLatin1String("--home")) {
            if (args.isEmpty()) {
                err << mainUsage();
                return UsageError;
            }
            qputenv("PEL008_HOME", QDir(args.takeFirst()).absolutePath().toLocal8Bit());
        } else if (opt == QLatin1String("--yes")) {
            yes = true;
        } else if (opt == QLatin1String("--no")) {
            yes = false;
        } else if (opt == QLatin1String("--json")) {
            json = true;
        } else if (opt == QLatin1String("--help")) {
            out << mainUsage();
            return delivered(out, err, Done);
        } else {
            err << "unknown option " << opt << Qt::endl << mainUsage();
            return UsageError;
        }
    }
    if (qEnvironmentVariableIsEmpty("PEL008_HOME"))
        qputenv("PEL008_HOME", QCoreApplication::applicationDirPath().toLocal8Bit());
    if (args.isEmpty()) {
        err << mainUsage();
        return UsageError;
    }
    const Command* command = findCommand(args.front());
    if (!command) {
        err << "unknown command " << args.front() << Qt::endl << mainUsage();
        return UsageError;
    }
    CommandLineDialogs dialogs(err, yes);
    pel::setDialogService(&dialogs);
    Context ctx{args.mid(1), yes, json, out, err, QString::fromUtf8(command->usage), &dialogs};
    const int rc = delivered(out, err, command->run(ctx));
    err.flush();
    pel::setDialogService(nullptr);
    return rc;
}
