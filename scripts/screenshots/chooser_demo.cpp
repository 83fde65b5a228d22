// The file and folder choosers as the screens open them, for the screenshots (scripts/screens): "file" presses F4
// on the shipping export screen, "folder" runs the billing export up to its folder choice, both on PEL008_HOME with
// FOLDER remembered as the last one. Qt's own dialogs are shown; every message box is answered Yes or OK. Once the
// chooser is on the screen its X window id is printed ("window 0x..."); it stays until it is closed.
#include "app/db/dbglobals.h"
#include "app/home.h"
#include "app/inifile.h"
#include "app/startup.h"
#include "conveni/frmconvenimake.h"
#include "shipping/frmicatmake.h"
#include "ui/functionbar.h"
#include "ui/qtdialogs.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>

#include <cstdio>
#include <memory>

namespace {

class Answering final : public pel::DialogService {
public:
    int messageBox(const QString& text, int style, const QString&) override
    {
        std::fprintf(stderr, "%s\n", text.toUtf8().constData());
        return pel::mb::buttons(style) == pel::mb::YesNo ? pel::answer::Yes : pel::answer::Ok;
    }
    void processEvents() override { QApplication::processEvents(); }
    std::optional<QString> chooseFolder(const QString& title, const QString& start) override
    {
        return qt_.chooseFolder(title, start);
    }
    std::optional<QString> chooseFile(FileChoice kind, const QString& title, const QString& start,
                                      const QString& filter) override
    {
        return qt_.chooseFile(kind, title, start, filter);
    }

private:
    pel::QtDialogService qt_;
};

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    const QString what = QString::fromLocal8Bit(argc == 3 ? argv[1] : "");
    if (what != QLatin1String("file") && what != QLatin1String("folder")) {
        std::fprintf(stderr, "usage: chooser_demo file|folder FOLDER\n");
        return 2;
    }
    pel::installQtDialogs(); // the program's font
    pel::installQtTranslation();
    Answering answers;
    pel::setDialogService(&answers);
    const QString folder = QDir(QString::fromLocal8Bit(argv[2])).absolutePath();
    if (!QDir().mkpath(folder))
        return 1;
    if (what == QLatin1String("file"))
        pel::fnPutIni(QStringLiteral("I-CAT"), QStringLiteral("MakeFile"), folder + QStringLiteral("/icat.csv"),
                      pel::iniPath());
    else
        pel::fnPutIni(QStringLiteral("ConveniMake"), QStringLiteral("FilePath"), folder, pel::iniPath());
    if (!pel::fnOpenDB(1))
        return 1;

    std::unique_ptr<pel::Form> form;
    std::function<void()> open;
    if (what == QLatin1String("file")) {
        auto* f = new pel::frmICatMake;
        form.reset(f);
        open = [f] {
            QApplication::setActiveWindow(f);
            f->txtFile->setFocus();
            f->toolbar()->press(4);
        };
    } else {
        // every order of the demo home
        pel::gstrArgs = QStringList{QStringLiteral("6"), QString(), QStringLiteral("20000101"),
                                    QStringLiteral("29991231"), QStringLiteral("1"), QStringLiteral("99999999"),
                                    QStringLiteral("0")};
        pel::gintArgCnt = static_cast<qint16>(pel::gstrArgs.size());
        auto* f = new pel::frmConveniMake;
        form.reset(f);
        open = [f] { f->cmdFile->click(); };
    }
    form->load();
    form->show();
    QTimer watch;
    QObject::connect(&watch, &QTimer::timeout, [&watch] {
        for (QWidget* w : QApplication::topLevelWidgets())
            if (qobject_cast<QFileDialog*>(w) && w->isVisible()) {
                std::printf("window 0x%llx\n", static_cast<unsigned long long>(w->winId()));
                std::fflush(stdout);
                watch.stop();
            }
    });
    watch.start(100);
    QTimer::singleShot(300, form.get(), open);
    const int rc = app.exec();
    pel::fnCloseDB(1);
    return rc;
}
