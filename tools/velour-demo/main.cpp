// velour-demo: a small headless game frame on OpenGL ES 3, deterministic so
// that runs with and without the layer can be compared image by image.

#include <GLES3/gl32.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "glapp/egl_session.h"
#include "glapp/gl_program.h"
#include "glapp/options.h"
#include "scene.h"
#include "screenshot.h"
#include "shooter.h"

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
    "                     with --shooter, play items also: fire:N (N shots, one every\n"
    "                     5 frames), reload:N, pickup:N (a message slides in over N\n"
    "                     frames), switch:N (the other weapon; its name fades in)\n"
    "                                  --script lobby:30,play:30,fire:5,reload:10,fire:3\n"
    "  --shooter HOW      also draw a shooter's HUD (weapon button, rounds, pickup\n"
    "                     message, reload bar) from buffers rewritten each frame by\n"
    "                     HOW: subdata (glBufferSubData) or map (write maps)\n"
    "  --shots FILE       with --shooter: append \"NANOSECONDS WEAPON\" to FILE for each\n"
    "                     shot, timed just before the swap of the frame that shows it\n"
    "  --frame-ms MS      make each frame last at least MS milliseconds (default 0)\n"
    "  --detail N         side of the ground's detail texture, uploaded from the\n"
    "                     game's memory each frame (16 to 2048, default 64)\n"
    "                                                         --detail 512\n"
    "  --no-hud           draw no HUD, to tell which pixels the HUD covers\n"
    "  --quiet            print the summary line only\n"
    "  --help             print this help\n"
    "\n"
    "Every frame depends on its number alone, so two runs give identical images.\n"
    "Exits 0 on success, 1 on an EGL, GL or file failure, 2 on a bad option.\n";

enum class Kind { lobby, play, fire, reload, pickup, weaponSwitch };

// Frames between two shots of a fire item.
constexpr int kShotGap = 5;
constexpr int kMagazine = 30;

struct Phase {
    Kind kind;
    int frames;
    bool lobby() const { return kind == Kind::lobby; }
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
    bool shooter = false;
    ShooterHud::Update update = ShooterHud::Update::subData;
    std::string shots;
    int frameMs = 0;
    int detail = 64;
};

std::vector<Phase> parseScript(const std::string& text) {
    std::vector<Phase> phases;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find(',', start), text.size());
        const std::string item = text.substr(start, end - start);
        const std::size_t colon = item.find(':');
        const std::string kind = item.substr(0, colon);
        const char* const kinds[] = {"lobby", "play", "fire", "reload", "pickup", "switch"};
        int found = -1;
        for (int k = 0; k < 6; ++k)
            if (kind == kinds[k]) found = k;
        if (colon == std::string::npos || found < 0)
            throw UsageError(
                "--script wants lobby:N, play:N, fire:N, reload:N, pickup:N or "
                "switch:N items, not '" +
                item + "'");
        int count = parseInt("--script", item.c_str() + colon + 1, 1, 1000000);
        if (found == static_cast<int>(Kind::fire)) count *= kShotGap;
        phases.push_back({static_cast<Kind>(found), count});
        start = end + 1;
    }
    return phases;
}

// The phase of frame `frame` (from 1), and the frame's index in it; play
// past the script's end.
std::pair<Phase, int> phaseAt(const std::vector<Phase>& script, int frame) {
    for (const Phase& phase : script) {
        if (frame <= phase.frames) return {phase, frame - 1};
        frame -= phase.frames;
    }
    return {{Kind::play, 1}, 0};
}

bool inLobby(const std::vector<Phase>& script, int frame) {
    return phaseAt(script, frame).first.lobby();
}

// The shooter's game: what its HUD shows in each frame, as the script plays.
class Shooter {
  public:
    // Advances to frame `frame`; true when a shot is fired in it.
    bool advance(const std::vector<Phase>& script, int frame) {
        const auto [phase, k] = phaseAt(script, frame);
        bool shot = false;
        state_.pickupY = -1;
        state_.reload = -1;
        state_.nameTint = 255;
        switch (phase.kind) {
            case Kind::fire:
                if (k % kShotGap == 0 && rounds_[state_.weapon] > 0) {
                    --rounds_[state_.weapon];
                    shot = true;
                }
                break;
            case Kind::reload:
                state_.reload = static_cast<float>(k + 1) / static_cast<float>(phase.frames);
                if (k + 1 == phase.frames) rounds_[state_.weapon] = kMagazine;
                break;
            case Kind::pickup:
                // Slides down from the top edge.
                state_.pickupY =
                    72.0f * static_cast<float>(k + 1) / static_cast<float>(phase.frames);
                break;
            case Kind::weaponSwitch:
                if (k == 0) state_.weapon ^= 1;
                state_.nameTint = 55 + 200 * (k + 1) / phase.frames;
                break;
            default:
                break;
        }
        state_.rounds = rounds_[state_.weapon];
        return shot;
    }
    const ShooterState& state() const { return state_; }

  private:
    ShooterState state_;
    int rounds_[2] = {kMagazine, kMagazine};
};

// Takes one option; false for one it does not know.
bool takeOption(Options& o, const std::string& arg, glapp::Arguments& args) {
    if (arg == "--frames") {
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
    } else if (arg == "--shooter") {
        const std::string how = args.value();
        if (how != "subdata" && how != "map")
            throw UsageError("--shooter wants subdata or map, not '" + how + "'");
        o.shooter = true;
        o.update = how == "map" ? ShooterHud::Update::map : ShooterHud::Update::subData;
    } else if (arg == "--shots") {
        o.shots = args.value();
    } else if (arg == "--frame-ms") {
        o.frameMs = parseInt(arg, args.value(), 0, 10000);
    } else if (arg == "--detail") {
        o.detail = parseInt(arg, args.value(), 16, 2048);
    } else if (arg == "--no-hud") {
        o.hud = false;
    } else if (arg == "--quiet") {
        o.quiet = true;
    } else {
        return false;
    }
    return true;
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
    Scene scene(o.width, o.height, o.hud, o.detail);
    std::unique_ptr<ShooterHud> shooterHud;
    Shooter shooter;
    std::ofstream shots;
    if (o.shooter) {
        shooterHud = std::make_unique<ShooterHud>(o.update);
        scene.setOverlay([&] { shooterHud->draw(o.width, o.height, shooter.state()); });
        if (!o.shots.empty()) {
            shots.open(o.shots, std::ios::app);
            if (!shots) throw Failure("cannot open " + o.shots);
        }
    }
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
        const bool fired = o.shooter && shooter.advance(o.script, frame);
        scene.renderFrame(frame, shot, inLobby(o.script, frame));
        inFrame += Clock::now() - before;
        // A shot's time is that of the swap that shows it.
        const auto firedAt = std::chrono::system_clock::now();
        egl.swap();
        if (fired && shots.is_open())
            shots << std::chrono::duration_cast<std::chrono::nanoseconds>(
                         firedAt.time_since_epoch())
                         .count()
                  << ' ' << ShooterHud::kWeapons[shooter.state().weapon] << std::endl;
        if (o.frameMs > 0)
            std::this_thread::sleep_until(before + std::chrono::milliseconds(o.frameMs));
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
    return glapp::programMain<demo::Options>("velour-demo", demo::kUsage, argc, argv,
                                             demo::takeOption, demo::run);
}
