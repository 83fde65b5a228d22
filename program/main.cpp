// pel008: the suite's menu starts it with a screen number; it shows that one screen and ends when it closes.
#include "app/db/dbglobals.h"
#include "app/runtimeerror.h"
#include "program/screens.h"
#include "app/startup.h"
#include "ui/dialogs.h"
#include "ui/qtdialogs.h"

#include <QApplication>

#include <cstdio>

namespace {

// A message box needs a window system; a headless start without one only gets stderr.
bool canShowWindows()
{
#if defined(Q_OS_WIN) || defined(Q_OS_MACOS)
    return true;
#else
    return qEnvironmentVariableIsSet("DISPLAY") || qEnvironmentVariableIsSet("WAYLAND_DISPLAY") ||
           qEnvironmentVariableIsSet("QT_QPA_PLATFORM");
#endif
}

int runtimeError(int argc, char** argv, const pel::RuntimeError& e)
{
    const QString text = QStringLiteral("実行時エラー '%1':\r\n\r\n%2").arg(e.number()).arg(e.description());
    std::fprintf(stderr, "pel008: %s\n", text.simplified().toLocal8Bit().constData());
    if (canShowWindows()) {
        QApplication app(argc, argv);
        pel::installQtDialogs();
        pel::msgBox(text, pel::mb::OkOnly | pel::mb::Critical, QStringLiteral("pel008"));
    }
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    using namespace pel;
    try {
        gintArgCnt = fnGetCommand(gstrArgs, processCommandLine(argc, argv));
    } catch (const RuntimeError& e) {
        return runtimeError(argc, argv, e);
    }
    if (gintArgCnt == 0)
        return 0;

    QApplication app(argc, argv);
    installQtDialogs();
    installQtTranslation();
    registerBuiltinScreens();
    // The result is not tested: the user has seen why, and the screen still opens and reports on use.
    fnOpenDB(1);
    const ScreenFactory factory = screenFor(gstrArgs.value(0));
    if (!factory) {
        fnCloseDB(1);
        return 0;
    }
    std::unique_ptr<Screen> screen = factory();
    screen->load();
    if (!screen->alive())
        return 0;
    screen->show();
    return app.exec();
}
