#include "app/screens.h"

#include "app/startup.h"

namespace pel {

void registerBuiltinScreens()
{
    // One registerScreen call per screen as it lands: its number and a factory of its form.
}

} // namespace pel
