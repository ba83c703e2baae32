#pragma once

#include <string>

#include "games/GameGLHooks.h"
#include "games/LabelTracker.h"
#include "velour/utils/JsonParserBase.h"

namespace velour::games {

// What both editions of the game share: textures are known by the labels the
// game gives them, and a frame is `shadow` up to the HUD's first draw, `ui`
// from there. Play is told at the end of a frame from which labelled
// textures it bound.
class PubgHooksBase : public GameGLHooks {
  public:
    bool onDraw() override;
    void onDeleteProgram(unsigned int program) override;
    void onLabelObjectEXT(unsigned int type, unsigned int object, int length,
                          char const* label) override;

    void onAfterBindFramebuffer(unsigned int target, unsigned int framebuffer);
    void onDisable(unsigned int cap);
    void onAfterDepthRange(float n, float f);
    void onBlendFuncSeparate(unsigned int srcRGB, unsigned int dstRGB, unsigned int srcAlpha,
                             unsigned int dstAlpha);
    // Forgets deleted texture names in every tracker that counts binds.
    void onDeleteTextures(int count, const unsigned* textures);

    bool isGamePlayDetected() const { return gamePlayDetected; }
    bool isOnDefaultFramebuffer() const { return onDefaultFramebuffer; }

  protected:
    struct Trackers {
        LabelTracker* gamePlay;
        LabelTracker* crosshair;
        LabelTracker* lobby;
        LabelTracker* hud;
        LabelTracker* none;  // null in the international edition
    };

    // `dataName` names the data file; its lists fill the trackers.
    PubgHooksBase(const Trackers& trackers, const char* dataName);

    // The first hit of the bound texture raises its counter.
    void countBoundTexture(unsigned int texture);
    // Enters ui at this draw when it is the HUD's first.
    void determineStartOfUI();
    // Step 1 of a frame's end: with play and no HUD found, the effect goes on
    // top of the finished frame.
    void enterUIAtFrameEndDuringPlay();
    void reportGamePlay(bool detected);
    // Ends the frame in the base and opens the next one's first pass.
    void closeFrame();
    // Clears the frame's counters and flags.
    void clearFrame();
    void logFrame() const;

    Trackers trackers;
    unsigned gamePlayCount = 0;
    unsigned crosshairCount = 0;
    unsigned lobbyCount = 0;
    unsigned noneCount = 0;
    bool gamePlayDetected = false;
    bool uiStarted = false;
    bool onDefaultFramebuffer = false;
    bool gamePlayAllowed = true;
    bool uiLabelBound = false;
    bool blendSeen = false;
    bool depthTestOff = false;
    bool cullFaceOff = false;
    bool depthRangeZero = false;
    utils::JsonParser gameData;

  private:
    void loadLabels(const char* dataName);
};

// Game 1.
class PubgGLHooks : public PubgHooksBase {
  public:
    PubgGLHooks();

    void onStart(core::RenderContext* renderContext) override;
    void onSFRFrameBegin() override;
    void onFrameEnd() override;
    // Virtual so that a class of this game may see binds too.
    virtual void onBindTexture(unsigned int target, unsigned int texture);

    static bool registerGlobalTriggers();
    void frameReset();

    static LabelTracker _gamePlayLabels;
    static LabelTracker _crosshairLabels;
    static LabelTracker _lobbyLabels;
    static LabelTracker _hudLabels;
    static LabelTracker _noneLabels;
};

// Game 8: no "none" list, and a simpler decision of play.
class PubgInternationalGLHooks : public PubgHooksBase {
  public:
    PubgInternationalGLHooks();

    void onStart(core::RenderContext* renderContext) override;
    void onSFRFrameBegin() override;
    void onFrameEnd() override;
    void onBindTexture(unsigned int target, unsigned int texture);

    static bool registerGlobalTriggers();
    void frameReset();

    static LabelTracker _gamePlayLabels;
    static LabelTracker _crosshairLabels;
    static LabelTracker _lobbyLabels;
    static LabelTracker _hudLabels;
};

}  // namespace velour::games
