// The layer loaded as the platform loads it, in processes of their own: each
// run reads its own settings, properties and process name at start.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "TestSysroot.h"

using velour::test::RunResult;
using velour::test::TestSysroot;

namespace {

const char INI[] =
    "[com.velour.probe]\n"
    "game=0\n"
    "runtime_mode=0\n"
    "enabled=1\n"
    "[com.velour.seven]\n"
    "game=0\n"
    "runtime_mode=7\n"
    "enabled=1\n"
    "[com.velour.known]\n"
    "game=2\n"
    "runtime_mode=1\n"
    "enabled=1\n";

struct Probe {
    TestSysroot sysroot{false};

    Probe() {
        sysroot.write("/odm/etc/tesselfx/velour.ini", INI);
        sysroot.write("/data/local/tmp/orlo/.keep", "");
    }

    void setProperty(const std::string& name, const std::string& value) {
        RunResult r =
            velour::test::run(VELOUR_PROP_PATH, {"--store", sysroot.store(), "set", name, value});
        ASSERT_EQ(r.status, 0) << r.err;
    }

    RunResult run(const std::string& package, std::vector<std::string> names) {
        names.insert(names.begin(), {"--package", package});
        return velour::test::run(VELOUR_PROBE_PATH, names, sysroot.environment());
    }

    std::string file(const std::string& devicePath) {
        std::ifstream in(sysroot.root() + devicePath);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }
};

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(StartUp, UnconfiguredProcessSeesNoLayer) {
    Probe probe;
    RunResult r = probe.run("com.not.configured", {"glClear", "eglMakeCurrent", "unknownName"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(r.out, "driver look-ups: 0\n")) << r.out;
    EXPECT_TRUE(has(r.out, "glClear -> next\n")) << r.out;
    EXPECT_TRUE(has(r.out, "eglMakeCurrent -> next\n")) << r.out;
    EXPECT_TRUE(has(r.out, "unknownName -> next\n")) << r.out;
    EXPECT_FALSE(has(r.err, "Velour layer loaded")) << r.err;
}

TEST(StartUp, DeferredModeHandsOutWrappersAndLogsTheBanner) {
    Probe probe;
    RunResult r = probe.run("com.velour.probe",
                            {"glClear", "glDrawArrays", "eglMakeCurrent", "eglGetCurrentContext",
                             "eglInitialize", "glclear", "glNotAName"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(has(r.out, "driver look-ups: 1112\n")) << r.out;
    EXPECT_TRUE(has(r.out, "release tag: 0\n")) << r.out;
    EXPECT_TRUE(has(r.out, "glClear -> wrapper\n"));
    EXPECT_TRUE(has(r.out, "glDrawArrays -> wrapper\n"));
    EXPECT_TRUE(has(r.out, "eglMakeCurrent -> layer\n"));
    EXPECT_TRUE(has(r.out, "eglGetCurrentContext -> layer\n"));
    EXPECT_TRUE(has(r.out, "eglInitialize -> wrapper\n"));
    EXPECT_TRUE(has(r.out, "glclear -> next\n"));
    EXPECT_TRUE(has(r.out, "glNotAName -> next\n"));

    std::string log = probe.file("/sdcard/nimbo.orlo.velour.com.velour.probe.log");
    EXPECT_TRUE(has(log, "Velour layer loaded.")) << log;
    EXPECT_TRUE(has(log, "Package Name : com.velour.probe")) << log;
    EXPECT_TRUE(has(log, "Interception : enabled")) << log;
    EXPECT_TRUE(has(log, "Runtime Mode : 0")) << log;
    EXPECT_TRUE(has(log, "ORLO library libtessel.so not found")) << log;
    EXPECT_TRUE(has(r.err, "Velour layer loaded.")) << "the platform log has it too";
}

TEST(StartUp, ModeRules) {
    Probe probe;
    RunResult r = probe.run("com.velour.seven", {"glClear"});
    EXPECT_TRUE(has(r.out, "release tag: 0\n")) << "a mode of 5 or more means deferred";

    probe.setProperty("vendor.nimbo.orlo.mode", "9");
    r = probe.run("com.velour.probe", {"glClear"});
    EXPECT_TRUE(has(r.out, "release tag: 0\n")) << r.out;

    probe.setProperty("vendor.nimbo.orlo.mode", "3");
    r = probe.run("com.velour.probe", {"glClear", "glDrawArrays", "eglMakeCurrent",
                                       "eglGetCurrentContext", "glNotAName"});
    EXPECT_TRUE(has(r.out, "release tag: 3\n")) << r.out;
    EXPECT_TRUE(has(r.out, "glClear -> driver\n")) << r.out;
    EXPECT_TRUE(has(r.out, "glDrawArrays -> layer\n")) << "a thunk over the slot";
    EXPECT_TRUE(has(r.out, "eglMakeCurrent -> layer\n"));
    EXPECT_TRUE(has(r.out, "eglGetCurrentContext -> driver\n"));
    EXPECT_TRUE(has(r.out, "glNotAName -> next\n"));

    probe.setProperty("vendor.nimbo.orlo.mode", "4");
    r = probe.run("com.velour.probe", {"glClear", "eglGetCurrentContext", "glClear", "notAName"});
    EXPECT_TRUE(has(r.out, "release tag: 4\n")) << r.out;
    EXPECT_TRUE(has(r.out, "glClear -> wrapper\n"));
    EXPECT_TRUE(has(r.out, "eglGetCurrentContext -> wrapper\n"));
    EXPECT_EQ(probe.file("/data/local/tmp/orlo/interface_log.txt"),
              "glClear\neglGetCurrentContext\n")
        << "the names the process resolved, once each, in order";
}

TEST(StartUp, KnownGameDefersOnlyOnMediaTek) {
    Probe probe;
    RunResult r = probe.run("com.velour.known", {"glClear"});
    EXPECT_TRUE(has(r.out, "release tag: 3\n")) << r.out;
    EXPECT_TRUE(has(r.err + probe.file("/sdcard/nimbo.orlo.velour.com.velour.known.log"),
                    "libtessel.so not found"));

    Probe mediatek;
    mediatek.setProperty("ro.boot.hardware", "mt6789");
    r = mediatek.run("com.velour.known", {"glClear"});
    EXPECT_TRUE(has(r.out, "release tag: 1\n")) << r.out;
}

TEST(StartUp, EffectLibraryIsSearchedInOrder) {
    Probe probe;
    std::ifstream stub(VELOUR_TESSEL_STUB_PATH, std::ios::binary);
    std::stringstream bytes;
    bytes << stub.rdbuf();
    probe.sysroot.write("/system/lib/libtessel.so", bytes.str());

    RunResult r = probe.run("com.velour.probe", {"glClear"});
    EXPECT_TRUE(has(r.err, "ORLO library loaded from /system/lib/libtessel.so")) << r.err;
    EXPECT_TRUE(has(r.err, "Unsupported game. Game triggers disabled.")) << "game 0 has no hooks";
    EXPECT_TRUE(has(r.out, "glClear -> wrapper\n")) << r.out;

    probe.sysroot.write("/odm/lib/libtessel.so", bytes.str());
    r = probe.run("com.velour.probe", {"glClear"});
    EXPECT_TRUE(has(r.err, "ORLO library loaded from /odm/lib/libtessel.so")) << r.err;
}

TEST(StartUp, CaptureToolsRunUnderTheGamesName) {
    Probe probe;
    probe.setProperty("vendor.nimbo.tessel.gameProxy", "com.velour.probe");
    for (const char* tool : {"com.orlo.replay", "org.renderdoc.renderdoccmd.arm64"}) {
        RunResult r = probe.run(tool, {"glClear"});
        EXPECT_TRUE(has(r.out, "glClear -> wrapper\n")) << tool << r.out;
        EXPECT_TRUE(has(r.err, "Package Name : com.velour.probe")) << tool << r.err;
    }
    RunResult r = probe.run("com.velour.unrelated", {"glClear"});
    EXPECT_TRUE(has(r.out, "glClear -> next\n")) << "the proxy serves the tools only";
}

}  // namespace
