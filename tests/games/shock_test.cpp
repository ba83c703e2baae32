// Weapon and shot recognition from the HUD's draws, over the fake driver: the
// game's UI batches (40-byte vertices, 16-bit indices) are uploaded and drawn
// through the hijack:: slots as the replay makes them.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "HookFixture.h"
#include "ctrl/HearthAsyncService.h"
#include "ctrl/PropertyConfig.h"
#include "games/Pubg4DShockGLHook.h"

using namespace velour;
using games::Pubg4DShockGLHooks;
using namespace std::chrono_literals;

namespace {

// Records the weapon messages instead of sending them.
struct RecordingService : ctrl::GameService {
    void getHearthVersion() override {}
    void registerTesselCallback() override {}
    int getVelourSupported(const char*) override { return 1; }
    std::string getRusFile(const char*) override { return {}; }
    std::string get4DRusFile(const char*) override { return {}; }
    bool get4DSupport(const char*) override { return true; }
    void sendWeaponToDova(const char* weapon) override { sent.push_back(weapon); }
    std::vector<std::string> sent;
};

games::FPSUtil::Clock::time_point g_now{std::chrono::hours(1000)};
games::FPSUtil::Clock::time_point testClock() {
    return g_now;
}

// One UI batch of quads.
struct Batch {
    std::vector<std::uint8_t> vertices;
    std::vector<std::uint16_t> indices;
    // A quad from (x0, y0) to (x1, y1); its first vertex has (u, v).
    Batch& quad(float x0, float y0, float x1, float y1, float u, float v, int tint = 255) {
        const auto base = static_cast<std::uint16_t>(vertices.size() / 40);
        const float corners[4][2] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
        for (const auto& corner : corners) {
            std::uint8_t vertex[40] = {};
            std::memcpy(vertex, &u, 4);
            std::memcpy(vertex + 4, &v, 4);
            std::memcpy(vertex + 24, &corner[0], 4);
            std::memcpy(vertex + 28, &corner[1], 4);
            vertex[34] = static_cast<std::uint8_t>(tint);
            vertices.insert(vertices.end(), vertex, vertex + 40);
        }
        for (int i : {0, 1, 2, 0, 2, 3}) indices.push_back(static_cast<std::uint16_t>(base + i));
        return *this;
    }
};

// Glyphs of the font: the ammunition digits 0 to 9, then the two fixed
// glyphs the HUD draws after them.
constexpr int SLASH = 10, MAG = 11, OTHER = 12;
std::vector<int> ammo(int count) {
    std::vector<int> glyphs;
    for (char c : std::to_string(count)) glyphs.push_back(c - '0');
    glyphs.push_back(SLASH);
    glyphs.push_back(MAG);
    return glyphs;
}

// What the HUD shows in a frame.
struct Hud {
    std::string weapon = "Weapon_AKM";
    std::vector<int> glyphs = ammo(30);
    bool button = true;
    float buttonX = 100;
    int tint = 200;
    std::optional<float> pickupY;
    bool reloading = false;
    bool nameOutside = false;  // the name icon drawn beside the button
    // Draws made at the start of the HUD, before its batches.
    std::function<void()> before;
};

class Shock : public test::HookFixture {
  protected:
    void SetUp() override {
        install(1);
        Pubg4DShockGLHooks::registerGlobalTriggers();
        Pubg4DShockGLHooks::clock = &testClock;
        ctrl::setGameServiceForTesting(&service);
        ctrl::PropertyConfig::getInstance().set4DSwitchFromHearth(true);
        hook = static_cast<Pubg4DShockGLHooks*>(bind(std::make_unique<Pubg4DShockGLHooks>()));
        ASSERT_FALSE(hook->isDisabled());
        gamePlay = labelled("Play_Terrain");
        hudAtlas = labelled("HUD_Atlas");
        buttonTexture = labelled("HUD_WeaponButton");
        pickupTexture = labelled("HUD_PickupBG");
        reloadBackground = labelled("HUD_ReloadBG");
        reloadForeground = labelled("HUD_ReloadFG");
        akm = labelled("Weapon_AKM");
        m416 = labelled("Weapon_M416");
        // A second of frames, so that the rate is known and the reload bar
        // found; then sixty more to settle.
        for (int i = 0; i < 600; ++i) frame(hud);
        service.sent.clear();
    }
    void TearDown() override {
        ctrl::setGameServiceForTesting(nullptr);
        ctrl::PropertyConfig::getInstance().set4DSwitchFromHearth(false);
        Pubg4DShockGLHooks::clock = &games::FPSUtil::Clock::now;
        HookFixture::TearDown();
    }

    // Every batch goes through the same buffer pair, rewritten for each, as
    // the game's UI does, and filled the way `fill` says.
    void drawBatch(GLuint texture, const Batch& batch) {
        const GLuint vbo = 10, ebo = 11;
        const std::size_t at = fill == Fill::offset ? 8 : 0;
        std::vector<std::uint8_t> vertices(at + batch.vertices.size(), 0xEE);
        std::copy(batch.vertices.begin(), batch.vertices.end(), vertices.begin() + at);
        hijack::glBindVertexArray(1);
        hijack::glBindBuffer(GL_ARRAY_BUFFER, vbo);
        upload(GL_ARRAY_BUFFER, vertices.data(), vertices.size());
        hijack::glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 40,
                                      reinterpret_cast<const void*>(at));
        hijack::glEnableVertexAttribArray(0);
        hijack::glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, ebo);
        upload(GL_ELEMENT_ARRAY_BUFFER, batch.indices.data(), batch.indices.size() * 2);
        // A uniform block of the draw: a buffer of its own, not the vertices'.
        const std::uint8_t uniforms[64] = {};
        hijack::glBufferData(GL_UNIFORM_BUFFER, 64, uniforms, GL_STREAM_DRAW);
        uploads["glBufferData"]++;
        if (fill == Fill::vertexArray) {  // the array brings its buffers back
            hijack::glBindBuffer(GL_ARRAY_BUFFER, 0);
            hijack::glBindVertexArray(0);
            hijack::glBindVertexArray(1);
        }
        hijack::glActiveTexture(GL_TEXTURE0);
        bindTexture(texture);
        hijack::glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(batch.indices.size()),
                               GL_UNSIGNED_SHORT, nullptr);
    }
    void upload(GLenum target, const void* bytes, std::size_t size) {
        const auto* data = static_cast<const std::uint8_t*>(bytes);
        const auto length = static_cast<GLsizeiptr>(size), half = length / 2;
        if (fill == Fill::subData) {
            hijack::glBufferData(target, 4, nullptr, GL_STREAM_DRAW);
            hijack::glBufferSubData(target, 0, half, data);
            hijack::glBufferSubData(target, half, length - half, data + half);
            uploads["glBufferData"]++;
            uploads["glBufferSubData"] += 2;
        } else if (fill == Fill::map) {
            void* mapped = hijack::glMapBufferRange(target, 0, length, GL_MAP_WRITE_BIT);
            std::memcpy(mapped, data, size);
            unmapped = hijack::glUnmapBuffer(target);
            uploads["glMapBufferRange"]++;
        } else {
            hijack::glBufferData(target, length, data, GL_STREAM_DRAW);
            uploads["glBufferData"]++;
        }
    }

    // Draws a frame of play with `shown` as its HUD, `step` after the last
    // one; true when it sent a weapon message.
    bool frame(const Hud& shown, std::chrono::milliseconds step = 50ms) {
        const std::size_t before = service.sent.size();
        hijack::glBindFramebuffer(GL_FRAMEBUFFER, 7);
        bindTexture(gamePlay);
        draw(17);
        hijack::glBindFramebuffer(GL_FRAMEBUFFER, 0);
        bindTexture(hudAtlas);
        draw(1);
        if (shown.before) shown.before();
        const float x = shown.buttonX;
        if (shown.button)
            drawBatch(buttonTexture, Batch()
                                         .quad(x, 400, x + 30, 420, 0.9f, 0.9f)
                                         .quad(x, 500, x + 200, 600, 0.25f, 0.5f));
        drawBatch(shown.weapon == "Weapon_AKM" ? akm : m416,
                  Batch().quad(x + (shown.nameOutside ? 220 : 20), 510,
                               x + (shown.nameOutside ? 320 : 120), 540, 0.1f, 0.1f, shown.tint));
        Batch glyphs;
        for (std::size_t k = 0; k < shown.glyphs.size(); ++k) {
            const float left = x + 20 + 15.0f * static_cast<float>(k);
            glyphs.quad(left, 560, left + 10, 580, 0.05f + 0.1f * shown.glyphs[k], 0.05f);
        }
        drawBatch(FONT, glyphs);
        if (shown.pickupY)
            drawBatch(pickupTexture,
                      Batch()
                          .quad(600, *shown.pickupY, 800, *shown.pickupY + 40, 0.75f, 0.125f)
                          .quad(610, *shown.pickupY, 650, *shown.pickupY + 40, 0.2f, 0.2f));
        drawBatch(reloadBackground, Batch().quad(300, 700, 500, 720, 0.5f, 0.5f));
        if (shown.reloading)
            drawBatch(reloadForeground, Batch().quad(310, 702, 400, 718, 0.5f, 0.75f));
        g_now += step;
        swap();
        return service.sent.size() > before;
    }
    // Fires one shot: the next frame shows one round less.
    bool shot(Hud& shown, std::chrono::milliseconds step = 50ms) {
        shown.glyphs = ammo(--rounds);
        return frame(shown, step);
    }
    // How many of `count` shots, one a frame, were reported, as a string of
    // 1 (reported) and 0.
    std::string shots(Hud& shown, int count) {
        std::string seen;
        for (int i = 0; i < count; ++i) seen += shot(shown) ? '1' : '0';
        return seen;
    }

    static constexpr GLuint FONT = 4242;  // never labelled
    // How the game fills its buffers: whole, by sub-data after a null store,
    // through a written map, with the vertices after a header and the pointer
    // at their offset, or whole and bound again through the vertex array.
    enum class Fill { data, subData, map, offset, vertexArray } fill = Fill::data;
    std::map<std::string, std::size_t> uploads;  // the game's calls, by name
    GLboolean unmapped = GL_FALSE;
    RecordingService service;
    Pubg4DShockGLHooks* hook = nullptr;
    Hud hud;
    int rounds = 30;
    GLuint gamePlay = 0, hudAtlas = 0, buttonTexture = 0, pickupTexture = 0;
    GLuint reloadBackground = 0, reloadForeground = 0, akm = 0, m416 = 0;
};

struct GlyphChange {
    const char* what;
    std::vector<int> before, after;
    bool reported;
};

TEST_F(Shock, AShotIsOneRunOfGlyphsChangingBeforeTwoEqualTrailingOnes) {
    const GlyphChange cases[] = {
        {"30 to 29", ammo(30), ammo(29), true},
        {"10 to 9: one glyph fewer", ammo(10), ammo(9), true},
        {"100 to 99", ammo(100), ammo(99), true},
        {"9 to 10: one glyph more", ammo(9), ammo(10), false},
        {"unchanged", ammo(30), ammo(30), false},
        {"a trailing glyph changes", ammo(30), {3, 0, SLASH, OTHER}, false},
        {"the last but one changes", ammo(30), {3, 0, OTHER, MAG}, false},
        {"two runs apart", {1, 2, 0, SLASH, MAG}, {2, 2, 9, SLASH, MAG}, false},
        {"two glyphs fewer", ammo(100), ammo(9), false},
    };
    for (const GlyphChange& change : cases) {
        hud.glyphs = change.before;
        frame(hud);
        EXPECT_FALSE(frame(hud)) << change.what;
        hud.glyphs = change.after;
        EXPECT_EQ(change.reported, frame(hud)) << change.what;
    }
}

// Changes to the HUD from one frame to the next, in turn: the shots reported
// after each, one a frame.
TEST_F(Shock, AChangedHudHoldsShotsOff) {
    const struct {
        const char* what;
        std::function<void(Hud&)> change;
        const char* reported;
    } steps[] = {
        {"another weapon than in the last frame", [](Hud& h) { h.weapon = "Weapon_M416"; }, "01"},
        {"a name icon centred outside the button", [](Hud& h) { h.nameOutside = true; }, "00"},
        {"back in the button", [](Hud& h) { h.nameOutside = false; }, "01"},
        {"a rising tint", [](Hud& h) { h.tint = 220; }, "01"},
        {"a falling tint", [](Hud& h) { h.tint = 180; }, "11"},
        {"the button moved by 1.0", [](Hud& h) { h.buttonX = 101; }, "1"},
        {"the button moved by 9.0", [](Hud& h) { h.buttonX = 110; }, "01"},
        // Digits are read only in a frame that drew the button, and compared
        // with the last frame's.
        {"no button", [](Hud& h) { h.button = false; }, "00"},
        {"the button again", [](Hud& h) { h.button = true; }, "01"},
        {"back to the first weapon", [](Hud& h) { h.weapon = "Weapon_AKM"; }, "01"},
        {"its name icon deleted", [this](Hud&) { hijack::glDeleteTextures(1, &akm); }, "000"},
    };
    for (const auto& step : steps) {
        step.change(hud);
        EXPECT_EQ(step.reported, shots(hud, static_cast<int>(std::strlen(step.reported))))
            << step.what;
    }
    EXPECT_EQ("Weapon_M416", service.sent.at(1));
}

// A pickup message sliding down holds shots off for a fifth of a second, a
// reload for the weapon's adjustment.
TEST_F(Shock, PickupsAndReloadsHoldShotsOff) {
    const int pickupHoldOff = static_cast<int>(hook->getFPS() * 0.2f);
    ASSERT_GE(pickupHoldOff, 2);
    hud.pickupY = 100;
    std::string seen(1, shot(hud) ? '1' : '0');
    EXPECT_EQ(pickupHoldOff - 1, hook->getPickupHoldOff());
    hud.pickupY = 103;  // moving by 5.0 or less starts nothing
    seen += shots(hud, pickupHoldOff + 1);
    EXPECT_EQ(std::string(pickupHoldOff, '0') + "11", seen);
    hud.pickupY = 90;  // nor does moving up
    EXPECT_EQ("11", shots(hud, 2));

    for (auto [weapon, adjustment] : {std::pair{"Weapon_AKM", 0.4f}, {"Weapon_M416", 0.6f}}) {
        hud.weapon = weapon;
        frame(hud);
        frame(hud);
        const int holdOff = static_cast<int>(adjustment * hook->getFPS());
        hud.reloading = true;
        frame(hud);
        EXPECT_EQ(holdOff - 1, hook->getReloadHoldOff()) << weapon;
        hud.reloading = false;
        rounds = 30;
        // The frames after the last of the bar: the hold-off set there runs
        // out one frame at a time.
        EXPECT_EQ(std::string(holdOff - 1, '0') + "11", shots(hud, holdOff + 1)) << weapon;
    }
}

// However the game fills its buffers the HUD is read, each shot reported with
// the weapon in hand, and every call reaches the driver: a written map at the
// unmap, with what the game wrote.
TEST_F(Shock, TheHudIsReadWhateverWayItsBuffersAreFilled) {
    std::vector<std::uint8_t> driverMemory(4096);
    fake::setReturn("glMapBufferRange", reinterpret_cast<std::uintptr_t>(driverMemory.data()));
    fake::setReturn("glUnmapBuffer", GL_TRUE);
    ASSERT_GT(hook->getFPS(), 15.0f);
    for (Fill way : {Fill::data, Fill::subData, Fill::map, Fill::offset, Fill::vertexArray}) {
        fill = way;
        uploads.clear();
        fake::clearCalls();
        EXPECT_EQ("111", shots(hud, 3)) << int(way);
        EXPECT_EQ(1, hook->getButtonSeen()) << "set to 2 at the button, 1 after the frame";
        for (const auto& [name, count] : uploads)
            EXPECT_EQ(count, fake::callsOf(name.c_str()).size()) << int(way) << name;
        if (way != Fill::map) continue;
        // The frame's last map holds the indices of its last batch.
        const std::uint16_t indices[6] = {0, 1, 2, 0, 2, 3};
        EXPECT_EQ(0, std::memcmp(driverMemory.data(), indices, sizeof indices));
        EXPECT_EQ(12u, fake::callsOf("glMapBufferRange").back().args[2].bits);
        EXPECT_EQ(GL_TRUE, unmapped);
        fake::setReturn("glMapBufferRange", 0);  // a driver that refuses the map
        frame(hud);
        EXPECT_EQ(GL_FALSE, unmapped);
        fake::setReturn("glMapBufferRange", reinterpret_cast<std::uintptr_t>(driverMemory.data()));
    }
    EXPECT_EQ(std::vector<std::string>(15, "Weapon_AKM"), service.sent) << "the weapon in hand";
}

TEST_F(Shock, FramesCloserThan34msAreNotRecognised) {
    // Frames 20 ms apart: every other frame is throttled, and its shot is
    // seen with the next one's as a single change.
    std::string seen, throttled;
    for (int i = 0; i < 8; ++i) {
        throttled += hook->isThrottled() ? 't' : '-';
        seen += shot(hud, 20ms) ? '1' : '0';
    }
    EXPECT_EQ(4, std::count(throttled.begin(), throttled.end(), 't')) << throttled;
    EXPECT_EQ(4u, service.sent.size()) << seen;

    // 33 ms apart is not enough either; 34 ms is.
    frame(hud, 50ms);
    EXPECT_FALSE(hook->isThrottled());
    frame(hud, 33ms);
    EXPECT_TRUE(hook->isThrottled());
    frame(hud, 1ms);
    EXPECT_FALSE(hook->isThrottled()) << "34 ms since the gate last opened";
}

TEST_F(Shock, WithTheSwitchOffNothingIsSentAndTheFirstFrameAfterReportsNothing) {
    ctrl::PropertyConfig::getInstance().set4DSwitchFromHearth(false);
    EXPECT_EQ("00000", shots(hud, 5));
    ctrl::PropertyConfig::getInstance().set4DSwitchFromHearth(true);
    EXPECT_EQ("0", shots(hud, 1)) << "the switch is read at the frame's end";
    EXPECT_EQ("0", shots(hud, 1)) << "the UI buffers are mirrored from the next frame on";
    EXPECT_EQ("0", shots(hud, 1)) << "the first recognised frame compares with nothing";
    EXPECT_EQ("11", shots(hud, 2));
}

TEST_F(Shock, ShortOrWrongBufferDataGivesNoRecognitionAndNoCrash) {
    // Before the HUD's own batches: indices beyond the shadowed vertices, a
    // draw that claims more indices than there are, an offset past the end,
    // a buffer deleted and its name reused. Nothing is read outside the
    // shadows, and the HUD drawn after them is still recognised.
    hud.before = [this] {
        Batch far;
        far.quad(0, 0, 1, 1, 0.25f, 0.5f);
        for (auto& index : far.indices) index = static_cast<std::uint16_t>(index + 60000);
        drawBatch(buttonTexture, far);
        hijack::glDrawElements(GL_TRIANGLES, 6000, GL_UNSIGNED_SHORT, nullptr);
        hijack::glDrawElements(GL_TRIANGLES, 6, GL_UNSIGNED_SHORT,
                               reinterpret_cast<const void*>(1 << 20));
        GLuint names[] = {10, 11};
        hijack::glDeleteBuffers(2, names);
        drawBatch(FONT, Batch().quad(0, 0, 1, 1, 0, 0));
    };
    EXPECT_EQ("111", shots(hud, 3));
    EXPECT_EQ(1, hook->getButtonSeen());
}

}  // namespace
