// The payment import screen as it looks after an import, for the screenshots (scripts/screens): the screen of
// PEL008_HOME imports FILE, every question answered Yes but the backup's, and stays open until it is closed.
#include "app/db/dbglobals.h"
#include "conveni/frmreadcvsmt.h"
#include "ui/qtdialogs.h"

#include <QApplication>
#include <QLineEdit>
#include <QTimer>

#include <cstdio>

namespace {

class Answering final : public pel::DialogService {
public:
    int messageBox(const QString& text, int style, const QString&) override
    {
        std::fprintf(stderr, "%s\n", text.toUtf8().constData());
        if (pel::mb::buttons(style) != pel::mb::YesNo)
            return pel::answer::Ok;
        return text.contains(QStringLiteral("バックアップ")) ? pel::answer::No : pel::answer::Yes;
    }
    void processEvents() override { QApplication::processEvents(); }
};

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: payment_screen_demo FILE\n");
        return 2;
    }
    pel::installQtDialogs(); // the program's font
    Answering answers;
    pel::setDialogService(&answers);
    if (!pel::fnOpenDB(1))
        return 1;
    pel::frmReadCVSMT form;
    form.load();
    form.txtFname->setText(QString::fromLocal8Bit(argv[1]));
    form.show();
    QTimer::singleShot(0, &form, [&form] { form.cmdOK_Click(); });
    const int rc = app.exec();
    pel::fnCloseDB(1);
    return rc;
}
