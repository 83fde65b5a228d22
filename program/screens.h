#pragma once

namespace pel {
// Registers every screen built into this program with the start-up's screen table.
void registerBuiltinScreens();
} // namespace pel
