#include "app/screens.h"

#include "app/startup.h"
#include "conveni/formscreen.h"
#include "conveni/frmconvenimake.h"
#include "conveni/frmsetcvs2.h"

namespace pel {

void registerBuiltinScreens()
{
    // One registerScreen call per screen as it lands: its number and a factory of its form.
    registerScreen(QStringLiteral("6"), FormScreen<frmConveniMake>::make);
    registerScreen(QStringLiteral("7"), FormScreen<frmSetCvs2>::make);
}

} // namespace pel
