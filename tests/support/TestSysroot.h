#pragma once

// Header-only but for TestSysroot itself, so that test programs which do not
// link the support library can run programs too.

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

extern char** environ;

namespace velour::test {

// A fresh folder standing for the device's file system, with its own
// property store. Call before anything reads a property or a device path.
class TestSysroot {
  public:
    // With bind false the folder is made but this process keeps its own
    // environment: for folders handed to child processes.
    explicit TestSysroot(bool bind = true);
    ~TestSysroot();  // removes the folder and all in it
    TestSysroot(const TestSysroot&) = delete;
    TestSysroot& operator=(const TestSysroot&) = delete;
    // VELOUR_SYSROOT and VELOUR_PROPERTY_STORE naming this folder.
    std::vector<std::string> environment() const;
    const std::string& root() const { return path; }
    std::string store() const { return path + "/dev/__properties__"; }
    // Writes a file under the sysroot, creating its folders.
    void write(const std::string& devicePath, const std::string& text) const;
    std::string read(const std::string& devicePath) const;

  private:
    std::string path;
};

// The whole file; empty when it cannot be read.
inline std::string readFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}
inline bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

struct RunResult {
    int status;  // -1 when the program did not exit normally
    std::string out;
    std::string err;
};
// Runs a program to its end and returns what it printed. extraEnvironment
// entries "NAME=value" replace those of this process; a bare "NAME" unsets one.
inline RunResult run(const std::string& program, const std::vector<std::string>& args,
                     const std::vector<std::string>& extraEnvironment = {}) {
    auto nameOf = [](const std::string& entry) { return entry.substr(0, entry.find('=')); };
    std::vector<std::string> environment;
    for (const std::string& extra : extraEnvironment)
        if (extra.find('=') != std::string::npos) environment.push_back(extra);
    for (char** entry = environ; *entry; ++entry) {
        bool replaced = false;
        for (auto& extra : extraEnvironment) replaced = replaced || nameOf(extra) == nameOf(*entry);
        if (!replaced) environment.push_back(*entry);
    }
    std::vector<std::string> arguments{program};
    arguments.insert(arguments.end(), args.begin(), args.end());
    auto pointers = [](std::vector<std::string>& strings) {
        std::vector<char*> result;
        for (std::string& text : strings) result.push_back(text.data());
        result.push_back(nullptr);
        return result;
    };

    char outName[] = "/tmp/velour-run-out-XXXXXX", errName[] = "/tmp/velour-run-err-XXXXXX";
    const int out = mkstemp(outName), err = mkstemp(errName);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    pid_t pid = 0;
    int status = -1;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, pointers(arguments).data(),
                    pointers(environment).data()) == 0)
        waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    close(out);
    close(err);
    RunResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(outName),
                     readFile(errName)};
    unlink(outName);
    unlink(errName);
    return result;
}

}  // namespace velour::test
