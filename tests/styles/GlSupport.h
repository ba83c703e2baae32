#pragma once

// Real Mesa for the tests that draw: a headless GLES 3.2 context with the
// driver table filled from it, a broad snapshot of GL state, and frames of a
// known picture.

#include <GLES3/gl32.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace glapp {
class EglSession;
}

namespace velour::test {

// A pbuffer of the given size, current on this thread, with drv:: filled.
class GlContext {
  public:
    GlContext(int width, int height);
    ~GlContext();
    int width() const { return width_; }
    int height() const { return height_; }

  private:
    std::unique_ptr<glapp::EglSession> session;
    int width_, height_;
};

// Every binding, enable and piece of fixed state a game could notice, each
// under its name, so that a difference says what changed.
using GlState = std::vector<std::pair<std::string, std::vector<int64_t>>>;
GlState snapshot();
// The names whose values differ between two snapshots, with both values.
std::string differences(const GlState& before, const GlState& after);

// A game's state far from the defaults: blending, depth and stencil tests,
// culling and scissor on, textures on four units, its own program, vertex
// array, buffers and pixel store. Objects are left for the context to free.
void setGameState(GLuint& program);

// RGBA pixels of the picture: a colour ramp that differs at every pixel.
std::vector<uint8_t> picture(int width, int height);
// Fills the bound draw framebuffer with the picture.
void drawPicture(int width, int height);
// Reads the bound read framebuffer, RGBA, bottom row first.
std::vector<uint8_t> readPixels(int width, int height);

// A framebuffer object with an RGBA8 texture of the given size on colour 0.
struct GameFramebuffer {
    GLuint framebuffer = 0;
    GLuint texture = 0;
    GameFramebuffer(int width, int height, int level = 0);
};

}  // namespace velour::test
