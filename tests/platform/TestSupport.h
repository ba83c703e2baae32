#pragma once

// What the platform and log tests share: scratch folders, and running a
// program as a separate process to collect what it prints.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace velour::test {

struct ChildResult {
    int exitCode = -1;  // -1 when the child did not exit normally
    std::string out;
    std::string err;
};

inline std::string readAll(int fd) {
    std::string text;
    char chunk[4096];
    for (ssize_t count; (count = read(fd, chunk, sizeof chunk)) > 0;) text.append(chunk, count);
    close(fd);
    return text;
}

// env: variables to change in the child only; a null value unsets one. The
// output must fit a pipe's buffer, as the tools' output here does.
inline ChildResult runProgram(const std::string& program, const std::vector<std::string>& args,
                              const std::vector<std::pair<std::string, const char*>>& env = {}) {
    ChildResult result;
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return result;
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const auto& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(err[1], 2);
        for (const auto& [name, value] : env) {
            value != nullptr ? setenv(name.c_str(), value, 1) : unsetenv(name.c_str());
        }
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid && WIFEXITED(status)) {
        result.exitCode = WEXITSTATUS(status);
    }
    result.out = readAll(out[0]);
    result.err = readAll(err[0]);
    return result;
}

inline ChildResult runPropTool(const std::vector<std::string>& args,
                               const std::vector<std::pair<std::string, const char*>>& env = {}) {
    return runProgram(VELOUR_PROP_TOOL, args, env);
}

inline std::string makeTempFolder(const char* stem) {
    const char* tmp = std::getenv("TMPDIR");
    std::string path =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/" + stem + ".XXXXXX";
    if (mkdtemp(path.data()) == nullptr) std::abort();
    return path;
}

// A new folder under the program's scratch folder, which goes at the end.
std::string testFolder(const std::string& name);

}  // namespace velour::test
