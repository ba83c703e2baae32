#include "shooter.h"

#include <cstring>

#include "glapp/gl_program.h"
#include "hud.h"
#include "labels.h"
#include "shaders.h"

namespace demo {

using glapp::checkGl;

namespace {

// Room for every widget of a frame.
constexpr std::size_t kMaxQuads = 64;

// The font: 8x8 cells in a row, the digits first, then a slash and the
// magazine mark that follow the rounds.
constexpr int kCell = 8;
constexpr int kFontCells = 16;
constexpr int kSlash = 10, kMark = 11;
const char* const kSlashRows[7] = {"....#", "....#", "...#.", "..#..", ".#...", "#....", "#...."};
const char* const kMarkRows[7] = {"####.", "#..#.", "####.", "#..#.", "####.", "#..#.", "####."};

void drawGlyph(std::vector<std::uint8_t>& texels, int width, int cell, const char* const* rows) {
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 5; ++x)
            if (rows[y][x] == '#')
                texels[static_cast<std::size_t>(y * width + cell * kCell + x)] = 255;
}

// A weapon's name icon: its text in the HUD's font, 6 texels a character.
GLuint nameIcon(const char* text, const char* label) {
    const int width = 32, height = 8;
    std::vector<std::uint8_t> texels(static_cast<std::size_t>(width * height), 0);
    for (int i = 0; text[i] && i < 5; ++i) {
        const char* const* rows = glyphRows(text[i]);
        if (!rows) continue;
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 5; ++x)
                if (rows[y][x] == '#')
                    texels[static_cast<std::size_t>(y * width + i * 6 + x)] = 255;
    }
    return makeTexture(width, height, texels, GL_NEAREST, GL_CLAMP_TO_EDGE, label);
}

// Texture coordinates inside a panel's face: the corners the data file names.
constexpr float kFaceMin = 1.0f / 16, kFaceMax = 15.0f / 16;

}  // namespace

ShooterHud::ShooterHud(Update update) : update_(update), batch_(kMaxQuads) {
    program_ =
        makeHudProgram("shooter", shaders::kShooterVertex, 0, "HUD_Shooter", &viewportLocation_);

    glActiveTexture(GL_TEXTURE0);
    button_ = makeTexture(8, 8, panelTexels(90), GL_NEAREST, GL_CLAMP_TO_EDGE, "HUD_WeaponButton");
    pickup_ = makeTexture(8, 8, panelTexels(150), GL_NEAREST, GL_CLAMP_TO_EDGE, "HUD_PickupBG");
    reloadBack_ = makeTexture(8, 8, panelTexels(70), GL_NEAREST, GL_CLAMP_TO_EDGE, "HUD_ReloadBG");
    reloadFront_ = makeTexture(8, 8, std::vector<std::uint8_t>(64, 255), GL_NEAREST,
                               GL_CLAMP_TO_EDGE, "HUD_ReloadFG");
    names_[0] = nameIcon("RIFLE", kWeapons[0]);
    names_[1] = nameIcon("M416", kWeapons[1]);
    std::vector<std::uint8_t> font(static_cast<std::size_t>(kFontCells * kCell * kCell), 0);
    for (int digit = 0; digit < 10; ++digit)
        drawGlyph(font, kFontCells * kCell, digit, glyphRows(static_cast<char>('0' + digit)));
    drawGlyph(font, kFontCells * kCell, kSlash, kSlashRows);
    drawGlyph(font, kFontCells * kCell, kMark, kMarkRows);
    // As the game's font, it has no label.
    font_ = makeTexture(kFontCells * kCell, kCell, font, GL_NEAREST, GL_CLAMP_TO_EDGE, nullptr);

    // One buffer pair, sized once, rewritten each frame.
    glGenVertexArrays(1, &vao_);
    glBindVertexArray(vao_);
    glGenBuffers(1, &vbo_);
    glGenBuffers(1, &ebo_);
    glBindBuffer(GL_ARRAY_BUFFER, vbo_);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(kMaxQuads * 4 * sizeof(Vertex)), nullptr,
                 GL_DYNAMIC_DRAW);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, ebo_);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(kMaxQuads * 6 * 2), nullptr,
                 GL_DYNAMIC_DRAW);
    const GLsizei stride = sizeof(Vertex);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, stride,
                          reinterpret_cast<const void*>(offsetof(Vertex, u)));
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, stride,
                          reinterpret_cast<const void*>(offsetof(Vertex, x)));
    glVertexAttribPointer(2, 4, GL_UNSIGNED_BYTE, GL_TRUE, stride,
                          reinterpret_cast<const void*>(offsetof(Vertex, red)));
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glEnableVertexAttribArray(2);
    glBindVertexArray(0);
    checkGl("shooter HUD set-up");
}

ShooterHud::~ShooterHud() {
    const GLuint textures[] = {button_,      font_,     pickup_,  reloadBack_,
                               reloadFront_, names_[0], names_[1]};
    glDeleteTextures(7, textures);
    glDeleteBuffers(1, &vbo_);
    glDeleteBuffers(1, &ebo_);
    glDeleteVertexArrays(1, &vao_);
    glDeleteProgram(program_);
}

void ShooterHud::quad(float x, float y, float w, float h, float u0, float v0, float u1, float v1,
                      const std::uint8_t rgba[4]) {
    batch_.quad(x, y, w, h, u0, v0, u1, v1, [&](float cx, float cy, float u, float v, bool) {
        Vertex corner{};
        corner.u = u;
        corner.v = v;
        corner.x = cx;
        corner.y = cy;
        corner.red = rgba[0];
        corner.green = rgba[1];
        corner.blue = rgba[2];
        corner.tint = rgba[3];
        return corner;
    });
}

void ShooterHud::upload() {
    const auto& vertices = batch_.vertices();
    const auto& indices = batch_.indices();
    const auto vertexBytes = static_cast<GLsizeiptr>(vertices.size() * sizeof(Vertex));
    const auto indexBytes = static_cast<GLsizeiptr>(indices.size() * 2);
    const std::pair<GLenum, std::pair<const void*, GLsizeiptr>> parts[] = {
        {GL_ARRAY_BUFFER, {vertices.data(), vertexBytes}},
        {GL_ELEMENT_ARRAY_BUFFER, {indices.data(), indexBytes}}};
    for (const auto& [target, data] : parts) {
        if (update_ == Update::subData) {
            glBufferSubData(target, 0, data.second, data.first);
            continue;
        }
        void* mapped = glMapBufferRange(target, 0, data.second,
                                        GL_MAP_WRITE_BIT | GL_MAP_INVALIDATE_RANGE_BIT);
        if (!mapped) throw glapp::Failure("glMapBufferRange of the shooter HUD failed");
        std::memcpy(mapped, data.first, static_cast<std::size_t>(data.second));
        glUnmapBuffer(target);
    }
}

void ShooterHud::draw(int screenWidth, int screenHeight, const ShooterState& state) {
    const auto [width, height, px] = hudScreen(screenWidth, screenHeight);
    batch_.clear();
    const std::uint8_t frame[4] = {200, 200, 210, 220};
    const std::uint8_t slot[4] = {120, 120, 130, 200};
    const std::uint8_t white[4] = {240, 240, 240, 240};
    const std::uint8_t name[4] = {250, 230, 160, static_cast<std::uint8_t>(state.nameTint)};
    const std::uint8_t message[4] = {60, 140, 220, 210};
    const std::uint8_t bar[4] = {255, 200, 80, 230};
    const std::uint8_t barBack[4] = {30, 30, 30,
                                     static_cast<std::uint8_t>(state.reload >= 0 ? 200 : 60)};

    // The weapon button, bottom right of the crosshair: a slot mark, then the
    // frame whose corners the data file names.
    const float bw = 60 * px, bh = 28 * px;
    const float bx = width - 100 * px, by = height - 60 * px;
    quad(bx + bw - 8 * px, by - 6 * px, 8 * px, 4 * px, 0.5f, 0.5f, 0.5f, 0.5f, slot);
    quad(bx, by, bw, bh, kFaceMin, kFaceMin, kFaceMax, kFaceMax, frame);
    batch_.widget(button_);
    quad(bx + 3 * px, by + 3 * px, 32 * px, 8 * px, 0, 0, 1, 1, name);
    batch_.widget(names_[state.weapon & 1]);
    // The rounds, then the slash and the magazine mark.
    std::vector<int> glyphs;
    for (char c : std::to_string(state.rounds)) glyphs.push_back(c - '0');
    glyphs.push_back(kSlash);
    glyphs.push_back(kMark);
    float gx = bx + 3 * px;
    for (int glyph : glyphs) {
        const float u0 = static_cast<float>(glyph * kCell) / (kFontCells * kCell);
        quad(gx, by + 14 * px, 5 * px, 7 * px, u0, 0, u0 + 5.0f / (kFontCells * kCell), 7.0f / 8,
             white);
        gx += 6 * px;
    }
    batch_.widget(font_);

    if (state.pickupY >= 0) {
        quad(width / 2 - 50 * px, state.pickupY * px, 100 * px, 12 * px, kFaceMin, kFaceMin,
             kFaceMax, kFaceMax, message);
        batch_.widget(pickup_);
    }

    // The reload bar under the crosshair: its background always, faint when
    // idle, and the filling part while reloading.
    const float rx = width / 2 - 30 * px, ry = height / 2 + 20 * px;
    quad(rx, ry, 60 * px, 4 * px, kFaceMin, kFaceMin, kFaceMax, kFaceMax, barBack);
    batch_.widget(reloadBack_);
    if (state.reload >= 0) {
        quad(rx + px, ry + px, 58 * px * (state.reload > 0.02f ? state.reload : 0.02f), 2 * px,
             kFaceMin, kFaceMin, kFaceMax, kFaceMax, bar);
        batch_.widget(reloadFront_);
    }

    glUseProgram(program_);
    glUniform2f(viewportLocation_, width, height);
    glBindVertexArray(vao_);
    glBindBuffer(GL_ARRAY_BUFFER, vbo_);
    upload();
    glActiveTexture(GL_TEXTURE0);
    drawWidgets(batch_.widgets(), nullptr);
    glBindVertexArray(0);
}

}  // namespace demo
