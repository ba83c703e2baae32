// The layer loaded as the platform loads it, in processes of their own: each
// run reads its own settings, properties and process name at start.
#include <gtest/gtest.h>

#include <initializer_list>

#include "TestSysroot.h"

using velour::test::has;
using velour::test::RunResult;
using velour::test::TestSysroot;

namespace {

const char INI[] =
    "[com.velour.probe]\ngame=0\nruntime_mode=0\nenabled=1\n"
    "[com.velour.seven]\ngame=0\nruntime_mode=7\nenabled=1\n"
    "[com.velour.known]\ngame=2\nruntime_mode=1\nenabled=1\n";

struct Probe {
    TestSysroot sysroot{false};

    Probe() {
        sysroot.write("/odm/etc/tesselfx/velour.ini", INI);
        sysroot.write("/data/local/tmp/orlo/interface_log.txt", "from an earlier run\n");
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
};

// Each of `parts` appears in `text`.
void expectAll(const std::string& text, std::initializer_list<const char*> parts) {
    for (const char* part : parts) EXPECT_TRUE(has(text, part)) << part << " not in:\n" << text;
}

TEST(StartUp, UnconfiguredProcessSeesNoLayer) {
    Probe probe;
    RunResult r = probe.run("com.not.configured", {"glClear", "eglMakeCurrent", "unknownName"});
    ASSERT_EQ(r.status, 0) << r.err;
    expectAll(r.out, {"driver look-ups: 0\n", "glClear -> next\n", "eglMakeCurrent -> next\n",
                      "unknownName -> next\n"});
    EXPECT_FALSE(has(r.err, "Velour layer loaded")) << r.err;
}

TEST(StartUp, DeferredModeHandsOutWrappersAndLogsTheBanner) {
    Probe probe;
    RunResult r = probe.run("com.velour.probe",
                            {"glClear", "glDrawArrays", "eglMakeCurrent", "eglGetCurrentContext",
                             "eglInitialize", "glclear", "glNotAName"});
    ASSERT_EQ(r.status, 0) << r.err;
    expectAll(r.out, {"driver look-ups: 1112\n", "release tag: 0\n", "glClear -> wrapper\n",
                      "glDrawArrays -> wrapper\n", "eglMakeCurrent -> layer\n",
                      "eglGetCurrentContext -> layer\n", "eglInitialize -> wrapper\n",
                      "glclear -> next\n", "glNotAName -> next\n"});
    expectAll(probe.sysroot.read("/sdcard/nimbo.orlo.velour.com.velour.probe.log"),
              {"Velour layer loaded.", "Package Name : com.velour.probe", "Interception : enabled",
               "Runtime Mode : 0", "ORLO library libtessel.so not found"});
    EXPECT_TRUE(has(r.err, "Velour layer loaded.")) << "the platform log has it too";
}

TEST(StartUp, ModeRules) {
    Probe probe;
    RunResult r = probe.run("com.velour.seven", {"glClear"});
    EXPECT_TRUE(has(r.out, "release tag: 0\n")) << "a mode of 5 or more means deferred";

    probe.setProperty("vendor.nimbo.orlo.mode", "3");
    r = probe.run("com.velour.probe", {"glClear", "glDrawArrays", "eglMakeCurrent",
                                       "eglGetCurrentContext", "glNotAName"});
    // glDrawArrays gets a thunk over the slot.
    expectAll(r.out, {"release tag: 3\n", "glClear -> driver\n", "glDrawArrays -> layer\n",
                      "eglMakeCurrent -> layer\n", "eglGetCurrentContext -> driver\n",
                      "glNotAName -> next\n"});

    probe.setProperty("vendor.nimbo.orlo.mode", "4");
    r = probe.run("com.velour.probe", {"glClear", "eglGetCurrentContext", "glClear", "notAName"});
    expectAll(r.out,
              {"release tag: 4\n", "glClear -> wrapper\n", "eglGetCurrentContext -> wrapper\n"});
    // The earlier run's list is replaced by the names this process resolved,
    // once each, in order.
    EXPECT_EQ(probe.sysroot.read("/data/local/tmp/orlo/interface_log.txt"),
              "glClear\neglGetCurrentContext\n");
}

// Elsewhere, as the settings tests show, a known game runs hooks only.
TEST(StartUp, KnownGameDefersOnMediaTek) {
    Probe mediatek;
    mediatek.setProperty("ro.boot.hardware", "mt6789");
    RunResult r = mediatek.run("com.velour.known", {"glClear"});
    EXPECT_TRUE(has(r.out, "release tag: 1\n")) << r.out;
}

TEST(StartUp, EffectLibraryIsSearchedInOrder) {
    Probe probe;
    const std::string stub = velour::test::readFile(VELOUR_TESSEL_STUB_PATH);
    probe.sysroot.write("/system/lib/libtessel.so", stub);

    RunResult r = probe.run("com.velour.probe", {"glClear"});
    // Game 0 has no hooks.
    expectAll(r.err, {"ORLO library loaded from /system/lib/libtessel.so",
                      "Unsupported game. Game triggers disabled."});
    EXPECT_TRUE(has(r.out, "glClear -> wrapper\n")) << r.out;

    probe.sysroot.write("/odm/lib/libtessel.so", stub);
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
