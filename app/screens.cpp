#include "app/screens.h"

#include "app/startup.h"
#include "shipping/frmicatmake.h"
#include "shipping/frmicatread.h"
#include "shipping/shippingscreen.h"

namespace pel {

void registerBuiltinScreens()
{
    // One registerScreen call per screen as it lands: its number and a factory of its form.
    registerScreen(QStringLiteral("1"), &makeShippingScreen<frmICatMake>);
    registerScreen(QStringLiteral("2"), &makeShippingScreen<frmICatRead>);
}

} // namespace pel
