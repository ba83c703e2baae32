// Command-line parsing shared by the project's GLES programs.
#pragma once

#include <stdexcept>
#include <string>

namespace glapp {

// A bad command line: main() prints it with a pointer to --help and exits 2.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The whole of `text` as a number from `low` to `high`; anything else throws
// a UsageError that names `option`.
int parseInt(const std::string& option, const char* text, int low, int high);

}  // namespace glapp
