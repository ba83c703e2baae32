#include <gtest/gtest.h>
#include <png.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Result {
    int status = -1;
    std::string out;
    std::string err;
};

struct Image {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgb;  // top row first

    const unsigned char* at(int x, int y) const {
        return &rgb[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                     static_cast<std::size_t>(x)) *
                    3];
    }
};

std::string readAll(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Decodes with libpng, independently of the demo's writer.
bool decode(const fs::path& path, Image* image) {
    png_image png;
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return false;
    png.format = PNG_FORMAT_RGB;
    image->width = static_cast<int>(png.width);
    image->height = static_cast<int>(png.height);
    image->rgb.resize(PNG_IMAGE_SIZE(png));
    if (!png_image_finish_read(&png, nullptr, image->rgb.data(), 0, nullptr)) {
        png_image_free(&png);
        return false;
    }
    return true;
}

class DemoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/velour-demo-test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    // Runs the demo through the shell; `environment` is prefixed as NAME=value words.
    Result run(const std::string& args, const std::string& environment = "") {
        const fs::path err = dir_ / "stderr.txt";
        const std::string command =
            environment + " '" + VELOUR_DEMO + "' " + args + " 2>'" + err.string() + "'";
        Result r;
        FILE* pipe = popen(command.c_str(), "r");
        if (!pipe) return r;
        char buffer[4096];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
        const int status = pclose(pipe);
        r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        r.err = readAll(err);
        return r;
    }

    // A short run at a small size; 5 frames shooting every 2nd gives 2, 4
    // and the last, 5.
    Result shoot(const std::string& folder) {
        return run("--frames 5 --size 128x72 --shot-every 2 --quiet --screenshots '" +
                   (dir_ / folder).string() + "'");
    }

    fs::path dir_;
};

std::set<std::string> filesIn(const fs::path& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.insert(entry.path().filename().string());
    }
    return names;
}

const char* const kShots[] = {"frame-00002.png", "frame-00004.png", "frame-00005.png"};

TEST_F(DemoTest, ShortRunWritesScreenshotsOfTheScene) {
    const Result r = shoot("shots");
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_TRUE(std::regex_search(
        r.out, std::regex(R"(^frames: 5  fps: [0-9.]+  render-thread ms/frame: [0-9.]+\n$)")))
        << r.out;

    EXPECT_EQ(filesIn(dir_ / "shots"), std::set<std::string>(std::begin(kShots), std::end(kShots)));

    for (const char* name : kShots) {
        SCOPED_TRACE(name);
        Image image;
        ASSERT_TRUE(decode(dir_ / "shots" / name, &image));
        ASSERT_EQ(image.width, 128);
        ASSERT_EQ(image.height, 72);
        std::set<unsigned> colours;
        for (std::size_t i = 0; i + 2 < image.rgb.size(); i += 3) {
            colours.insert(image.rgb[i] << 16 | image.rgb[i + 1] << 8 | image.rgb[i + 2]);
        }
        EXPECT_GT(colours.size(), 100u) << "the image is nearly uniform";
        // Sky above, ground below: the lit pass reached the screen right side up.
        const unsigned char* sky = image.at(64, 14);
        const unsigned char* ground = image.at(64, 66);
        EXPECT_GT(sky[2], sky[0] + 20) << "no blue sky at the top";
        EXPECT_LE(ground[2], ground[0] + 10) << "sky colour at the bottom";
    }
}

TEST_F(DemoTest, RunsAreByteIdenticalAndFramesAnimate) {
    const Result first = shoot("first");
    ASSERT_EQ(first.status, 0) << first.err;
    const Result second = shoot("second");
    ASSERT_EQ(second.status, 0) << second.err;
    for (const char* name : kShots) {
        const std::string a = readAll(dir_ / "first" / name);
        ASSERT_FALSE(a.empty()) << name;
        EXPECT_TRUE(a == readAll(dir_ / "second" / name)) << name << " differs between runs";
    }
    EXPECT_NE(readAll(dir_ / "first" / kShots[0]), readAll(dir_ / "first" / kShots[1]))
        << "frames 2 and 4 are the same picture";
}

// The target circles behind the pillar: visible at frame 34, hidden at 68.
// The HUD shows last frame's occlusion query, so its status line tells
// whether the query result came back and was read.
TEST_F(DemoTest, OcclusionQueryDrivesTheHud) {
    const Result r = run("--frames 68 --size 128x72 --shot-every 34 --quiet --screenshots '" +
                         (dir_ / "q").string() + "'");
    ASSERT_EQ(r.status, 0) << r.err;
    const auto yellowTextPixels = [&](const char* name) {
        Image image;
        EXPECT_TRUE(decode(dir_ / "q" / name, &image)) << name;
        int count = 0;
        for (int y = image.height - 16; y >= 0 && y < image.height; ++y) {
            for (int x = 0; x < 96 && x < image.width; ++x) {
                const unsigned char* p = image.at(x, y);
                count += p[0] == 255 && p[1] == 210 && p[2] == 60;
            }
        }
        return count;
    };
    EXPECT_GT(yellowTextPixels("frame-00034.png"), 40) << "no TARGET VISIBLE at frame 34";
    EXPECT_EQ(yellowTextPixels("frame-00068.png"), 0) << "TARGET VISIBLE at frame 68";
}

TEST_F(DemoTest, EglFailureExitsWithAMessage) {
    // No vendor library for the EGL dispatcher: no display can be had.
    const Result r = run("--frames 2 --quiet",
                         "__EGL_VENDOR_LIBRARY_FILENAMES='" + (dir_ / "none.json").string() + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("velour-demo: egl"), std::string::npos) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
}

TEST_F(DemoTest, UnwritableScreenshotFolderFails) {
    std::ofstream(dir_ / "file") << "x";
    const Result r = run("--frames 2 --size 64x64 --quiet --screenshots '" +
                         (dir_ / "file" / "shots").string() + "'");
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("cannot make"), std::string::npos) << r.err;
}

}  // namespace
