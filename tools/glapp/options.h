// Command-line parsing shared by the project's GLES programs.
#pragma once

#include <cstdio>
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
// word after it. --help and -h are noted, not handed out.
class Arguments {
  public:
    Arguments(int argc, char** argv) : argc(argc), argv(argv) {}
    // Moves to the next option; false after the last.
    bool next();
    const std::string& option() const { return current; }
    // The option's value; a UsageError when the command line ends first.
    const char* value();
    bool helpAsked() const { return help; }

  private:
    int argc;
    char** argv;
    int index = 0;
    std::string current;
    bool help = false;
};

// A program's main: `take(options, option, args)` takes each option into the
// Options, false for one it does not know; `run(options)` gives the exit
// status. Prints `usage` for --help (exit 0); a bad command line exits 2 with
// a pointer to --help, any other failure 1, each named after `name`.
template <typename Options, typename Take, typename Run>
int programMain(const char* name, const char* usage, int argc, char** argv, Take take, Run run) {
    Arguments args(argc, argv);
    Options options;
    try {
        while (args.next()) {
            if (!take(options, args.option(), args))
                throw UsageError("unknown option '" + args.option() + "'");
        }
    } catch (const UsageError& e) {
        std::fprintf(stderr, "%s: %s (see --help)\n", name, e.what());
        return 2;
    }
    if (args.helpAsked()) {
        std::fputs(usage, stdout);
        return 0;
    }
    try {
        return run(options);
    } catch (const std::exception& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "%s: %s\n", name, e.what());
        return 1;
    }
}

}  // namespace glapp
