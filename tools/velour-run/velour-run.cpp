// velour-run: runs an unchanged program as a device runs a game under the
// layer: the loader's stand-in libraries in front of the system's EGL and
// GLES, a sysroot standing for the device's files with its own property
// store, and the process named after its package.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// clang-format off
#include <limits>
#include <memory>
#include <binder/IServiceManager.h>
// clang-format on

#include "platform/PropertyStore.h"
#include "platform/properties.h"

namespace fs = std::filesystem;

extern char** environ;

namespace {

const char USAGE[] =
    "usage: velour-run [OPTIONS] -- PROGRAM [ARGS...]\n"
    "\n"
    "Runs PROGRAM with the loader's libEGL.so.1, libGLESv2.so.2 and libGLESv1_CM.so.1\n"
    "first on LD_LIBRARY_PATH. They load the system's libraries and the layer, and\n"
    "hand out every EGL and GLES entry point through it, as the platform's graphics\n"
    "loader does on a device. The layer reads its settings, logs and properties\n"
    "under a sysroot standing for the device's files.\n"
    "\n"
    "  --package NAME     run PROGRAM under the process name NAME (its argv[0], so\n"
    "                     also /proc/<pid>/cmdline), as the platform names an app;\n"
    "                     the layer takes the section [NAME] of velour.ini and steps\n"
    "                     aside for a name that has none. Default: PROGRAM as given\n"
    "  --mode N           set vendor.nimbo.orlo.mode to N: 0 deferred, 1 immediate,\n"
    "                     2 deferred inline, 3 hooks only, 4 hooks with interface log\n"
    "  --prop NAME=VALUE  set a system property before the start; repeatable\n"
    "  --sysroot DIR      use DIR as the device's files and keep it; a new or empty\n"
    "                     DIR first gets the default files. Default: a fresh copy of\n"
    "                     %s,\n"
    "                     removed when PROGRAM ends\n"
    "  --keep             keep the fresh copy and print where it is\n"
    "  --layer PATH       the layer to load (default: %s)\n"
    "  --no-layer         the loader in front but no layer: the system's functions\n"
    "                     pass through unchanged, for comparison\n"
    "  --help             this text\n"
    "\n"
    "The program gets VELOUR_SYSROOT, VELOUR_PROPERTY_STORE, VELOUR_LAYER and\n"
    "LD_LIBRARY_PATH, and the GLES stand-ins in LD_PRELOAD, so that a program that\n"
    "opens GLES late still gets them, with glXGetProcAddress(ARB) answered by the\n"
    "loader. VELOUR_LOADER_TRACE=1 makes the loader print\n"
    "where each entry point it hands out comes from.\n"
    "\n"
    "examples:\n"
    "  velour-run --package com.velour.demo --mode 4 -- glmark2-es2 --off-screen\n"
    "  velour-run --sysroot /tmp/device --package com.velour.demo \\\n"
    "             --prop vendor.nimbo.orlo.log.level=6 -- ./game --level 2\n"
    "  velour-run --no-layer -- eglretrace capture.trace\n";

struct Options {
    std::string package;
    std::vector<std::pair<std::string, std::string>> properties;
    std::string sysroot;
    std::string layer = VELOUR_LAYER_PATH;
    bool noLayer = false;
    bool keep = false;
    bool hearth = false;
    std::string effect;
    std::vector<std::string> command;
};

void printUsage(FILE* stream) {
    std::fprintf(stream, USAGE, VELOUR_DEFAULT_SYSROOT, VELOUR_LAYER_PATH);
}

int usageError(const std::string& message) {
    std::fprintf(stderr, "velour-run: %s\n\n", message.c_str());
    printUsage(stderr);
    return 2;
}

bool isNumber(const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Returns -1 when the options are good, else the exit status.
int parse(int argc, char** argv, Options& options) {
    int i = 1;
    for (; i < argc; ++i) {
        std::string arg = argv[i];
        bool hasValue = i + 1 < argc;
        if (arg == "--") {
            ++i;
            break;
        } else if (arg == "--help" || arg == "-h") {
            printUsage(stdout);
            return 0;
        } else if (arg == "--no-layer") {
            options.noLayer = true;
        } else if (arg == "--keep") {
            options.keep = true;
        } else if (arg == "--hearth") {
            options.hearth = true;
        } else if (arg == "--package" || arg == "--mode" || arg == "--prop" || arg == "--sysroot" ||
                   arg == "--layer" || arg == "--effect") {
            if (!hasValue) return usageError(arg + " needs a value");
            std::string value = argv[++i];
            if (arg == "--package") {
                if (value.empty()) return usageError("--package needs a name");
                options.package = value;
            } else if (arg == "--mode") {
                if (!isNumber(value)) return usageError("--mode takes a number: " + value);
                options.properties.emplace_back("vendor.nimbo.orlo.mode", value);
            } else if (arg == "--prop") {
                size_t equals = value.find('=');
                if (equals == std::string::npos) return usageError("--prop takes NAME=VALUE");
                options.properties.emplace_back(value.substr(0, equals), value.substr(equals + 1));
            } else if (arg == "--sysroot") {
                options.sysroot = value;
            } else if (arg == "--effect") {
                options.hearth = true;
                options.effect = value;
            } else {
                options.layer = value;
            }
        } else if (arg.rfind("-", 0) == 0) {
            return usageError("unknown option " + arg);
        } else {
            break;
        }
    }
    for (; i < argc; ++i) options.command.push_back(argv[i]);
    if (options.command.empty()) return usageError("no program to run");
    for (auto& [name, value] : options.properties) {
        if (!velour::platform::isValidPropertyName(name.c_str()))
            return usageError("not a property name: " + name);
        if (value.size() >= PROP_VALUE_MAX)
            return usageError("value of " + name + " is longer than " +
                              std::to_string(PROP_VALUE_MAX - 1) + " bytes");
    }
    return -1;
}

bool copyDefaultFiles(const fs::path& to) {
    std::error_code error;
    fs::create_directories(to, error);
    if (!error)
        fs::copy(VELOUR_DEFAULT_SYSROOT, to,
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks, error);
    if (error)
        std::fprintf(stderr, "velour-run: cannot copy %s to %s: %s\n", VELOUR_DEFAULT_SYSROOT,
                     to.c_str(), error.message().c_str());
    return !error;
}

// The sysroot's path, or "" after a failure; *fresh tells whether it is a copy
// of this run's own.
std::string prepareSysroot(const Options& options, bool* fresh) {
    *fresh = options.sysroot.empty();
    if (!*fresh) {
        std::error_code error;
        fs::path root = fs::absolute(options.sysroot, error);
        bool empty = !fs::exists(root, error) || fs::is_empty(root, error);
        if (empty && !copyDefaultFiles(root)) return {};
        return root.lexically_normal().string();
    }
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && tmp[0] ? tmp : "/tmp") + "/velour-sysroot-XXXXXX";
    if (!mkdtemp(pattern.data())) {
        std::perror("velour-run: mkdtemp");
        return {};
    }
    if (!copyDefaultFiles(pattern)) {
        fs::remove_all(pattern);
        return {};
    }
    return pattern;
}

bool setProperties(const Options& options) {
    auto& store = velour::platform::PropertyStore::global();
    if (!options.properties.empty() && !(store.valid() && store.writable())) {
        std::fprintf(stderr, "velour-run: cannot write the property store %s\n",
                     store.path().c_str());
        return false;
    }
    for (auto& [name, value] : options.properties) {
        if (__system_property_set(name.c_str(), value.c_str()) != 0) {
            std::fprintf(stderr, "velour-run: cannot set %s (\"ro.\" names can be set once)\n",
                         name.c_str());
            return false;
        }
    }
    return true;
}

// The layer takes the section of the process name; say so when there is none,
// since the layer then steps aside without a word.
void noteMissingSection(const std::string& sysroot, const std::string& processName) {
    std::string folder = sysroot + "/odm/etc/tesselfx/";
    if (std::ifstream(folder + "velour.dat")) return;  // wrapped: not read here
    std::ifstream ini(folder + "velour.ini");
    std::string line;
    while (std::getline(ini, line)) {
        size_t begin = line.find_first_not_of(" \t");
        size_t end = line.find_last_not_of(" \t\r");
        if (begin != std::string::npos &&
            line.compare(begin, end - begin + 1, "[" + processName + "]") == 0)
            return;
    }
    std::fprintf(stderr,
                 "velour-run: note: velour.ini has no section [%s]; the layer will step aside "
                 "(see --package)\n",
                 processName.c_str());
}

void setEnvironment(const Options& options, const std::string& sysroot) {
    setenv("VELOUR_SYSROOT", sysroot.c_str(), 1);
    setenv("VELOUR_PROPERTY_STORE", (sysroot + "/dev/__properties__").c_str(), 1);
    const char* old = std::getenv("LD_LIBRARY_PATH");
    std::string path = VELOUR_LOADER_DIR;
    if (old && old[0]) path += std::string(":") + old;
    setenv("LD_LIBRARY_PATH", path.c_str(), 1);
    // A program that dlopens the GLES libraries by soname only after its first
    // EGL call would get the system's copies, which the loader has opened by
    // then and whose sonames match: the stand-ins are loaded first instead.
    // The GLX look-up functions go through the loader too.
    const std::string dir = VELOUR_LOADER_DIR;
    std::string preload =
        dir + "/libGLESv2.so.2:" + dir + "/libGLESv1_CM.so.1:" + dir + "/libvelour_loader_glx.so";
    const char* oldPreload = std::getenv("LD_PRELOAD");
    if (oldPreload && oldPreload[0]) preload += std::string(":") + oldPreload;
    setenv("LD_PRELOAD", preload.c_str(), 1);
    if (options.noLayer)
        unsetenv("VELOUR_LAYER");
    else
        setenv("VELOUR_LAYER", options.layer.c_str(), 1);
}

// As execvp finds it, but with argv[0] free to be the package name.
std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return name;
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return name;
}

void execute(const Options& options, const std::string& processName) {
    std::string program = findProgram(options.command[0]);
    std::vector<char*> args{const_cast<char*>(processName.c_str())};
    for (size_t i = 1; i < options.command.size(); ++i)
        args.push_back(const_cast<char*>(options.command[i].c_str()));
    args.push_back(nullptr);
    execv(program.c_str(), args.data());
    std::fprintf(stderr, "velour-run: cannot run %s: %s\n", program.c_str(), std::strerror(errno));
}

// The game service of a run: the service manager and velour-hearthd, started
// with the sysroot's environment but none of the loader's.
struct Services {
    pid_t manager = -1;
    pid_t hearth = -1;
};

pid_t spawnService(const std::string& program, std::vector<std::string> args) {
    args.insert(args.begin(), program);
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    std::vector<char*> environment;
    for (char** entry = environ; *entry; ++entry)
        if (std::strncmp(*entry, "LD_PRELOAD=", 11) != 0 &&
            std::strncmp(*entry, "LD_LIBRARY_PATH=", 16) != 0)
            environment.push_back(*entry);
    environment.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv.data(), environment.data()) != 0)
        return -1;
    return pid;
}

void stopServices(Services& services) {
    for (pid_t pid : {services.hearth, services.manager}) {
        if (pid <= 0) continue;
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    services = {};
}

// Waits up to twenty seconds for `ready`: a machine busy with builds can take
// seconds to start a process.
template <typename Ready>
bool waitFor(Ready ready) {
    for (int i = 0; i < 2000; i++) {
        if (ready()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

bool startServices(const Options& options, const std::string& sysroot, Services& services) {
    services.manager = spawnService(VELOUR_SERVICEMANAGER_PATH, {});
    bool managerUp = services.manager > 0 && waitFor([&] {
                         return access((sysroot + "/dev/binder/servicemanager").c_str(), F_OK) == 0;
                     });
    std::vector<std::string> args;
    if (!options.effect.empty()) args = {"--effect", options.effect};
    if (managerUp) services.hearth = spawnService(VELOUR_HEARTHD_PATH, args);
    bool hearthUp = services.hearth > 0 && waitFor([] {
                        return android::defaultServiceManager()->checkService(
                                   android::String16("nimbohearth")) != nullptr;
                    });
    if (!hearthUp) {
        std::fprintf(stderr, "velour-run: the game service did not start\n");
        stopServices(services);
    } else {
        std::fprintf(stderr, "velour-run: game service up; VELOUR_SYSROOT=%s velour-hearth ...\n",
                     sysroot.c_str());
    }
    return hearthUp;
}

pid_t g_child = -1;

void forwardSignal(int signal) {
    if (g_child > 0) kill(g_child, signal);
}

// Runs the program in a child, so that the fresh sysroot can go afterwards.
int runAndWait(const Options& options, const std::string& processName) {
    g_child = fork();
    if (g_child < 0) {
        std::perror("velour-run: fork");
        return 1;
    }
    if (g_child == 0) {
        execute(options, processName);
        _exit(127);
    }
    // The terminal's interrupt reaches the child too; wait for it to end.
    signal(SIGINT, SIG_IGN);
    signal(SIGQUIT, SIG_IGN);
    signal(SIGTERM, forwardSignal);
    signal(SIGHUP, forwardSignal);
    int status = 0;
    while (waitpid(g_child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    int status = parse(argc, argv, options);
    if (status >= 0) return status;

    bool fresh = false;
    std::string sysroot = prepareSysroot(options, &fresh);
    if (sysroot.empty()) return 1;
    if (fresh && options.keep) std::fprintf(stderr, "velour-run: sysroot %s\n", sysroot.c_str());

    // Before the first property call, which opens the store the environment names.
    setEnvironment(options, sysroot);
    std::string processName = options.package.empty() ? options.command[0] : options.package;
    if (setProperties(options)) {
        if (!options.noLayer && options.layer == VELOUR_LAYER_PATH)
            noteMissingSection(sysroot, processName);
        Services services;
        if (options.hearth && !startServices(options, sysroot, services)) {
            status = 1;
        } else if (!options.hearth && (!fresh || options.keep)) {
            execute(options, processName);
            return 127;
        } else {
            status = runAndWait(options, processName);
            stopServices(services);
        }
    } else {
        status = 1;
    }
    if (fresh && !options.keep) {
        std::error_code ignored;
        fs::remove_all(sysroot, ignored);
    }
    return status;
}
