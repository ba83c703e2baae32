// velour-demo: a small headless game frame on OpenGL ES 3, deterministic so
// that runs with and without the layer can be compared image by image.

#include <GLES3/gl32.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "glapp/egl_session.h"
#include "glapp/gl_program.h"
#include "glapp/options.h"
#include "scene.h"
#include "screenshot.h"

namespace demo {
namespace {

using glapp::checkGl;
using glapp::EglSession;
using glapp::Failure;
using glapp::parseInt;
using glapp::UsageError;

constexpr int kMaxSide = 4096;
constexpr int kMinSide = 32;

const char kUsage[] =
    "usage: velour-demo [options]\n"
    "\n"
    "Renders a small game scene (shadow map, lit pass, post pass, HUD) with OpenGL ES 3\n"
    "into an off-screen EGL surface, then prints frames, frames per second and the\n"
    "mean time per frame the render thread spends issuing the frame. Its textures and\n"
    "programs carry debug labels where the driver offers GL_EXT_debug_label.\n"
    "\n"
    "  --frames N         frames to render (default 120)       --frames 300\n"
    "  --size WxH         surface size in pixels, 32 to 4096 a side (default 640x360)\n"
    "                                                         --size 1280x720\n"
    "  --screenshots DIR  write PNG screenshots into DIR (made if missing), named\n"
    "                     frame-NNNNN.png by frame number from 1\n"
    "                                                         --screenshots /tmp/shots\n"
    "  --shot-every K     with --screenshots: shoot every K-th frame and the last\n"
    "                     (default 30)                        --shot-every 10\n"
    "  --script PHASES    play phases in order instead of --frames: each lobby:N or\n"
    "                     play:N, N frames of the menu or of the game\n"
    "                                                         --script lobby:60,play:300,lobby:60\n"
    "  --no-hud           draw no HUD, to tell which pixels the HUD covers\n"
    "  --quiet            print the summary line only\n"
    "  --help             print this help\n"
    "\n"
    "Every frame depends on its number alone, so two runs give identical images.\n"
    "Exits 0 on success, 1 on an EGL, GL or file failure, 2 on a bad option.\n";

struct Phase {
    bool lobby;
    int frames;
};

struct Options {
    int frames = 120;
    // Empty: all frames are play.
    std::vector<Phase> script;
    int width = 640;
    int height = 360;
    std::string screenshots;
    int shotEvery = 30;
    bool quiet = false;
    bool hud = true;
};

std::vector<Phase> parseScript(const std::string& text) {
    std::vector<Phase> phases;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::string item = text.substr(start, end - start);
        const std::size_t colon = item.find(':');
        const std::string kind = item.substr(0, colon);
        if (colon == std::string::npos || (kind != "lobby" && kind != "play"))
            throw UsageError("--script wants lobby:N or play:N items, not '" + item + "'");
        phases.push_back(
            {kind == "lobby", parseInt("--script", item.c_str() + colon + 1, 1, 1000000)});
        start = end + 1;
    }
    return phases;
}

// Whether frame `frame` (from 1) is a lobby frame.
bool inLobby(const std::vector<Phase>& script, int frame) {
    for (const Phase& phase : script) {
        if (frame <= phase.frames) return phase.lobby;
        frame -= phase.frames;
    }
    return false;
}

Options parseOptions(int argc, char** argv, bool* help) {
    Options o;
    glapp::Arguments args(argc, argv);
    while (args.next()) {
        const std::string& arg = args.option();
        if (arg == "--help" || arg == "-h") {
            *help = true;
        } else if (arg == "--frames") {
            o.frames = parseInt(arg, args.value(), 1, 1000000);
        } else if (arg == "--size") {
            glapp::parseSize(arg, args.value(), kMinSide, kMaxSide, &o.width, &o.height);
        } else if (arg == "--screenshots") {
            o.screenshots = args.value();
            if (o.screenshots.empty()) throw UsageError("--screenshots wants a folder");
        } else if (arg == "--shot-every") {
            o.shotEvery = parseInt(arg, args.value(), 1, 1000000);
        } else if (arg == "--script") {
            o.script = parseScript(args.value());
            o.frames = 0;
            for (const Phase& phase : o.script) o.frames += phase.frames;
        } else if (arg == "--no-hud") {
            o.hud = false;
        } else if (arg == "--quiet") {
            o.quiet = true;
        } else {
            throw UsageError("unknown option '" + arg + "'");
        }
    }
    return o;
}

std::string shotPath(const std::string& folder, int frame) {
    char name[32];
    std::snprintf(name, sizeof name, "frame-%05d.png", frame);
    return (std::filesystem::path(folder) / name).string();
}

int run(const Options& o) {
    using Clock = std::chrono::steady_clock;
    if (!o.screenshots.empty()) {
        std::error_code ec;
        std::filesystem::create_directories(o.screenshots, ec);
        if (ec) throw Failure("cannot make " + o.screenshots + ": " + ec.message());
    }

    EglSession egl(o.width, o.height);
    Scene scene(o.width, o.height, o.hud);
    if (!o.quiet) {
        const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        const auto* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
        std::printf("velour-demo: %dx%d, %d frames, %s, %s, %s, %s scene buffer\n", o.width,
                    o.height, o.frames, egl.describe().c_str(), version ? version : "?",
                    renderer ? renderer : "?", scene.hdr() ? "RGBA16F" : "RGBA8");
    }

    Clock::duration inFrame{}, writingFiles{};
    const Clock::time_point start = Clock::now();
    for (int frame = 1; frame <= o.frames; ++frame) {
        const bool shot = !o.screenshots.empty() && (frame % o.shotEvery == 0 || frame == o.frames);
        const Clock::time_point before = Clock::now();
        scene.renderFrame(frame, shot, inLobby(o.script, frame));
        inFrame += Clock::now() - before;
        egl.swap();
        if (shot) {
            const std::vector<std::uint8_t> pixels = scene.readCapture();
            // Encoding is not rendering: leave it out of the frame rate.
            const Clock::time_point encoding = Clock::now();
            const std::string path = shotPath(o.screenshots, frame);
            std::string error;
            if (!writePngFromGl(path, o.width, o.height, pixels, &error)) throw Failure(error);
            writingFiles += Clock::now() - encoding;
            if (!o.quiet) std::printf("wrote %s\n", path.c_str());
        }
        // Only where a frame is looked at anyway, and at the end: as a game
        // would, the demo does not stall the pipeline for errors every frame.
        if (shot || frame == o.frames) {
            const std::string where = "frame " + std::to_string(frame);
            checkGl(where.c_str());
        }
    }
    const double seconds =
        std::chrono::duration<double>(Clock::now() - start - writingFiles).count();
    const double msPerFrame = std::chrono::duration<double, std::milli>(inFrame).count() / o.frames;
    std::printf("frames: %d  fps: %.1f  render-thread ms/frame: %.2f\n", o.frames,
                seconds > 0 ? o.frames / seconds : 0.0, msPerFrame);
    return 0;
}

}  // namespace
}  // namespace demo

int main(int argc, char** argv) {
    bool help = false;
    demo::Options options;
    try {
        options = demo::parseOptions(argc, argv, &help);
    } catch (const glapp::UsageError& e) {
        std::fprintf(stderr, "velour-demo: %s (see --help)\n", e.what());
        return 2;
    }
    if (help) {
        std::fputs(demo::kUsage, stdout);
        return 0;
    }
    try {
        return demo::run(options);
    } catch (const std::exception& e) {
        std::fflush(stdout);
        std::fprintf(stderr, "velour-demo: %s\n", e.what());
        return 1;
    }
}
