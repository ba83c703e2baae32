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

// "WxH" with each side from `low` to `high`; anything else throws a UsageError.
void parseSize(const std::string& option, const std::string& text, int low, int high, int* width,
               int* height);

// Walks a command line: each option in turn and, for one that wants it, the
// word after it.
class Arguments {
  public:
    Arguments(int argc, char** argv) : argc(argc), argv(argv) {}
    // Moves to the next option; false after the last.
    bool next();
    const std::string& option() const { return current; }
    // The option's value; a UsageError when the command line ends first.
    const char* value();

  private:
    int argc;
    char** argv;
    int index = 0;
    std::string current;
};

}  // namespace glapp
