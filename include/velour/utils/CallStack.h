#pragma once

#include <string>

namespace velour::utils {

// The calling thread's stack, one frame a line with its symbol, each line
// indented by indent blanks.
std::string dumpCallStack(int indent);

}  // namespace velour::utils
