#pragma once

// Game hooks over the fake driver: the triggers of one game installed, a
// render context with a hook bound on this thread, and the game's calls made
// through the hijack:: slots as the replay makes them.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/context.h"
#include "core/render-context.h"
#include "drv/gl.h"
#include "fake_driver.h"
#include "games/GameGLHooks.h"

namespace velour::test {

// Records each pass change as "old>new@draw", the draw being the hook's count.
struct PassRecorder : utils::ChangeListener<games::Pass> {
    explicit PassRecorder(games::GameGLHooks* hook) : hook(hook) {}
    void changed(const utils::ChangeEvent<games::Pass>& event) override {
        seen.push_back(games::toString(*event.oldValue) + ">" + games::toString(*event.newValue) +
                       "@" + std::to_string(hook->drawCount));
    }
    // Only the changes into `pass`, as "@draw".
    std::vector<std::string> into(games::Pass pass) const {
        std::vector<std::string> result;
        const std::string arrow = ">" + games::toString(pass) + "@";
        for (const std::string& change : seen)
            if (change.find(arrow) != std::string::npos)
                result.push_back(change.substr(change.find('@')));
        return result;
    }
    games::GameGLHooks* hook;
    std::vector<std::string> seen;
};

class HookFixture : public ::testing::Test {
  protected:
    // Installs the triggers of `game` over a fresh fake driver.
    void install(int game, bool replayProcess = false) {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        gles::initFunctionTable();
        saved = core::context.gameConfig;
        core::context.gameConfig.game = game;
        core::context.replayProcess = replayProcess;
        ASSERT_TRUE(games::GameGLHooks::registerGlobalTriggers());
    }
    // A render context on this thread with `hook`, or the game's own.
    games::GameGLHooks* bind(std::unique_ptr<games::GameGLHooks> hook = nullptr) {
        contexts.push_back(std::make_unique<core::RenderContext>());
        contexts.back()->hook = hook ? std::move(hook) : games::createGameHook();
        core::tlglobals = {contexts.back().get(), nullptr};
        return contexts.back()->hook.get();
    }
    std::shared_ptr<PassRecorder> record(games::GameGLHooks* hook) {
        auto recorder = std::make_shared<PassRecorder>(hook);
        hook->getPassTracker().getPassProperty().addListener(recorder);
        return recorder;
    }
    void TearDown() override {
        core::tlglobals = {nullptr, nullptr};
        contexts.clear();
        core::context.gameConfig = saved;
        core::context.replayProcess = false;
    }

    // The game's calls.
    static void draw(int count = 1) {
        for (int i = 0; i < count; ++i) hijack::glDrawArrays(GL_TRIANGLES, 0, 3);
    }
    static void swap() { hijack::eglSwapBuffers(reinterpret_cast<EGLDisplay>(1), nullptr); }
    static void bindTexture(GLuint texture) { hijack::glBindTexture(GL_TEXTURE_2D, texture); }
    // A texture name no other test has used, labelled `label`.
    static GLuint labelled(const char* label, GLenum type = GL_TEXTURE) {
        static GLuint next = 1000;
        GLuint name = next++;
        hijack::glLabelObjectEXT(type, name, 0, label);
        return name;
    }

    std::vector<std::unique_ptr<core::RenderContext>> contexts;
    GameConfig saved{};
};

}  // namespace velour::test
