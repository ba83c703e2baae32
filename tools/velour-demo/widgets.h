// What both HUDs draw with: one-channel textures, and quads gathered into
// vertex and 16-bit index arrays, cut into widgets that are drawn one draw
// each, with blending on and depth test off.
#pragma once

#include <GLES3/gl32.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace demo {

// A GL_R8 texture of width x height texels, labelled `label` (none if null).
GLuint makeTexture(int width, int height, const std::vector<std::uint8_t>& texels, GLint filter,
                   GLint wrap, const char* label);
// A panel face of 8x8 texels at `face` with a bright rim.
std::vector<std::uint8_t> panelTexels(std::uint8_t face);

// A HUD program: `vertexSource` with the HUDs' fragment shader, its texture
// on unit `unit`, labelled `label`; the location of its viewport uniform
// goes to `viewportLocation`.
GLuint makeHudProgram(const char* name, const char* vertexSource, int unit, const char* label,
                      GLint* viewportLocation);

// A HUD frame's screen in pixels, and the HUD's pixel size: 2 from 360 lines
// up, else 1.
struct HudScreen {
    float width, height, px;
};
inline HudScreen hudScreen(int width, int height) {
    return {static_cast<float>(width), static_cast<float>(height), height >= 360 ? 2.0f : 1.0f};
}

struct Widget {
    GLuint texture;
    std::size_t firstIndex, indexCount;
};

// Draws each widget with its texture on the active unit; `indexBase` is the
// client index array, or null for the bound element buffer.
void drawWidgets(const std::vector<Widget>& widgets, const std::uint16_t* indexBase);

// One frame's quads. `Vertex` is the caller's layout; a quad's corners go top
// left, top right, bottom right, bottom left, as two triangles.
template <typename Vertex>
class QuadBatch {
  public:
    // Room for `maxQuads`; quads past it are dropped.
    explicit QuadBatch(std::size_t maxQuads) : maxQuads_(maxQuads) {
        vertices_.reserve(maxQuads * 4);
        indices_.reserve(maxQuads * 6);
    }

    void clear() {
        vertices_.clear();
        indices_.clear();
        widgets_.clear();
        widgetStart_ = 0;
    }

    // `corner(x, y, u, v, right)` makes a vertex; `right` is true for the
    // two corners on the quad's right edge.
    template <typename MakeVertex>
    void quad(float x, float y, float w, float h, float u0, float v0, float u1, float v1,
              MakeVertex corner) {
        if (vertices_.size() + 4 > maxQuads_ * 4) return;
        const auto base = static_cast<std::uint16_t>(vertices_.size());
        vertices_.push_back(corner(x, y, u0, v0, false));
        vertices_.push_back(corner(x + w, y, u1, v0, true));
        vertices_.push_back(corner(x + w, y + h, u1, v1, true));
        vertices_.push_back(corner(x, y + h, u0, v1, false));
        for (std::uint16_t i : {0, 1, 2, 0, 2, 3})
            indices_.push_back(static_cast<std::uint16_t>(base + i));
    }

    // Ends a widget: its quads so far are drawn with `texture`.
    void widget(GLuint texture) {
        widgets_.push_back({texture, widgetStart_, indices_.size() - widgetStart_});
        widgetStart_ = indices_.size();
    }

    const std::vector<Vertex>& vertices() const { return vertices_; }
    const std::vector<std::uint16_t>& indices() const { return indices_; }
    const std::vector<Widget>& widgets() const { return widgets_; }

  private:
    std::size_t maxQuads_;
    std::vector<Vertex> vertices_;
    std::vector<std::uint16_t> indices_;
    std::vector<Widget> widgets_;
    std::size_t widgetStart_ = 0;
};

}  // namespace demo
