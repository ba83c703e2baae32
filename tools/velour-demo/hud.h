// The heads-up display: text from a font atlas and a health bar, drawn with
// blending over the finished frame.
#pragma once

#include <GLES3/gl32.h>

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

class Hud {
  public:
    Hud();
    ~Hud();
    Hud(const Hud&) = delete;
    Hud& operator=(const Hud&) = delete;

    // Draws into the bound framebuffer of width x height pixels.
    // `health` is in [0, 1].
    void draw(int width, int height, int frame, float health, bool targetVisible);

  private:
    struct Vertex {
        float x, y;
        float u, v;
        std::uint8_t rgba[4];
    };

    void quad(float x, float y, float w, float h, float u0, float v0, float u1, float v1,
              const std::uint8_t left[4], const std::uint8_t right[4]);
    void solid(float x, float y, float w, float h, const std::uint8_t left[4],
               const std::uint8_t right[4]);
    void text(float x, float y, float pixel, const std::string& s, const std::uint8_t rgba[4]);

    GLuint program_ = 0;
    GLuint atlas_ = 0;
    GLint viewportLocation_ = -1;
    // Rebuilt each frame and handed to GL straight from client memory.
    std::vector<Vertex> vertices_;
    std::vector<std::uint16_t> indices_;
};

}  // namespace demo
