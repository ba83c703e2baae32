#include "games/PubgGLHooks.h"

#include <cstring>
#include <fstream>
#include <sstream>

#include "core/log.h"
#include "ctrl/ctrl.h"
#include "drv/gl.h"
#include "platform/paths.h"
#include "velour/entry_points.h"
#include "velour/hook_thunks.h"

namespace velour::games {

namespace {

// A frame of fewer draws can never be play.
constexpr unsigned PLAY_MIN_DRAWS = 17;
const char GAME_WORD[] = "pubg";

// Label lists of the data file, in the order the trackers are filled.
const char* const LABEL_KEYS[] = {"gamePlay", "crosshair", "lobby", "hud", "none"};

// Thunks of the slots both editions watch.
void disable(GameGLHooks& hook, GLenum cap) {
    static_cast<PubgHooksBase&>(hook).onDisable(cap);
}
void bindFramebuffer(GameGLHooks& hook, GLenum target, GLuint framebuffer) {
    static_cast<PubgHooksBase&>(hook).onAfterBindFramebuffer(target, framebuffer);
}
void depthRange(GameGLHooks& hook, GLfloat n, GLfloat f) {
    static_cast<PubgHooksBase&>(hook).onAfterDepthRange(n, f);
}
void blendFuncSeparate(GameGLHooks& hook, GLenum srcRGB, GLenum dstRGB, GLenum srcAlpha,
                       GLenum dstAlpha) {
    static_cast<PubgHooksBase&>(hook).onBlendFuncSeparate(srcRGB, dstRGB, srcAlpha, dstAlpha);
}
void deleteTextures(GameGLHooks& hook, GLsizei count, const GLuint* textures) {
    static_cast<PubgHooksBase&>(hook).onDeleteTextures(count, textures);
}
template <typename Hooks>
void bindTexture(GameGLHooks& hook, GLenum target, GLuint texture) {
    static_cast<Hooks&>(hook).onBindTexture(target, texture);
}

template <typename Hooks>
void writeSlots() {
    using namespace thunks;
    hijack::glDisable = &before_glDisable<&disable>;
    hijack::glBindFramebuffer = &after_glBindFramebuffer<&bindFramebuffer>;
    hijack::glDepthRangef = &after_glDepthRangef<&depthRange>;
    hijack::glBlendFuncSeparate = &after_glBlendFuncSeparate<&blendFuncSeparate>;
    hijack::glBindTexture = &before_glBindTexture<&bindTexture<Hooks>>;
    hijack::glDeleteTextures = &before_glDeleteTextures<&deleteTextures>;
}

bool isPositiveZero(float value) {
    unsigned bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits == 0;
}

}  // namespace

PubgHooksBase::PubgHooksBase(const Trackers& trackers, const char* dataName)
    : trackers(trackers),
      gameData(ctrl::getGameDataFile(dataName), ctrl::getDefaultGameDataFile(dataName)) {
    for (Pass pass : {Pass::shadow, Pass::main_color, Pass::post_processing, Pass::ui})
        detectablePasses.insert(pass);
    loadLabels(dataName);
}

void PubgHooksBase::loadLabels(const char* dataName) {
    // A file that is missing, unreadable, of another game or of another shape
    // leaves every list empty: the game then plays untouched.
    std::string path = ctrl::getDefaultGameDataFile(dataName);
    std::string reason;
    if (!std::ifstream(platform::devicePath(path)).is_open()) {
        reason = "not found";
    } else if (!gameData.getRoot().is<picojson::object>()) {
        reason = "not a readable data file";
    } else if (!gameData.getRoot().get("game").is<std::string>() ||
               gameData.getRoot().get("game").get<std::string>() != GAME_WORD) {
        reason = "not the data of game \"pubg\"";
    } else {
        gameData.validateGameDataJson(reason);
    }
    if (!reason.empty()) {
        VELOUR_LOG(core::LOG_WARN, "Game data %s: %s; no labels are tracked", path.c_str(),
                   reason.c_str());
        gameData = utils::JsonParser();
        return;
    }
    LabelTracker* lists[] = {trackers.gamePlay, trackers.crosshair, trackers.lobby, trackers.hud,
                             trackers.none};
    for (std::size_t i = 0; i < 5; ++i) {
        if (!lists[i]) continue;
        std::vector<std::string> labels = gameData.getLabel("labelTracker", LABEL_KEYS[i]);
        std::lock_guard<std::mutex> lock(lists[i]->mutex);
        for (const std::string& label : labels) lists[i]->addLabel(label);
    }
}

bool PubgHooksBase::onDraw() {
    determineStartOfUI();
    uiLabelBound = false;
    blendSeen = false;
    depthTestOff = false;
    cullFaceOff = false;
    depthRangeZero = false;
    ++drawCount;
    return true;
}

void PubgHooksBase::determineStartOfUI() {
    // The HUD is drawn only during play, to the screen, once.
    if (!gamePlayDetected || !onDefaultFramebuffer || uiStarted) return;
    if (!uiLabelBound) {
        if (drawCount < 2) return;
        if (!depthRangeZero && !(blendSeen && (depthTestOff || cullFaceOff))) return;
    }
    enterUIPass();
    uiStarted = true;
}

void PubgHooksBase::onAfterBindFramebuffer(unsigned int target, unsigned int framebuffer) {
    onDefaultFramebuffer = (target == GL_FRAMEBUFFER || target == GL_DRAW_FRAMEBUFFER) &&
                           framebuffer == defaultFramebuffer;
}

void PubgHooksBase::onDisable(unsigned int cap) {
    if (cap == GL_CULL_FACE) cullFaceOff = true;
    if (cap == GL_DEPTH_TEST) depthTestOff = true;
}

void PubgHooksBase::onAfterDepthRange(float n, float f) {
    if (isPositiveZero(n) && isPositiveZero(f)) depthRangeZero = true;
}

void PubgHooksBase::onBlendFuncSeparate(unsigned int srcRGB, unsigned int, unsigned int,
                                        unsigned int dstAlpha) {
    if (srcRGB == GL_SRC_ALPHA && dstAlpha == GL_ONE) blendSeen = true;
}

void PubgHooksBase::countBoundTexture(unsigned int texture) {
    if (trackers.gamePlay->findLabel(GL_TEXTURE, texture)) {
        ++gamePlayCount;
        uiLabelBound = true;
    } else if (trackers.crosshair->findLabel(GL_TEXTURE, texture)) {
        ++crosshairCount;
        uiLabelBound = true;
    } else if (trackers.lobby->findLabel(GL_TEXTURE, texture)) {
        ++lobbyCount;
        uiLabelBound = true;
    } else if (trackers.hud->findLabel(GL_TEXTURE, texture)) {
        uiLabelBound = true;
    } else if (trackers.none && trackers.none->findLabel(GL_TEXTURE, texture)) {
        ++noneCount;
    }
}

void PubgHooksBase::onDeleteTextures(int count, const unsigned* textures) {
    // The "none" list is left out: its names are not forgotten.
    for (LabelTracker* tracker :
         {trackers.gamePlay, trackers.crosshair, trackers.lobby, trackers.hud}) {
        std::lock_guard<std::mutex> lock(tracker->mutex);
        tracker->forgetObjects(GL_TEXTURE, count, textures);
    }
}

void PubgHooksBase::onDeleteProgram(unsigned int program) {
    for (LabelTracker* tracker :
         {trackers.gamePlay, trackers.crosshair, trackers.lobby, trackers.hud, trackers.none}) {
        if (!tracker) continue;
        std::lock_guard<std::mutex> lock(tracker->mutex);
        tracker->forgetObjects(GL_PROGRAM_OBJECT_EXT, 1, &program);
    }
}

void PubgHooksBase::onLabelObjectEXT(unsigned int type, unsigned int object, int length,
                                     char const* label) {
    const std::string text = LabelTracker::labelText(length, label);
    for (LabelTracker* tracker :
         {trackers.gamePlay, trackers.crosshair, trackers.lobby, trackers.hud, trackers.none}) {
        if (!tracker) continue;
        std::lock_guard<std::mutex> lock(tracker->mutex);
        if (tracker->trackObject(type, object, text)) continue;
        // The game's many crosshair textures need no list of their own.
        if (tracker == trackers.crosshair && !text.empty() && type == GL_TEXTURE &&
            text.find("CrossHair") != std::string::npos)
            tracker->trackObjectAs(type, object, text);
    }
}

void PubgHooksBase::enterUIAtFrameEndDuringPlay() {
    if (gamePlayDetected && !uiStarted && !uiPassEntered) enterUIPass();
}

void PubgHooksBase::reportGamePlay(bool detected) {
    if (detected != gamePlayDetected) ctrl::setGamePlayDetected(detected);
    gamePlayDetected = detected;
}

void PubgHooksBase::closeFrame() {
    if (core::g_enabledLogSeverity >= core::LOG_DEBUG) logFrame();
    GameGLHooks::onFrameEnd();
    passTracker.next(Pass::shadow, 0);
}

void PubgHooksBase::logFrame() const {
    std::ostringstream passes;
    passes << passTracker;
    const auto& spans = passTracker.getPassToTime();
    auto ui = spans.find(Pass::ui);
    if (ui != spans.end())
        VELOUR_LOG(core::LOG_DEBUG, "frame %llu: play %d, %llu draws, effect at draw %u\n%s",
                   static_cast<unsigned long long>(frameCount), gamePlayDetected,
                   static_cast<unsigned long long>(drawCount), ui->second.first,
                   passes.str().c_str());
    else
        VELOUR_LOG(core::LOG_DEBUG, "frame %llu: play %d, %llu draws, no effect\n%s",
                   static_cast<unsigned long long>(frameCount), gamePlayDetected,
                   static_cast<unsigned long long>(drawCount), passes.str().c_str());
}

void PubgHooksBase::clearFrame() {
    gamePlayCount = crosshairCount = lobbyCount = noneCount = 0;
    uiLabelBound = blendSeen = depthTestOff = cullFaceOff = depthRangeZero = false;
    uiStarted = false;
    gamePlayAllowed = true;
}

LabelTracker PubgGLHooks::_gamePlayLabels("gamePlay");
LabelTracker PubgGLHooks::_crosshairLabels("crosshair");
LabelTracker PubgGLHooks::_lobbyLabels("lobby");
LabelTracker PubgGLHooks::_hudLabels("hud");
LabelTracker PubgGLHooks::_noneLabels("none");

PubgGLHooks::PubgGLHooks()
    : PubgHooksBase({&_gamePlayLabels, &_crosshairLabels, &_lobbyLabels, &_hudLabels, &_noneLabels},
                    "pubg") {}

bool PubgGLHooks::registerGlobalTriggers() {
    writeSlots<PubgGLHooks>();
    return true;
}

void PubgGLHooks::onStart(core::RenderContext* renderContext) {
    GameGLHooks::onStart(renderContext);
    passTracker.next(Pass::shadow, static_cast<unsigned>(drawCount));
}

void PubgGLHooks::onBindTexture(unsigned int, unsigned int texture) {
    countBoundTexture(texture);
}

void PubgGLHooks::onFrameEnd() {
    enterUIAtFrameEndDuringPlay();
    const bool enoughDraws = drawCount >= PLAY_MIN_DRAWS;
    // A long frame that bound nothing known says nothing about play.
    if (!(enoughDraws && gamePlayCount == 0 && crosshairCount == 0 && lobbyCount == 0 &&
          noneCount == 0)) {
        if (noneCount != 0) gamePlayAllowed = gamePlayCount == 0 && !uiStarted;
        bool play = enoughDraws && gamePlayCount + crosshairCount > lobbyCount && gamePlayAllowed;
        reportGamePlay(play);
    }
    closeFrame();
    clearFrame();
}

void PubgGLHooks::onSFRFrameBegin() {
    GameGLHooks::onSFRFrameBegin();
    clearFrame();
}

void PubgGLHooks::frameReset() {
    clearFrame();
}

LabelTracker PubgInternationalGLHooks::_gamePlayLabels("gamePlay");
LabelTracker PubgInternationalGLHooks::_crosshairLabels("crosshair");
LabelTracker PubgInternationalGLHooks::_lobbyLabels("lobby");
LabelTracker PubgInternationalGLHooks::_hudLabels("hud");

PubgInternationalGLHooks::PubgInternationalGLHooks()
    : PubgHooksBase({&_gamePlayLabels, &_crosshairLabels, &_lobbyLabels, &_hudLabels, nullptr},
                    "pubg_international") {}

bool PubgInternationalGLHooks::registerGlobalTriggers() {
    writeSlots<PubgInternationalGLHooks>();
    return true;
}

void PubgInternationalGLHooks::onStart(core::RenderContext* renderContext) {
    GameGLHooks::onStart(renderContext);
    passTracker.next(Pass::shadow, static_cast<unsigned>(drawCount));
}

void PubgInternationalGLHooks::onBindTexture(unsigned int, unsigned int texture) {
    countBoundTexture(texture);
}

void PubgInternationalGLHooks::onFrameEnd() {
    enterUIAtFrameEndDuringPlay();
    if (drawCount < PLAY_MIN_DRAWS)
        reportGamePlay(false);
    else if (crosshairCount == 0 && lobbyCount == 0)
        reportGamePlay(gamePlayCount != 0 || gamePlayDetected);
    else
        reportGamePlay(gamePlayCount + crosshairCount > lobbyCount);
    closeFrame();
    clearFrame();
}

void PubgInternationalGLHooks::onSFRFrameBegin() {
    GameGLHooks::onSFRFrameBegin();
    clearFrame();
}

void PubgInternationalGLHooks::frameReset() {
    clearFrame();
}

}  // namespace velour::games
