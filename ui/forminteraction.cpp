#include "ui/forminteraction.h"

#include "ui/form.h"

#include <QApplication>
#include <QLabel>
#include <QProgressBar>
#include <QTreeWidget>

#include <algorithm>

namespace pel {

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
        if (form_) {
            form_->setBusy(busyMask_);
            form_->runStarted(this);
        }
    } else {
        QApplication::restoreOverrideCursor();
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
    // the question is asked with the normal cursor; the run goes on under the hourglass
    QApplication::setOverrideCursor(Qt::ArrowCursor);
    if (msg(QStringLiteral("処理中止"), QString(), true) == answer::Yes)
        cancel_ = true;
    QApplication::restoreOverrideCursor();
    return true;
}

} // namespace pel
