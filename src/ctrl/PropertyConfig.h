#pragma once

#include <atomic>
#include <cstdint>
#include <shared_mutex>
#include <string>

#include "ctrl/EffectWord.h"
#include "ctrl/GameConfig.h"

struct ini_t;

namespace velour::ctrl {

// What this process is, what the game service said of it, and which effect is
// wanted now.
class PropertyConfig {
  public:
    enum Platform : unsigned { MEDIATEK = 0, QUALCOMM = 1, OTHER = 2 };

    // A system property polled at most twice a second and kept parsed.
    class PropertyState {
      public:
        PropertyState(std::string name, unsigned (*parse)(const std::string&));
        void update();
        unsigned getValue() const { return value; }
        void setValue(const std::string& text);

      private:
        std::string name;
        unsigned (*parse)(const std::string&);
        unsigned value;
    };

    // Reads the settings: the wrapped file wins over the plain one.
    PropertyConfig();
    virtual ~PropertyConfig();
    PropertyConfig(const PropertyConfig&) = delete;
    PropertyConfig& operator=(const PropertyConfig&) = delete;

    static PropertyConfig& getInstance();

    void update();
    std::string getEffect();
    void setEffect(const std::string& name);
    void setEffectFromHearth(const std::string& name);
    unsigned getRenderMode();
    void setRenderMode(unsigned mode);
    unsigned getEffectPass();
    void setEffectPass(unsigned pass);
    bool get4DSupport() const { return support4D; }
    bool get4DSwitch() const { return switch4D.load(std::memory_order_relaxed); }
    void set4DSwitchFromHearth(bool on) { switch4D.store(on, std::memory_order_relaxed); }
    std::string getRusData() const { return rusData; }
    std::string get4DRusData() const { return rusData4D; }
    std::string getGameProxy() const;
    unsigned getPlatform();
    GameConfig getGameConfig(const char* name);
    void sendWeaponNameToDova(const char* name);

    const ini_t* settings() const { return ini; }

  private:
    void poll();

    unsigned platform;
    std::shared_mutex mutex;
    std::atomic<std::int64_t> lastUpdate;
    ini_t* ini;
    EffectWord effect;
    std::atomic<bool> switch4D;
    bool support4D;
    std::string rusData;
    std::string rusData4D;
    PropertyState renderMode;
    PropertyState effectPass;
};

// The process name under which the configuration is looked up: a capture or
// replay tool runs under the name of the game it plays back.
std::string configurationName(const std::string& processName, bool includeReplayTool);

}  // namespace velour::ctrl
