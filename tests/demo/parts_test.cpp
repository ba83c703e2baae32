// The demo's own building blocks, tested without a GL context: the matrix
// helpers every pass relies on, and the screenshot writer.
#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "screenshot.h"
#include "vecmath.h"

namespace {

using demo::Mat4;

std::array<float, 4> apply(const Mat4& m, float x, float y, float z, float w = 1) {
    std::array<float, 4> r{};
    const float v[4] = {x, y, z, w};
    for (int row = 0; row < 4; ++row) {
        for (int k = 0; k < 4; ++k) r[static_cast<std::size_t>(row)] += m.at(row, k) * v[k];
    }
    return r;
}

// Clip coordinates to normalised device coordinates.
std::array<float, 3> ndc(const std::array<float, 4>& c) {
    return {c[0] / c[3], c[1] / c[3], c[2] / c[3]};
}

constexpr float kPi = 3.14159265358979f;

TEST(DemoMatrices, MatricesAreColumnMajorAndComposeRightToLeft) {
    // Translation sits in the last column, where glUniformMatrix4fv expects it.
    const Mat4 t = demo::translate(1, 2, 3);
    EXPECT_EQ(t.m[12], 1);
    EXPECT_EQ(t.m[13], 2);
    EXPECT_EQ(t.m[14], 3);
    // translate * scale: scale first, then move.
    const auto p = apply(demo::translate(10, 0, 0) * demo::scale(2, 3, 4), 1, 1, 1);
    EXPECT_FLOAT_EQ(p[0], 12);
    EXPECT_FLOAT_EQ(p[1], 3);
    EXPECT_FLOAT_EQ(p[2], 4);
    EXPECT_FLOAT_EQ(p[3], 1);
}

TEST(DemoMatrices, RotationsAreRightHanded) {
    const auto y = apply(demo::rotateY(kPi / 2), 1, 0, 0);
    EXPECT_NEAR(y[0], 0, 1e-6);
    EXPECT_NEAR(y[2], -1, 1e-6);
    const auto x = apply(demo::rotateX(kPi / 2), 0, 1, 0);
    EXPECT_NEAR(x[1], 0, 1e-6);
    EXPECT_NEAR(x[2], 1, 1e-6);
}

TEST(DemoMatrices, PerspectiveMapsTheFrustumOntoTheCube) {
    const float fov = 50 * kPi / 180, aspect = 16.0f / 9, zNear = 0.5f, zFar = 60;
    const Mat4 p = demo::perspective(fov, aspect, zNear, zFar);
    EXPECT_NEAR(ndc(apply(p, 0, 0, -zNear))[2], -1, 1e-5);
    EXPECT_NEAR(ndc(apply(p, 0, 0, -zFar))[2], 1, 1e-4);
    const float top = zNear * std::tan(fov / 2);
    const auto corner = ndc(apply(p, top * aspect, top, -zNear));
    EXPECT_NEAR(corner[0], 1, 1e-5);
    EXPECT_NEAR(corner[1], 1, 1e-5);
}

TEST(DemoMatrices, OrthoMapsTheBoxOntoTheCube) {
    const Mat4 o = demo::ortho(-13, 13, -5, 7, 1, 40);
    const auto low = apply(o, -13, -5, -1);
    const auto high = apply(o, 13, 7, -40);
    EXPECT_NEAR(low[0], -1, 1e-6);
    EXPECT_NEAR(low[1], -1, 1e-6);
    EXPECT_NEAR(low[2], -1, 1e-6);
    EXPECT_NEAR(high[0], 1, 1e-6);
    EXPECT_NEAR(high[1], 1, 1e-6);
    EXPECT_NEAR(high[2], 1, 1e-6);
}

TEST(DemoMatrices, LookAtPutsTheTargetAheadAndUpUp) {
    const Mat4 v = demo::lookAt({3, 5.5f, 11}, {0, 1, 0}, {0, 1, 0});
    const auto eye = apply(v, 3, 5.5f, 11);
    EXPECT_NEAR(eye[0], 0, 1e-5);
    EXPECT_NEAR(eye[1], 0, 1e-5);
    EXPECT_NEAR(eye[2], 0, 1e-5);
    const auto target = apply(v, 0, 1, 0);
    EXPECT_NEAR(target[0], 0, 1e-5);
    EXPECT_NEAR(target[1], 0, 1e-5);
    EXPECT_NEAR(target[2], -std::sqrt(9 + 4.5f * 4.5f + 121), 1e-4);
    EXPECT_GT(apply(v, 0, 2, 0)[1], 0) << "world up is down on screen";
    // The eye sits on the +x side, so the world's +x direction is to the right.
    EXPECT_GT(apply(v, 1, 1, 0)[0], 0);
}

class DemoPng : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/velour-demo-png-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        for (const char* name : {"/a.png", "/b.png"}) unlink((dir_ + name).c_str());
        rmdir(dir_.c_str());
    }
    std::string dir_;
};

TEST_F(DemoPng, FlipsRowsAndDropsAlpha) {
    // 2x2, bottom row first as glReadPixels returns it.
    const std::vector<std::uint8_t> rgba = {
        10, 20, 30, 0,   40,  50,  60,  7,    // bottom row
        70, 80, 90, 255, 100, 110, 120, 128,  // top row
    };
    std::string error;
    ASSERT_TRUE(demo::writePngFromGl(dir_ + "/a.png", 2, 2, rgba, &error)) << error;

    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&png, (dir_ + "/a.png").c_str()));
    EXPECT_EQ(png.format & PNG_FORMAT_FLAG_ALPHA, 0u) << "alpha channel written";
    EXPECT_EQ(png.width, 2u);
    EXPECT_EQ(png.height, 2u);
    png.format = PNG_FORMAT_RGB;
    std::vector<std::uint8_t> rgb(PNG_IMAGE_SIZE(png));
    ASSERT_TRUE(png_image_finish_read(&png, nullptr, rgb.data(), 0, nullptr));
    const std::vector<std::uint8_t> topDown = {70, 80, 90, 100, 110, 120, 10, 20, 30, 40, 50, 60};
    EXPECT_EQ(rgb, topDown);
}

TEST_F(DemoPng, EqualPixelsGiveEqualFiles) {
    std::vector<std::uint8_t> rgba(37 * 5 * 4);
    for (std::size_t i = 0; i < rgba.size(); ++i) rgba[i] = static_cast<std::uint8_t>(i * 7);
    std::string error;
    ASSERT_TRUE(demo::writePngFromGl(dir_ + "/a.png", 37, 5, rgba, &error)) << error;
    ASSERT_TRUE(demo::writePngFromGl(dir_ + "/b.png", 37, 5, rgba, &error)) << error;
    auto bytes = [](const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    EXPECT_FALSE(bytes(dir_ + "/a.png").empty());
    EXPECT_EQ(bytes(dir_ + "/a.png"), bytes(dir_ + "/b.png"));
}

TEST_F(DemoPng, FailuresAreReportedNotWritten) {
    std::string error;
    EXPECT_FALSE(
        demo::writePngFromGl(dir_ + "/a.png", 4, 4, std::vector<std::uint8_t>(63), &error));
    EXPECT_FALSE(error.empty());
    EXPECT_NE(access((dir_ + "/a.png").c_str(), F_OK), 0) << "wrote from a short buffer";

    error.clear();
    const std::string unwritable = dir_ + "/missing/a.png";
    EXPECT_FALSE(demo::writePngFromGl(unwritable, 1, 1, std::vector<std::uint8_t>(4), &error));
    EXPECT_NE(error.find(unwritable), std::string::npos) << error;
}

}  // namespace
