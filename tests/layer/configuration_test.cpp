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

TEST_F(Settings, LookUpFollowsTheFileAndTheModeProperty) {
    // settings, process name, mode property, and the layer's decision
    const std::tuple<const char*, const char*, const char*, bool, unsigned> cases[] = {
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
    };
    for (const auto& [ini, name, modeProperty, enabled, mode] : cases) {
        __system_property_set("vendor.nimbo.orlo.mode", modeProperty);
        service.registrations = 0;
        GameConfig config = lookUp(ini, name);
        EXPECT_STREQ(config.processName, name);
        EXPECT_EQ(decision(config), std::pair(enabled, mode)) << name << " " << ini;
        // Only a complete section asks the service.
        EXPECT_EQ(service.registrations, enabled ? 1 : 0) << name << " " << ini;
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

TEST_F(Settings, ServiceAnswersDecide) {
    service.supported = 0;
    EXPECT_EQ(decision(lookUp(BASIC, "com.example.game")), std::pair(true, 3u));
    EXPECT_EQ(service.rusFetches, 1);

    for (int answer : {2, 4}) {
        service.supported = answer;
        service.registrations = 0;
        EXPECT_FALSE(lookUp(BASIC, "com.example.game").enabled) << answer;
        EXPECT_EQ(service.registrations, 1) << "the callback is registered all the same";
    }
    EXPECT_EQ(service.rusFetches, 1);

    // An unreachable service leaves the file to decide.
    ctrl::setGameServiceForTesting(nullptr);
    EXPECT_EQ(decision(lookUp(BASIC, "com.example.game")), std::pair(true, 2u));
}

TEST_F(Settings, WrappedFileWinsAndABrokenOneFallsBackToThePlainFile) {
    test::g_sysroot->write(DAT, utils::wrapDat("[wrapped]\ngame=0\nruntime_mode=4\nenabled=1\n"));
    EXPECT_EQ(decision(lookUp(BASIC, "wrapped")), std::pair(true, 4u));
    EXPECT_FALSE(lookUp(BASIC, "com.example.game").enabled);

    test::g_sysroot->write(DAT, "this is not base64 at all!");
    EXPECT_TRUE(lookUp(BASIC, "com.example.game").enabled);
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
