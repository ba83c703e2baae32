// The styles of libtessel.so drawn by the layer itself, through velour-style
// on Mesa, over a frame of the demo game.

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
    static Png styled(const std::string& name, const std::string& path) {
        const std::string output = name + "-" + path + ".png";
        const auto result = style(
            {"--input", folder->root() + "/frame.png", "--style", name, "--path", path}, output);
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

// Each style changes most of the frame by both paths, and the per-pixel
// styles give one picture by both.
TEST_F(StyleTool, EveryStyleByBothPaths) {
    const Png original = frame();
    ASSERT_EQ(original.width, 160);
    for (const char* name : STYLES) {
        SCOPED_TRACE(name);
        const Png copied = styled(name, "copy"), fetched = styled(name, "fetch");
        for (const Png* png : {&copied, &fetched}) {
            ASSERT_EQ(png->rgb.size(), original.rgb.size());
            size_t changed = 0;
            for (size_t i = 0; i < png->rgb.size(); i += 3)
                changed += std::memcmp(&png->rgb[i], &original.rgb[i], 3) != 0;
            EXPECT_GT(changed, png->rgb.size() / 3 / 2);
        }
        const std::string perPixel = " color_invert gamma_correction night_vision old_movie ";
        if (perPixel.find(" " + std::string(name) + " ") != std::string::npos) {
            EXPECT_EQ(copied.rgb, fetched.rgb);
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
