// The host loader end to end: velour-run starts a small GLES program, built
// the three ways programs reach EGL and GLES, on Mesa's software driver, and
// the program reports what it drew and where its functions came from.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "TestSysroot.h"

using velour::test::RunResult;
using velour::test::TestSysroot;

namespace {

const char PACKAGE[] = "com.velour.loadertest";
const char INI[] =
    "[com.velour.loadertest]\n"
    "game=0\n"
    "runtime_mode=0\n"
    "enabled=1\n";
const std::string LAYER = VELOUR_LIBRARY_PATH;
const std::string LOADER_DIR = VELOUR_LOADER_DIR;

// What the program prints when everything it drew came back: the triangle's
// green on the left, the clear colour on the right.
const char DRAWN[] = "pixel 4 8: 0 255 0 255\npixel 12 8: 255 128 0 255\ngl error 0x0\n";

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

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

struct Device {
    TestSysroot sysroot{false};

    Device() {
        sysroot.write("/odm/etc/tesselfx/velour.ini", INI);
        sysroot.write("/data/local/tmp/orlo/.keep", "");
    }
    ~Device() {
        std::error_code ignored;
        std::filesystem::remove_all(sysroot.root(), ignored);
    }

    RunResult run(std::vector<std::string> options, const std::string& program,
                  std::vector<std::string> programArgs = {},
                  std::vector<std::string> environment = {"VELOUR_LOADER_TRACE=1"}) {
        options.insert(options.begin(), {"--sysroot", sysroot.root()});
        options.push_back("--");
        options.push_back(program);
        options.insert(options.end(), programArgs.begin(), programArgs.end());
        return velour::test::run(VELOUR_RUN_PATH, options, environment);
    }

    bool exists(const std::string& devicePath) const {
        return std::filesystem::exists(sysroot.root() + devicePath);
    }
    std::string file(const std::string& devicePath) const {
        std::ifstream in(sysroot.root() + devicePath);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
    bool anyLayerLog() const {
        for (auto& entry : std::filesystem::directory_iterator(sysroot.root() + "/sdcard"))
            if (has(entry.path().filename().string(), "nimbo.orlo.velour.")) return true;
        return false;
    }
};

struct Program {
    const char* variant;
    const char* path;
};

const Program PROGRAMS[] = {
    {"linked", VELOUR_GLES_LINKED}, {"dlopen", VELOUR_GLES_DLOPEN}, {"gpa", VELOUR_GLES_GPA}};

// Where the program found its EGL and GLES: the stand-ins, by soname alone.
void expectStandIns(const Program& program, const RunResult& r) {
    EXPECT_TRUE(has(r.out, "libEGL.so.1 " + LOADER_DIR + "/libEGL.so.1\n")) << r.out;
    if (std::string(program.variant) == "dlopen") {
        EXPECT_TRUE(has(r.out, "libEGL.so same\n")) << r.out;
    }
    if (std::string(program.variant) != "gpa") {
        EXPECT_TRUE(has(r.out, "libGLESv2.so.2 " + LOADER_DIR + "/libGLESv2.so.2\n")) << r.out;
    }
}

// Neither the exported functions nor eglGetProcAddress hand out the layer.
void expectNoLayer(const RunResult& r) {
    EXPECT_FALSE(has(r.out, LAYER)) << r.out;
    EXPECT_FALSE(has(r.err, "-> " + LAYER)) << r.err;
    EXPECT_FALSE(has(r.err, "Velour layer loaded")) << r.err;
}

class ConfiguredProcess : public testing::TestWithParam<std::tuple<Program, int>> {};

TEST_P(ConfiguredProcess, RendersThroughTheLayer) {
    auto [program, mode] = GetParam();
    Device device;
    RunResult r = device.run({"--package", PACKAGE, "--mode", std::to_string(mode)}, program.path);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(has(r.out, DRAWN)) << r.out;
    EXPECT_TRUE(has(r.out, "egl error 0x3000\n")) << r.out;
    expectStandIns(program, r);

    // Hooks only hands out the driver's function for most names and a thunk
    // for draws; the interface log mode hands out the layer's wrappers. The
    // exported functions that the program called give the same answers.
    for (const std::string* output : {&r.out, &r.err}) {
        const std::string& text = *output;
        bool out = output == &r.out;
        std::string prefix = out ? "eglGetProcAddress " : "velour-loader: ";
        std::string arrow = out ? " " : " -> ";
        std::string clear = from(text, prefix + "glClear" + arrow);
        if (mode == 4)
            EXPECT_EQ(clear, LAYER);
        else
            EXPECT_TRUE(isSystem(clear, "libGLESv2.so.2")) << clear;
        EXPECT_EQ(from(text, prefix + "glDrawArrays" + arrow), LAYER);
        EXPECT_EQ(from(text, prefix + (out ? "eglMakeCurrent" : "eglCreateContext") + arrow),
                  LAYER);
    }
    EXPECT_NE(from(r.out, "eglGetProcAddress glNotAName "), LAYER) << "unknown: the driver's";

    std::string log = device.file(std::string("/sdcard/nimbo.orlo.velour.") + PACKAGE + ".log");
    EXPECT_TRUE(has(log, "Package Name : com.velour.loadertest")) << log;
    EXPECT_TRUE(has(log, "Runtime Mode : " + std::to_string(mode))) << log;
    EXPECT_EQ(device.exists("/data/local/tmp/orlo/interface_log.txt"), mode == 4);
}

INSTANTIATE_TEST_SUITE_P(Loader, ConfiguredProcess,
                         testing::Combine(testing::ValuesIn(PROGRAMS), testing::Values(3, 4)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).variant) + "_mode" +
                                    std::to_string(std::get<1>(info.param));
                         });

TEST(Loader, UnconfiguredProcessSeesNoLayer) {
    for (const Program& program : PROGRAMS) {
        Device device;
        RunResult r = device.run({"--package", "com.velour.unlisted", "--mode", "4"}, program.path);
        ASSERT_EQ(r.status, 0) << program.variant << r.out << r.err;
        EXPECT_TRUE(has(r.out, DRAWN)) << r.out;
        expectStandIns(program, r);
        expectNoLayer(r);
        EXPECT_TRUE(has(r.err, "velour-loader: layer " + LAYER)) << "loaded, but stepped aside";
        EXPECT_FALSE(device.anyLayerLog());
        EXPECT_FALSE(device.exists("/data/local/tmp/orlo/interface_log.txt"));
    }
}

TEST(Loader, NoLayerPassesTheDriverThrough) {
    Device device;
    RunResult r =
        device.run({"--package", PACKAGE, "--mode", "4", "--no-layer"}, VELOUR_GLES_LINKED);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    EXPECT_TRUE(has(r.out, DRAWN)) << r.out;
    EXPECT_TRUE(has(r.err, "velour-loader: no layer\n")) << r.err;
    expectNoLayer(r);
    EXPECT_TRUE(isSystem(from(r.err, "velour-loader: glClear -> "), "libGLESv2.so.2")) << r.err;
    EXPECT_TRUE(isSystem(from(r.err, "velour-loader: eglInitialize -> "), "libEGL.so.1")) << r.err;
    EXPECT_FALSE(device.anyLayerLog());
}

// A layer of the tests' own shows what reaches it: it swaps red and blue in
// glClearColor, counts its start-ups and look-ups, and reports them at exit.
TEST(Loader, LayerStartsOnceAndSeesEachNameOnce) {
    for (const Program& program : PROGRAMS) {
        Device device;
        RunResult r =
            device.run({"--layer", VELOUR_FAKE_LAYER_PATH}, program.path, {"--threads", "16"}, {});
        ASSERT_EQ(r.status, 0) << program.variant << r.out << r.err;
        EXPECT_TRUE(has(r.out, "threads agree\n")) << r.out;
        EXPECT_TRUE(has(r.err, "fake layer: initializations 1\n")) << r.err;
        // Asked by 16 threads, through eglGetProcAddress again later, and for
        // the exported function: the layer is asked once.
        EXPECT_TRUE(has(r.err, "fake layer: glClearColor looked up 1, called 1\n")) << r.err;
        // The clear colour went through the layer's wrapper, everything else not.
        EXPECT_TRUE(has(r.out, "pixel 12 8: 0 128 255 255\n")) << r.out;
        EXPECT_TRUE(has(r.out, "pixel 4 8: 0 255 0 255\n")) << r.out;
    }
}

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
    EXPECT_TRUE(has(r.out, "com.example.game -c ")) << "argv[0] is the package: " << r.out;
    EXPECT_TRUE(has(r.out, "path " + LOADER_DIR + ":/before\n")) << r.out;
    EXPECT_TRUE(has(r.out, "layer " + LAYER + "\n")) << r.out;
    EXPECT_TRUE(has(r.out, "1\norlo\nmode 3\nextra a=b\n")) << "the default sysroot" << r.out;
    EXPECT_TRUE(has(r.err, "no section [com.example.game]")) << r.err;

    std::string sysroot = r.out.substr(r.out.find("\nsysroot ") + 9);
    sysroot = sysroot.substr(0, sysroot.find('\n'));
    EXPECT_TRUE(has(r.out, "store " + sysroot + "/dev/__properties__\n")) << r.out;
    EXPECT_FALSE(sysroot.empty() || std::filesystem::exists(sysroot)) << "a fresh copy, removed";

    r = velour::test::run(VELOUR_RUN_PATH,
                          {"--no-layer", "--", "sh", "-c", "echo \"layer ${VELOUR_LAYER-unset}\""});
    EXPECT_EQ(r.out, "layer unset\n");
    EXPECT_FALSE(has(r.err, "no section")) << "no layer, nothing to say";
}

TEST(VelourRun, KeepsAGivenSysroot) {
    std::string root = testing::TempDir() + "velour-run-given";
    std::filesystem::remove_all(root);
    RunResult r =
        velour::test::run(VELOUR_RUN_PATH, {"--sysroot", root, "--mode", "4", "--", "true"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::filesystem::exists(root + "/odm/etc/tesselfx/velour.ini")) << "filled";
    EXPECT_TRUE(std::filesystem::exists(root + "/dev/__properties__"));

    // A folder with files stays as it is, and so does its property store.
    std::ofstream(root + "/odm/etc/tesselfx/velour.ini") << "[mine]\n";
    r = velour::test::run(VELOUR_RUN_PATH, {"--sysroot", root, "--", VELOUR_PROP_PATH, "get",
                                            "vendor.nimbo.orlo.mode"});
    EXPECT_EQ(r.out, "4\n") << r.err;
    std::ifstream ini(root + "/odm/etc/tesselfx/velour.ini");
    std::string first;
    std::getline(ini, first);
    EXPECT_EQ(first, "[mine]");
    std::filesystem::remove_all(root);
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
    for (const char* option : {"--package", "--mode", "--prop", "--sysroot", "--no-layer"})
        EXPECT_TRUE(has(r.out, option)) << option;
}

}  // namespace
