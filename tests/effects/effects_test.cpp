// Each style's shaders drawn on Mesa against the same effect computed on the
// CPU, by the copy variant (the frame sampled from a texture on unit 0) and
// the EXT fetch variant (the frame read from the framebuffer itself).

#include "effects.h"

#include <GLES3/gl32.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "glapp/egl_session.h"
#include "glapp/gl_program.h"
#include "reference.h"

namespace tessel::test {
namespace {

using velour::styles::SHADER_FRAMEBUFFER_EXT_FETCH;
using velour::styles::SHADER_FRAMEBUFFER_NO_FETCH;
using velour::styles::ShaderFramebufferType;

constexpr int WIDTH = 64, HEIGHT = 48;
// The time at which the moving effects are checked.
constexpr float FIXED_TIME = 1.25f;

// Flat blocks (edges at even and odd columns), a grey ramp, a saturated ramp
// and a one-pixel line: flat parts, steps and gradients for every effect.
Image syntheticInput() {
    Image image{WIDTH, HEIGHT, {}};
    const Rgba blocks[] = {{0.90f, 0.20f, 0.15f, 1}, {0.10f, 0.55f, 0.85f, 1},
                           {0.95f, 0.85f, 0.30f, 1}, {0.05f, 0.05f, 0.08f, 1},
                           {0.45f, 0.70f, 0.30f, 1}, {0.60f, 0.35f, 0.65f, 1}};
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            Rgba c;
            if (y < 16) {
                c = blocks[std::min(x / 11, 5)];
            } else if (y < 32) {
                const float t = x / float(WIDTH - 1);
                c = y < 24 ? Rgba{t, t, t, 1} : Rgba{t, 0.3f + 0.5f * t, 1.0f - t, 1};
            } else {
                c = blocks[(x / 16 + 3) % 6];
            }
            if (x == 41 && y >= 32) c = {1, 1, 1, 1};
            // As an 8-bit texture holds it.
            for (float* v : {&c.r, &c.g, &c.b, &c.a}) *v = std::round(*v * 255.0f) / 255.0f;
            image.pixels.push_back(c);
        }
    }
    return image;
}

std::vector<uint8_t> toBytes(const Image& image) {
    std::vector<uint8_t> bytes;
    for (const Rgba& c : image.pixels)
        for (float v : {c.r, c.g, c.b, c.a})
            bytes.push_back(static_cast<uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f)));
    return bytes;
}

// The defaults; without noise, the noisy effects' random terms are off, which
// leaves the rest of them for the CPU reference.
std::map<std::string, float> uniformsOf(const Effect& effect, float time, bool noise = true) {
    std::map<std::string, float> uniforms;
    std::vector<std::string> unknown;
    for (const Uniform& u : resolveParameters(effect, nullptr, unknown)) uniforms[u.name] = u.value;
    if (effect.usesTime) uniforms["uTime"] = time;
    for (const char* random : {"uNoise", "uGrain", "uFlicker", "uScratches"})
        if (!noise && uniforms.count(random)) uniforms[random] = 0.0f;
    return uniforms;
}

bool hasExtension(const char* name) {
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    for (GLint i = 0; i < count; ++i)
        if (std::strcmp(reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, i)), name) == 0)
            return true;
    return false;
}

class EffectsOnMesa : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { session = std::make_unique<glapp::EglSession>(WIDTH, HEIGHT); }
    static void TearDownTestSuite() { session.reset(); }

    // Draws `effect` over `input` as the layer would, and reads the picture back.
    static std::vector<uint8_t> draw(const Effect& effect, ShaderFramebufferType type,
                                     const Image& input, float time, bool noise = true) {
        const std::vector<uint8_t> pixels = toBytes(input);
        const GLuint program = glapp::buildProgram(effect.name, vertexShaderSource().c_str(),
                                                   fragmentShaderSource(type, effect).c_str());
        GLuint textures[2], framebuffer, vertexArray, buffer;
        glGenTextures(2, textures);
        for (GLuint texture : textures) {
            glBindTexture(GL_TEXTURE_2D, texture);
            glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA8, WIDTH, HEIGHT);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
            glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        }
        // The copy variant samples the frame; the fetch variant finds it in
        // the framebuffer it draws into.
        const GLuint frame = type == SHADER_FRAMEBUFFER_NO_FETCH ? textures[1] : textures[0];
        glBindTexture(GL_TEXTURE_2D, frame);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE,
                        pixels.data());
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, textures[0], 0);

        // Position on location 0 and texture coordinate on location 1.
        const float quad[] = {-1, -1, 0, 0, 0, 1, -1, 0, 1, 0, 1, 1, 0, 1, 1, -1, 1, 0, 0, 1};
        glGenVertexArrays(1, &vertexArray);
        glBindVertexArray(vertexArray);
        glGenBuffers(1, &buffer);
        glBindBuffer(GL_ARRAY_BUFFER, buffer);
        glBufferData(GL_ARRAY_BUFFER, sizeof quad, quad, GL_STATIC_DRAW);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, 20, nullptr);
        glEnableVertexAttribArray(1);
        glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 20, reinterpret_cast<void*>(12));

        glViewport(0, 0, WIDTH, HEIGHT);
        glUseProgram(program);
        // As the layer does, a uniform that a variant optimised away is skipped.
        for (const auto& [name, value] : uniformsOf(effect, time, noise))
            glUniform1f(glGetUniformLocation(program, name.c_str()), value);
        glActiveTexture(GL_TEXTURE0);
        glBindTexture(GL_TEXTURE_2D, textures[1]);
        glDrawArrays(GL_TRIANGLE_FAN, 0, 4);

        std::vector<uint8_t> result(pixels.size());
        glReadPixels(0, 0, WIDTH, HEIGHT, GL_RGBA, GL_UNSIGNED_BYTE, result.data());
        glapp::checkGl(effect.name);

        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDeleteFramebuffers(1, &framebuffer);
        glDeleteTextures(2, textures);
        glDeleteBuffers(1, &buffer);
        glDeleteVertexArrays(1, &vertexArray);
        glDeleteProgram(program);
        return result;
    }

    static std::unique_ptr<glapp::EglSession> session;
};

std::unique_ptr<glapp::EglSession> EffectsOnMesa::session;

// Two 8-bit steps: llvmpipe's pow, exp and sqrt and the C library's differ in
// their last bits, which can carry a rounding to the next step.
constexpr int TOLERANCE = 2;

// Pixels further than `TOLERANCE` (in 8-bit steps, any channel) from the
// reference, with the first one described.
struct Mismatch {
    int count = 0;
    std::string first;
};

Mismatch compare(const std::vector<uint8_t>& drawn, const Effect& effect, Form form,
                 const Image& input) {
    const auto uniforms = uniformsOf(effect, FIXED_TIME, false);
    Mismatch mismatch;
    for (int y = 0; y < HEIGHT; ++y) {
        for (int x = 0; x < WIDTH; ++x) {
            const Rgba want = reference(effect.name, form, input, x, y, uniforms);
            const uint8_t* got = &drawn[(static_cast<size_t>(y) * WIDTH + x) * 4];
            const float wanted[] = {want.r, want.g, want.b, want.a};
            for (int i = 0; i < 4; ++i) {
                const long expected = std::lround(std::clamp(wanted[i], 0.0f, 1.0f) * 255.0f);
                if (std::labs(expected - got[i]) <= TOLERANCE) continue;
                if (mismatch.count == 0)
                    mismatch.first = "(" + std::to_string(x) + "," + std::to_string(y) +
                                     ") channel " + std::to_string(i) + ": drew " +
                                     std::to_string(got[i]) + ", expected " +
                                     std::to_string(expected);
                ++mismatch.count;
                break;
            }
        }
    }
    return mismatch;
}

// Each effect as the CPU computes it, with the random terms off; with them
// on, the moving effects change with time and only they do.
TEST_F(EffectsOnMesa, CopyVariantMatchesCpuReferenceAndMovesOnlyWithTime) {
    const Image input = syntheticInput();
    for (const Effect& effect : effects()) {
        SCOPED_TRACE(effect.name);
        const auto drawn = draw(effect, SHADER_FRAMEBUFFER_NO_FETCH, input, FIXED_TIME, false);
        const Mismatch mismatch = compare(drawn, effect, Form::Copy, input);
        EXPECT_EQ(mismatch.count, 0) << mismatch.first;
        const auto now = draw(effect, SHADER_FRAMEBUFFER_NO_FETCH, input, FIXED_TIME);
        const auto later = draw(effect, SHADER_FRAMEBUFFER_NO_FETCH, input, FIXED_TIME + 0.5f);
        EXPECT_EQ(now != later, effect.usesTime);
    }
}

// The per-pixel effects give the same picture by both paths; the
// neighbourhood effects have a per-pixel form of their own.
TEST_F(EffectsOnMesa, FetchVariantMatchesCopyOrItsPerPixelForm) {
    if (!hasExtension("GL_EXT_shader_framebuffer_fetch"))
        GTEST_SKIP() << "no GL_EXT_shader_framebuffer_fetch";
    const Image input = syntheticInput();
    for (const char* name : {"color_invert", "gamma_correction", "night_vision", "old_movie"}) {
        SCOPED_TRACE(name);
        const Effect& effect = *findEffect(name);
        EXPECT_EQ(draw(effect, SHADER_FRAMEBUFFER_EXT_FETCH, input, FIXED_TIME),
                  draw(effect, SHADER_FRAMEBUFFER_NO_FETCH, input, FIXED_TIME));
    }
    for (const char* name : {"hdr", "pixelize"}) {
        SCOPED_TRACE(name);
        const Effect& effect = *findEffect(name);
        const auto drawn = draw(effect, SHADER_FRAMEBUFFER_EXT_FETCH, input, FIXED_TIME);
        const Mismatch mismatch = compare(drawn, effect, Form::Fetch, input);
        EXPECT_EQ(mismatch.count, 0) << mismatch.first;
    }
}

// The outline effects' fetch variants take their edges from the 2x2 fragment
// quad: where the surroundings are flat they draw what the copy variant
// draws, and a step inside a quad (the line at column 41) shows as an edge.
TEST_F(EffectsOnMesa, FetchOutlinesAgreeOnFlatPartsAndFindStepsInsideAQuad) {
    if (!hasExtension("GL_EXT_shader_framebuffer_fetch"))
        GTEST_SKIP() << "no GL_EXT_shader_framebuffer_fetch";
    const Image input = syntheticInput();
    // The pixel's 2x2 quad and the 3x3 neighbourhood of each pixel in it
    // are all of one colour.
    auto flat = [&](int x, int y) {
        const Rgba c = input.at(x, y);
        for (int dy = -1; dy <= 2; ++dy) {
            for (int dx = -1; dx <= 2; ++dx) {
                const Rgba n = input.at((x & ~1) + dx, (y & ~1) + dy);
                if (n.r != c.r || n.g != c.g || n.b != c.b) return false;
            }
        }
        return true;
    };
    struct Case {
        const char* name;
        uint8_t onEdge;  // green of a pixel beside the line
    };
    for (const Case& test : {Case{"cel_shading", 0}, Case{"edge_detection", 255}}) {
        SCOPED_TRACE(test.name);
        const Effect& effect = *findEffect(test.name);
        const auto fetched = draw(effect, SHADER_FRAMEBUFFER_EXT_FETCH, input, FIXED_TIME);
        const auto copied = draw(effect, SHADER_FRAMEBUFFER_NO_FETCH, input, FIXED_TIME);
        auto at = [](int x, int y) { return (static_cast<size_t>(y) * WIDTH + x) * 4; };
        int flatPixels = 0;
        for (int y = 0; y < HEIGHT; ++y) {
            for (int x = 0; x < WIDTH; ++x) {
                if (!flat(x, y)) continue;
                ++flatPixels;
                ASSERT_TRUE(
                    std::equal(&fetched[at(x, y)], &fetched[at(x, y) + 4], &copied[at(x, y)]))
                    << x << "," << y;
            }
        }
        EXPECT_GT(flatPixels, WIDTH * HEIGHT / 3);
        // Sobel marks the line's two sides, the quad differences its quad.
        for (int y = 33; y < HEIGHT; ++y) {
            for (int x : {40, 42}) EXPECT_EQ(copied[at(x, y) + 1], test.onEdge) << x << "," << y;
            for (int x : {40, 41}) EXPECT_EQ(fetched[at(x, y) + 1], test.onEdge) << x << "," << y;
        }
    }
}

}  // namespace
}  // namespace tessel::test
