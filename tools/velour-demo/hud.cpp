#include "hud.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstring>

#include "glapp/gl_program.h"
#include "labels.h"
#include "shaders.h"

namespace demo {

using glapp::checkGl;

namespace {

// The text colour of the HUD and the lobby.
constexpr std::uint8_t kWhite[4] = {240, 240, 240, 255};

// Room for every widget of a frame, text included.
constexpr std::size_t kMaxQuads = 256;

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

// A ring with a gap and a dot, 16 texels a side.
std::vector<std::uint8_t> makeCrosshair() {
    constexpr int kSide = 16;
    std::vector<std::uint8_t> texels(kSide * kSide, 0);
    for (int y = 0; y < kSide; ++y) {
        for (int x = 0; x < kSide; ++x) {
            const int dx = 2 * x - (kSide - 1), dy = 2 * y - (kSide - 1);
            const int r2 = dx * dx + dy * dy;
            const bool ring = r2 >= 144 && r2 <= 225 && dx * dy != 0 && (dx > 3 || dx < -3);
            if (ring || r2 <= 4) texels[static_cast<std::size_t>(y * kSide + x)] = 255;
        }
    }
    return texels;
}

// A soft diagonal pattern for the lobby's backdrop, 8 texels a side.
std::vector<std::uint8_t> makeBackdrop() {
    std::vector<std::uint8_t> texels(64);
    for (int i = 0; i < 64; ++i)
        texels[static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>(160 + 12 * ((i / 8 + i % 8) % 8));
    return texels;
}

}  // namespace

const char* const* glyphRows(char c) {
    const int cell = cellOf(c);
    return cell < 0 ? nullptr : kGlyphs[cell].rows;
}

Hud::Hud() : batch_(kMaxQuads) {
    program_ = makeHudProgram("hud", shaders::kHudVertex, 3, "HUD_Sprite", &viewportLocation_);

    // Nearest: glyph quads are whole multiples of the texel size.
    glActiveTexture(GL_TEXTURE3);
    const std::vector<std::uint8_t> texels = makeAtlas();
    atlas_ =
        makeTexture(kAtlasWidth, kAtlasHeight, texels, GL_NEAREST, GL_CLAMP_TO_EDGE, "HUD_Atlas");
    font_ =
        makeTexture(kAtlasWidth, kAtlasHeight, texels, GL_NEAREST, GL_CLAMP_TO_EDGE, "HUD_Font");
    crosshair_ =
        makeTexture(16, 16, makeCrosshair(), GL_NEAREST, GL_CLAMP_TO_EDGE, "HUD_CrossHair_Default");
    lobbyBackground_ = makeTexture(8, 8, makeBackdrop(), GL_LINEAR, GL_REPEAT, "Lobby_Background");
    lobbyButton_ =
        makeTexture(8, 8, panelTexels(200), GL_NEAREST, GL_CLAMP_TO_EDGE, "Lobby_Button");
    checkGl("hud set-up");
}

Hud::~Hud() {
    const GLuint textures[] = {atlas_, font_, crosshair_, lobbyBackground_, lobbyButton_};
    glDeleteTextures(5, textures);
    glDeleteProgram(program_);
}

void Hud::quad(float x, float y, float w, float h, float u0, float v0, float u1, float v1,
               const std::uint8_t left[4], const std::uint8_t right[4]) {
    batch_.quad(x, y, w, h, u0, v0, u1, v1,
                [&](float cx, float cy, float u, float v, bool onRight) {
                    Vertex corner{cx, cy, u, v, {}};
                    std::memcpy(corner.rgba, onRight ? right : left, 4);
                    return corner;
                });
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

void Hud::flush(int width, int height) {
    glUseProgram(program_);
    glUniform2f(viewportLocation_, static_cast<float>(width), static_cast<float>(height));
    glActiveTexture(GL_TEXTURE3);

    // Client-side arrays: the default vertex array object and no buffers bound.
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    const GLsizei stride = sizeof(Vertex);
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glEnableVertexAttribArray(2);
    const Vertex* vertices = batch_.vertices().data();
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, stride, &vertices->x);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, stride, &vertices->u);
    glVertexAttribPointer(2, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride, vertices->rgba);

    drawWidgets(batch_.widgets(), batch_.indices().data());

    glDisableVertexAttribArray(0);
    glDisableVertexAttribArray(1);
    glDisableVertexAttribArray(2);
}

void Hud::draw(int screenWidth, int screenHeight, int frame, float health, bool targetVisible) {
    const auto [width, height, px] = hudScreen(screenWidth, screenHeight);
    batch_.clear();
    const std::uint8_t panel[4] = {10, 14, 24, 150}, barBack[4] = {40, 20, 20, 200};
    const std::uint8_t yellow[4] = {255, 210, 60, 255}, grey[4] = {140, 140, 150, 220};
    const std::uint8_t map[4] = {30, 60, 40, 170}, marker[4] = {250, 80, 60, 255};
    const std::uint8_t reticle[4] = {120, 255, 120, 230};

    const float margin = 4 * px;
    solid(margin, margin, 70 * px, 22 * px, panel, panel);
    batch_.widget(atlas_);
    char label[32];
    std::snprintf(label, sizeof label, "FRAME %05d", frame);
    text(margin + 2 * px, margin + 2 * px, px, label, kWhite);
    batch_.widget(font_);

    // The bar fades from red at its left end towards green as health rises.
    text(margin + 2 * px, margin + 12 * px, px, "HP", kWhite);
    batch_.widget(font_);
    const float barX = margin + 16 * px, barY = margin + 12 * px;
    const float barW = 50 * px, barH = 7 * px;
    solid(barX, barY, barW, barH, barBack, barBack);
    batch_.widget(atlas_);
    const std::uint8_t red[4] = {220, 40, 30, 230};
    const std::uint8_t toward[4] = {static_cast<std::uint8_t>(220 - 180 * health),
                                    static_cast<std::uint8_t>(40 + 180 * health), 40, 230};
    solid(barX, barY, barW * health, barH, red, toward);
    batch_.widget(atlas_);

    const std::string status = targetVisible ? "TARGET VISIBLE" : "TARGET HIDDEN";
    solid(margin, height - margin - 11 * px, 88 * px, 11 * px, panel, panel);
    batch_.widget(atlas_);
    text(margin + 2 * px, height - margin - 9 * px, px, status, targetVisible ? yellow : grey);
    batch_.widget(font_);

    // Magazine, bottom right.
    solid(width - margin - 40 * px, height - margin - 11 * px, 40 * px, 11 * px, panel, panel);
    batch_.widget(atlas_);
    std::snprintf(label, sizeof label, "MAG %02d", 30 - (frame / 7) % 31);
    text(width - margin - 38 * px, height - margin - 9 * px, px, label, kWhite);
    batch_.widget(font_);

    // Minimap, top right, with the player's marker circling.
    const float mapSide = 30 * px, mapX = width - margin - mapSide;
    solid(mapX, margin, mapSide, mapSide, map, map);
    batch_.widget(atlas_);
    const float angle = 0.05f * static_cast<float>(frame);
    solid(mapX + mapSide / 2 + 10 * px * std::cos(angle) - px,
          margin + mapSide / 2 + 10 * px * std::sin(angle) - px, 3 * px, 3 * px, marker, marker);
    batch_.widget(atlas_);

    const float side = 16 * px;
    quad((width - side) / 2, (height - side) / 2, side, side, 0, 0, 1, 1, reticle, reticle);
    batch_.widget(crosshair_);

    flush(screenWidth, screenHeight);
}

void Hud::drawLobby(int screenWidth, int screenHeight, int frame) {
    const auto [width, height, px] = hudScreen(screenWidth, screenHeight);
    batch_.clear();
    const std::uint8_t backdrop[4] = {40, 70, 120, 255}, button[4] = {70, 90, 140, 235};
    const std::uint8_t chosen[4] = {200, 150, 60, 245};

    // The backdrop drifts slowly: its pattern repeats every 8 texels.
    const float drift = 0.01f * static_cast<float>(frame % 800);
    quad(0, 0, width, height, drift, 0, drift + width / (16 * px), height / (16 * px), backdrop,
         backdrop);
    batch_.widget(lobbyBackground_);
    const char* const labels[] = {"START", "SETTINGS", "BATTLE"};
    const int selected = (frame / 30) % 3;
    for (int i = 0; i < 3; ++i) {
        const float y = height / 2 - 20 * px + 14 * static_cast<float>(i) * px;
        quad(width / 2 - 40 * px, y, 80 * px, 11 * px, 0, 0, 1, 1, i == selected ? chosen : button,
             i == selected ? chosen : button);
        batch_.widget(lobbyButton_);
        text(width / 2 - 36 * px, y + 2 * px, px, labels[i], kWhite);
        batch_.widget(font_);
    }
    flush(screenWidth, screenHeight);
}

}  // namespace demo
