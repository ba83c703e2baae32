// The demo game run directly, as the comparison with the layer runs it: its
// screenshots, decoded with libpng independently of the demo's writer, and
// how it fails. That runs are identical, byte for byte, is left to the
// comparison, which fails otherwise.
#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "TestSysroot.h"

namespace fs = std::filesystem;
using velour::test::RunResult;

namespace {

struct Image {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;  // top row first

    const unsigned char* at(int x, int y) const {
        return &rgb[3 * static_cast<std::size_t>(y * width + x)];
    }
};

// Empty when the file is no PNG. Finishing the read frees libpng's state.
Image decode(const fs::path& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return Image{};
    png.format = PNG_FORMAT_RGB;
    Image image{static_cast<int>(png.width), static_cast<int>(png.height),
                std::vector<unsigned char>(PNG_IMAGE_SIZE(png))};
    if (!png_image_finish_read(&png, nullptr, image.rgb.data(), 0, nullptr)) return Image{};
    return image;
}

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

TEST_F(DemoTest, ShortRunWritesScreenshotsOfTheScene) {
    // Every 2nd of 5 frames, and the last.
    const RunResult r = shoot(5, 2, dir_ / "shots");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_search(
        r.out, std::regex(R"(^frames: 5  fps: [0-9.]+  render-thread ms/frame: [0-9.]+\n$)")))
        << r.out;

    const std::set<std::string> names = {"frame-00002.png", "frame-00004.png", "frame-00005.png"};
    std::set<std::string> written;
    for (const auto& entry : fs::directory_iterator(dir_ / "shots"))
        written.insert(entry.path().filename().string());
    ASSERT_EQ(written, names);

    std::vector<Image> images;
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        const Image& image = images.emplace_back(decode(dir_ / "shots" / name));
        ASSERT_EQ(image.width, 128);
        ASSERT_EQ(image.height, 72);
        std::set<unsigned> colours;
        for (std::size_t i = 0; i + 2 < image.rgb.size(); i += 3)
            colours.insert(image.rgb[i] << 16 | image.rgb[i + 1] << 8 | image.rgb[i + 2]);
        EXPECT_GT(colours.size(), 100u) << "the image is nearly uniform";
        // Sky above, ground below: the lit pass reached the screen right side up.
        const unsigned char* sky = image.at(64, 14);
        const unsigned char* ground = image.at(64, 66);
        EXPECT_GT(sky[2], sky[0] + 20) << "no blue sky at the top";
        EXPECT_LE(ground[2], ground[0] + 10) << "sky colour at the bottom";
    }
    EXPECT_NE(images[0].rgb, images[1].rgb) << "frames 2 and 4 are the same picture";
}

// The target circles behind the pillar: visible at frame 34, hidden at 68.
// The HUD shows last frame's occlusion query, so its status line tells
// whether the query result came back and was read.
TEST_F(DemoTest, OcclusionQueryDrivesTheHud) {
    const RunResult r = shoot(68, 34, dir_);
    ASSERT_EQ(r.status, 0) << r.err;
    static const unsigned char YELLOW[] = {255, 210, 60};
    const auto yellowTextPixels = [&](const char* name) {
        const Image image = decode(dir_ / name);
        EXPECT_EQ(image.width, 128) << name;
        int count = 0;
        for (int y = image.height - 16; y >= 0 && y < image.height; ++y)
            for (int x = 0; x < 96 && x < image.width; ++x)
                count += std::equal(image.at(x, y), image.at(x, y) + 3, YELLOW);
        return count;
    };
    EXPECT_GT(yellowTextPixels("frame-00034.png"), 40) << "no TARGET VISIBLE at frame 34";
    EXPECT_EQ(yellowTextPixels("frame-00068.png"), 0) << "TARGET VISIBLE at frame 68";
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
