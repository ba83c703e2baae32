// The demo game run directly, as the comparison with the layer runs it: its
// screenshots, decoded with libpng independently of the demo's writer, and
// how it fails. That runs are identical, byte for byte, is left to the
// comparison, which fails otherwise.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "Png.h"
#include "TestSysroot.h"

namespace fs = std::filesystem;
using velour::test::Image;
using velour::test::RunResult;

namespace {

class DemoTest : public ::testing::Test {
  protected:
    // A short run at 128x72 that writes every screenshot into folder.
    RunResult shoot(int frames, int every, const fs::path& folder) {
        return velour::test::run(
            VELOUR_DEMO, {"--frames", std::to_string(frames), "--size", "128x72", "--shot-every",
                          std::to_string(every), "--quiet", "--screenshots", folder.string()});
    }

    velour::test::TestSysroot scratch{false};  // a folder of the test's own, removed after
    fs::path dir_ = scratch.root();
};

// The target circles behind the pillar: visible at frame 34, hidden at 68.
// The HUD shows last frame's occlusion query, so its yellow status line tells
// whether the query result came back and was read.
TEST_F(DemoTest, ScreenshotsShowTheSceneAndTheHudFollowsTheOcclusionQuery) {
    // Every 34th of 69 frames, and the last.
    const RunResult r = shoot(69, 34, dir_ / "shots");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_search(
        r.out, std::regex(R"(^frames: 69  fps: [0-9.]+  render-thread ms/frame: [0-9.]+\n$)")))
        << r.out;
    std::set<std::string> written;
    for (const auto& entry : fs::directory_iterator(dir_ / "shots"))
        written.insert(entry.path().filename().string());
    ASSERT_EQ(written,
              (std::set<std::string>{"frame-00034.png", "frame-00068.png", "frame-00069.png"}));

    std::vector<Image> images;
    for (const char* name : {"frame-00034.png", "frame-00068.png", "frame-00069.png"}) {
        SCOPED_TRACE(name);
        const Image& image = images.emplace_back(velour::test::readPng(dir_ / "shots" / name));
        ASSERT_EQ(std::pair(image.width, image.height), std::pair(128, 72));
        std::set<unsigned> colours;
        for (std::size_t i = 0; i < image.rgba.size() / 4; ++i)
            colours.insert(image.at(i)[0] << 16 | image.at(i)[1] << 8 | image.at(i)[2]);
        EXPECT_GT(colours.size(), 100u) << "the image is nearly uniform";
        // Sky above, ground below: the lit pass reached the screen right side up.
        const unsigned char* sky = image.at(64, 14);
        const unsigned char* ground = image.at(64, 66);
        EXPECT_GT(sky[2], sky[0] + 20) << "no blue sky at the top";
        EXPECT_LE(ground[2], ground[0] + 10) << "sky colour at the bottom";
    }
    EXPECT_NE(images[0].rgba, images[1].rgba) << "frames 34 and 68 are the same picture";

    static const unsigned char YELLOW[] = {255, 210, 60};
    std::vector<int> yellowText;
    for (const Image& image : images) {
        int count = 0;
        for (int y = image.height - 16; y < image.height; ++y)
            for (int x = 0; x < 96; ++x)
                count += std::equal(image.at(x, y), image.at(x, y) + 3, YELLOW);
        yellowText.push_back(count);
    }
    EXPECT_GT(yellowText[0], 40) << "no TARGET VISIBLE at frame 34";
    EXPECT_EQ(yellowText[1], 0) << "TARGET VISIBLE at frame 68";
}

// A failure exits 1 and a bad option 2, each with a message and no summary.
TEST_F(DemoTest, FailuresExitWithAMessage) {
    std::ofstream(dir_ / "file") << "x";
    // arguments, environment, status, message
    using Case = std::tuple<std::vector<std::string>, std::vector<std::string>, int, const char*>;
    const Case cases[] = {
        // No vendor library for the EGL dispatcher: no display can be had.
        {{"--frames", "2", "--quiet"},
         {"__EGL_VENDOR_LIBRARY_FILENAMES=" + (dir_ / "none.json").string()},
         1,
         "velour-demo: egl"},
        {{"--frames", "2", "--size", "64x64", "--quiet", "--screenshots",
          (dir_ / "file" / "shots").string()},
         {},
         1,
         "velour-demo: cannot make"},
        {{"--size", "16x16"}, {}, 2, "velour-demo: --size wants a whole number from 32"},
    };
    for (const auto& [args, environment, status, message] : cases) {
        const RunResult r = velour::test::run(VELOUR_DEMO, args, environment);
        EXPECT_EQ(r.status, status) << message;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
        EXPECT_TRUE(r.out.empty()) << r.out;
    }
}

}  // namespace
