#pragma once
// Column properties as a table's catalogue row keeps them (MSysObjects.LvProp): only the default value is used.
#include "jet/jet.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace jet
{

// Column name -> the DefaultValue property as stored (an expression such as 0 or "abc"); names as stored.
// Blocks or records that do not parse end the reading quietly: properties never keep a table from opening.
std::map<std::string, std::string> readDefaultValues(const std::uint8_t* p, std::size_t n);

// The property blob for the given column defaults (those with an empty text are left out).
std::string writeDefaultValues(const std::map<std::string, std::string>& defaults);

// The column's default as a value of its type when the stored expression is a plain number or quoted text;
// false for none and for expressions (Now(), GenGUID(), ...), which are not evaluated.
bool defaultFor(const Column& col, Value& out);

} // namespace jet
