#include "games/Pubg4DShockGLHook.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>

#include "core/log.h"
#include "ctrl/ctrl.h"
#include "games/WeaponNamePattern.h"
#include "velour/entry_points.h"
#include "velour/hook_thunks.h"

namespace velour::games {

namespace {

const char DATA_NAME[] = "pubg4DShock";

// The game's UI vertex: texture coordinate at bytes 0 and 4, screen position
// at 24 and 28, a tint byte at 34.
constexpr std::size_t VERTEX_STRIDE = 40;
constexpr std::size_t VERTEX_READ = 35;
constexpr int QUAD_INDICES = 6;
// Recognition runs on frames at least this far apart.
constexpr long long GATE_MS = 33;
constexpr float TEXCOORD_EPSILON = 0.001f;

Pubg4DShockGLHooks& shock(GameGLHooks& hook) {
    return static_cast<Pubg4DShockGLHooks&>(hook);
}

// The wrappers of the buffer and vertex-attribute entry points.
void genBuffers(GameGLHooks& hook, GLsizei n, GLuint* names) {
    shock(hook).buffers().hookglGenBuffers(n, names);
}
void genVertexArrays(GameGLHooks& hook, GLsizei n, GLuint* names) {
    shock(hook).buffers().hookglGenVertexArrays(n, names);
}
void bindVertexArray(GameGLHooks& hook, GLuint array) {
    shock(hook).buffers().hookglBindVertexArray(array);
}
void bindBuffer(GameGLHooks& hook, GLenum target, GLuint buffer) {
    shock(hook).buffers().hookglBindBuffer(target, buffer);
}
void bufferData(GameGLHooks& hook, GLenum target, GLsizeiptr size, const void* data, GLenum usage) {
    shock(hook).buffers().hookglBufferData(target, size, data, usage);
}
void bufferSubData(GameGLHooks& hook, GLenum target, GLintptr offset, GLsizeiptr size,
                   const void* data) {
    shock(hook).buffers().hookglBufferSubData(target, offset, size, data);
}
void* mapBufferRange(GameGLHooks& hook, GLenum target, GLintptr offset, GLsizeiptr length,
                     GLbitfield access) {
    return shock(hook).buffers().hookglMapBufferRange(target, offset, length, access);
}
GLboolean unmapBuffer(GameGLHooks& hook, GLenum target) {
    return shock(hook).buffers().hookglUnmapBuffer(target);
}
void deleteBuffers(GameGLHooks& hook, GLsizei n, const GLuint* names) {
    shock(hook).buffers().hookglDeleteBuffers(n, names);
}
void vertexAttribPointer(GameGLHooks& hook, GLuint index, GLint size, GLenum type,
                         GLboolean normalized, GLsizei stride, const void* pointer) {
    shock(hook).buffers().hookglVertexAttribPointer(index, size, type, normalized, stride, pointer);
}
void enableVertexAttribArray(GameGLHooks& hook, GLuint index) {
    shock(hook).buffers().hookglEnableVertexAttribArray(index);
}
void disableVertexAttribArray(GameGLHooks& hook, GLuint index) {
    shock(hook).buffers().hookglDisableVertexAttribArray(index);
}
void activeTexture(GameGLHooks& hook, GLenum unit) {
    shock(hook).onActiveTexture(unit);
}
void deleteTextures(GameGLHooks& hook, GLsizei count, const GLuint* textures) {
    shock(hook).onDeleteTextures(count, textures);
}

bool near(float a, float b) {
    return std::fabs(a - b) <= TEXCOORD_EPSILON;
}

}  // namespace

bool FPSUtil::update(long long interval, Clock::time_point at) {
    using std::chrono::duration_cast;
    using std::chrono::microseconds;
    using std::chrono::milliseconds;
    ++frames;
    now = at;
    if (duration_cast<microseconds>(now - lastRateUpdate).count() >= 1001000) {
        rate = 0.9f * rate + 0.1f * static_cast<float>(frames);
        frames = 0;
        lastRateUpdate = now;
    }
    if (duration_cast<milliseconds>(now - lastGatePass).count() > interval) {
        lastGatePass = now;
        return true;
    }
    return false;
}

FPSUtil::Clock::time_point (*Pubg4DShockGLHooks::clock)() = &FPSUtil::Clock::now;

// The vertices of one draw, read only inside the shadows: a draw that claims
// more than they hold reads nothing past them.
struct Pubg4DShockGLHooks::Batch {
    struct Vertex {
        float u, v, x, y;
        unsigned tint;
    };

    const std::uint16_t* indices = nullptr;
    std::size_t indexCount = 0;  // readable from the draw's first index
    const std::uint8_t* vertices = nullptr;
    std::size_t vertexBytes = 0;

    Batch(GFXBufHook& buffers, const DrawParameters& draw) {
        const std::uint16_t* elements = buffers.getElementBufferData();
        const std::uint8_t* data = buffers.getVertexBufferData();
        if (!elements || !data) return;
        const std::size_t first = (draw.indexOffset & ~std::uintptr_t(1)) / sizeof(std::uint16_t);
        const std::size_t available = buffers.getElementBufferSize() / sizeof(std::uint16_t);
        if (first >= available) return;
        indices = elements + first;
        indexCount = available - first;
        vertices = data;
        vertexBytes = buffers.getVertexBufferSize();
    }
    bool exists() const { return indices != nullptr; }
    // The vertex at position `i` of the draw's indices; false when the index
    // or its vertex lies outside the shadows.
    bool vertex(std::size_t i, Vertex& out) const {
        if (!indices || i >= indexCount) return false;
        const std::size_t at = std::size_t(indices[i]) * VERTEX_STRIDE;
        if (at + VERTEX_READ > vertexBytes) return false;
        std::memcpy(&out.u, vertices + at, sizeof(float));
        std::memcpy(&out.v, vertices + at + 4, sizeof(float));
        std::memcpy(&out.x, vertices + at + 24, sizeof(float));
        std::memcpy(&out.y, vertices + at + 28, sizeof(float));
        out.tint = vertices[at + 34];
        return true;
    }
    // The centre of the quad whose indices start at position `i`.
    bool quadCentre(std::size_t i, Point& centre) const {
        Vertex a, b, c;
        if (!vertex(i, a) || !vertex(i + 1, b) || !vertex(i + 2, c)) return false;
        if (std::fabs(a.x - b.x) <= 0.0001f)
            centre = {(b.x + c.x) / 2, (a.y + b.y) / 2};
        else
            centre = {(a.x + b.x) / 2, (c.y + a.y) / 2};
        return true;
    }
};

Pubg4DShockGLHooks::Pubg4DShockGLHooks() {
    loadConfiguration();
}

void Pubg4DShockGLHooks::loadConfiguration() {
    utils::Pubg4DShockJsonParser parser(ctrl::getGameDataFile(DATA_NAME),
                                        ctrl::getDefaultGameDataFile(DATA_NAME));
    try {
        std::string pattern = parser.get4DShockWeaponRegex();
        if (parser._parseError == 0) weaponNamePattern = compileWeaponNamePattern(pattern);
        adjustments = parser.get4DShockMisjudgmentWeapons();
        float adjustment = parser.get4DShockDefaultAdjustment();
        if (parser._parseError == 0) defaultAdjustment = adjustment;
        buttonFrame.init(parser);
        pickupMessage.init(parser);
        reloadProgress.init(parser);
    } catch (const std::regex_error& error) {
        VELOUR_LOG(core::LOG_WARN, "velour weaponNameRegex is no valid expression: %s",
                   error.what());
        return;
    } catch (const std::exception& error) {
        // picojson's type test: a member of an unexpected type.
        VELOUR_LOG(core::LOG_WARN, "velour 4DShock data of an unexpected shape: %s", error.what());
        return;
    }
    if (parser._parseError != 0) {
        VELOUR_LOG(core::LOG_INFO, "velour _parseError = %d", parser._parseError);
        return;
    }
    disabled = false;
}

bool Pubg4DShockGLHooks::registerGlobalTriggers() {
    PubgGLHooks::registerGlobalTriggers();
    using namespace thunks;
    hijack::glActiveTexture = &before_glActiveTexture<&activeTexture>;
    hijack::glDeleteTextures = &before_glDeleteTextures<&deleteTextures>;
    hijack::glBindVertexArray = &instead_glBindVertexArray<&bindVertexArray>;
    hijack::glMapBufferRange = &instead_glMapBufferRange<&mapBufferRange>;
    hijack::glUnmapBuffer = &instead_glUnmapBuffer<&unmapBuffer>;
    hijack::glBindBuffer = &instead_glBindBuffer<&bindBuffer>;
    hijack::glBufferData = &instead_glBufferData<&bufferData>;
    hijack::glBufferSubData = &instead_glBufferSubData<&bufferSubData>;
    hijack::glGenBuffers = &instead_glGenBuffers<&genBuffers>;
    hijack::glDeleteBuffers = &instead_glDeleteBuffers<&deleteBuffers>;
    hijack::glVertexAttribPointer = &instead_glVertexAttribPointer<&vertexAttribPointer>;
    hijack::glEnableVertexAttribArray =
        &instead_glEnableVertexAttribArray<&enableVertexAttribArray>;
    hijack::glDisableVertexAttribArray =
        &instead_glDisableVertexAttribArray<&disableVertexAttribArray>;
    hijack::glGenVertexArrays = &instead_glGenVertexArrays<&genVertexArrays>;
    return true;
}

void Pubg4DShockGLHooks::onActiveTexture(unsigned int unit) {
    activeUnit = unit;
}

void Pubg4DShockGLHooks::onBindTexture(unsigned int target, unsigned int texture) {
    PubgGLHooks::onBindTexture(target, texture);
    if (target == GL_TEXTURE_2D && activeUnit == GL_TEXTURE0) boundTexture = texture;
}

void Pubg4DShockGLHooks::onLabelObjectEXT(unsigned int type, unsigned int object, int length,
                                          char const* label) {
    PubgGLHooks::onLabelObjectEXT(type, object, length, label);
    if (type == GL_TEXTURE && object != 0 && label) textureLabels[object] = label;
}

void Pubg4DShockGLHooks::onDeleteTextures(int count, const unsigned* textures) {
    PubgHooksBase::onDeleteTextures(count, textures);
    for (int i = 0; textures && i < count; ++i) textureLabels.erase(textures[i]);
}

bool Pubg4DShockGLHooks::onDraw() {
    PubgGLHooks::onDraw();
    if (disabled || !switchFlag || !gamePlayDetected || !uiStarted) return true;
    gfxBufHook.storeUIBufferHandles();
    if (throttled) return true;
    recognizeWeapon({drawIndexCount, reinterpret_cast<std::uintptr_t>(drawIndices)});
    return true;
}

void Pubg4DShockGLHooks::recognizeWeapon(const DrawParameters& draw) {
    if (gfxBufHook.boundArrayBuffer() == 0 || gfxBufHook.boundElementBuffer() == 0) return;
    const int count = draw.indexCount;
    auto labelled = textureLabels.find(boundTexture);
    Batch::Vertex vertex;

    if (labelled == textureLabels.end()) {
        // Perhaps the digit font: its glyphs inside the button.
        if (buttonSeen != 2 || !digits.empty() || count <= 17) return;
        Batch batch(gfxBufHook, draw);
        if (!batch.exists()) return;
        for (int i = 0; i < count; i += QUAD_INDICES)
            if (batch.vertex(i, vertex) && buttonRect.containsStrictly({vertex.x, vertex.y}))
                digits.push_back({vertex.u, vertex.v});
        if (digits.size() < 3)
            digits.clear();
        else
            digitTexture = boundTexture;
        return;
    }

    const std::string& label = labelled->second;
    if (count == QUAD_INDICES && std::regex_match(label, weaponNamePattern)) {
        if (weaponFound || (buttonSeen != 1 && buttonSeen != 2)) return;
        Batch batch(gfxBufHook, draw);
        Point centre;
        if (!batch.quadCentre(0, centre) || !buttonRect.containsStrictly(centre)) return;
        if (!batch.vertex(0, vertex)) return;
        weaponFound = true;
        weaponName = label;
        // A brightening name is the fade-in after a reload or a switch.
        if (vertex.tint > lastTint) reloadHoldOff = 1;
        lastTint = vertex.tint;
        return;
    }
    if (count >= buttonFrame.verticesNum && label == buttonFrame.iconName) {
        if (buttonSeen == 2) return;
        Batch batch(gfxBufHook, draw);
        if (!batch.exists()) return;
        for (int i = 0; i <= count - buttonFrame.verticesNum; i += QUAD_INDICES) {
            if (!batch.vertex(i, vertex) || !near(vertex.u, buttonFrame.texcoords[0][0]) ||
                !near(vertex.v, buttonFrame.texcoords[0][1]))
                continue;
            Batch::Vertex first, second;
            if (!batch.vertex(i + buttonFrame.diagonalPointIdxs[0], first) ||
                !batch.vertex(i + buttonFrame.diagonalPointIdxs[1], second))
                return;
            if (std::fabs(first.x - buttonRect.minX) > 1.0f ||
                std::fabs(first.y - buttonRect.minY) > 1.0f)
                buttonMoved = true;
            buttonSeen = 2;
            buttonRect = {first.x, first.y, second.x, second.y};
            return;
        }
        return;
    }
    if (count >= pickupMessage.verticesNum && label == pickupMessage.iconName) {
        if (!weaponFound || buttonSeen != 2 || pickupHoldOff >= 0.2f * getFPS()) return;
        Batch batch(gfxBufHook, draw);
        for (int i = 0; batch.exists() && i <= count - pickupMessage.verticesNum;
             i += QUAD_INDICES) {
            if (!batch.vertex(i, vertex) || !near(vertex.u, pickupMessage.texcoords[0][0]) ||
                !near(vertex.v, pickupMessage.texcoords[0][1]))
                continue;
            if (vertex.y > lastPickupY + 5.0f) pickupHoldOff = static_cast<int>(getFPS() * 0.2f);
            lastPickupY = vertex.y;
            return;
        }
        return;
    }
    if (count == QUAD_INDICES && label == reloadProgress.foreground) {
        Batch batch(gfxBufHook, draw);
        Point centre;
        if (!batch.quadCentre(0, centre) || !reloadRect.containsStrictly(centre)) return;
        auto found = adjustments.find(previousWeaponName);
        float adjustment = found != adjustments.end() ? found->second : defaultAdjustment;
        reloadHoldOff = static_cast<int>(adjustment * getFPS());
        return;
    }
    if (label == reloadProgress.background && frameCount % 60 == 0) {
        Batch batch(gfxBufHook, draw);
        for (int i = 0; batch.exists() && i < count; i += QUAD_INDICES) {
            if (!batch.vertex(i, vertex) || !near(vertex.u, reloadProgress.bgTexcoord[0][0]) ||
                !near(vertex.v, reloadProgress.bgTexcoord[0][1]))
                continue;
            Batch::Vertex b, c;
            if (!batch.vertex(i + 1, b) || !batch.vertex(i + 2, c)) return;
            reloadRect = {std::min({vertex.x, b.x, c.x}), std::min({vertex.y, b.y, c.y}),
                          std::max({vertex.x, b.x, c.x}), std::max({vertex.y, b.y, c.y})};
            return;
        }
    }
}

bool Pubg4DShockGLHooks::detectBulletNumChanged() {
    if (!weaponFound || weaponName != previousWeaponName) return false;
    const std::size_t n = digits.size(), p = previousDigits.size();
    if (n == 0 || (p != n && p != n + 1)) return false;
    bool changed = false;
    std::size_t lastDifference = 0;
    for (std::size_t k = 0; k < n; ++k) {
        const Point& now = digits[n - 1 - k];
        const Point& before = previousDigits[p - 1 - k];
        if (std::fabs(now.x - before.x) <= 0.001f && std::fabs(now.y - before.y) <= 0.001f)
            continue;
        // The two trailing glyphs never change with a shot, and the digits
        // that do form one run.
        if (k < 2) return false;
        if (changed && k != lastDifference + 1) return false;
        lastDifference = k;
        changed = true;
    }
    if (pickupHoldOff > 0 || reloadHoldOff > 0 || buttonMoved) return false;
    return changed;
}

void Pubg4DShockGLHooks::onFrameEnd() {
    PubgGLHooks::onFrameEnd();
    gfxBufHook.resetUIBufferHandles();
    switchFlag = ctrl::get4DSwitchFlag();
    if (!disabled && gamePlayDetected && !throttled) {
        if (!switchFlag)
            previousDigits.clear();
        else if (detectBulletNumChanged())
            ctrl::sendWeaponToDova(weaponName.c_str());
        resetState();
    }
    throttled = !frameRate.update(GATE_MS, clock());
}

void Pubg4DShockGLHooks::resetState() {
    previousDigits = digits;
    previousWeaponName = weaponName;
    weaponFound = false;
    boundTexture = 0;
    buttonMoved = false;
    digits.clear();
    if (buttonSeen != 0) --buttonSeen;
    pickupHoldOff = std::max(0, pickupHoldOff - 1);
    reloadHoldOff = std::max(0, reloadHoldOff - 1);
    weaponName.clear();
}

}  // namespace velour::games
