#include "ui/form.h"

#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "app/oplog.h"
#include "ui/forminteraction.h"
#include "ui/uifont.h"

#include <QAbstractButton>
#include <QAbstractSpinBox>
#include <QAction>
#include <QCloseEvent>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextEdit>
#include <QTimer>
#include <QVBoxLayout>

#include <cstdio>
#include <cstdlib>
#include <utility>
#include <ctime>

namespace pel {

Form::Form(QWidget* parent) : Form(Options{}, parent) {}

Form::Form(const Options& options, QWidget* parent) : QDialog(parent), options_(options)
{
    applyUiFont();
    installToolbarStyle();
    setFont(uiFont());
    layout_ = new QVBoxLayout(this);
    layout_->setContentsMargins(0, 0, 0, 0);
    layout_->setSpacing(0);
    body_ = new QWidget(this);
    body_->setObjectName(QStringLiteral("body"));
    layout_->addWidget(body_, 1);
    keys_ = new FormKeys(this, &mclsKeyDown);
}

Form::~Form()
{
    if (loaded_)
        unload();
}

void Form::load()
{
    if (loaded_)
        return;
    loaded_ = true;
    openLogPending_ = options_.operationLog;
    readSettings();
    if (options_.ownConnection)
        (void)mclsDb.OpenDb(); // a failure shows up at the first statement
    onLoad();
}

void Form::unload()
{
    if (!loaded_ || unloaded_)
        return;
    unloaded_ = true;
    writeOpenLog();
    onUnload();
    writeSettings();
    if (options_.ownConnection)
        mclsDb.CloseDb();
    if (options_.operationLog)
        opeLog(windowTitle(), 9);
    // a screen of the program also closes the global connection that start-up opened
    if (options_.ownConnection)
        fnCloseDB(1);
}

void Form::done(int result)
{
    unload();
    QDialog::done(result);
}

void Form::writeOpenLog()
{
    if (!openLogPending_)
        return;
    openLogPending_ = false;
    opeLog(windowTitle(), 0);
}

void Form::afterFirstPaint(std::function<void()> work)
{
    afterPaint_.append(std::move(work));
}

bool Form::event(QEvent* event)
{
    const bool handled = QDialog::event(event);
    if (event->type() == QEvent::Paint && !afterPaintRan_) {
        // Queued, so that it runs once this paint has reached the screen.
        QTimer::singleShot(0, this, &Form::runAfterPaint);
    }
    return handled;
}

void Form::runAfterPaint()
{
    if (afterPaintRan_)
        return;
    afterPaintRan_ = true;
    writeOpenLog();
    const QList<std::function<void()>> work = std::exchange(afterPaint_, {});
    for (const auto& w : work)
        w();
}

void Form::runStarted(FormInteraction* run)
{
    writeOpenLog();
    run_ = run;
    closeAfterRun_ = false;
}

void Form::runEnded()
{
    run_ = nullptr;
    if (closeAfterRun_) {
        closeAfterRun_ = false;
        // after the run's own code has returned to the event loop
        QTimer::singleShot(0, this, &QWidget::close);
    }
}

void Form::closeEvent(QCloseEvent* event)
{
    if (run_) {
        event->ignore();
        reject();
        return;
    }
    QDialog::closeEvent(event);
}

void Form::reject()
{
    if (!run_) {
        QDialog::reject();
        return;
    }
    if (closeAfterRun_)
        return;
    // F6 enabled during the run is the screen's stop: asked as F6 asks
    const QAction* f6 = toolbar_ ? toolbar_->button(QStringLiteral("F6")) : nullptr;
    if (f6 && f6->isEnabled() && actions_.contains(QStringLiteral("F6"))) {
        run_->requestCancel();
        if (!run_ || !run_->cancelRequested())
            return;
    }
    closeAfterRun_ = true;
}

QPushButton* Form::addActionRow(QBoxLayout* outer, const QString& name, const QString& caption, const QString& tip,
                                QLabel** lblMsg)
{
    auto* button = new QPushButton(caption, body_);
    button->setObjectName(name);
    button->setToolTip(tip);
    button->setAutoDefault(false);
    *lblMsg = new QLabel(body_);
    (*lblMsg)->setObjectName(QStringLiteral("lblMsg"));
    auto* row = new QHBoxLayout;
    row->addWidget(*lblMsg, 1);
    row->addWidget(button);
    outer->addLayout(row);
    outer->addStretch();
    return button;
}

void Form::useToolbar(const QString& mask)
{
    if (!toolbar_) {
        toolbar_ = new FunctionBar(this);
        layout_->insertWidget(0, toolbar_);
        connect(toolbar_, &FunctionBar::buttonClick, this, [this](const QString& key) {
            if (const auto it = actions_.constFind(key); it != actions_.constEnd() && *it)
                (*it)();
        });
        keys_->setFunctionBar(toolbar_);
    }
    fnToolInit(toolbar_, imlFunction, mask);
}

void Form::setMask(const QString& mask)
{
    if (toolbar_)
        fnToolEnable(toolbar_, mask);
}

void Form::setAction(const QString& key, std::function<void()> action)
{
    actions_.insert(key, std::move(action));
}

void Form::setScreenKeys(FormKeys::ScreenKeys keys)
{
    keys_->setScreenKeys(std::move(keys));
}

namespace {

bool isInput(const QWidget* w)
{
    return qobject_cast<const QLineEdit*>(w) || qobject_cast<const QAbstractButton*>(w) ||
           qobject_cast<const QComboBox*>(w) || qobject_cast<const QAbstractSpinBox*>(w) ||
           qobject_cast<const QTextEdit*>(w) || qobject_cast<const QPlainTextEdit*>(w);
}

// The inner editor of a date picker or a combo box, or a popup of one, goes with its owner.
bool insideInput(const QWidget* w, const QWidget* body)
{
    for (const QWidget* p = w->parentWidget(); p && p != body; p = p->parentWidget())
        if (isInput(p))
            return true;
    return false;
}

} // namespace

void Form::setBusy(const QString& busyMask)
{
    if (!busy_) {
        busy_ = true;
        enabledBeforeBusy_.clear();
        const QList<QWidget*> widgets = body_->findChildren<QWidget*>();
        for (QWidget* w : widgets) {
            if (!isInput(w) || insideInput(w, body_))
                continue;
            // The control's own flag, not isEnabled(): a control off only through its container is not switched
            // off itself, and so comes back with the container.
            enabledBeforeBusy_.append({w, !w->testAttribute(Qt::WA_ForceDisabled)});
            w->setEnabled(false);
        }
    }
    setMask(busyMask);
}

void Form::setIdle(const QString& idleMask)
{
    if (busy_) {
        busy_ = false;
        for (const auto& [w, enabled] : std::as_const(enabledBeforeBusy_))
            if (w)
                w->setEnabled(enabled);
        enabledBeforeBusy_.clear();
    }
    setMask(idleMask);
}

QString Form::getSetting(const QString& section, const QString& key, const QString& defaultValue, int size) const
{
    QString value;
    fnGetIni(section, key, defaultValue, value, size, iniPath());
    return value;
}

bool Form::putSetting(const QString& section, const QString& key, const QString& value) const
{
    return fnPutIni(section, key, value, iniPath()) != 0;
}

void Form::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    // A screen started minimised is not painted until it is restored; its opening is logged at its start all
    // the same.
    if (!afterPaintRan_)
        QTimer::singleShot(kPaintWaitMs, this, &Form::runAfterPaint);
    startupProbe(this);
}

void startupProbe(QWidget* shown)
{
    static bool probed = false;
    if (probed || qEnvironmentVariable("PEL008_STARTUP_PROBE") != QLatin1String("1"))
        return;
    probed = true;
    QPointer<QWidget> w(shown);
    // After the queued expose and paint of the first show.
    QTimer::singleShot(0, shown, [w] {
        if (w)
            w->repaint();
        timespec ts{};
        clock_gettime(CLOCK_MONOTONIC, &ts);
        std::printf("shown %lld\n", static_cast<long long>(ts.tv_sec) * 1000000000LL + ts.tv_nsec);
        std::fflush(stdout);
        std::_Exit(0);
    });
}

} // namespace pel
