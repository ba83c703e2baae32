// The layer loaded as the platform loads it, in processes of their own: each
// run reads its own settings, properties and process name at start.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "TestSysroot.h"

using velour::test::has;
using velour::test::RunResult;
using velour::test::TestSysroot;

namespace {

const char INI[] =
    "[com.velour.probe]\ngame=0\nruntime_mode=0\nenabled=1\n"
    "[com.velour.seven]\ngame=0\nruntime_mode=7\nenabled=1\n"
    "[com.velour.known]\ngame=2\nruntime_mode=1\nenabled=1\n";

const char MODE[] = "vendor.nimbo.orlo.mode";
const char PROXY[] = "vendor.nimbo.tessel.gameProxy";

// One process: its name, the properties and effect libraries its device has,
// the names it looks up, and what it prints and leaves behind.
struct Process {
    const char* package;
    std::vector<std::pair<std::string, std::string>> properties;
    std::vector<std::string> libraryFolders;
    std::vector<std::string> names;
    std::vector<std::string> expected;  // on stdout or stderr; with a leading '!', on neither
    // The earlier run's list is replaced only in mode 4, by the names the
    // process resolved, once each, in order.
    std::string interfaceLog = "from an earlier run\n";
};

TEST(StartUp, EachProcessReadsItsOwnSettingsPropertiesAndNameAtStart) {
    const std::string stub = velour::test::readFile(VELOUR_TESSEL_STUB_PATH);
    // clang-format off
    const Process runs[] = {
        {"com.not.configured", {}, {}, {"glClear", "eglMakeCurrent", "unknownName"},
         {"driver look-ups: 0\n", "glClear -> next\n", "eglMakeCurrent -> next\n",
          "unknownName -> next\n", "!Velour layer loaded"}},
        {"com.velour.probe", {}, {}, {"glClear", "eglMakeCurrent", "glclear"},
         {"driver look-ups: 1112\n", "release tag: 0\n", "glClear -> wrapper\n",
          "eglMakeCurrent -> layer\n", "glclear -> next\n", "Velour layer loaded.",
          "Package Name : com.velour.probe", "Interception : enabled", "Runtime Mode : 0",
          "ORLO library libtessel.so not found"}},
        // A mode of 5 or more means deferred.
        {"com.velour.seven", {}, {}, {"glClear"}, {"release tag: 0\n", "glClear -> wrapper\n"}},
        {"com.velour.probe", {{MODE, "3"}}, {}, {"glClear", "glDrawArrays", "eglGetCurrentContext"},
         {"release tag: 3\n", "glClear -> driver\n", "glDrawArrays -> layer\n",
          "eglGetCurrentContext -> driver\n"}},
        {"com.velour.probe", {{MODE, "4"}}, {}, {"glClear", "eglGetCurrentContext", "glClear", "x"},
         {"release tag: 4\n", "glClear -> wrapper\n", "eglGetCurrentContext -> wrapper\n"},
         "glClear\neglGetCurrentContext\n"},
        // Elsewhere, as the settings tests show, a known game runs hooks only.
        {"com.velour.known", {{"ro.boot.hardware", "mt6789"}}, {}, {"glClear"}, {"release tag: 1\n"}},
        // The effect library is searched in order; game 0 has no hooks.
        {"com.velour.probe", {}, {"/system/lib"}, {"glClear"},
         {"ORLO library loaded from /system/lib/libtessel.so",
          "Unsupported game. Game triggers disabled.", "glClear -> wrapper\n"}},
        {"com.velour.probe", {}, {"/system/lib", "/odm/lib"}, {"glClear"},
         {"ORLO library loaded from /odm/lib/libtessel.so"}},
        // Capture tools run under the game's name; the proxy serves the tools only.
        {"com.orlo.replay", {{PROXY, "com.velour.probe"}}, {}, {"glClear"},
         {"glClear -> wrapper\n", "Package Name : com.velour.probe"}},
        {"org.renderdoc.renderdoccmd.arm64", {{PROXY, "com.velour.probe"}}, {}, {"glClear"},
         {"glClear -> wrapper\n", "Package Name : com.velour.probe"}},
        {"com.velour.unrelated", {{PROXY, "com.velour.probe"}}, {}, {"glClear"}, {"glClear -> next\n"}},
    };
    // clang-format on
    for (const Process& run : runs) {
        TestSysroot sysroot{false};
        sysroot.write("/odm/etc/tesselfx/velour.ini", INI);
        sysroot.write("/data/local/tmp/orlo/interface_log.txt", "from an earlier run\n");
        for (const std::string& folder : run.libraryFolders)
            sysroot.write(folder + "/libtessel.so", stub);
        for (const auto& [name, value] : run.properties) {
            RunResult r = velour::test::run(VELOUR_PROP_PATH,
                                            {"--store", sysroot.store(), "set", name, value});
            ASSERT_EQ(r.status, 0) << r.err;
        }
        std::vector<std::string> args = {"--package", run.package};
        args.insert(args.end(), run.names.begin(), run.names.end());
        RunResult r = velour::test::run(VELOUR_PROBE_PATH, args, sysroot.environment());
        SCOPED_TRACE(std::string(run.package) + "\n" + r.out + r.err);
        ASSERT_EQ(r.status, 0);
        for (const std::string& part : run.expected) {
            if (part[0] == '!')
                EXPECT_FALSE(has(r.out + r.err, part.substr(1))) << part;
            else
                EXPECT_TRUE(has(r.out + r.err, part)) << part;
        }
        EXPECT_EQ(sysroot.read("/data/local/tmp/orlo/interface_log.txt"), run.interfaceLog);
    }
}

}  // namespace
