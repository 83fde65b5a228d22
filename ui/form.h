#pragma once
// The base of every screen: caption, function-key toolbar, key handling, busy lock, operation log, settings and
// the screen's own connection. A screen only declares its controls, masks and actions.
#include "app/db/dbclass.h"
#include "ui/functionbar.h"
#include "ui/keys.h"

#include <QDialog>
#include <QHash>
#include <QList>
#include <QPair>
#include <QPointer>
#include <functional>

class QBoxLayout;
class QCloseEvent;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace pel {

class FormInteraction;

class Form : public QDialog {
    Q_OBJECT
public:
    struct Options {
        bool operationLog = true;  // rows kind 0 on opening and kind 9 on unload, noted with the caption
        bool ownConnection = true; // mclsDb opened on load, closed on unload
    };
    explicit Form(QWidget* parent = nullptr);
    Form(const Options& options, QWidget* parent = nullptr);
    ~Form() override;

    // The screen's load: settings, connection, then onLoad(). Once. Its operation log row follows the first paint
    // (or comes first at unload or at the start of a run, whichever is earlier): writing it costs the global
    // connection its first statement, which the user need not wait for.
    void load();
    // The screen's unload (also run by closing it): onUnload(), settings, connection, operation log. Once.
    void unload();
    bool loaded() const { return loaded_; }

    // tlbFunction, created by the first useToolbar().
    FunctionBar* toolbar() const { return toolbar_; }
    clsKeyDown& keyDown() { return mclsKeyDown; }

    void done(int result) override;

    // Busy: every input of the screen disabled and the toolbar at busyMask; idle again: inputs as they were and the
    // toolbar at idleMask.
    void setBusy(const QString& busyMask);
    void setIdle(const QString& idleMask);
    bool busy() const { return busy_; }

    // A run of the screen starts and ends (its interaction's lock). While it runs, a close (title-bar button, Alt+F4,
    // reject()) does not unload the screen under it: where F6 stops the run, "処理中止" is asked and a Yes stops it;
    // otherwise the close waits. The screen then closes once the run has ended.
    void runStarted(FormInteraction* run);
    void runEnded();
    bool running() const { return run_ != nullptr; }
    void reject() override;

protected:
    // The area under the toolbar where the screen puts its controls.
    QWidget* body() const { return body_; }

    // The screen's last row: the progress text (lblMsg) and the button that starts its main action, then a stretch.
    QPushButton* addActionRow(QBoxLayout* outer, const QString& name, const QString& caption, const QString& tip,
                              QLabel** lblMsg);

    // Puts the toolbar on the screen, dressed for mask.
    void useToolbar(const QString& mask);
    // fnToolEnable on the screen's toolbar (ignored without one).
    void setMask(const QString& mask);
    // What a function key / toolbar button does ("F5"..). Pressed only while its button is enabled.
    void setAction(const QString& key, std::function<void()> action);
    // Other keys of the screen, after the common handling; return true when used.
    void setScreenKeys(FormKeys::ScreenKeys keys);

    // Settings of mirabo.ini.
    QString getSetting(const QString& section, const QString& key, const QString& defaultValue = QString(),
                       int size = 1024) const;
    bool putSetting(const QString& section, const QString& key, const QString& value) const;

    virtual void onLoad() {}
    virtual void onUnload() {}
    virtual void readSettings() {}
    virtual void writeSettings() {}

    // Work the screen does not need before the user sees it (a slow check, a log row): run once the screen's first
    // paint is done, so that it never delays the first sight of the screen (or half a second after the screen was
    // shown, if it was not painted: started minimised). Queued in order; dropped if the screen never shows.
    void afterFirstPaint(std::function<void()> work);

    bool event(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

    clsDbClass mclsDb;
    clsKeyDown mclsKeyDown;
    ImageList imlFunction;

private:
    Options options_;
    FormKeys* keys_;
    FunctionBar* toolbar_ = nullptr;
    QVBoxLayout* layout_;
    QWidget* body_;
    QHash<QString, std::function<void()>> actions_;
    QList<QPair<QPointer<QWidget>, bool>> enabledBeforeBusy_; // each input and its own enabled flag
    bool busy_ = false;
    FormInteraction* run_ = nullptr;
    bool closeAfterRun_ = false;
    bool loaded_ = false;
    bool unloaded_ = false;
    bool afterPaintRan_ = false; // the work after the first paint (or its wait) is done
    bool openLogPending_ = false;
    QList<std::function<void()>> afterPaint_;
    static constexpr int kPaintWaitMs = 500; // the longest a first paint may take before its work runs anyway
    void writeOpenLog();
    void runAfterPaint();
};

// With PEL008_STARTUP_PROBE=1 the first screen shown prints "shown <monotonic ns>" on stdout once its first paint
// has been handled and ends the process at once (for the start-up benchmark).
void startupProbe(QWidget* shown);

} // namespace pel
