#include "TestSysroot.h"

#include <fcntl.h>
#include <ftw.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace velour::test {

namespace {

void makeFolders(const std::string& path) {
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0755);
    mkdir(path.c_str(), 0755);
}

std::string slurp(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

TestSysroot::TestSysroot(bool bind) {
    char pattern[] = "/tmp/velour-test-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    path = pattern;
    // The folders a device has from the start.
    for (const char* folder : {"/dev", "/sdcard", "/data/local/tmp", "/odm/etc/tesselfx"})
        makeFolders(path + folder);
    if (bind) {
        setenv("VELOUR_SYSROOT", path.c_str(), 1);
        setenv("VELOUR_PROPERTY_STORE", store().c_str(), 1);
    }
}

TestSysroot::~TestSysroot() {
    nftw(
        path.c_str(),
        [](const char* file, const struct stat*, int, struct FTW*) { return remove(file); }, 16,
        FTW_DEPTH | FTW_PHYS);
}

std::vector<std::string> TestSysroot::environment() const {
    return {"VELOUR_SYSROOT=" + path, "VELOUR_PROPERTY_STORE=" + store()};
}

void TestSysroot::write(const std::string& devicePath, const std::string& text) const {
    std::string file = path + devicePath;
    makeFolders(file.substr(0, file.rfind('/')));
    std::ofstream(file) << text;
}

RunResult run(const std::string& program, const std::vector<std::string>& args,
              const std::vector<std::string>& extraEnvironment) {
    std::vector<std::string> environment(extraEnvironment);
    for (char** entry = environ; *entry; ++entry) {
        std::string text = *entry;
        std::string name = text.substr(0, text.find('=') + 1);
        bool replaced = false;
        for (auto& extra : extraEnvironment) replaced = replaced || extra.rfind(name, 0) == 0;
        if (!replaced) environment.push_back(text);
    }
    std::vector<char*> envp;
    for (auto& entry : environment) envp.push_back(const_cast<char*>(entry.c_str()));
    envp.push_back(nullptr);

    char outName[] = "/tmp/velour-run-out-XXXXXX";
    char errName[] = "/tmp/velour-run-err-XXXXXX";
    int out = mkstemp(outName);
    int err = mkstemp(errName);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out, 1);
    posix_spawn_file_actions_adddup2(&actions, err, 2);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    int status = -1;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data()) == 0)
        waitpid(pid, &status, 0);
    posix_spawn_file_actions_destroy(&actions);
    close(out);
    close(err);
    RunResult result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, slurp(outName), slurp(errName)};
    unlink(outName);
    unlink(errName);
    return result;
}

}  // namespace velour::test
