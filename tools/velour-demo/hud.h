// The heads-up display: panels from an atlas, text from a font, a health
// bar, a minimap and the crosshair, drawn with blending over the finished
// frame, one draw per widget. Also the lobby's widgets.
#pragma once

#include <GLES3/gl32.h>

#include <cstdint>
#include <string>

#include "widgets.h"

namespace demo {

// The 5x7 rows of a character of the HUD's font, top row first ('#' is
// lit), or null for a character it lacks.
const char* const* glyphRows(char c);

class Hud {
  public:
    Hud();
    ~Hud();
    Hud(const Hud&) = delete;
    Hud& operator=(const Hud&) = delete;

    // Draws into the bound framebuffer of width x height pixels, as a HUD is
    // drawn: blending on, depth test off. `health` is in [0, 1].
    void draw(int width, int height, int frame, float health, bool targetVisible);
    // The lobby's background and buttons over the whole bound framebuffer.
    void drawLobby(int width, int height, int frame);

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
    // One draw per widget, all from the same client arrays.
    void flush(int width, int height);

    GLuint program_ = 0, atlas_ = 0, crosshair_ = 0, lobbyBackground_ = 0, lobbyButton_ = 0;
    // The same glyphs as the atlas, kept apart as engines keep their fonts.
    GLuint font_ = 0;
    GLint viewportLocation_ = -1;
    // Rebuilt each frame and handed to GL straight from client memory.
    QuadBatch<Vertex> batch_;
};

}  // namespace demo
