#include "shooter.h"

#include <cstring>

#include "glapp/gl_program.h"
#include "hud.h"
#include "labels.h"
#include "shaders.h"

namespace demo {

using glapp::buildProgram;
using glapp::checkGl;
using glapp::uniformLocation;

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

GLuint makeTexture(int width, int height, const std::vector<std::uint8_t>& texels,
                   const char* label) {
    GLuint texture = 0;
    glGenTextures(1, &texture);
    glBindTexture(GL_TEXTURE_2D, texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_R8, width, height, 0, GL_RED, GL_UNSIGNED_BYTE,
                 texels.data());
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    if (label) labelObject(kLabelTexture, texture, label);
    return texture;
}

// A panel face with a bright rim, 8 texels a side.
std::vector<std::uint8_t> panel(std::uint8_t face) {
    std::vector<std::uint8_t> texels(64, face);
    for (int i = 0; i < 8; ++i) {
        texels[static_cast<std::size_t>(i)] = texels[static_cast<std::size_t>(56 + i)] = 255;
        texels[static_cast<std::size_t>(8 * i)] = texels[static_cast<std::size_t>(8 * i + 7)] = 255;
    }
    return texels;
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
    return makeTexture(width, height, texels, label);
}

// Texture coordinates inside a panel's face: the corners the data file names.
constexpr float kFaceMin = 1.0f / 16, kFaceMax = 15.0f / 16;

}  // namespace

ShooterHud::ShooterHud(Update update) : update_(update) {
    program_ = buildProgram("shooter", shaders::kShooterVertex, shaders::kShooterFragment);
    viewportLocation_ = uniformLocation(program_, "uViewport");
    glUseProgram(program_);
    glUniform1i(uniformLocation(program_, "uTexture"), 0);
    labelObject(kLabelProgram, program_, "HUD_Shooter");

    glActiveTexture(GL_TEXTURE0);
    button_ = makeTexture(8, 8, panel(90), "HUD_WeaponButton");
    pickup_ = makeTexture(8, 8, panel(150), "HUD_PickupBG");
    reloadBack_ = makeTexture(8, 8, panel(70), "HUD_ReloadBG");
    reloadFront_ = makeTexture(8, 8, std::vector<std::uint8_t>(64, 255), "HUD_ReloadFG");
    names_[0] = nameIcon("RIFLE", kWeapons[0]);
    names_[1] = nameIcon("M416", kWeapons[1]);
    std::vector<std::uint8_t> font(static_cast<std::size_t>(kFontCells * kCell * kCell), 0);
    for (int digit = 0; digit < 10; ++digit)
        drawGlyph(font, kFontCells * kCell, digit, glyphRows(static_cast<char>('0' + digit)));
    drawGlyph(font, kFontCells * kCell, kSlash, kSlashRows);
    drawGlyph(font, kFontCells * kCell, kMark, kMarkRows);
    // As the game's font, it has no label.
    font_ = makeTexture(kFontCells * kCell, kCell, font, nullptr);

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
    vertices_.reserve(kMaxQuads * 4);
    indices_.reserve(kMaxQuads * 6);
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
    if (vertices_.size() + 4 > kMaxQuads * 4) return;
    const auto base = static_cast<std::uint16_t>(vertices_.size());
    const float corners[4][4] = {
        {x, y, u0, v0}, {x + w, y, u1, v0}, {x + w, y + h, u1, v1}, {x, y + h, u0, v1}};
    for (const auto& c : corners) {
        Vertex vertex{};
        vertex.u = c[2];
        vertex.v = c[3];
        vertex.x = c[0];
        vertex.y = c[1];
        vertex.red = rgba[0];
        vertex.green = rgba[1];
        vertex.blue = rgba[2];
        vertex.tint = rgba[3];
        vertices_.push_back(vertex);
    }
    for (std::uint16_t i : {0, 1, 2, 0, 2, 3})
        indices_.push_back(static_cast<std::uint16_t>(base + i));
}

void ShooterHud::widget(GLuint texture) {
    widgets_.push_back({texture, widgetStart_, indices_.size() - widgetStart_});
    widgetStart_ = indices_.size();
}

void ShooterHud::upload() {
    const auto vertexBytes = static_cast<GLsizeiptr>(vertices_.size() * sizeof(Vertex));
    const auto indexBytes = static_cast<GLsizeiptr>(indices_.size() * 2);
    const std::pair<GLenum, std::pair<const void*, GLsizeiptr>> parts[] = {
        {GL_ARRAY_BUFFER, {vertices_.data(), vertexBytes}},
        {GL_ELEMENT_ARRAY_BUFFER, {indices_.data(), indexBytes}}};
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
    const float width = static_cast<float>(screenWidth);
    const float height = static_cast<float>(screenHeight);
    const float px = screenHeight >= 360 ? 2.0f : 1.0f;
    vertices_.clear();
    indices_.clear();
    widgets_.clear();
    widgetStart_ = 0;
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
    widget(button_);
    quad(bx + 3 * px, by + 3 * px, 32 * px, 8 * px, 0, 0, 1, 1, name);
    widget(names_[state.weapon & 1]);
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
    widget(font_);

    if (state.pickupY >= 0) {
        quad(width / 2 - 50 * px, state.pickupY * px, 100 * px, 12 * px, kFaceMin, kFaceMin,
             kFaceMax, kFaceMax, message);
        widget(pickup_);
    }

    // The reload bar under the crosshair: its background always, faint when
    // idle, and the filling part while reloading.
    const float rx = width / 2 - 30 * px, ry = height / 2 + 20 * px;
    quad(rx, ry, 60 * px, 4 * px, kFaceMin, kFaceMin, kFaceMax, kFaceMax, barBack);
    widget(reloadBack_);
    if (state.reload >= 0) {
        quad(rx + px, ry + px, 58 * px * (state.reload > 0.02f ? state.reload : 0.02f), 2 * px,
             kFaceMin, kFaceMin, kFaceMax, kFaceMax, bar);
        widget(reloadFront_);
    }

    glUseProgram(program_);
    glUniform2f(viewportLocation_, width, height);
    glBindVertexArray(vao_);
    glBindBuffer(GL_ARRAY_BUFFER, vbo_);
    upload();
    glActiveTexture(GL_TEXTURE0);
    glDisable(GL_DEPTH_TEST);
    glEnable(GL_BLEND);
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE);
    for (const Widget& w : widgets_) {
        glBindTexture(GL_TEXTURE_2D, w.texture);
        glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(w.indexCount), GL_UNSIGNED_SHORT,
                       reinterpret_cast<const void*>(w.firstIndex * 2));
    }
    glDisable(GL_BLEND);
    glBindVertexArray(0);
}

}  // namespace demo
