#pragma once

#include <cstdint>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

#include "games/PassTracker.h"

namespace velour::core {
class RenderContext;
}

namespace velour::games {

// Watches one EGL context of a known game, from its GL calls alone, and says
// where in the frame the game is through its pass tracker. One object per
// render context; all its members run on the thread that replays the
// context's calls.
class GameGLHooks {
  public:
    GameGLHooks();
    virtual ~GameGLHooks();
    GameGLHooks(const GameGLHooks&) = delete;
    GameGLHooks& operator=(const GameGLHooks&) = delete;

    virtual void onStart(core::RenderContext* renderContext);
    // False swallows the draw.
    virtual bool onDraw();
    // A replayed frame begins (the replay tool's marker).
    virtual void onSFRFrameBegin();
    virtual void onFrameEnd();
    virtual void onUseProgram(unsigned int program);
    virtual void onLinkProgram(unsigned int program);
    virtual void onDeleteProgram(unsigned int program);
    virtual void onAttachShader(unsigned int program, unsigned int shader);
    virtual void onDetachShader(unsigned int program, unsigned int shader);
    virtual void onDeleteShader(unsigned int shader);
    virtual void onShaderSource(unsigned int shader, int count, char const* const* string,
                                int const* length);
    virtual void onLabelObjectEXT(unsigned int type, unsigned int object, int length,
                                  char const* label);

    // Selects the configured game, lets its class write its thunks, then
    // writes the common ones over them. False for an unknown game.
    static bool registerGlobalTriggers();

    PassTracker& getPassTracker() { return passTracker; }
    const std::unordered_set<Pass>& getDetectablePasses() const { return detectablePasses; }

    // True when the bound framebuffer is the screen, or its first colour
    // texture has one of `sizes` (width, height).
    bool isUICanvas(std::vector<std::pair<int, int>> sizes);
    // Closes the frame's passes and starts the next frame's count.
    void frameReset();

    std::uint64_t frameCount = 0;
    // The index of the draw in progress while onDraw runs.
    std::uint64_t drawCount = 0;

  protected:
    PassTracker passTracker;
    std::unordered_set<Pass> detectablePasses;

  public:
    unsigned defaultFramebuffer = 0;
    // Set in onFrameEnd to swallow this one swap.
    bool skipSwap = false;
    // The parameters of the last draw.
    unsigned drawMode = 0;
    int drawFirst = 0;
    int drawArrayCount = 0;
    bool drawIndexed = false;
    unsigned drawIndexType = 0;
    int drawIndexCount = 0;
    const void* drawIndices = nullptr;
    bool drawInstanced = false;
    int drawInstanceCount = 0;
    // ui is entered at most once a frame: test this, set it, then next(ui).
    bool uiPassEntered = false;

  protected:
    // Enters ui at the draw in progress, once a frame.
    void enterUIPass();
};

// Builds the configured game's hook for a new render context and starts it.
// Throws std::bad_function_call when no game registered its triggers.
std::unique_ptr<GameGLHooks> createGameHook();

// True when the driver itself offers GL_EXT_debug_label; asked once.
bool isDebugLabelSupported();

// The safety stub that replaces the entry point of this name for the
// configured game, or null.
void* getGameUnsupportedFunction(char const* name);

namespace pubg {
// Generated from the name list with the stubs.
void* getUnsupportedFunction(char const* name);
}  // namespace pubg

}  // namespace velour::games
