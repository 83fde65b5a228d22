#pragma once
// pel008-batch commands: each command lives in its own cmd_*.cpp and registers itself here.
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <QTextStream>

namespace pel::batch {

class CommandLineDialogs;

enum Exit : int {
    Done = 0,     // the job ran to its end
    Stopped = 1,  // a check of the job stopped it (its message says why)
    UsageError = 2,
};

struct Context {
    QStringList args; // the command's own arguments (after the command name)
    bool yes = false; // answer questions with Yes (default: No)
    bool json = false;
    QTextStream& out;
    QTextStream& err;

    // Prints the job's summary as one JSON object on stdout when --json was given.
    void summary(const QJsonObject& object) const;
    // Usage error: prints the message and the command's usage; returns UsageError.
    int usage(const QString& message) const;
    QString usageText;
    // The runner's dialogs: a command sets the answers of the folder and file choices its job will ask for.
    CommandLineDialogs* dialogs = nullptr;
};

struct Command {
    const char* name;
    const char* usage; // one line: "demo [--orders N] [--seed S]"
    int (*run)(Context& ctx);
    // The command draws (fonts, PDF): it runs under a QGuiApplication on the offscreen platform unless another is
    // set; the runner never shows a window.
    bool gui = false;
};

// Registers a command at start-up: static Registrar r{{"name", "usage", &run}} ({..., &run, true} for gui).
struct Registrar {
    explicit Registrar(const Command& command);
};

const Command* findCommand(const QString& name);
QList<const Command*> commands();

} // namespace pel::batch
