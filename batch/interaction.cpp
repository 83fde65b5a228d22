#include "batch/interaction.h"

#include <atomic>
#include <csignal>

namespace pel::batch {
namespace {

std::atomic<bool> gInterrupted{false};

extern "C" void onInterrupt(int)
{
    gInterrupted.store(true);
}

} // namespace

int CommandLineDialogs::messageBox(const QString& text, int style, const QString&)
{
    err_ << text << Qt::endl;
    switch (mb::buttons(style)) {
    case mb::YesNo:
        return yes_ ? answer::Yes : answer::No;
    case mb::YesNoCancel:
        // --no must never overwrite, append or mark: a three-way question is abandoned
        return yes_ ? answer::Yes : answer::Cancel;
    case mb::OkCancel:
        return yes_ ? answer::Ok : answer::Cancel;
    case mb::RetryCancel:
    case mb::CancelTryContinue:
        return answer::Cancel;
    case mb::AbortRetryIgnore:
        return answer::Abort;
    default:
        return answer::Ok;
    }
}

std::optional<QString> CommandLineDialogs::chooseFolder(const QString& title, const QString&)
{
    if (!folder_)
        err_ << title << QStringLiteral(": no folder given") << Qt::endl;
    return folder_;
}

std::optional<QString> CommandLineDialogs::chooseFile(FileChoice, const QString& title, const QString&, const QString&)
{
    if (!file_)
        err_ << title << QStringLiteral(": no file given") << Qt::endl;
    return file_;
}

CommandInteraction::CommandInteraction(QTextStream* rows) : out_(rows)
{
    gInterrupted.store(false);
    std::signal(SIGINT, onInterrupt);
}

CommandInteraction::~CommandInteraction()
{
    std::signal(SIGINT, SIG_DFL);
}

void CommandInteraction::resultRow(const QStringList& row)
{
    if (out_)
        *out_ << row.join(QLatin1Char('\t')) << Qt::endl;
    else
        rows_.append(row);
}

bool CommandInteraction::cancelRequested()
{
    return gInterrupted.load();
}

} // namespace pel::batch
