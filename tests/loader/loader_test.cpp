// The host loader end to end: velour-run starts a small GLES program, built
// the three ways programs reach EGL and GLES, on Mesa's software driver, and
// the program reports what it drew and where its functions came from.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "TestSysroot.h"

using velour::test::has;
using velour::test::readFile;
using velour::test::RunResult;
using velour::test::TestSysroot;

namespace {

const char PACKAGE[] = "com.velour.loadertest";
const std::string LAYER = VELOUR_LIBRARY_PATH;
const std::string LOADER_DIR = VELOUR_LOADER_DIR;
const std::string LOADED = "velour-loader: layer " + LAYER + "\n";

// The rest of the line after the first prefix in text: where a name came from.
std::string from(const std::string& text, const std::string& prefix) {
    size_t at = text.find(prefix);
    if (at == std::string::npos) return "<no " + prefix + ">";
    at += prefix.size();
    return text.substr(at, text.find('\n', at) - at);
}

// The system's library of that name, not the stand-in.
bool isSystem(const std::string& path, const std::string& file) {
    size_t slash = path.rfind('/');
    return slash != std::string::npos && path.substr(slash + 1) == file &&
           path.substr(0, slash) != LOADER_DIR;
}

// A sysroot not made yet: velour-run fills it from the default one, whose
// settings have a section for PACKAGE, and keeps it for the test to look into.
struct Device {
    TestSysroot folder{false};
    std::string root = folder.root() + "/device";

    RunResult run(std::vector<std::string> options, const std::string& program,
                  std::vector<std::string> programArgs = {},
                  std::vector<std::string> environment = {"VELOUR_LOADER_TRACE=1"}) {
        options.insert(options.begin(), {"--sysroot", root});
        options.insert(options.end(), {"--", program});
        options.insert(options.end(), programArgs.begin(), programArgs.end());
        return velour::test::run(VELOUR_RUN_PATH, options, environment);
    }
};

struct Program {
    const char* variant;
    const char* path;
};

const Program PROGRAMS[] = {
    {"linked", VELOUR_GLES_LINKED}, {"dlopen", VELOUR_GLES_DLOPEN}, {"gpa", VELOUR_GLES_GPA}};

// How velour-run starts the program, and what the loader then says.
struct Setup {
    const char* name;
    std::vector<std::string> options;
    std::vector<std::string> says;  // on stderr
    int mode;                       // the layer's runtime mode; -1 when it is out of the way
    const char* clearColour = "255 128 0 255";
};

const Setup SETUPS[] = {
    {"mode3", {"--package", PACKAGE, "--mode", "3"}, {LOADED}, 3},
    {"mode4", {"--package", PACKAGE, "--mode", "4"}, {LOADED}, 4},
    // A package without a section: the layer is loaded, but steps aside.
    {"unlisted", {"--package", "com.velour.unlisted", "--mode", "4"}, {LOADED}, -1},
    {"nolayer",
     {"--package", PACKAGE, "--mode", "4", "--no-layer"},
     {"velour-loader: no layer\n"},
     -1},
    // A layer of the tests' own swaps red and blue in glClearColor and counts
    // its start-ups and look-ups. Wanted by 16 threads at once, through
    // eglGetProcAddress again later and as the exported function, a name is
    // asked of the layer once.
    {"fake",
     {"--layer", VELOUR_FAKE_LAYER_PATH},
     {"fake layer: initializations 1\n", "fake layer: glClearColor looked up 1\n"},
     -1,
     "0 128 255 255"},
};

class Process : public testing::TestWithParam<std::tuple<Program, Setup>> {};

// What an unchanged program sees: its pixels, the stand-ins by soname, and for
// each name the layer's function or the system's: hooks only wraps draws and
// EGL, mode 4 every name. The exported functions agree with eglGetProcAddress.
TEST_P(Process, RendersWithTheExpectedFunctions) {
    auto [program, setup] = GetParam();
    Device device;
    RunResult r = device.run(setup.options, program.path, {"--threads", "16"});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(has(r.out, "threads agree\n")) << r.out;
    // The triangle's green on the left, the clear colour on the right.
    EXPECT_TRUE(has(r.out, "pixel 4 8: 0 255 0 255\npixel 12 8: " + std::string(setup.clearColour) +
                               "\ngl error 0x0\negl error 0x3000\n"))
        << r.out;
    for (const std::string& line : setup.says) EXPECT_TRUE(has(r.err, line)) << r.err;

    std::string variant = program.variant;
    EXPECT_TRUE(has(r.out, "libEGL.so.1 " + LOADER_DIR + "/libEGL.so.1\n")) << r.out;
    EXPECT_EQ(has(r.out, "libEGL.so same\n"), variant == "dlopen") << r.out;
    EXPECT_EQ(has(r.out, "libGLESv2.so.2 " + LOADER_DIR + "/libGLESv2.so.2\n"), variant != "gpa")
        << r.out;

    bool active = setup.mode >= 0;
    auto expectFrom = [&](const std::string& found, bool layer, const char* system) {
        EXPECT_TRUE(layer ? found == LAYER : isSystem(found, system)) << found;
    };
    for (const std::string* output : {&r.out, &r.err}) {
        bool out = output == &r.out;
        std::string prefix = out ? "eglGetProcAddress " : "velour-loader: ";
        std::string arrow = out ? " " : " -> ";
        auto answer = [&](const char* name) { return from(*output, prefix + name + arrow); };
        expectFrom(answer("glClear"), setup.mode == 4, "libGLESv2.so.2");
        expectFrom(answer("glDrawArrays"), active, "libGLESv2.so.2");
        expectFrom(answer(out ? "eglMakeCurrent" : "eglCreateContext"), active, "libEGL.so.1");
    }
    EXPECT_NE(from(r.out, "eglGetProcAddress glNotAName "), LAYER) << "unknown: the driver's";

    if (active) {
        std::string log = readFile(device.root + "/sdcard/nimbo.orlo.velour." + PACKAGE + ".log");
        EXPECT_TRUE(has(log, "Package Name : com.velour.loadertest")) << log;
        EXPECT_TRUE(has(log, "Runtime Mode : " + std::to_string(setup.mode))) << log;
    } else {
        EXPECT_FALSE(has(r.out, LAYER)) << r.out;
        EXPECT_FALSE(has(r.err, "-> " + LAYER)) << r.err;
        EXPECT_TRUE(std::filesystem::is_empty(device.root + "/sdcard")) << "a log, so a banner";
    }
    EXPECT_EQ(std::filesystem::exists(device.root + "/data/local/tmp/orlo/interface_log.txt"),
              setup.mode == 4);
}

INSTANTIATE_TEST_SUITE_P(Loader, Process,
                         testing::Combine(testing::ValuesIn(PROGRAMS), testing::ValuesIn(SETUPS)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).variant) + "_" +
                                    std::get<1>(info.param).name;
                         });

TEST(Loader, NeverLoadsItselfAsTheSystemLibrary) {
    Device device;
    RunResult r =
        device.run({"--no-layer"}, VELOUR_GLES_DLOPEN, {}, {"VELOUR_GL_DRIVER_DIR=" + LOADER_DIR});
    EXPECT_EQ(r.status, 1) << "a clean failure, not a loop" << r.err;
    EXPECT_TRUE(has(r.err, "the system's libEGL.so.1 is in none of " + LOADER_DIR)) << r.err;
    EXPECT_TRUE(has(r.err, "gles_check: no surfaceless display")) << r.err;
}

// velour-run's child: its name, environment, properties and files.
TEST(VelourRun, PreparesTheChild) {
    const std::string script =
        "tr '\\0' ' ' < /proc/$$/cmdline; echo;"
        "echo \"sysroot $VELOUR_SYSROOT\";"
        "echo \"store $VELOUR_PROPERTY_STORE\";"
        "echo \"path $LD_LIBRARY_PATH\";"
        "echo \"layer ${VELOUR_LAYER-unset}\";"
        "grep -c '^\\[com.velour.demo\\]' \"$VELOUR_SYSROOT/odm/etc/tesselfx/velour.ini\";"
        "test -d \"$VELOUR_SYSROOT/data/local/tmp/orlo\" && echo orlo;"
        "echo \"mode $(\"$PROP\" get vendor.nimbo.orlo.mode)\";"
        "echo \"extra $(\"$PROP\" get vendor.nimbo.extra)\";"
        "exit 7";
    RunResult r = velour::test::run(VELOUR_RUN_PATH,
                                    {"--package", "com.example.game", "--mode", "3", "--prop",
                                     "vendor.nimbo.extra=a=b", "--", "sh", "-c", script},
                                    {"LD_LIBRARY_PATH=/before", "PROP=" VELOUR_PROP_PATH});
    EXPECT_EQ(r.status, 7) << "the program's exit status" << r.err;
    // argv[0] is the package; the settings are the default sysroot's.
    const std::string sysroot = from(r.out, "\nsysroot ");
    EXPECT_EQ(r.out, "com.example.game -c " + script + " \nsysroot " + sysroot + "\nstore " +
                         sysroot + "/dev/__properties__\npath " + LOADER_DIR + ":/before\nlayer " +
                         LAYER + "\n1\norlo\nmode 3\nextra a=b\n");
    EXPECT_TRUE(has(r.err, "no section [com.example.game]")) << r.err;
    EXPECT_FALSE(sysroot.empty() || std::filesystem::exists(sysroot)) << "a fresh copy, removed";
}

// Both the platform and the device's tuning reach a game's store: two build
// steps once wrote the store in turn and the later one dropped the tuning. A
// given sysroot is kept, and once it has files, left as it is.
TEST(VelourRun, GivesTheGameTheDevicesTuning) {
    Device device;
    ASSERT_EQ(device.run({"--mode", "4"}, "true").status, 0);
    std::ofstream(device.root + "/odm/etc/tesselfx/velour.ini") << "[mine]\n";
    std::ifstream prop(VELOUR_DEVICE_PROP);
    std::vector<std::pair<std::string, std::string>> expected = {{"ro.boot.hardware", "mt6789"},
                                                                 {"vendor.nimbo.orlo.mode", "4"}};
    for (std::string line; std::getline(prop, line);) {
        size_t eq = line.find('=');
        if (!line.empty() && line[0] != '#' && eq != std::string::npos)
            expected.emplace_back(line.substr(0, eq), line.substr(eq + 1));
    }
    ASSERT_GT(expected.size(), 2u) << "no tuning in " << VELOUR_DEVICE_PROP;
    for (const auto& [name, value] : expected) {
        RunResult r = device.run({}, VELOUR_PROP_PATH, {"get", name});
        EXPECT_EQ(r.out, value + "\n") << name << ": " << r.err;
    }
    EXPECT_EQ(readFile(device.root + "/odm/etc/tesselfx/velour.ini"), "[mine]\n");
}

TEST(VelourRun, RejectsBadOptions) {
    for (std::vector<std::string> args :
         std::vector<std::vector<std::string>>{{"--mode", "x", "--", "true"},
                                               {"--prop", "no.value", "--", "true"},
                                               {"--prop", "bad..name=1", "--", "true"},
                                               {"--mode", "3"},
                                               {"--bogus", "--", "true"}}) {
        RunResult r = velour::test::run(VELOUR_RUN_PATH, args);
        EXPECT_EQ(r.status, 2) << args[0] << r.err;
        EXPECT_TRUE(has(r.err, "usage: velour-run")) << r.err;
    }
    RunResult r = velour::test::run(VELOUR_RUN_PATH, {"--help"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(has(r.out, "usage: velour-run")) << "on stdout when asked for: " << r.out;
}

}  // namespace
