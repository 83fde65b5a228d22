#pragma once
// How a job (an export, an import, a save) reaches the user. Every message and question, the database layer's own
// included, goes through the dialog service in force (ui/dialogs.h): the program's message boxes, the runner's
// stderr and --yes/--no, a test's script. The rest of a job's contact with the user is here: the form implements
// it with its widgets, the runner on the command line, tests with a recording fake. Jobs never touch widgets.
#include "ui/dialogs.h"
#include "ui/msgcatalog.h"

#include <QString>
#include <QStringList>
#include <optional>

namespace pel {

class Interaction {
public:
    virtual ~Interaction() = default;

    // A catalogue question or message (fnMsg: unknown key shows nothing and answers 0).
    int msg(const QString& key, const QString& extra = QString(), bool yieldFirst = false)
    {
        if (yieldFirst)
            yieldOnce();
        return fnMsg(key, extra, false);
    }
    // A plain message box with the system's own text, style code and title.
    int messageBox(const QString& text, int style, const QString& title = kProductTitle)
    {
        return dialogs().messageBox(text, style, title);
    }
    // A statement that could not be read: the engine's own text, as the database layer words a failed read.
    static QString readErrorText(const QString& engineText)
    {
        return QStringLiteral("データ参照エラーです。\r\n\r\n") + engineText;
    }
    void readError(const QString& engineText) { messageBox(readErrorText(engineText), mb::OkOnly | mb::Critical); }
    // A folder or a file chosen mid-run; nullopt when the user cancels.
    std::optional<QString> chooseFolder(const QString& title, const QString& start)
    {
        return dialogs().chooseFolder(title, start);
    }
    std::optional<QString> chooseFile(DialogService::FileChoice kind, const QString& title, const QString& start,
                                      const QString& filter = QString())
    {
        return dialogs().chooseFile(kind, title, start, filter);
    }

    // The long run starts or ends: the screen locks its inputs (only F6 stays) and shows the hourglass.
    virtual void lock(bool on) { (void)on; }
    // Progress of a long run, 0 to 100.
    virtual void progress(int percent) { (void)percent; }
    // The progress text line of the screen ("処理中・・・", "").
    virtual void status(const QString& text) { (void)text; }
    // Once per record: lets the screen repaint and F6 be pressed.
    virtual void yieldOnce() { dialogs().processEvents(); }
    // One row of a result list.
    virtual void resultRow(const QStringList& row) { (void)row; }
    // Polled before each record: the user asked to stop (F6 confirmed).
    virtual bool cancelRequested() { return false; }
};

} // namespace pel
