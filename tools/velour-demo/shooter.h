// The shooter's part of the HUD: the weapon button with the weapon's name
// icon and the rounds left, a pickup message that slides in, and a reload
// bar. Drawn as a mobile engine batches its UI: 40-byte vertices and 16-bit
// indices in one buffer pair rewritten each frame, one draw per widget.
#pragma once

#include <GLES3/gl32.h>

#include <cstdint>
#include <string>

#include "widgets.h"

namespace demo {

// What the shooter's HUD shows in a frame.
struct ShooterState {
    int weapon = 0;      // index into ShooterHud::kWeapons
    int rounds = 30;     // in the magazine
    int nameTint = 255;  // the name icon fades in after a switch
    float pickupY = -1;  // top of the pickup message; below 0: none
    float reload = -1;   // progress of a reload in [0, 1]; below 0: none
};

class ShooterHud {
  public:
    // How the buffers are rewritten: glBufferSubData, or a write map.
    enum class Update { subData, map };
    static constexpr const char* kWeapons[2] = {"Weapon_AKM", "Weapon_M416"};

    explicit ShooterHud(Update update);
    ~ShooterHud();
    ShooterHud(const ShooterHud&) = delete;
    ShooterHud& operator=(const ShooterHud&) = delete;

    // Draws over the bound framebuffer of width x height pixels.
    void draw(int width, int height, const ShooterState& state);

  private:
    struct Vertex {
        float u, v;
        float unused[4];
        float x, y;
        std::uint8_t red, green, tint, blue;
        std::uint8_t padding[4];
    };
    static_assert(sizeof(Vertex) == 40, "the game's UI vertex is 40 bytes");

    // A quad whose first vertex (top left) has texture coordinate (u0, v0).
    void quad(float x, float y, float w, float h, float u0, float v0, float u1, float v1,
              const std::uint8_t rgba[4]);
    void upload();

    Update update_;
    GLuint program_ = 0, vao_ = 0, vbo_ = 0, ebo_ = 0;
    GLint viewportLocation_ = -1;
    GLuint button_ = 0, font_ = 0, pickup_ = 0, reloadBack_ = 0, reloadFront_ = 0;
    GLuint names_[2] = {0, 0};
    QuadBatch<Vertex> batch_;
};

}  // namespace demo
