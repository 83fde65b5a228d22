#pragma once
// The screens' side of a job: the busy lock with the hourglass, the progress bar and status line, result rows into
// the screen's list, and F6 ("処理中止") setting the cancel flag that the job polls before each record. The hourglass
// shows while the work runs, never over a question or a message of the run.
#include "app/interaction.h"

#include <QPointer>

#include <memory>

class QLabel;
class QProgressBar;
class QTreeWidget;

namespace pel {

class Form;

class FormInteraction : public Interaction {
public:
    struct Widgets {
        QProgressBar* progress = nullptr; // prbProgress
        QLabel* status = nullptr;         // the progress text line
        QTreeWidget* list = nullptr;      // the result list
    };
    // busyMask: the toolbar while the job runs (F6 only, as a rule); idleMask: the toolbar after it.
    FormInteraction(Form* form, const QString& busyMask, const QString& idleMask, Widgets widgets);
    FormInteraction(Form* form, const QString& busyMask, const QString& idleMask)
        : FormInteraction(form, busyMask, idleMask, Widgets())
    {
    }
    ~FormInteraction() override;

    void lock(bool on) override;
    void progress(int percent) override;
    void status(const QString& text) override;
    void yieldOnce() override;
    void resultRow(const QStringList& row) override;
    bool cancelRequested() override { return cancel_; }

    // F6 while the job runs: asks "処理中止"; Yes sets the cancel flag. False when no job runs.
    bool requestCancel();
    // For screens that ask in their own words (or not at all).
    void setCancel(bool cancel) { cancel_ = cancel; }
    bool running() const { return locked_; }
    void setIdleMask(const QString& mask) { idleMask_ = mask; }

private:
    class ArrowDialogs;
    QPointer<Form> form_;
    QString busyMask_;
    QString idleMask_;
    Widgets widgets_;
    bool locked_ = false;
    bool cancel_ = false;
    std::unique_ptr<ArrowDialogs> dialogs_; // in force while locked
    DialogService* previous_ = nullptr;
};

} // namespace pel
