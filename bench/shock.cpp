// What weapon recognition costs: per draw on UI draws and on other draws, on
// a throttled frame, and the shadow copy of a UI buffer per byte. The driver
// does nothing; the haptics hook of game 1 is bound on this thread, in play,
// with haptics on.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "TestSysroot.h"
#include "core/context.h"
#include "core/render-context.h"
#include "ctrl/PropertyConfig.h"
#include "fake_driver.h"
#include "games/Pubg4DShockGLHook.h"
#include "velour/entry_points.h"
#include "velour/utils/base64.h"

using namespace velour;

namespace {

constexpr GLenum TEXTURE = 0x1702;

const char GAME_DATA[] = R"({"version": "1.0.0", "game": "pubg",
  "labelTracker": {"gamePlay": ["Play_Terrain"], "crosshair": [], "lobby": [],
                   "hud": ["HUD_Atlas"], "none": []}})";
const char SHOCK_DATA[] = R"({"version": "1.0.0", "game": "pubg4DShock", "4DShock": {
  "weaponNameRegex": "Weapon_[A-Za-z0-9]+", "misjudgmentWeapons": [], "defaultAdjustment": 0.4,
  "weaponButtonFrame": {"iconName": "HUD_WeaponButton", "verticesNum": 6,
                        "texcoords": [0.0625, 0.0625], "diagonalPointIdxs": [0, 2]},
  "weaponPickupMsgBG": {"iconName": "HUD_PickupBG", "verticesNum": 6, "texcoords": [0.0625, 0.0625]},
  "weaponReloadProgress": {"background": "HUD_ReloadBG", "foreground": "HUD_ReloadFG",
                           "bgTexcoord": [0.0625, 0.0625], "fgTexcoord": [0.0625, 0.0625]}}})";

// A UI batch of 4 quads in one buffer pair, mirrored from the second frame.
struct Game {
    std::unique_ptr<core::RenderContext> renderContext;
    games::Pubg4DShockGLHooks* hook = nullptr;
    std::vector<std::uint8_t> vertices = std::vector<std::uint8_t>(16 * 40, 0);
    std::vector<std::uint16_t> indices;

    Game() {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        drv::glDrawElements = [](GLenum, GLsizei, GLenum, const void*) {};
        drv::glDrawArrays = [](GLenum, GLint, GLsizei) {};
        drv::glBindTexture = [](GLenum, GLuint) {};
        gles::initFunctionTable();
        core::context.gameConfig.game = 1;
        games::GameGLHooks::registerGlobalTriggers();
        games::Pubg4DShockGLHooks::registerGlobalTriggers();
        renderContext = std::make_unique<core::RenderContext>();
        renderContext->hook = std::make_unique<games::Pubg4DShockGLHooks>();
        hook = static_cast<games::Pubg4DShockGLHooks*>(renderContext->hook.get());
        core::tlglobals = {renderContext.get(), nullptr};
        ctrl::PropertyConfig::getInstance().set4DSwitchFromHearth(true);
        hijack::glLabelObjectEXT(TEXTURE, 1, 0, "Play_Terrain");
        hijack::glLabelObjectEXT(TEXTURE, 2, 0, "HUD_Atlas");
        for (int q = 0; q < 4; ++q)
            for (int i : {0, 1, 2, 0, 2, 3})
                indices.push_back(static_cast<std::uint16_t>(4 * q + i));
        for (int i = 0; i < 3; ++i) {
            frame();
            hijack::eglSwapBuffers(reinterpret_cast<EGLDisplay>(1), nullptr);
        }
        frame();
    }
    ~Game() { core::tlglobals = {nullptr, nullptr}; }

    // A frame of play up to the HUD's first draw, and one UI batch.
    void frame() {
        hijack::glBindFramebuffer(GL_FRAMEBUFFER, 7);
        hijack::glBindTexture(GL_TEXTURE_2D, 1);
        for (int i = 0; i < 17; ++i) hijack::glDrawArrays(GL_TRIANGLES, 0, 3);
        hijack::glBindFramebuffer(GL_FRAMEBUFFER, 0);
        hijack::glBindTexture(GL_TEXTURE_2D, 2);
        hijack::glBindVertexArray(1);
        hijack::glBindBuffer(GL_ARRAY_BUFFER, 10);
        hijack::glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(vertices.size()),
                             vertices.data(), GL_STREAM_DRAW);
        hijack::glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 40, nullptr);
        hijack::glEnableVertexAttribArray(0);
        hijack::glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 11);
        hijack::glBufferData(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLsizeiptr>(indices.size() * 2),
                             indices.data(), GL_STREAM_DRAW);
        uiDraw();
    }
    void uiDraw() {
        hijack::glDrawElements(GL_TRIANGLES, static_cast<GLsizei>(indices.size()),
                               GL_UNSIGNED_SHORT, nullptr);
    }
};

// A UI draw with a labelled texture that no rule wants: the label look-up,
// the expression test and the name compares.
void BM_UIDrawLabelled(benchmark::State& state) {
    Game game;
    for (auto _ : state) game.uiDraw();
}
BENCHMARK(BM_UIDrawLabelled);

// A UI draw with an unlabelled texture and no button: the digit rule's tests.
void BM_UIDrawUnlabelled(benchmark::State& state) {
    Game game;
    hijack::glBindTexture(GL_TEXTURE_2D, 3);
    for (auto _ : state) game.uiDraw();
}
BENCHMARK(BM_UIDrawUnlabelled);

// A draw before the HUD (the scene): the play rules of game 1 and a flag test.
void BM_SceneDraw(benchmark::State& state) {
    Game game;
    hijack::eglSwapBuffers(reinterpret_cast<EGLDisplay>(1), nullptr);
    hijack::glBindFramebuffer(GL_FRAMEBUFFER, 7);
    hijack::glBindTexture(GL_TEXTURE_2D, 1);
    for (auto _ : state) hijack::glDrawArrays(GL_TRIANGLES, 0, 3);
}
BENCHMARK(BM_SceneDraw);

// The same UI draw on a throttled frame: no recognition.
void BM_UIDrawThrottled(benchmark::State& state) {
    Game game;
    hijack::eglSwapBuffers(reinterpret_cast<EGLDisplay>(1), nullptr);
    game.frame();
    if (!game.hook->isThrottled()) state.SkipWithError("the frame was not throttled");
    for (auto _ : state) game.uiDraw();
}
BENCHMARK(BM_UIDrawThrottled);

// glBufferSubData of N bytes into a UI buffer (shadowed) and into another.
void subData(benchmark::State& state, GLuint buffer) {
    Game game;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(state.range(0)), 7);
    drv::glBufferSubData = [](GLenum, GLintptr, GLsizeiptr, const void*) {};
    hijack::glBindBuffer(GL_ARRAY_BUFFER, buffer);
    for (auto _ : state)
        hijack::glBufferSubData(GL_ARRAY_BUFFER, 0, static_cast<GLsizeiptr>(bytes.size()),
                                bytes.data());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * state.range(0));
}
void BM_SubDataUIBuffer(benchmark::State& state) {
    subData(state, 10);
}
void BM_SubDataOtherBuffer(benchmark::State& state) {
    subData(state, 99);
}
BENCHMARK(BM_SubDataUIBuffer)->Arg(640)->Arg(16384);
BENCHMARK(BM_SubDataOtherBuffer)->Arg(640)->Arg(16384);

}  // namespace

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    sysroot.write("/odm/etc/tesselfx/defaultEncryptedData/pubg.dat", utils::wrapDat(GAME_DATA));
    sysroot.write("/odm/etc/tesselfx/defaultEncryptedData/pubg4DShock.dat",
                  utils::wrapDat(SHOCK_DATA));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
