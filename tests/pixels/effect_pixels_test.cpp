// The demo as a known game through the layer, with a style chosen through the
// game service: during play the style lands under the HUD, from the second
// frame of play on; menus and every run without hooks look as they do
// directly. The style is color_invert, whose CPU reference is 255 - value.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Png.h"
#include "TestSysroot.h"

namespace fs = std::filesystem;
using velour::test::has;
using velour::test::Image;
using velour::test::readPng;
using velour::test::RunResult;

namespace {

// Frames 1-3 lobby, 4-8 play, 9-11 lobby.
const char SCRIPT[] = "lobby:3,play:5,lobby:3";
constexpr int FRAMES = 11;
constexpr int FIRST_PLAY = 4, LAST_PLAY = 8;

std::string shot(const std::string& folder, int frame) {
    char name[32];
    std::snprintf(name, sizeof name, "/frame-%05d.png", frame);
    return folder + name;
}

class EffectPixels : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        work = fs::temp_directory_path() / ("velour-effect-" + std::to_string(getpid()));
        fs::create_directories(work);
        demo("", {"--screenshots", (work / "direct").string()});
        demo("", {"--no-hud", "--screenshots", (work / "nohud").string()});
    }
    static void TearDownTestSuite() { fs::remove_all(work); }

    // Runs the demo, through the layer when `package` is given; the log of
    // the layer lands in the sysroot.
    static RunResult demo(const std::string& package, std::vector<std::string> args,
                          const std::string& sysroot = "", const std::string& mode = "0") {
        std::vector<std::string> common = {"--size",       "160x90", "--script", SCRIPT,
                                           "--shot-every", "1",      "--quiet"};
        args.insert(args.begin(), common.begin(), common.end());
        if (package.empty()) return velour::test::run(VELOUR_DEMO, args);
        std::vector<std::string> run = {"--sysroot", sysroot,    "--package", package,
                                        "--mode",    mode,       "--effect",  "color_invert",
                                        "--",        VELOUR_DEMO};
        run.insert(run.end(), args.begin(), args.end());
        return velour::test::run(VELOUR_RUN, run);
    }

    // A sysroot of the default files, for a run that changes them.
    static std::string sysroot(const std::string& name) {
        fs::path root = work / name;
        fs::copy(VELOUR_DEFAULT_SYSROOT, root, fs::copy_options::recursive);
        return root.string();
    }

    static std::string log(const std::string& root, const std::string& package) {
        return velour::test::readFile(root + "/sdcard/nimbo.orlo.velour." + package + ".log");
    }

    // Every frame of `folder` but `except` equals the direct run's.
    static void expectDirect(const std::string& folder, std::vector<int> except = {}) {
        for (int frame = 1; frame <= FRAMES; ++frame) {
            if (std::find(except.begin(), except.end(), frame) != except.end()) continue;
            Image want = readPng(shot((work / "direct").string(), frame));
            Image got = readPng(shot(folder, frame));
            ASSERT_FALSE(want.rgba.empty());
            EXPECT_TRUE(got.rgba == want.rgba) << folder << ": frame " << frame;
        }
    }

    // The frames of play after the first: the style under the HUD.
    static void expectStyleUnderHud(const std::string& folder) {
        for (int frame = FIRST_PLAY + 1; frame <= LAST_PLAY; ++frame) {
            Image direct = readPng(shot((work / "direct").string(), frame));
            Image bare = readPng(shot((work / "nohud").string(), frame));
            Image got = readPng(shot(folder, frame));
            ASSERT_TRUE(!direct.rgba.empty() && got.rgba.size() == direct.rgba.size() &&
                        bare.rgba.size() == direct.rgba.size())
                << folder << ": frame " << frame;
            std::size_t scene = 0, text = 0, wrong = 0;
            for (std::size_t i = 0; i < direct.rgba.size() / 4; ++i) {
                const unsigned char *d = direct.at(i), *b = bare.at(i), *g = got.at(i);
                const bool underHud = d[0] != b[0] || d[1] != b[1] || d[2] != b[2];
                if (!underHud) {
                    ++scene;
                    for (int c = 0; c < 3; ++c)
                        if (std::abs(int{g[c]} - (255 - int{d[c]})) > 1) {
                            ++wrong;
                            break;
                        }
                } else if (d[0] == 240 && d[1] == 240 && d[2] == 240) {
                    // The HUD's opaque white text is drawn over the style.
                    ++text;
                    if (g[0] != d[0] || g[1] != d[1] || g[2] != d[2]) ++wrong;
                }
            }
            EXPECT_GT(scene, direct.rgba.size() / 8) << "frame " << frame;
            EXPECT_GT(text, 0u) << "frame " << frame;
            EXPECT_EQ(wrong, 0u) << folder << ": frame " << frame << ", " << scene << " scene and "
                                 << text << " text pixels";
        }
    }

    static fs::path work;
};

fs::path EffectPixels::work;

// The first lobby frame after play still counts as play until its end, so it
// carries the style too, as the first frame of play carries none. Without the
// effect library, or for a game the layer has no hooks for, every frame is
// the direct one.
TEST_F(EffectPixels, TheStyleLandsUnderTheHudDuringPlayOnly) {
    struct Case {
        const char *package, *mode;
        const char* game;  // a section added for the package, or none
        bool library;
        const char* logs;
    };
    const char* const STYLED = "Tessel initialized for EGL context";
    const Case cases[] = {
        {"com.velour.pubg", "0", nullptr, true, STYLED},
        {"com.velour.pubg", "3", nullptr, true, STYLED},
        {"com.velour.pubg.international", "0", nullptr, true, STYLED},
        {"com.velour.pubg.international", "3", nullptr, true, STYLED},
        {"com.velour.pubg", "0", nullptr, false, "ORLO library libtessel.so not found"},
        {"com.velour.other", "0", "0", true, "Unsupported game. Game triggers disabled."},
        {"com.velour.other", "0", "10", true, "Unsupported game. Game triggers disabled."},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.package) + " mode " + c.mode + " game " +
                     (c.game ? c.game : "listed") + (c.library ? "" : ", no library"));
        const std::string root = sysroot("sysroot-" + std::to_string(++n));
        if (!c.library) fs::remove(root + "/odm/lib/libtessel.so");
        if (c.game)
            std::ofstream(root + "/odm/etc/tesselfx/velour.ini", std::ios::app)
                << "\n[" << c.package << "]\ngame=" << c.game << "\nruntime_mode=0\nenabled=1\n";
        RunResult r = demo(c.package, {"--screenshots", root + "/shots"}, root, c.mode);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_TRUE(has(log(root, c.package), c.logs));
        if (c.logs != STYLED) {
            expectDirect(root + "/shots");
            continue;
        }
        expectDirect(root + "/shots", {5, 6, 7, 8, 9});
        expectStyleUnderHud(root + "/shots");
    }
}

}  // namespace
