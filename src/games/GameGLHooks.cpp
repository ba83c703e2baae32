#include "games/GameGLHooks.h"

#include <cstring>
#include <functional>
#include <string>

#include "core/context.h"
#include "core/log.h"
#include "ctrl/ctrl.h"
#include "drv/gl.h"
#include "games/CurrentHook.h"
#include "games/Pubg4DShockGLHook.h"
#include "games/PubgGLHooks.h"
#include "velour/entry_points.h"
#include "velour/hook_thunks.h"
#include "velour/utils/Configuration.h"

namespace velour::games {

namespace {

const char DEBUG_LABEL[] = "GL_EXT_debug_label";
const char MARKER_FRAME_END[] = "velour.marker.frame_end";
const char MARKER_FRAME_BEGIN[] = "velour.marker.frame_begin";

std::function<GameGLHooks*()> gameHookFactory;

// A factory that says which game it builds each time it builds one.
template <typename Hooks>
std::function<GameGLHooks*()> factoryOf(int game) {
    return [game]() -> GameGLHooks* {
        if (core::g_enabledLogSeverity >= core::LOG_BANNER)
            core::log("src/games/GameGLHooks", __LINE__, "operator()", core::LOG_BANNER,
                      "Game %d triggers activated on current EGL context", game);
        return new Hooks();
    };
}

// The common thunks. Those that only tell the hook before the driver call
// are instances of the generated templates.

void useProgram(GameGLHooks& hook, GLuint program) {
    hook.onUseProgram(program);
}
void linkProgram(GameGLHooks& hook, GLuint program) {
    hook.onLinkProgram(program);
}
void deleteProgram(GameGLHooks& hook, GLuint program) {
    hook.onDeleteProgram(program);
}
void attachShader(GameGLHooks& hook, GLuint program, GLuint shader) {
    hook.onAttachShader(program, shader);
}
void detachShader(GameGLHooks& hook, GLuint program, GLuint shader) {
    hook.onDetachShader(program, shader);
}
void deleteShader(GameGLHooks& hook, GLuint shader) {
    hook.onDeleteShader(shader);
}
void shaderSource(GameGLHooks& hook, GLuint shader, GLsizei count, const GLchar* const* string,
                  const GLint* length) {
    hook.onShaderSource(shader, count, string, length);
}

// The replay tool's frame markers: the length counts the terminator.
void insertEventMarker(GameGLHooks& hook, GLsizei length, const GLchar* marker) {
    if (!marker) return;
    if (length == sizeof(MARKER_FRAME_END) &&
        std::memcmp(marker, MARKER_FRAME_END, sizeof(MARKER_FRAME_END)) == 0)
        hook.onFrameEnd();
    else if (length == sizeof(MARKER_FRAME_BEGIN) &&
             std::memcmp(marker, MARKER_FRAME_BEGIN, sizeof(MARKER_FRAME_BEGIN)) == 0)
        hook.onSFRFrameBegin();
}

// The draws keep their parameters for the game's rules; nothing here may
// allocate or call the driver.
bool drawArrays(GameGLHooks& hook, GLenum mode, GLint first, GLsizei count) {
    hook.drawMode = mode;
    hook.drawFirst = first;
    hook.drawArrayCount = count;
    return hook.onDraw();
}
void storeIndexed(GameGLHooks& hook, GLenum mode, GLsizei count, GLenum type, const void* indices) {
    hook.drawIndexCount = count;
    hook.drawIndices = indices;
    hook.drawIndexType = type;
    hook.drawMode = mode;
    hook.drawIndexed = true;
}
bool drawElements(GameGLHooks& hook, GLenum mode, GLsizei count, GLenum type, const void* indices) {
    storeIndexed(hook, mode, count, type, indices);
    return hook.onDraw();
}
bool drawElementsInstanced(GameGLHooks& hook, GLenum mode, GLsizei count, GLenum type,
                           const void* indices, GLsizei instances) {
    storeIndexed(hook, mode, count, type, indices);
    hook.drawInstanced = true;
    hook.drawInstanceCount = instances;
    return hook.onDraw();
}
bool drawElementsBaseVertex(GameGLHooks& hook, GLenum mode, GLsizei count, GLenum type,
                            const void* indices, GLint baseVertex) {
    storeIndexed(hook, mode, count, type, indices);
    hook.drawFirst = baseVertex;
    return hook.onDraw();
}

EGLBoolean swapBuffers(EGLDisplay display, EGLSurface surface) {
    if (GameGLHooks* hook = currentHook()) {
        hook->onFrameEnd();
        bool skip = hook->skipSwap;
        hook->skipSwap = false;
        if (skip) return EGL_TRUE;
    }
    return drv::eglSwapBuffers(display, surface);
}

// The layer keeps the labels for itself: the driver never sees them.
void labelObject(GLenum type, GLuint object, GLsizei length, const GLchar* label) {
    if (GameGLHooks* hook = currentHook()) hook->onLabelObjectEXT(type, object, length, label);
}

// The debug-label extension is offered whatever the driver offers.
const GLubyte* getString(GLenum name) {
    const GLubyte* answer = drv::glGetString(name);
    if (name != GL_EXTENSIONS || !answer) return answer;
    thread_local std::string extensions = [answer] {
        std::string copy(reinterpret_cast<const char*>(answer));
        if (copy.find(DEBUG_LABEL) == std::string::npos)
            copy.insert(0, std::string(DEBUG_LABEL) + " ");
        return copy;
    }();
    return reinterpret_cast<const GLubyte*>(extensions.c_str());
}

const GLubyte* getStringi(GLenum name, GLuint index) {
    if (isDebugLabelSupported()) return drv::glGetStringi(name, index);
    if (index == 0) return reinterpret_cast<const GLubyte*>(DEBUG_LABEL);
    return drv::glGetStringi(name, index - 1);
}

void getIntegerv(GLenum name, GLint* data) {
    drv::glGetIntegerv(name, data);
    if (name == GL_NUM_EXTENSIONS && data && !isDebugLabelSupported()) ++*data;
}

void writeCommonSlots() {
    using namespace thunks;
    if (core::context.replayProcess)
        hijack::glInsertEventMarkerEXT = &before_glInsertEventMarkerEXT<&insertEventMarker>;
    hijack::glUseProgram = &before_glUseProgram<&useProgram>;
    hijack::eglSwapBuffers = &swapBuffers;
    hijack::glLinkProgram = &before_glLinkProgram<&linkProgram>;
    hijack::glDeleteProgram = &before_glDeleteProgram<&deleteProgram>;
    hijack::glAttachShader = &before_glAttachShader<&attachShader>;
    hijack::glDetachShader = &before_glDetachShader<&detachShader>;
    hijack::glDeleteShader = &before_glDeleteShader<&deleteShader>;
    hijack::glShaderSource = &before_glShaderSource<&shaderSource>;
    hijack::glGetString = &getString;
    hijack::glGetStringi = &getStringi;
    hijack::glGetIntegerv = &getIntegerv;
    hijack::glLabelObjectEXT = &labelObject;
    hijack::glDrawArrays = &gate_glDrawArrays<&drawArrays>;
    hijack::glDrawElements = &gate_glDrawElements<&drawElements>;
    hijack::glDrawElementsInstanced = &gate_glDrawElementsInstanced<&drawElementsInstanced>;
    hijack::glDrawElementsBaseVertexOES =
        &gate_glDrawElementsBaseVertexOES<&drawElementsBaseVertex>;
}

}  // namespace

GameGLHooks::GameGLHooks() {
    detectablePasses.max_load_factor(1.0f);
    detectablePasses.insert(Pass::end);
}

GameGLHooks::~GameGLHooks() = default;

void GameGLHooks::onStart(core::RenderContext*) {
    passTracker.reset();
}

bool GameGLHooks::onDraw() {
    ++drawCount;
    return true;
}

void GameGLHooks::onSFRFrameBegin() {
    frameReset();
    defaultFramebuffer =
        static_cast<unsigned>(utils::Configuration::global().getf("tessel.sfr.default_fb"));
}

void GameGLHooks::onFrameEnd() {
    if (frameCount == 0) {
        // A one-pixel copy out of the first finished frame. What it leaves
        // bound and active stays so.
        GLuint texture = 0;
        drv::glGenTextures(1, &texture);
        drv::glActiveTexture(GL_TEXTURE0);
        drv::glBindTexture(GL_TEXTURE_2D, texture);
        drv::glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGB8, 1, 1);
        drv::glCopyTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, 0, 0, 1, 1);
        drv::glBindTexture(GL_TEXTURE_2D, 0);
        drv::glDeleteTextures(1, &texture);
    }
    passTracker.finish(static_cast<unsigned>(drawCount));
    drawCount = 0;
    uiPassEntered = false;
    passTracker.reset();
    ++frameCount;
}

void GameGLHooks::onUseProgram(unsigned int) {}
void GameGLHooks::onLinkProgram(unsigned int) {}
void GameGLHooks::onDeleteProgram(unsigned int) {}
void GameGLHooks::onAttachShader(unsigned int, unsigned int) {}
void GameGLHooks::onDetachShader(unsigned int, unsigned int) {}
void GameGLHooks::onDeleteShader(unsigned int) {}
void GameGLHooks::onShaderSource(unsigned int, int, char const* const*, int const*) {}
void GameGLHooks::onLabelObjectEXT(unsigned int, unsigned int, int, char const*) {}

void GameGLHooks::frameReset() {
    passTracker.finish(static_cast<unsigned>(drawCount));
    drawCount = 0;
    uiPassEntered = false;
    passTracker.reset();
}

void GameGLHooks::enterUIPass() {
    if (uiPassEntered) return;
    uiPassEntered = true;
    passTracker.next(Pass::ui, static_cast<unsigned>(drawCount));
}

bool GameGLHooks::isUICanvas(std::vector<std::pair<int, int>> sizes) {
    GLint bound = 0;
    drv::glGetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
    if (static_cast<unsigned>(bound) == defaultFramebuffer) return true;
    GLint attachment = 0;
    drv::glGetFramebufferAttachmentParameteriv(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                               GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &attachment);
    if (attachment == 0) return false;
    GLint saved = 0;
    drv::glGetIntegerv(GL_TEXTURE_BINDING_2D, &saved);
    drv::glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(attachment));
    GLint width = 0, height = 0;
    drv::glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_WIDTH, &width);
    drv::glGetTexLevelParameteriv(GL_TEXTURE_2D, 0, GL_TEXTURE_HEIGHT, &height);
    drv::glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(saved));
    for (const auto& [w, h] : sizes)
        if (w == width && h == height) return true;
    return false;
}

bool GameGLHooks::registerGlobalTriggers() {
    int game = core::context.gameConfig.game;
    if (game < 1 || game > 9) {
        if (core::g_enabledLogSeverity >= core::LOG_BANNER)
            core::log("src/games/GameGLHooks", 335, "registerGlobalTriggers", core::LOG_BANNER,
                      "Unsupported game. Game triggers disabled.");
        return false;
    }
    switch (game) {
        case 1:
            // Weapon haptics where the game service says the game has them.
            if (ctrl::get4DSupportFlag()) {
                Pubg4DShockGLHooks::registerGlobalTriggers();
                gameHookFactory = factoryOf<Pubg4DShockGLHooks>(game);
            } else {
                PubgGLHooks::registerGlobalTriggers();
                gameHookFactory = factoryOf<PubgGLHooks>(game);
            }
            break;
        case 8:
            PubgInternationalGLHooks::registerGlobalTriggers();
            gameHookFactory = factoryOf<PubgInternationalGLHooks>(game);
            break;
        default:
            VELOUR_LOG(core::LOG_INFO, "Game %d has no hooks in this build", game);
            return false;
    }
    writeCommonSlots();
    return true;
}

std::unique_ptr<GameGLHooks> createGameHook() {
    std::unique_ptr<GameGLHooks> hook(gameHookFactory());
    hook->onStart(nullptr);
    return hook;
}

bool isDebugLabelSupported() {
    static const bool supported = [] {
        GLint count = 0;
        drv::glGetIntegerv(GL_NUM_EXTENSIONS, &count);
        for (GLint i = 0; i < count; ++i) {
            auto* name = reinterpret_cast<const char*>(drv::glGetStringi(GL_EXTENSIONS, i));
            if (name && std::strstr(name, DEBUG_LABEL)) return true;
        }
        return false;
    }();
    return supported;
}

void* getGameUnsupportedFunction(char const* name) {
    static int pubgLogged = 0;
    static int otherLogged = 0;
    if (core::context.gameConfig.game == 1) {
        if (core::g_enabledLogSeverity >= core::LOG_VERBOSE && pubgLogged++ == 0)
            core::log("src/games/GameGLHooks", 392, "getGameUnsupportedFunction", core::LOG_VERBOSE,
                      "API Safety check: PubG added");
        return pubg::getUnsupportedFunction(name);
    }
    if (core::g_enabledLogSeverity >= core::LOG_VERBOSE && otherLogged++ == 0)
        core::log("src/games/GameGLHooks", 396, "getGameUnsupportedFunction", core::LOG_VERBOSE,
                  "API Safety check: Unsupported game %s", core::context.gameConfig.processName);
    return nullptr;
}

}  // namespace velour::games
