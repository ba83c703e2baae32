// The styles of libtessel.so drawn by the layer itself, through velour-style
// on Mesa: every style changes the demo frame by both paths, the per-pixel
// styles give the same picture by both, and a half-screen mode leaves the
// other half as the game drew it.

#include <gtest/gtest.h>
#include <png.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "TestSysroot.h"

namespace tessel::test {
namespace {

struct Png {
    int width = 0, height = 0;
    std::vector<uint8_t> rgb;  // top-down
    const uint8_t* at(int x, int y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

Png readPng(const std::string& path) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    Png png;
    if (!png_image_begin_read_from_file(&image, path.c_str())) return png;
    image.format = PNG_FORMAT_RGB;
    png.rgb.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, png.rgb.data(), 0, nullptr)) {
        png.width = static_cast<int>(image.width);
        png.height = static_cast<int>(image.height);
    }
    return png;
}

class StyleTool : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        folder = new velour::test::TestSysroot(false);
        const auto result = style({"--demo", "--size", "160x90", "--style", "null"}, "frame.png");
        ASSERT_EQ(result.status, 0) << result.err;
    }
    static void TearDownTestSuite() { delete folder; }

    static velour::test::RunResult style(std::vector<std::string> args, const std::string& output) {
        args.insert(args.end(), {"--output", folder->root() + "/" + output});
        return velour::test::run(VELOUR_STYLE, args);
    }
    // The demo frame with `name` applied; empty on a failure, reported.
    static Png styled(const std::string& name, const std::string& path,
                      const std::string& mode = "full") {
        const std::string output = name + "-" + path + "-" + mode + ".png";
        const auto result = style({"--input", folder->root() + "/frame.png", "--style", name,
                                   "--path", path, "--mode", mode},
                                  output);
        EXPECT_EQ(result.status, 0) << result.err;
        return readPng(folder->root() + "/" + output);
    }
    static Png frame() { return readPng(folder->root() + "/frame.png"); }

    static velour::test::TestSysroot* folder;
};

velour::test::TestSysroot* StyleTool::folder = nullptr;

const char* const STYLES[] = {"color_invert",     "cel_shading",   "hdr",
                              "old_movie",        "night_vision",  "pixelize",
                              "gamma_correction", "edge_detection"};

TEST_F(StyleTool, EveryStyleChangesTheFrameByBothPaths) {
    const Png original = frame();
    ASSERT_EQ(original.width, 160);
    for (const char* name : STYLES) {
        for (const char* path : {"copy", "fetch"}) {
            SCOPED_TRACE(std::string(name) + " " + path);
            const Png png = styled(name, path);
            ASSERT_EQ(png.rgb.size(), original.rgb.size());
            size_t changed = 0;
            for (size_t i = 0; i < png.rgb.size(); i += 3)
                changed += std::memcmp(&png.rgb[i], &original.rgb[i], 3) != 0;
            EXPECT_GT(changed, png.rgb.size() / 3 / 2);
        }
    }
}

TEST_F(StyleTool, PerPixelStylesGiveOnePictureByBothPaths) {
    for (const char* name : {"color_invert", "gamma_correction", "night_vision", "old_movie"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(styled(name, "copy").rgb, styled(name, "fetch").rgb);
    }
}

// The divider is 6 pixels of black at the centre; beside it each half is
// either the styled picture or the game's own.
TEST_F(StyleTool, HalfModesStyleOneHalfAndLeaveTheOther) {
    const Png original = frame(), full = styled("color_invert", "copy");
    struct Case {
        const char* mode;
        bool leftStyled;
    };
    for (const Case& test : {Case{"left_half", true}, Case{"right_half", false}}) {
        SCOPED_TRACE(test.mode);
        const Png half = styled("color_invert", "copy", test.mode);
        ASSERT_EQ(half.width, 160);
        for (int y = 0; y < half.height; ++y) {
            for (int x = 0; x < half.width; ++x) {
                const bool divider = x >= 77 && x < 83;
                const bool styledSide = (x < 80) == test.leftStyled;
                const uint8_t black[3] = {0, 0, 0};
                const uint8_t* want = divider      ? black
                                      : styledSide ? full.at(x, y)
                                                   : original.at(x, y);
                ASSERT_EQ(std::memcmp(half.at(x, y), want, 3), 0) << x << "," << y;
            }
        }
    }
}

TEST_F(StyleTool, UnknownStyleDrawsNothingAndAMissingLibraryFails) {
    EXPECT_EQ(styled("no_such_style", "copy").rgb, frame().rgb);
    const auto result = style({"--input", folder->root() + "/frame.png", "--style", "hdr",
                               "--library", "/nonexistent/libtessel.so"},
                              "missing.png");
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("cannot load the effect library"), std::string::npos) << result.err;
}

}  // namespace
}  // namespace tessel::test
