// The layer's own cost of drawing a style: an identity style drawn through
// StyleManager against a bare program that does the same copy (or fetch) and
// draw with no state saved, no capture look-up and no binds beyond its own.
// Each iteration ends with glFinish, so the figures are whole frames of work.
// Then each style of libtessel.so through the layer, against a frame whose
// effect names no style: the difference is what the style adds to a frame.

#include <EGL/egl.h>
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "GlSupport.h"
#include "TestStyle.h"
#include "TestSysroot.h"
#include "ctrl/PropertyConfig.h"
#include "glapp/effect_library.h"
#include "styles/RenderGuard.h"
#include "velour/entry_points.h"

using namespace velour;

namespace {

struct Size {
    int width, height;
};
constexpr Size SIZES[] = {{1280, 720}, {1920, 1080}};

const char* const VERTEX =
    "#version 300 es\n"
    "layout(location = 0) in vec3 position;\n"
    "layout(location = 1) in vec2 texCoord;\n"
    "out vec2 uv;\n"
    "void main() { uv = texCoord; gl_Position = vec4(position, 1.0); }\n";
const char* const COPY_FRAGMENT =
    "#version 300 es\nprecision highp float;\nuniform sampler2D frame;\nuniform float strength;\n"
    "in vec2 uv;\nout vec4 color;\n"
    "void main() { vec4 c = texture(frame, uv); color = vec4(mix(c.rgb, 1.0 - c.rgb, strength), "
    "c.a); }\n";
const char* const FETCH_FRAGMENT =
    "#version 300 es\n#extension GL_EXT_shader_framebuffer_fetch : require\n"
    "precision highp float;\nuniform float strength;\ninout vec4 color;\n"
    "void main() { vec4 c = color; color = vec4(mix(c.rgb, 1.0 - c.rgb, strength), c.a); }\n";

GLuint compile(GLenum type, const char* source) {
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    return shader;
}

// What a game that drew the same effect itself would do each frame.
struct BareEffect {
    GLuint program = 0, vertexArray = 0, buffers[3] = {}, texture = 0;
    bool fetch;
    Size size;

    BareEffect(bool fetch, Size size) : fetch(fetch), size(size) {
        program = glCreateProgram();
        const GLuint vertex = compile(GL_VERTEX_SHADER, VERTEX);
        const GLuint fragment = compile(GL_FRAGMENT_SHADER, fetch ? FETCH_FRAGMENT : COPY_FRAGMENT);
        glAttachShader(program, vertex);
        glAttachShader(program, fragment);
        glLinkProgram(program);
        glUseProgram(program);
        glUniform1f(glGetUniformLocation(program, "strength"), 0.0f);

        const float positions[] = {1, 1, 0, 1, -1, 0, -1, -1, 0, -1, 1, 0};
        const float coordinates[] = {1, 1, 1, 0, 0, 0, 0, 1};
        const GLuint indices[] = {0, 1, 3, 1, 2, 3};
        glGenVertexArrays(1, &vertexArray);
        glBindVertexArray(vertexArray);
        glGenBuffers(3, buffers);
        glBindBuffer(GL_ARRAY_BUFFER, buffers[0]);
        glBufferData(GL_ARRAY_BUFFER, sizeof positions, positions, GL_STATIC_DRAW);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 12, nullptr);
        glBindBuffer(GL_ARRAY_BUFFER, buffers[1]);
        glBufferData(GL_ARRAY_BUFFER, sizeof coordinates, coordinates, GL_STATIC_DRAW);
        glEnableVertexAttribArray(1);
        glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 8, nullptr);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffers[2]);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices, GL_STATIC_DRAW);

        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, size.width, size.height);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        glBindTexture(GL_TEXTURE_2D, 0);
    }

    // The same driver work as the layer's frame: program, vertex array and
    // texture are bound only while they are used.
    void draw() {
        glUseProgram(program);
        glBindVertexArray(vertexArray);
        if (!fetch) {
            glBindTexture(GL_TEXTURE_2D, texture);
            glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
            glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, size.width, size.height);
        }
        glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_INT, nullptr);
        if (!fetch) glBindTexture(GL_TEXTURE_2D, 0);
        glBindVertexArray(0);
        glUseProgram(0);
    }
};

void bare(benchmark::State& state, bool fetch, Size size) {
    test::GlContext context(size.width, size.height);
    test::drawPicture(size.width, size.height);
    BareEffect effect(fetch, size);
    effect.draw();  // the driver builds its shader variants on the first draw
    glFinish();
    for (auto _ : state) {
        effect.draw();
        glFinish();
    }
}

void layer(benchmark::State& state, bool fetch, Size size) {
    test::GlContext context(size.width, size.height);
    test::drawPicture(size.width, size.height);
    styles::StyleManager manager;
    test::TestStyle identity(&manager, "identity", 0.0f, fetch);
    manager.addStyle(&identity);
    ctrl::PropertyConfig::getInstance().setEffect("identity");
    styles::renderGuarded(manager);  // builds the program, quad and capture texture
    glFinish();
    for (auto _ : state) {
        styles::renderGuarded(manager);
        glFinish();
    }
}

// The styles of the effect library, and "null", which names none: the frame
// with no effect that each style is measured against.
const char* const TESSEL_STYLES[] = {"null",     "color_invert",     "cel_shading",
                                     "hdr",      "old_movie",        "night_vision",
                                     "pixelize", "gamma_correction", "edge_detection"};
using Initialize = void (*)(styles::StyleManager*);
Initialize g_initialize = nullptr;

void tessel(benchmark::State& state, bool fetch, Size size, const char* style) {
    test::GlContext context(size.width, size.height);
    // On the copy path the renderer copies the frame as on a driver without fetch.
    glapp::hideFramebufferFetch(!fetch);
    drv::initRealGL(nullptr, glapp::lookUpDriver);
    test::drawPicture(size.width, size.height);
    styles::StyleManager manager;
    g_initialize(&manager);
    ctrl::PropertyConfig::getInstance().setEffect(style);
    styles::renderGuarded(manager);  // builds the program, quad and capture texture
    glFinish();
    for (auto _ : state) {
        styles::renderGuarded(manager);
        glFinish();
    }
}

// The effect library as the layer finds it on the device. The program exports
// the layer's surface, so the library binds to this copy of it.
bool loadTessel(test::TestSysroot& sysroot) {
    const std::string dat = "/odm/etc/tesselfx/defaultFilterConfig.dat";
    sysroot.write(dat, test::readFile(VELOUR_BUILT_SYSROOT + dat));
    std::string error;
    g_initialize = glapp::effectInitializer<styles::StyleManager>(
        VELOUR_BUILT_SYSROOT "/odm/lib/libtessel.so", &error);
    if (!g_initialize) std::fprintf(stderr, "its styles are left out: %s\n", error.c_str());
    return g_initialize != nullptr;
}

void registerAll(bool withTessel) {
    for (const Size& size : SIZES)
        for (bool fetch : {false, true}) {
            const std::string suffix = std::string(fetch ? "Fetch/" : "Copy/") +
                                       std::to_string(size.width) + "x" +
                                       std::to_string(size.height);
            benchmark::RegisterBenchmark(("Bare" + suffix).c_str(), bare, fetch, size)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            benchmark::RegisterBenchmark(("Layer" + suffix).c_str(), layer, fetch, size)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
            if (!withTessel) continue;
            for (const char* style : TESSEL_STYLES)
                benchmark::RegisterBenchmark(("Style/" + std::string(style) + "/" + suffix).c_str(),
                                             tessel, fetch, size, style)
                    ->Unit(benchmark::kMillisecond)
                    ->UseRealTime();
        }
}

}  // namespace

int main(int argc, char** argv) {
    test::TestSysroot sysroot;
    registerAll(loadTessel(sysroot));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
