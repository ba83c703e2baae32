// The data file of the weapon haptics: each fault's code, the number
// conversions, and a hook that turns the feature off for a bad file.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <regex>
#include <string>

#include "TestSysroot.h"
#include "games/Pubg4DShockGLHook.h"
#include "games/WeaponNamePattern.h"
#include "velour/utils/Pubg4DShockJsonParser.h"
#include "velour/utils/base64.h"

using namespace velour;

namespace test_support {
extern const char SHOCK_DATA[];
}
namespace velour::test {
extern TestSysroot* g_sysroot;
}

namespace {

const char PATH[] = "/odm/etc/tesselfx/defaultEncryptedData/pubg4DShock.dat";
const std::string PLACE = "\"@\"";

// The good file with the JSON text `from` replaced by `to`.
std::string edited(const std::string& from, const std::string& to) {
    std::string text = test_support::SHOCK_DATA;
    auto at = text.find(from);
    EXPECT_NE(std::string::npos, at) << from;
    return text.replace(at, from.size(), to);
}

// The getters in the order the hook calls them; the code after the last.
int parse(const std::string& json) {
    utils::Pubg4DShockJsonParser parser("", "", "");
    if (!parser.initialize(json, true)) return -1;
    parser._parseError = 0;
    parser.get4DShockWeaponRegex();
    parser.get4DShockMisjudgmentWeapons();
    parser.get4DShockDefaultAdjustment();
    games::WeaponButtonFrame().init(parser);
    games::WeaponPickupMsgBG().init(parser);
    games::ReloadProgress().init(parser);
    return parser._parseError;
}

struct Fault {
    const char* from;
    const char* to;
    int code;
};

TEST(ShockData, EachFaultHasItsCode) {
    const Fault faults[] = {
        {"\"4DShock\": {", "\"4DShock\": 1, \"x\": {", 10080},
        {"\"weaponNameRegex\": \"Weapon_[A-Z0-9]+\"", "\"weaponNameRegex\": 5", 10081},
        {"\"misjudgmentWeapons\": [", "\"misjudgmentWeapons\": 1, \"m\": [", 10002},
        {"{\"weaponName\": \"Weapon_M416\", \"adjustment\": 0.6}", "7", 10005},
        {"\"weaponName\": \"Weapon_M416\"", "\"weaponName\": 1", 10003},
        {"\"adjustment\": 0.6", "\"adjustment\": \"0.6\"", 10004},
        {"\"defaultAdjustment\": 0.4", "\"defaultAdjustment\": null", 10181},
        {"\"weaponButtonFrame\": {", "\"weaponButtonFrame\": [], \"b\": {", 10006},
        {"\"iconName\": \"HUD_WeaponButton\"", "\"iconName\": 2", 10007},
        {"\"verticesNum\": 6, \"texcoords\": [0.25", "\"verticesNum\": \"6\", \"texcoords\": [0.25",
         10008},
        {"\"texcoords\": [0.25, 0.5]", "\"texcoords\": 0.25", 10009},
        {"\"texcoords\": [0.25, 0.5]", "\"texcoords\": [0.25, \"0.5\"]", 10010},
        {"\"diagonalPointIdxs\": [0, 2]", "\"diagonalPointIdxs\": {}", 10011},
        {"\"diagonalPointIdxs\": [0, 2]", "\"diagonalPointIdxs\": [0, true]", 10012},
        {"\"weaponPickupMsgBG\": {", "\"weaponPickupMsgBG\": 0, \"p\": {", 10021},
        {"\"iconName\": \"HUD_PickupBG\"", "\"iconName\": []", 10022},
        {"\"verticesNum\": 12", "\"verticesNum\": false", 10023},
        {"\"texcoords\": [0.75, 0.125]", "\"texcoords\": \"\"", 10024},
        {"\"texcoords\": [0.75, 0.125]", "\"texcoords\": [null]", 10025},
        {"\"weaponReloadProgress\": {", "\"weaponReloadProgress\": 1, \"r\": {", 10050},
        {"\"background\": \"HUD_ReloadBG\"", "\"background\": 1", 10051},
        {"\"foreground\": \"HUD_ReloadFG\"", "\"foreground\": 1", 10052},
        {"\"bgTexcoord\": [0.5, 0.5]", "\"bgTexcoord\": 0", 10053},
        {"\"bgTexcoord\": [0.5, 0.5]", "\"bgTexcoord\": [\"a\"]", 10054},
        {"\"fgTexcoord\": [0.5, 0.75]", "\"fgTexcoord\": [0.5, {}]", 10055},
    };
    EXPECT_EQ(0, parse(test_support::SHOCK_DATA));
    for (const Fault& fault : faults)
        EXPECT_EQ(fault.code, parse(edited(fault.from, fault.to))) << fault.to;
    // The earliest fault wins: later getters return at once.
    std::string two = edited("\"adjustment\": 0.6", "\"adjustment\": \"x\"");
    two.replace(two.find("\"iconName\": \"HUD_WeaponButton\""), 30, "\"iconName\": 2");
    EXPECT_EQ(10004, parse(two));
}

TEST(ShockData, EachGetterTellsAMissingSectionByItsOwnCode) {
    // Called alone, as each getter is the first to look.
    utils::Pubg4DShockJsonParser parser("", "", "");
    ASSERT_TRUE(parser.initialize(R"({"version": "1.0.0"})", true));
    struct {
        void (*call)(utils::Pubg4DShockJsonParser&);
        int code;
    } getters[] = {
        {[](auto& p) { p.get4DShockMisjudgmentWeapons(); }, 10001},
        {[](auto& p) { p.get4DShockWeaponButtonFrame(); }, 10005},
        {[](auto& p) { p.get4DShockWeaponPickupMsgBG(); }, 10020},
        {[](auto& p) { p.get4DShockReloadProgress(); }, 10059},
        {[](auto& p) { p.get4DShockWeaponRegex(); }, 10080},
        {[](auto& p) { p.get4DShockDefaultAdjustment(); }, 10180},
    };
    for (const auto& getter : getters) {
        parser._parseError = 0;
        getter.call(parser);
        EXPECT_EQ(getter.code, parser._parseError);
    }
    utils::Pubg4DShockJsonParser missing("", "/odm/etc/tesselfx/none.dat", "");
    EXPECT_EQ(-1, missing._parseError) << "no document";
}

TEST(ShockData, NumbersAreConvertedAsStored) {
    utils::Pubg4DShockJsonParser parser("", "", "");
    ASSERT_TRUE(parser.initialize(
        edited("\"verticesNum\": 6, \"texcoords\": [0.25, 0.5], \"diagonalPointIdxs\": [0, 2]",
               "\"verticesNum\": 29.9995, \"texcoords\": [0.25, 0.5, 0.9], "
               "\"diagonalPointIdxs\": [0.995, 1.5, 7]"),
        true));
    parser._parseError = 0;
    games::WeaponButtonFrame frame = parser.get4DShockWeaponButtonFrame();
    EXPECT_EQ(0, parser._parseError);
    EXPECT_EQ(30, frame.verticesNum);
    EXPECT_EQ(1, frame.diagonalPointIdxs[0]);
    EXPECT_EQ(1, frame.diagonalPointIdxs[1]);
    EXPECT_FLOAT_EQ(0.25f, frame.texcoords[0][0]);
    EXPECT_FLOAT_EQ(0.5f, frame.texcoords[0][1]);
    EXPECT_EQ("HUD_WeaponButton", frame.iconName);
    auto weapons = parser.get4DShockMisjudgmentWeapons();
    EXPECT_FLOAT_EQ(0.6f, weapons.at("Weapon_M416"));
}

// A bad file, a missing one, an invalid expression and a member of a type
// picojson refuses all leave the feature off, with no exception.
TEST(ShockData, ABadFileTurnsTheFeatureOff) {
    struct Case {
        const char* what;
        std::string file;  // empty: no file
        bool disabled;
    } cases[] = {
        {"the good file", utils::wrapDat(test_support::SHOCK_DATA), false},
        {"no file", "", true},
        {"not wrapped", test_support::SHOCK_DATA, true},
        {"no 4DShock", utils::wrapDat(R"({"version": "1.0.0"})"), true},
        {"invalid expression", utils::wrapDat(edited("\"Weapon_[A-Z0-9]+\"", "\"Weapon_[A-Z\"")),
         true},
        {"a quantifier on a quantifier",
         utils::wrapDat(edited("\"Weapon_[A-Z0-9]+\"", "\"Weapon_.{0,40}*\"")), true},
        {"fgTexcoord of another type",
         utils::wrapDat(edited("\"fgTexcoord\": [0.5, 0.75]", "\"fgTexcoord\": 3")), true},
    };
    for (const Case& c : cases) {
        if (c.file.empty())
            std::remove((test::g_sysroot->root() + PATH).c_str());
        else
            test::g_sysroot->write(PATH, c.file);
        std::unique_ptr<games::Pubg4DShockGLHooks> hook;
        EXPECT_NO_THROW(hook = std::make_unique<games::Pubg4DShockGLHooks>()) << c.what;
        EXPECT_EQ(c.disabled, hook->isDisabled()) << c.what;
    }
    test::g_sysroot->write(PATH, utils::wrapDat(test_support::SHOCK_DATA));
}

// A quantifier on a quantifier is refused: the library takes it, and a
// match against a short label then backtracks for seconds, on every draw.
TEST(ShockData, WeaponNamePatternRefusesStackedQuantifiers) {
    const char* refused[] = {
        "Weapon_.**",
        "a+{2}",
        "a{1,2}*",
        "a*??",
        "a{6666666666666666666666}",
        "a{1,99999999}",
        "a{6666666666666666666666,0.1",
        "(a)\\66666666",
        "(x|y)+*",
        "Weapon_\xff************||||version***pon_",
    };
    for (const char* pattern : refused)
        EXPECT_THROW(games::compileWeaponNamePattern(pattern), std::regex_error) << pattern;
    // Lazy quantifiers, and quantifier characters that are escaped or in a
    // bracket expression.
    const char* taken[] = {"Weapon_[A-Z0-9]+", "a*?b", "a{2}?", "[*+]+", "\\*+"};
    for (const char* pattern : taken)
        EXPECT_NO_THROW(games::compileWeaponNamePattern(pattern)) << pattern;
    std::regex pattern = games::compileWeaponNamePattern("Weapon_[A-Z0-9]+");
    EXPECT_TRUE(std::regex_match("Weapon_M416", pattern));
    EXPECT_FALSE(std::regex_match("HUD_Weapon_M416", pattern));
}

}  // namespace
