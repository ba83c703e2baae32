// What the hooks of game 1 add to a call, in ns: a draw and a texture bind
// through the thunks of the hijack:: slots, against the bare driver slot. The
// driver does nothing; the hook of game 1 is bound on this thread.
#include <benchmark/benchmark.h>

#include <memory>

#include "core/context.h"
#include "core/render-context.h"
#include "fake_driver.h"
#include "games/GameGLHooks.h"
#include "velour/entry_points.h"

using namespace velour;

namespace {

constexpr GLenum TEXTURE = 0x1702, TEXTURE_2D = 0x0DE1, TRIANGLES = 4;

struct Hooked {
    std::unique_ptr<core::RenderContext> renderContext;

    explicit Hooked(bool withHook) {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        drv::glDrawArrays = [](GLenum, GLint, GLsizei) {};
        drv::glBindTexture = [](GLenum, GLuint) {};
        gles::initFunctionTable();
        core::context.gameConfig.game = 1;
        games::GameGLHooks::registerGlobalTriggers();
        renderContext = std::make_unique<core::RenderContext>();
        if (withHook) renderContext->hook = games::createGameHook();
        core::tlglobals = {renderContext.get(), nullptr};
        // A labelled texture, as the game's HUD atlas is.
        hijack::glLabelObjectEXT(TEXTURE, 7, 0, "HUD_Atlas");
    }
    ~Hooked() { core::tlglobals = {nullptr, nullptr}; }
};

void BM_DrawBareSlot(benchmark::State& state) {
    Hooked game(false);
    for (auto _ : state) drv::glDrawArrays(TRIANGLES, 0, 3);
}
BENCHMARK(BM_DrawBareSlot);

void BM_DrawThroughThunk(benchmark::State& state) {
    Hooked game(true);
    for (auto _ : state) hijack::glDrawArrays(TRIANGLES, 0, 3);
}
BENCHMARK(BM_DrawThroughThunk);

// An unknown texture walks every label tracker.
void BM_BindUnlabelledTextureThroughThunk(benchmark::State& state) {
    Hooked game(true);
    for (auto _ : state) hijack::glBindTexture(TEXTURE_2D, 3);
}
BENCHMARK(BM_BindUnlabelledTextureThroughThunk);

void BM_BindLabelledTextureThroughThunk(benchmark::State& state) {
    Hooked game(true);
    for (auto _ : state) hijack::glBindTexture(TEXTURE_2D, 7);
}
BENCHMARK(BM_BindLabelledTextureThroughThunk);

}  // namespace
