#pragma once

#include <string>

namespace velour::utils {

// The command line's first word from /proc: for an app, its package name.
// Empty when it cannot be read.
std::string getProcessNameByPid(int pid);
std::string getProcessName();

}  // namespace velour::utils
