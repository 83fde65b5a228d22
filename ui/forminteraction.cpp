#include "ui/forminteraction.h"

#include "ui/form.h"

#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QTreeWidget>

#include <algorithm>

namespace pel {

// The dialogs in force, each shown with the normal cursor over the run's hourglass.
class FormInteraction::ArrowDialogs final : public DialogService {
public:
    explicit ArrowDialogs(DialogService& inner) : inner_(inner) {}
    int messageBox(const QString& text, int style, const QString& title) override
    {
        const Arrow a;
        return inner_.messageBox(text, style, title);
    }
    void processEvents() override { inner_.processEvents(); }
    std::optional<QString> chooseFolder(const QString& title, const QString& start) override
    {
        const Arrow a;
        return inner_.chooseFolder(title, start);
    }
    std::optional<QString> chooseFile(FileChoice kind, const QString& title, const QString& start,
                                      const QString& filter) override
    {
        const Arrow a;
        return inner_.chooseFile(kind, title, start, filter);
    }

private:
    struct Arrow {
        Arrow() { QApplication::setOverrideCursor(Qt::ArrowCursor); }
        ~Arrow() { QApplication::restoreOverrideCursor(); }
        Arrow(const Arrow&) = delete;
        Arrow& operator=(const Arrow&) = delete;
    };
    DialogService& inner_;
};

FormInteraction::FormInteraction(Form* form, const QString& busyMask, const QString& idleMask, Widgets widgets)
    : form_(form), busyMask_(busyMask), idleMask_(idleMask), widgets_(widgets)
{
}

FormInteraction::~FormInteraction()
{
    if (locked_)
        lock(false);
}

void FormInteraction::lock(bool on)
{
    if (on == locked_)
        return;
    locked_ = on;
    if (on) {
        cancel_ = false;
        QApplication::setOverrideCursor(Qt::WaitCursor);
        if (!dialogs_) {
            dialogs_ = std::make_unique<ArrowDialogs>(dialogs());
            previous_ = setDialogService(dialogs_.get());
        }
        if (form_) {
            form_->setBusy(busyMask_);
            form_->runStarted(this);
        }
    } else {
        QApplication::restoreOverrideCursor();
        // a service installed over ours during the run may still hand back to it: then it stays until we go
        if (&dialogs() == dialogs_.get()) {
            setDialogService(previous_);
            dialogs_.reset();
        }
        if (form_) {
            form_->setIdle(idleMask_);
            form_->runEnded();
        }
    }
}

void FormInteraction::progress(int percent)
{
    if (widgets_.progress)
        widgets_.progress->setValue(std::clamp(percent, widgets_.progress->minimum(), widgets_.progress->maximum()));
}

void FormInteraction::status(const QString& text)
{
    if (widgets_.status)
        widgets_.status->setText(text);
}

void FormInteraction::yieldOnce()
{
    dialogs().processEvents();
}

void FormInteraction::resultRow(const QStringList& row)
{
    if (widgets_.list)
        widgets_.list->addTopLevelItem(new QTreeWidgetItem(row));
}

bool FormInteraction::requestCancel()
{
    if (!locked_)
        return false;
    if (msg(QStringLiteral("処理中止"), QString(), true) == answer::Yes)
        cancel_ = true;
    return true;
}

} // namespace pel
