// How the settings file, the properties and the game service decide what the
// layer does in a process.
#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>
#include <utility>

#include "TestSysroot.h"
#include "ctrl/HearthAsyncService.h"
#include "ctrl/PropertyConfig.h"
#include "ctrl/ctrl.h"
#include "platform/properties.h"
#include "velour/utils/base64.h"

using namespace velour;

namespace velour::test {
extern TestSysroot* g_sysroot;
}

namespace {

const char INI[] = "/odm/etc/tesselfx/velour.ini";
const char DAT[] = "/odm/etc/tesselfx/velour.dat";

struct ScriptedService : ctrl::GameService {
    int supported = 1, registrations = 0, rusFetches = 0;
    void getHearthVersion() override {}
    void registerTesselCallback() override { ++registrations; }
    int getVelourSupported(const char*) override { return supported; }
    std::string getRusFile(const char*) override {
        ++rusFetches;
        return "data";
    }
    std::string get4DRusFile(const char*) override { return {}; }
    bool get4DSupport(const char*) override { return false; }
    void sendWeaponToDova(const char*) override {}
};

class Settings : public ::testing::Test {
  protected:
    void SetUp() override { ctrl::setGameServiceForTesting(&service); }
    void TearDown() override {
        ctrl::setGameServiceForTesting(nullptr);
        __system_property_set("vendor.nimbo.orlo.mode", "");
        test::g_sysroot->write(INI, "");
        test::g_sysroot->write(DAT, "");
    }
    GameConfig lookUp(const std::string& ini, const char* name) {
        test::g_sysroot->write(INI, ini);
        ctrl::PropertyConfig config;
        return config.getGameConfig(name);
    }
    ScriptedService service;
};

std::pair<bool, unsigned> decision(const GameConfig& config) {
    return {config.enabled, config.runtimeMode};
}

const char BASIC[] =
    "; device settings\n"
    "[com.example.game]\ngame=0\nruntime_mode=2\nenabled=1\n"
    "[com.example.game.second]\ngame=0\nruntime_mode=1\nenabled=1\n";

TEST_F(Settings, LookUpFollowsTheFilesTheModePropertyAndTheService) {
    const int NO_SERVICE = -1;
    const std::string WRAPPED = utils::wrapDat("[wrapped]\ngame=0\nruntime_mode=4\nenabled=1\n");
    struct Case {
        std::string ini;
        const char *name, *modeProperty;
        bool enabled;  // the layer's decision
        unsigned mode;
        int supported = 1;  // the service's answer
        std::string dat = "";
    };
    const Case cases[] = {
        // The first section whose name begins with the process name, in any case.
        {BASIC, "COM.example", "", true, 2},
        {BASIC, "com.example.game.second", "", true, 1},
        {BASIC, "com.other", "", false, 0},
        // A missing key stops the look-up with the layer off.
        {"[p]\ngame=0\nenabled=1\n", "p", "", false, 0},
        {"[p]\nruntime_mode=1\nenabled=1\n", "p", "", false, 0},
        {"[p]\ngame=0\nruntime_mode=1\n", "p", "", false, 1},
        // Keys compare over their own length, so a longer key name still matches.
        {"[p]\ngamex=0\nruntime_mode=1\nENABLED=1\n", "p", "", true, 1},
        // The property overrides the mode only with one digit from 0 to 4.
        {BASIC, "com.example.game", "9", true, 2},
        {BASIC, "com.example.game", "3", true, 3},
        {BASIC, "com.example.game", "03", true, 2},
        // This host reports no MediaTek hardware, so a known game runs hooks only.
        {"[g]\ngame=2\nruntime_mode=0\nenabled=1\n", "g", "", true, 3},
        // The service's answer: 0 runs hooks only with the game's data fetched,
        // 2 and 4 turn the layer off; an unreachable service leaves the file to decide.
        {BASIC, "com.example.game", "", true, 3, 0},
        {BASIC, "com.example.game", "", false, 2, 2},
        {BASIC, "com.example.game", "", false, 2, 4},
        {BASIC, "com.example.game", "", true, 2, NO_SERVICE},
        // The wrapped file wins; a broken one falls back to the plain file.
        {BASIC, "wrapped", "", true, 4, 1, WRAPPED},
        {BASIC, "com.example.game", "", false, 0, 1, WRAPPED},
        {BASIC, "com.example.game", "", true, 2, 1, "this is not base64 at all!"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.name) + " answered " + std::to_string(c.supported) + " in\n" +
                     c.ini + c.dat);
        __system_property_set("vendor.nimbo.orlo.mode", c.modeProperty);
        test::g_sysroot->write(DAT, c.dat);
        ctrl::setGameServiceForTesting(c.supported == NO_SERVICE ? nullptr : &service);
        service = ScriptedService{};
        service.supported = c.supported;
        GameConfig config = lookUp(c.ini, c.name);
        EXPECT_STREQ(config.processName, c.name);
        EXPECT_EQ(decision(config), std::pair(c.enabled, c.mode));
        // Only a complete section asks the service, which registers the
        // callback whatever its answer; the game's data is fetched unless refused.
        const bool refused = c.supported == 2 || c.supported == 4;
        const bool asked = c.supported != NO_SERVICE && (c.enabled || refused);
        EXPECT_EQ(std::pair(service.registrations, service.rusFetches),
                  std::pair(int{asked}, int{asked && !refused}));
    }
    // Nothing catches this at start-up: a broken settings file ends the process
    // rather than run the layer half-configured.
    EXPECT_THROW(lookUp("[p]\ngame=x\nruntime_mode=1\nenabled=1\n", "p"), std::invalid_argument);
}

TEST_F(Settings, OptionalKeysAreReadWithTheLayerOff) {
    EXPECT_EQ(lookUp("[p]\ngame=0\nruntime_mode=1\nfallback=3\n", "p").fallback, 3);
    GameConfig config = lookUp(
        "[p]\ngame=0\nruntime_mode=1\nenabled=0\ndisable_any_samples_passed=1\n"
        "disable_egl_time_stamps=7\n",
        "p");
    EXPECT_EQ(
        std::tuple(config.enabled, config.disableAnySamplesPassed, config.disableEglTimeStamps),
        std::tuple(false, true, true));
}

TEST_F(Settings, EffectPropertiesRoundTripThroughThePoll) {
    test::g_sysroot->write(INI, BASIC);
    ctrl::PropertyConfig config;
    // Render mode and pass set, then read back: right reads back as left.
    for (auto [mode, pass, modeRead] : {std::tuple{1u, 5u, 0u}, {7u, 6u, 2u}}) {
        config.setRenderMode(mode);
        config.setEffectPass(pass);
        usleep(550 * 1000);
        EXPECT_EQ(std::pair(config.getRenderMode(), config.getEffectPass()),
                  std::pair(modeRead, pass));
    }
    config.setEffect("hdr");
    EXPECT_EQ(config.getEffect(), "hdr");
    char value[PROP_VALUE_MAX];
    __system_property_get("vendor.nimbo.tessel.effect", value);
    EXPECT_STREQ(value, "hdr");
}

}  // namespace
