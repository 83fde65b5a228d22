// pel008-offset KIND CODE [NAME]: the print offset dialog for one form, as another program of the suite opens it.
#include "app/db/dbglobals.h"
#include "offset/frmoffset.h"
#include "ui/qtdialogs.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    bool kindOk = false, codeOk = false;
    const int kind = args.value(0).trimmed().toInt(&kindOk);
    const int code = args.value(1).trimmed().toInt(&codeOk);
    if (args.size() < 2 || args.size() > 3 || !kindOk || !codeOk) {
        std::fputs("usage: pel008-offset KIND CODE [NAME]\n", stderr);
        return 2;
    }
    pel::installQtDialogs();
    pel::installQtTranslation();
    if (!pel::fnOpenDB(1))
        return 1;
    int rc = 1;
    {
        pel::frmOffset dialog;
        dialog.kubun = kind;
        dialog.code = code;
        if (args.size() == 3)
            dialog.setFormName(args.at(2));
        dialog.load();
        rc = dialog.exec() == QDialog::Accepted ? 0 : 1;
    }
    pel::fnCloseDB(1);
    return rc;
}
