#pragma once
// How a job (an export, an import, a save) reaches the user. The form implements it with dialogs and widgets,
// the runner with command-line answers, tests with a scripted fake. Jobs never touch widgets.
#include "ui/dialogs.h"
#include "ui/msgcatalog.h"

#include <QString>
#include <QStringList>

namespace pel {

class Interaction {
public:
    virtual ~Interaction() = default;

    // A catalogue question or message (fnMsg semantics; unknown key: nothing shown, 0).
    virtual int msg(const QString& key, const QString& extra = QString(), bool yieldFirst = false)
    {
        return fnMsg(key, extra, yieldFirst);
    }
    // A plain message box with the system's own text, style code and title.
    virtual int messageBox(const QString& text, int style, const QString& title = kProductTitle)
    {
        return dialogs().messageBox(text, style, title);
    }
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
