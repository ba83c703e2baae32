// velour-framebench: a headless OpenGL ES 3 game frame that is CPU-bound the
// way games are: thousands of small draws with uniform updates, texture binds,
// buffer updates and blend changes, plus game-side computation on the render
// thread. The surface is tiny, so rasterising costs little and the time goes
// into issuing calls. Prints one machine-readable line at the end.

#include <GLES3/gl3.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>
#include <vector>

#include "glapp/egl_session.h"
#include "glapp/gl_program.h"
#include "glapp/options.h"

namespace {

using glapp::buildProgram;
using glapp::checkGl;
using glapp::EglSession;
using glapp::Failure;
using glapp::parseInt;
using glapp::uniformLocation;

const char kUsage[] =
    "usage: velour-framebench [options]\n"
    "\n"
    "Renders a CPU-bound game frame with OpenGL ES 3 into a 64x64 pbuffer on EGL's\n"
    "surfaceless platform: per frame, game work, then many small draws each with\n"
    "uniform updates and a texture bind, buffer updates and blend changes, then\n"
    "eglSwapBuffers. After an unmeasured warm-up it prints one line:\n"
    "  fps=F render_ms=R game_ms=G render_cpu_ms=C cpu_ms=P frames=N draws=D image=H\n"
    "render_ms is the mean wall time per frame from the frame's first GL call to\n"
    "the return of eglSwapBuffers; game_ms the mean game work before it; fps\n"
    "counts whole frames. render_cpu_ms is the render thread's CPU time over the\n"
    "same span as render_ms, cpu_ms the whole process's (all threads) per frame.\n"
    "image is a hash of the last frame's pixels.\n"
    "\n"
    "  --frames N       measured frames (default 300)\n"
    "  --warm-up N      unmeasured frames first (default 120)\n"
    "  --draws N        draws per frame (default 3000)\n"
    "  --game-work N    game work per frame, in units of a fixed amount of\n"
    "                   simulation and matrix math, about a microsecond each\n"
    "                   (default 8000, 0 for none)\n"
    "  --update-every N while the rewritten buffer is drawn from, a glBufferSubData\n"
    "                   every N draws (default 8)\n"
    "  --quiet          print the result line only\n"
    "  --help           print this help\n"
    "\n"
    "Every frame depends on its number alone. Exits 0 on success, 1 on an EGL or\n"
    "GL failure, 2 on a bad option.\n";

constexpr int kSide = 64;
constexpr int kTextures = 4;
constexpr int kQuads = 64;    // quads in the dynamic buffer
constexpr int kBodies = 256;  // simulated objects; draws take their transforms

struct Options {
    int frames = 300;
    int warmUp = 120;
    int draws = 3000;
    int gameWork = 8000;
    int updateEvery = 8;
    bool quiet = false;
};

// Takes one option; false for one it does not know.
bool takeOption(Options& o, const std::string& arg, glapp::Arguments& args) {
    if (arg == "--frames") {
        o.frames = parseInt(arg, args.value(), 1, 1000000);
    } else if (arg == "--warm-up") {
        o.warmUp = parseInt(arg, args.value(), 0, 1000000);
    } else if (arg == "--draws") {
        o.draws = parseInt(arg, args.value(), 1, 1000000);
    } else if (arg == "--game-work") {
        o.gameWork = parseInt(arg, args.value(), 0, 100000000);
    } else if (arg == "--update-every") {
        o.updateEvery = parseInt(arg, args.value(), 1, 1000000);
    } else if (arg == "--quiet") {
        o.quiet = true;
    } else {
        return false;
    }
    return true;
}

const char kVertex[] = R"(#version 300 es
layout(location = 0) in vec2 aPos;
layout(location = 1) in vec2 aUv;
uniform mat4 uMvp;
out vec2 vUv;
void main() {
    vUv = aUv;
    gl_Position = uMvp * vec4(aPos, 0.0, 1.0);
}
)";

const char kFragment[] = R"(#version 300 es
precision mediump float;
in vec2 vUv;
uniform sampler2D uTexture;
uniform vec4 uTint;
out vec4 outColor;
void main() {
    outColor = texture(uTexture, vUv) * uTint;
}
)";

struct Vertex {
    float x, y, u, v;
};

using Mat4 = float[16];  // column-major, as GL takes it

void multiply(const float* a, const float* b, float* out) {
    for (int c = 0; c < 4; ++c) {
        for (int r = 0; r < 4; ++r) {
            float s = 0.0f;
            for (int k = 0; k < 4; ++k) s += a[k * 4 + r] * b[c * 4 + k];
            out[c * 4 + r] = s;
        }
    }
}

// The game's side: objects moving under a little physics, each with a
// transform rebuilt from its state. One unit of work is one object's step.
class Simulation {
  public:
    Simulation() {
        std::uint32_t seed = 12345;
        auto next = [&seed]() {
            seed = seed * 1664525u + 1013904223u;
            return static_cast<float>(seed >> 8) / static_cast<float>(1u << 24);
        };
        for (Body& b : bodies_) {
            b.px = next() * 2.0f - 1.0f;
            b.py = next() * 2.0f - 1.0f;
            b.vx = (next() - 0.5f) * 0.02f;
            b.vy = (next() - 0.5f) * 0.02f;
            b.angle = next() * 6.2831853f;
            b.spin = (next() - 0.5f) * 0.1f;
            b.scale = 0.05f + next() * 0.1f;
        }
    }

    void run(int units) {
        for (int i = 0; i < units; ++i) {
            step(bodies_[cursor_]);
            cursor_ = (cursor_ + 1) % kBodies;
        }
    }

    const float* transform(int body) const { return bodies_[body % kBodies].transform; }

  private:
    struct Body {
        float px, py, vx, vy, angle, spin, scale;
        Mat4 transform;
    };

    // Integrates in small sub-steps and composes the transform from a chain of
    // matrices, the way a skeleton or a scene graph would.
    static void step(Body& b) {
        constexpr int kSubSteps = 8;
        constexpr float dt = 1.0f / kSubSteps;
        for (int s = 0; s < kSubSteps; ++s) {
            b.vx -= b.px * 0.001f * dt;
            b.vy -= b.py * 0.001f * dt;
            b.px += b.vx * dt;
            b.py += b.vy * dt;
            if (b.px < -1.0f || b.px > 1.0f) b.vx = -b.vx;
            if (b.py < -1.0f || b.py > 1.0f) b.vy = -b.vy;
            b.angle += b.spin * dt;
        }
        Mat4 chain = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        Mat4 result;
        for (int j = 0; j < 6; ++j) {
            const float a = b.angle * (1.0f + 0.1f * j);
            const float c = std::cos(a), s = std::sin(a);
            const float k = j == 0 ? b.scale : 1.0f;
            const float tx = j == 0 ? b.px : 0.0f, ty = j == 0 ? b.py : 0.0f;
            const Mat4 m = {c * k, s * k, 0, 0, -s * k, c * k, 0, 0, 0, 0, 1, 0, tx, ty, 0, 1};
            multiply(chain, m, result);
            std::memcpy(chain, result, sizeof chain);
        }
        std::memcpy(b.transform, chain, sizeof chain);
    }

    Body bodies_[kBodies] = {};
    int cursor_ = 0;
};

class Scene {
  public:
    explicit Scene(const Options& o) : options_(o) {
        program_ = buildProgram("frame", kVertex, kFragment);
        mvp_ = uniformLocation(program_, "uMvp");
        tint_ = uniformLocation(program_, "uTint");
        glUseProgram(program_);
        glUniform1i(uniformLocation(program_, "uTexture"), 0);

        glGenTextures(kTextures, textures_);
        for (int t = 0; t < kTextures; ++t) {
            std::uint8_t texels[8 * 8 * 4];
            for (int i = 0; i < 8 * 8; ++i) {
                const bool on = ((i % 8) + (i / 8) + t) % 2 == 0;
                texels[i * 4 + 0] = static_cast<std::uint8_t>(on ? 255 : 60 * t);
                texels[i * 4 + 1] = static_cast<std::uint8_t>(on ? 40 * t : 200);
                texels[i * 4 + 2] = static_cast<std::uint8_t>(on ? 128 : 255 - 50 * t);
                texels[i * 4 + 3] = 200;
            }
            glBindTexture(GL_TEXTURE_2D, textures_[t]);
            glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 8, 8, 0, GL_RGBA, GL_UNSIGNED_BYTE, texels);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        }

        // A static indexed quad, and a buffer of quads the game rewrites.
        const Vertex quad[4] = {{-1, -1, 0, 0}, {1, -1, 1, 0}, {1, 1, 1, 1}, {-1, 1, 0, 1}};
        const GLushort indices[6] = {0, 1, 2, 0, 2, 3};
        glGenVertexArrays(2, vaos_);
        glGenBuffers(3, buffers_);
        glBindVertexArray(vaos_[0]);
        glBindBuffer(GL_ARRAY_BUFFER, buffers_[0]);
        glBufferData(GL_ARRAY_BUFFER, sizeof quad, quad, GL_STATIC_DRAW);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers_[1]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices, GL_STATIC_DRAW);
        setAttributes();
        glBindVertexArray(vaos_[1]);
        glBindBuffer(GL_ARRAY_BUFFER, buffers_[2]);
        std::vector<Vertex> strips(kQuads * 4);
        for (int q = 0; q < kQuads; ++q) writeStrip(q, 0, &strips[q * 4]);
        glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(strips.size() * sizeof(Vertex)),
                     strips.data(), GL_DYNAMIC_DRAW);
        setAttributes();
        glBindVertexArray(0);
        checkGl("set-up");
    }

    ~Scene() {
        glDeleteVertexArrays(2, vaos_);
        glDeleteBuffers(3, buffers_);
        glDeleteTextures(kTextures, textures_);
        glDeleteProgram(program_);
    }

    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // Everything between the frame's first GL call and the swap.
    void submit(int frame, const Simulation& sim) {
        glViewport(0, 0, kSide, kSide);
        glClearColor(0.1f, 0.1f, 0.15f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        glUseProgram(program_);
        glActiveTexture(GL_TEXTURE0);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glDisable(GL_BLEND);

        const float camera = 0.3f * std::sin(frame * 0.01f);
        const Mat4 view = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, camera, 0, 0, 1};
        Mat4 mvp;
        int vao = -1;
        Vertex strip[4];
        for (int i = 0; i < options_.draws; ++i) {
            // Materials change every few draws, as batches of a game do.
            if (i % 64 == 0) {
                const int phase = (i / 64) % 3;
                if (phase == 0) {
                    glDisable(GL_BLEND);
                } else {
                    glEnable(GL_BLEND);
                    if (phase == 1)
                        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
                    else
                        glBlendFunc(GL_ONE, GL_ONE);
                }
            }
            const int wantedVao = (i / 16) % 2;
            if (wantedVao != vao) {
                vao = wantedVao;
                glBindVertexArray(vaos_[vao]);
            }
            glBindTexture(GL_TEXTURE_2D, textures_[(i / 2) % kTextures]);

            multiply(view, sim.transform(i), mvp);
            const float tint[4] = {0.5f + 0.5f * ((i * 7) % 11) / 10.0f,
                                   0.5f + 0.5f * ((i * 3) % 7) / 6.0f, 0.8f, 0.9f};
            glUniformMatrix4fv(mvp_, 1, GL_FALSE, mvp);
            glUniform4fv(tint_, 1, tint);

            if (vao == 0) {
                glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT, nullptr);
            } else {
                const int q = i % kQuads;
                if (i % options_.updateEvery == 0) {
                    // The array-buffer binding is not the VAO's, so name it.
                    writeStrip(q, frame + i, strip);
                    glBindBuffer(GL_ARRAY_BUFFER, buffers_[2]);
                    glBufferSubData(GL_ARRAY_BUFFER, static_cast<GLintptr>(q * 4 * sizeof(Vertex)),
                                    sizeof strip, strip);
                }
                glDrawArrays(GL_TRIANGLE_FAN, q * 4, 4);
            }
        }
        glBindVertexArray(0);
    }

  private:
    static void setAttributes() {
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, sizeof(Vertex), nullptr);
        glEnableVertexAttribArray(1);
        glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, sizeof(Vertex),
                              reinterpret_cast<const void*>(2 * sizeof(float)));
    }

    // A quad that wobbles with `t`, as a trail or a particle would.
    static void writeStrip(int q, int t, Vertex* out) {
        const float w = 0.2f * std::sin(0.05f * static_cast<float>(t + q));
        out[0] = {-1.0f, -1.0f + w, 0, 0};
        out[1] = {1.0f, -1.0f - w, 1, 0};
        out[2] = {1.0f + w, 1.0f, 1, 1};
        out[3] = {-1.0f - w, 1.0f, 0, 1};
    }

    const Options& options_;
    GLuint program_ = 0;
    GLint mvp_ = -1, tint_ = -1;
    GLuint textures_[kTextures] = {};
    GLuint vaos_[2] = {};
    GLuint buffers_[3] = {};
};

double cpuSeconds(clockid_t clock) {
    timespec t{};
    clock_gettime(clock, &t);
    return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

int run(const Options& o) {
    using Clock = std::chrono::steady_clock;
    EglSession egl(kSide, kSide);
    Scene scene(o);
    Simulation sim;
    if (!o.quiet) {
        const auto* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        std::printf("velour-framebench: %dx%d, %d draws, game work %d, %d+%d frames, %s\n", kSide,
                    kSide, o.draws, o.gameWork, o.warmUp, o.frames, renderer ? renderer : "?");
    }

    Clock::duration rendering{}, gaming{};
    double renderCpu = 0.0;
    Clock::time_point start = Clock::now();
    double processCpuStart = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    for (int frame = 1; frame <= o.warmUp + o.frames; ++frame) {
        if (frame == o.warmUp + 1) {
            rendering = gaming = Clock::duration{};
            renderCpu = 0.0;
            start = Clock::now();
            processCpuStart = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
        }
        const Clock::time_point gameStart = Clock::now();
        sim.run(o.gameWork);
        const Clock::time_point renderStart = Clock::now();
        const double renderCpuStart = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        scene.submit(frame, sim);
        egl.swap();
        renderCpu += cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - renderCpuStart;
        const Clock::time_point renderEnd = Clock::now();
        gaming += renderStart - gameStart;
        rendering += renderEnd - renderStart;
    }
    // Wall and CPU time on a busy machine part ways: CPU time is what the
    // frame costs, wall time what it cost this time.
    const double processCpu = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - processCpuStart;
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    // A fingerprint of the last image, taken after the clock stops, so that a
    // run through the layer can be checked against a direct one.
    std::vector<std::uint8_t> pixels(kSide * kSide * 4);
    glReadPixels(0, 0, kSide, kSide, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    checkGl("the last frame");
    std::uint32_t image = 2166136261u;
    for (std::uint8_t p : pixels) image = (image ^ p) * 16777619u;
    const double renderMs = std::chrono::duration<double, std::milli>(rendering).count() / o.frames;
    const double gameMs = std::chrono::duration<double, std::milli>(gaming).count() / o.frames;
    std::printf(
        "fps=%.1f render_ms=%.3f game_ms=%.3f render_cpu_ms=%.3f cpu_ms=%.3f frames=%d draws=%d "
        "image=%08x\n",
        o.frames / seconds, renderMs, gameMs, 1000.0 * renderCpu / o.frames,
        1000.0 * processCpu / o.frames, o.frames, o.draws, image);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return glapp::programMain<Options>("velour-framebench", kUsage, argc, argv, takeOption, run);
}
