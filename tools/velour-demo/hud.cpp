#include "hud.h"

#include <cstddef>
#include <cstdio>
#include <cstring>

#include "glapp/gl_program.h"
#include "shaders.h"

namespace demo {

using glapp::buildProgram;
using glapp::checkGl;
using glapp::uniformLocation;

namespace {

// 5x7 glyphs of the characters the display uses, top row first.
struct Glyph {
    char c;
    const char* rows[7];
};

constexpr Glyph kGlyphs[] = {
    {'0', {".###.", "#...#", "#..##", "#.#.#", "##..#", "#...#", ".###."}},
    {'1', {"..#..", ".##..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'2', {".###.", "#...#", "....#", "...#.", "..#..", ".#...", "#####"}},
    {'3', {"#####", "...#.", "..#..", "...#.", "....#", "#...#", ".###."}},
    {'4', {"...#.", "..##.", ".#.#.", "#..#.", "#####", "...#.", "...#."}},
    {'5', {"#####", "#....", "####.", "....#", "....#", "#...#", ".###."}},
    {'6', {"..##.", ".#...", "#....", "####.", "#...#", "#...#", ".###."}},
    {'7', {"#####", "....#", "...#.", "..#..", ".#...", ".#...", ".#..."}},
    {'8', {".###.", "#...#", "#...#", ".###.", "#...#", "#...#", ".###."}},
    {'9', {".###.", "#...#", "#...#", ".####", "....#", "...#.", ".##.."}},
    {'A', {".###.", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {'B', {"####.", "#...#", "#...#", "####.", "#...#", "#...#", "####."}},
    {'D', {"####.", "#...#", "#...#", "#...#", "#...#", "#...#", "####."}},
    {'E', {"#####", "#....", "#....", "####.", "#....", "#....", "#####"}},
    {'F', {"#####", "#....", "#....", "####.", "#....", "#....", "#...."}},
    {'G', {".###.", "#...#", "#....", "#.###", "#...#", "#...#", ".####"}},
    {'H', {"#...#", "#...#", "#...#", "#####", "#...#", "#...#", "#...#"}},
    {'I', {".###.", "..#..", "..#..", "..#..", "..#..", "..#..", ".###."}},
    {'L', {"#....", "#....", "#....", "#....", "#....", "#....", "#####"}},
    {'M', {"#...#", "##.##", "#.#.#", "#.#.#", "#...#", "#...#", "#...#"}},
    {'N', {"#...#", "#...#", "##..#", "#.#.#", "#..##", "#...#", "#...#"}},
    {'P', {"####.", "#...#", "#...#", "####.", "#....", "#....", "#...."}},
    {'R', {"####.", "#...#", "#...#", "####.", "#.#..", "#..#.", "#...#"}},
    {'S', {".####", "#....", "#....", ".###.", "....#", "....#", "####."}},
    {'T', {"#####", "..#..", "..#..", "..#..", "..#..", "..#..", "..#.."}},
    {'V', {"#...#", "#...#", "#...#", "#...#", "#...#", ".#.#.", "..#.."}},
    {':', {".....", "..#..", "..#..", ".....", "..#..", "..#..", "....."}},
};

// The atlas is a grid of 8x8 cells, 16 to a row; the last cell is solid and
// gives the bars their texels.
constexpr int kCell = 8;
constexpr int kColumns = 16;
constexpr int kAtlasWidth = kCell * kColumns;
constexpr int kAtlasHeight = kCell * 2;
constexpr int kSolidCell = 2 * kColumns - 1;
static_assert(sizeof kGlyphs / sizeof kGlyphs[0] <= kSolidCell, "atlas too small");

int cellOf(char c) {
    for (std::size_t i = 0; i < sizeof kGlyphs / sizeof kGlyphs[0]; ++i) {
        if (kGlyphs[i].c == c) return static_cast<int>(i);
    }
    return -1;
}

std::vector<std::uint8_t> makeAtlas() {
    std::vector<std::uint8_t> texels(kAtlasWidth * kAtlasHeight, 0);
    auto texel = [&](int cell, int x, int y) -> std::uint8_t& {
        const int cx = (cell % kColumns) * kCell, cy = (cell / kColumns) * kCell;
        return texels[static_cast<std::size_t>((cy + y) * kAtlasWidth + cx + x)];
    };
    for (std::size_t g = 0; g < sizeof kGlyphs / sizeof kGlyphs[0]; ++g) {
        for (int y = 0; y < 7; ++y) {
            for (int x = 0; x < 5; ++x) {
                if (kGlyphs[g].rows[y][x] == '#') texel(static_cast<int>(g), x, y) = 255;
            }
        }
    }
    for (int y = 0; y < kCell; ++y) {
        for (int x = 0; x < kCell; ++x) texel(kSolidCell, x, y) = 255;
    }
    return texels;
}

}  // namespace

Hud::Hud() {
    program_ = buildProgram("hud", shaders::kHudVertex, shaders::kHudFragment);
    viewportLocation_ = uniformLocation(program_, "uViewport");
    glUseProgram(program_);
    glUniform1i(uniformLocation(program_, "uAtlas"), 3);

    const std::vector<std::uint8_t> texels = makeAtlas();
    glGenTextures(1, &atlas_);
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, atlas_);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R8, kAtlasWidth, kAtlasHeight, 0, GL_RED, GL_UNSIGNED_BYTE,
                 texels.data());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    // Nearest: glyph quads are whole multiples of the texel size.
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    checkGl("hud set-up");
}

Hud::~Hud() {
    glDeleteTextures(1, &atlas_);
    glDeleteProgram(program_);
}

void Hud::quad(float x, float y, float w, float h, float u0, float v0, float u1, float v1,
               const std::uint8_t left[4], const std::uint8_t right[4]) {
    const auto base = static_cast<std::uint16_t>(vertices_.size());
    Vertex corners[4] = {{x, y, u0, v0, {}},
                         {x + w, y, u1, v0, {}},
                         {x + w, y + h, u1, v1, {}},
                         {x, y + h, u0, v1, {}}};
    std::memcpy(corners[0].rgba, left, 4);
    std::memcpy(corners[1].rgba, right, 4);
    std::memcpy(corners[2].rgba, right, 4);
    std::memcpy(corners[3].rgba, left, 4);
    vertices_.insert(vertices_.end(), corners, corners + 4);
    const std::uint16_t order[6] = {0, 1, 2, 0, 2, 3};
    for (std::uint16_t i : order) indices_.push_back(static_cast<std::uint16_t>(base + i));
}

void Hud::solid(float x, float y, float w, float h, const std::uint8_t left[4],
                const std::uint8_t right[4]) {
    // The middle of the solid cell, away from its neighbours.
    const float u = ((kSolidCell % kColumns) * kCell + kCell / 2.0f) / kAtlasWidth;
    const float v = ((kSolidCell / kColumns) * kCell + kCell / 2.0f) / kAtlasHeight;
    quad(x, y, w, h, u, v, u, v, left, right);
}

void Hud::text(float x, float y, float pixel, const std::string& s, const std::uint8_t rgba[4]) {
    for (char c : s) {
        const int cell = cellOf(c);
        if (cell >= 0) {
            const float u0 = static_cast<float>((cell % kColumns) * kCell) / kAtlasWidth;
            const float v0 = static_cast<float>((cell / kColumns) * kCell) / kAtlasHeight;
            quad(x, y, 5 * pixel, 7 * pixel, u0, v0, u0 + 5.0f / kAtlasWidth,
                 v0 + 7.0f / kAtlasHeight, rgba, rgba);
        }
        x += 6 * pixel;
    }
}

void Hud::draw(int screenWidth, int screenHeight, int frame, float health, bool targetVisible) {
    const float width = static_cast<float>(screenWidth);
    const float height = static_cast<float>(screenHeight);
    const float px = screenHeight >= 360 ? 2.0f : 1.0f;

    vertices_.clear();
    indices_.clear();
    const std::uint8_t panel[4] = {10, 14, 24, 150};
    const std::uint8_t white[4] = {240, 240, 240, 255};
    const std::uint8_t barBack[4] = {40, 20, 20, 200};
    const std::uint8_t yellow[4] = {255, 210, 60, 255};
    const std::uint8_t grey[4] = {140, 140, 150, 220};

    const float margin = 4 * px;
    solid(margin, margin, 70 * px, 22 * px, panel, panel);
    char label[32];
    std::snprintf(label, sizeof label, "FRAME %05d", frame);
    text(margin + 2 * px, margin + 2 * px, px, label, white);

    // The bar fades from red at its left end towards green as health rises.
    text(margin + 2 * px, margin + 12 * px, px, "HP", white);
    const float barX = margin + 16 * px, barY = margin + 12 * px;
    const float barW = 50 * px, barH = 7 * px;
    solid(barX, barY, barW, barH, barBack, barBack);
    const std::uint8_t red[4] = {220, 40, 30, 230};
    const std::uint8_t toward[4] = {static_cast<std::uint8_t>(220 - 180 * health),
                                    static_cast<std::uint8_t>(40 + 180 * health), 40, 230};
    solid(barX, barY, barW * health, barH, red, toward);

    const std::string status = targetVisible ? "TARGET VISIBLE" : "TARGET HIDDEN";
    solid(margin, height - margin - 11 * px, 88 * px, 11 * px, panel, panel);
    text(margin + 2 * px, height - margin - 9 * px, px, status, targetVisible ? yellow : grey);

    glUseProgram(program_);
    glUniform2f(viewportLocation_, width, height);
    glActiveTexture(GL_TEXTURE3);
    glBindTexture(GL_TEXTURE_2D, atlas_);

    // Client-side arrays: the default vertex array object and no buffers bound.
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    const GLsizei stride = sizeof(Vertex);
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glEnableVertexAttribArray(2);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, stride, &vertices_[0].x);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, stride, &vertices_[0].u);
    glVertexAttribPointer(2, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride, vertices_[0].rgba);

    glEnable(GL_BLEND);
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(indices_.size()), GL_UNSIGNED_SHORT,
                   indices_.data());
    glDisable(GL_BLEND);

    glDisableVertexAttribArray(0);
    glDisableVertexAttribArray(1);
    glDisableVertexAttribArray(2);
}

}  // namespace demo
