#include "app/screens.h"

#include "app/startup.h"

namespace pel {

void registerBuiltinScreens()
{
    // One line per screen as it lands, e.g. registerScreen(QStringLiteral("5"), [] { return makeReadCvsMt(); });
}

} // namespace pel
