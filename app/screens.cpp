#include "app/screens.h"

#include "app/startup.h"
#include "conveni/frmreadcvsmt.h"

namespace pel {

void registerBuiltinScreens()
{
    // One registerScreen call per screen as it lands: its number and a factory of its form.
    registerScreen(QStringLiteral("5"), makeReadCvsMtScreen);
}

} // namespace pel
