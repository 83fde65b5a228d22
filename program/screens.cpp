#include "program/screens.h"

#include "app/startup.h"
#include "conveni/frmconvenimake.h"
#include "conveni/frmreadcvsmt.h"
#include "conveni/frmsetcvs2.h"
#include "shipping/frmicatmake.h"
#include "shipping/frmicatread.h"
#include "ui/formscreen.h"

namespace pel {

void registerBuiltinScreens()
{
    // One registerScreen call per screen: its number and a factory of its form.
    registerScreen(QStringLiteral("1"), FormScreen<frmICatMake>::make);
    registerScreen(QStringLiteral("2"), FormScreen<frmICatRead>::make);
    registerScreen(QStringLiteral("5"), FormScreen<frmReadCVSMT>::make);
    registerScreen(QStringLiteral("6"), FormScreen<frmConveniMake>::make);
    registerScreen(QStringLiteral("7"), FormScreen<frmSetCvs2>::make);
}

} // namespace pel
