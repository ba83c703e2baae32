#pragma once

#include <chrono>
#include <regex>
#include <string>
#include <unordered_map>
#include <vector>

#include "games/GFXBufHook.h"
#include "games/PubgGLHooks.h"
#include "velour/utils/Pubg4DShockJsonParser.h"

namespace velour::games {

// The frame rate, and a gate that opens at most once per interval.
struct FPSUtil {
    using Clock = std::chrono::system_clock;

    Clock::time_point lastRateUpdate{};
    Clock::time_point lastGatePass{};
    Clock::time_point now{};
    int frames = 0;
    float rate = 0;

    // One more frame at the clock's time; true when more than `interval` ms
    // passed since the gate last opened.
    bool update(long long interval) { return update(interval, Clock::now()); }
    bool update(long long interval, Clock::time_point at);
    float getFPS() const { return rate; }
};

struct Point {
    float x, y;
};

// Game 1 with weapon haptics: reads the weapon in hand and the ammunition
// digits from the HUD's draws (labels and shadowed UI vertices, never
// pixels), and tells the game service of each shot.
class Pubg4DShockGLHooks : public PubgGLHooks {
  public:
    // The draw that recognition reads: its index count and the byte offset of
    // its first index in the element buffer.
    struct DrawParameters {
        int indexCount;
        std::uintptr_t indexOffset;
    };

    Pubg4DShockGLHooks();

    static bool registerGlobalTriggers();

    bool onDraw() override;
    void onFrameEnd() override;
    void onBindTexture(unsigned int target, unsigned int texture) override;
    void onLabelObjectEXT(unsigned int type, unsigned int object, int length,
                          char const* label) override;
    void onActiveTexture(unsigned int unit);
    void onDeleteTextures(int count, const unsigned* textures);

    void recognizeWeapon(const DrawParameters& draw);
    bool detectBulletNumChanged();
    void resetState();

    GFXBufHook& buffers() { return gfxBufHook; }
    bool isDisabled() const { return disabled; }
    bool isThrottled() const { return throttled; }
    float getFPS() const { return frameRate.getFPS(); }
    int getPickupHoldOff() const { return pickupHoldOff; }
    int getReloadHoldOff() const { return reloadHoldOff; }
    int getButtonSeen() const { return buttonSeen; }
    const std::string& getWeaponName() const { return weaponName; }
    const std::vector<Point>& getDigits() const { return digits; }

    // The clock of the frame-rate gate; tests set their own.
    static FPSUtil::Clock::time_point (*clock)();

  private:
    struct Rect {
        float minX = 0, minY = 0, maxX = 0, maxY = 0;
        bool containsStrictly(Point point) const {
            return point.x > minX && point.x < maxX && point.y > minY && point.y < maxY;
        }
    };
    // The vertices of the draw, checked against the shadows' extents.
    struct Batch;

    void loadConfiguration();

    GFXBufHook gfxBufHook;
    unsigned boundTexture = 0;
    unsigned activeUnit = GL_TEXTURE0;
    unsigned digitTexture = 0;
    std::string weaponName;
    std::string previousWeaponName;
    std::unordered_map<unsigned, std::string> textureLabels;
    Rect buttonRect;
    bool buttonMoved = false;
    std::vector<Point> previousDigits;
    std::vector<Point> digits;
    bool weaponFound = false;
    int pickupHoldOff = 0;
    int reloadHoldOff = 0;
    float lastPickupY = 0;
    bool switchFlag = false;
    FPSUtil frameRate;
    WeaponPickupMsgBG pickupMessage;
    WeaponButtonFrame buttonFrame;
    ReloadProgress reloadProgress;
    std::regex weaponNamePattern;
    std::unordered_map<std::string, float> adjustments;
    Rect reloadRect;
    int buttonSeen = 0;
    bool disabled = true;
    bool throttled = false;
    unsigned lastTint = 0;
    float defaultAdjustment = 0.2f;
};

}  // namespace velour::games
