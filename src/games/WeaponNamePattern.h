#pragma once

#include <regex>
#include <string>

namespace velour::games {

// Compiles the weapon name expression of the data file (ECMAScript, default
// flags). Throws std::regex_error for what the grammar refuses, including a
// quantifier on a quantifier ("a**", "a+{2}"): the standard library takes
// those, and matching them backtracks for seconds on a short label, on every
// draw. A count of more than six digits is refused too: the library's
// reading of it overflows.
std::regex compileWeaponNamePattern(const std::string& pattern);

}  // namespace velour::games
