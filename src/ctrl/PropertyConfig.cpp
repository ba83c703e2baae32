#include "ctrl/PropertyConfig.h"

#include <strings.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>

#include "ctrl/HearthAsyncService.h"
#include "ctrl/ctrl.h"
#include "platform/paths.h"
#include "platform/properties.h"
#include "velour/export.h"
#include "velour/utils/Process.h"
#include "velour/utils/base64.h"
#include "velour/utils/ini.h"

namespace velour::ctrl {

namespace {

const char SETTINGS_DAT[] = "/odm/etc/tesselfx/velour.dat";
const char SETTINGS_INI[] = "/odm/etc/tesselfx/velour.ini";
const char DATA_FOLDER[] = "/odm/etc/tesselfx/";
const char REPLAY_PACKAGE[] = "com.orlo.replay";
const char* const CAPTURE_PACKAGES[] = {"org.renderdoc.renderdoccmd.arm64",
                                        "com.google.android.gapid.armeabiv7a",
                                        "com.google.android.gapid.arm64v8a"};
constexpr std::int64_t POLL_INTERVAL_NS = 500000000;
constexpr int GAME_PUBG = 1;

std::int64_t steadyNow() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::string readFile(const char* devicePath) {
    std::ifstream in(platform::devicePath(devicePath), std::ios::binary);
    std::stringstream text;
    if (in) text << in.rdbuf();
    return text.str();
}

std::string getProperty(const char* name) {
    char value[PROP_VALUE_MAX] = {};
    if (__system_property_get(name, value) <= 0) return {};
    return value;
}

unsigned parseRenderMode(const std::string& text) {
    // "right" gives the same value as "left": split screen keeps the left half.
    if (text == "left" || text == "right") return 0;
    return 2;
}

unsigned parseEffectPass(const std::string& text) {
    return text == "end" ? 6 : 5;
}

// The first property of the section whose name agrees with the key over the
// key's length, ignoring case; null when there is none.
const char* findKey(const ini_t* ini, int section, const char* key) {
    size_t length = std::strlen(key);
    for (int i = 0; i < ini->propertyCount; ++i) {
        const ini_property_t& property = ini->properties[i];
        if (property.section == section &&
            strncasecmp(ini_property_name_text(property), key, length) == 0)
            return ini_property_value_text(property);
    }
    return nullptr;
}

// The first section whose name begins with the process name, ignoring case.
int findSection(const ini_t* ini, const char* name) {
    size_t length = std::strlen(name);
    for (int i = 0; i < ini->sectionCount; ++i)
        if (strncasecmp(ini_section_text(ini->sections[i]), name, length) == 0) return i;
    return -1;
}

}  // namespace

PropertyConfig::PropertyState::PropertyState(std::string name,
                                             unsigned (*parse)(const std::string&))
    : name(std::move(name)), parse(parse), value(parse({})) {}

void PropertyConfig::PropertyState::update() {
    value = parse(getProperty(name.c_str()));
}

void PropertyConfig::PropertyState::setValue(const std::string& text) {
    __system_property_set(name.c_str(), text.c_str());
}

PropertyConfig::PropertyConfig()
    : platform(OTHER),
      lastUpdate(steadyNow() - POLL_INTERVAL_NS),
      ini(nullptr),
      switch4D(false),
      support4D(false),
      renderMode("vendor.nimbo.tessel.effect.renderMode", parseRenderMode),
      effectPass("vendor.nimbo.tessel.effect.pass", parseEffectPass) {
    std::string text = readFile(SETTINGS_DAT);
    if (!text.empty()) {
        try {
            text = utils::unwrapDat(text);
        } catch (const std::exception&) {
            text.clear();
        }
    }
    if (text.empty()) text = readFile(SETTINGS_INI);
    if (!text.empty()) {
        try {
            ini = ini_load(text.c_str(), nullptr);
        } catch (const std::exception&) {
            ini = nullptr;
        }
    }
}

PropertyConfig::~PropertyConfig() {
    if (ini) ini_destroy(ini);
}

PropertyConfig& PropertyConfig::getInstance() {
    static PropertyConfig instance;
    return instance;
}

void PropertyConfig::poll() {
    std::int64_t last = lastUpdate.load();
    std::int64_t now = steadyNow();
    if (now - last < POLL_INTERVAL_NS) return;
    std::unique_lock<std::shared_mutex> lock(mutex, std::try_to_lock);
    if (!lock.owns_lock()) return;
    while (!lastUpdate.compare_exchange_weak(last, now)) {
    }
    renderMode.update();
    effectPass.update();
}

void PropertyConfig::update() {
    poll();
}

std::string PropertyConfig::getEffect() {
    poll();
    return effect.get();
}

void PropertyConfig::setEffect(const std::string& name) {
    std::unique_lock<std::shared_mutex> lock(mutex);
    __system_property_set("vendor.nimbo.tessel.effect", name.c_str());
    effect.set(name);
}

void PropertyConfig::setEffectFromHearth(const std::string& name) {
    effect.set(name);
}

unsigned PropertyConfig::getRenderMode() {
    poll();
    std::shared_lock<std::shared_mutex> lock(mutex);
    return renderMode.getValue();
}

void PropertyConfig::setRenderMode(unsigned mode) {
    std::unique_lock<std::shared_mutex> lock(mutex);
    renderMode.setValue(mode == 1 ? "right" : mode == 0 ? "left" : "full");
}

unsigned PropertyConfig::getEffectPass() {
    poll();
    std::shared_lock<std::shared_mutex> lock(mutex);
    return effectPass.getValue();
}

void PropertyConfig::setEffectPass(unsigned pass) {
    std::unique_lock<std::shared_mutex> lock(mutex);
    effectPass.setValue(pass == 6 ? "end" : "ui");
}

std::string PropertyConfig::getGameProxy() const {
    return getProperty("vendor.nimbo.tessel.gameProxy");
}

unsigned PropertyConfig::getPlatform() {
    std::string hardware = getProperty("ro.boot.hardware");
    if (hardware.size() < 4) return platform;
    if (hardware.compare(0, 2, "mt") == 0)
        platform = MEDIATEK;
    else if (hardware.compare(0, 4, "qcom") == 0)
        platform = QUALCOMM;
    return platform;
}

GameConfig PropertyConfig::getGameConfig(const char* name) {
    GameConfig config{};
    if (!name) return config;
    std::strncpy(config.processName, name, sizeof(config.processName) - 1);
    if (!ini) return config;

    int section = findSection(ini, name);
    if (section < 0) return config;

    // A bad number throws out of here: the settings are part of the device.
    const char* value = findKey(ini, section, "game");
    if (!value) return config;
    config.game = std::stoi(value, nullptr, 10);

    value = findKey(ini, section, "runtime_mode");
    if (!value) return config;
    config.runtimeMode = static_cast<unsigned>(std::stoi(value, nullptr, 10));

    std::string modeOverride = getProperty("vendor.nimbo.orlo.mode");
    if (modeOverride.size() == 1 && modeOverride[0] >= '0' && modeOverride[0] <= '4')
        config.runtimeMode = static_cast<unsigned>(modeOverride[0] - '0');

    // Only MediaTek devices run a known game with the deferred path.
    if (getPlatform() != MEDIATEK && config.game != 0) config.runtimeMode = 3;

    value = findKey(ini, section, "fallback");
    config.fallback = value ? std::stoi(value, nullptr, 10) : 0;

    value = findKey(ini, section, "enabled");
    if (!value) return config;
    config.enabled = std::stoi(value, nullptr, 10) != 0;

    value = findKey(ini, section, "disable_any_samples_passed");
    config.disableAnySamplesPassed = value && std::stoi(value, nullptr, 10) != 0;
    value = findKey(ini, section, "disable_egl_time_stamps");
    config.disableEglTimeStamps = value && std::stoi(value, nullptr, 10) != 0;

    GameService& service = gameService();
    int supported = service.getVelourSupported(name);
    if (supported == 0)
        config.runtimeMode = 3;
    else if (supported == 2 || supported > 3)
        config.enabled = false;
    if (config.enabled) rusData = service.getRusFile(name);
    if (config.game == GAME_PUBG) {
        support4D = service.get4DSupport(name);
        rusData4D = service.get4DRusFile(name);
    }
    service.registerTesselCallback();
    return config;
}

void PropertyConfig::sendWeaponNameToDova(const char* name) {
    gameService().sendWeaponToDova(name);
}

std::string configurationName(const std::string& processName, bool includeReplayTool) {
    bool tool = includeReplayTool && processName == REPLAY_PACKAGE;
    for (const char* package : CAPTURE_PACKAGES) tool = tool || processName == package;
    if (tool) {
        std::string proxy = getProperty("vendor.nimbo.tessel.gameProxy");
        if (!proxy.empty()) return proxy;
    }
    return processName;
}

GameConfig getGameConfig() {
    PropertyConfig& config = PropertyConfig::getInstance();
    std::string name = configurationName(utils::getProcessNameByPid(getpid()), true);
    return config.getGameConfig(name.c_str());
}

bool get4DSupportFlag() {
    return PropertyConfig::getInstance().get4DSupport();
}
bool get4DSwitchFlag() {
    return PropertyConfig::getInstance().get4DSwitch();
}
std::string getCurrentEffect() {
    return PropertyConfig::getInstance().getEffect();
}
std::string getCurrentRusData() {
    return PropertyConfig::getInstance().getRusData();
}
std::string getCurrent4DRusData() {
    return PropertyConfig::getInstance().get4DRusData();
}

void setGamePlayDetected(bool) {
    // Reserved notification: only the process name is read, nothing follows.
    utils::getProcessName();
}

void sendWeaponToDova(const char* name) {
    PropertyConfig::getInstance().sendWeaponNameToDova(name);
}

std::string getDefaultFilterConfig() {
    return "/odm/etc/tesselfx/defaultFilterConfig.dat";
}
std::string getUpdatedFilterConfig() {
    return "/odm/etc/tesselfx/updatedFilterConfig.dat";
}
std::string getGameDataFile(const std::string& name) {
    return std::string(DATA_FOLDER) + "defaultEncryptedData/" + name + ".dat";
}
std::string getDefaultGameDataFile(const std::string& name) {
    return getGameDataFile(name);
}

}  // namespace velour::ctrl

extern "C" VELOUR_EXPORT bool getGameConfigEnable() {
    using namespace velour::ctrl;
    PropertyConfig& config = PropertyConfig::getInstance();
    std::string name = configurationName(velour::utils::getProcessNameByPid(getpid()), false);
    return config.getGameConfig(name.c_str()).enabled;
}
