#include <gtest/gtest.h>

#include "TestSysroot.h"
#include "velour/utils/base64.h"

namespace {

// The label lists the hook tests play with, for both editions.
const char GAME_DATA[] = R"({
  "version": "1.0.0",
  "game": "pubg",
  "labelTracker": {
    "gamePlay": ["Play_Terrain", "Play_Shadow"],
    "crosshair": ["Crosshair_Dot"],
    "lobby": ["Lobby_Button"],
    "hud": ["HUD_Atlas", "HUD_Font"],
    "none": ["Loading_Screen"]
  }
})";

}  // namespace

namespace test_support {
// The HUD vocabulary the weapon-haptics tests draw with.
extern const char SHOCK_DATA[];
const char SHOCK_DATA[] = R"({
  "version": "1.0.0",
  "game": "pubg4DShock",
  "4DShock": {
    "weaponNameRegex": "Weapon_[A-Z0-9]+",
    "misjudgmentWeapons": [{"weaponName": "Weapon_M416", "adjustment": 0.6}],
    "defaultAdjustment": 0.4,
    "weaponButtonFrame": {"iconName": "HUD_WeaponButton", "verticesNum": 6, "texcoords": [0.25, 0.5], "diagonalPointIdxs": [0, 2]},
    "weaponPickupMsgBG": {"iconName": "HUD_PickupBG", "verticesNum": 12, "texcoords": [0.75, 0.125]},
    "weaponReloadProgress": {"background": "HUD_ReloadBG", "foreground": "HUD_ReloadFG", "bgTexcoord": [0.5, 0.5], "fgTexcoord": [0.5, 0.75]}
  }
})";
}  // namespace test_support

namespace velour::test {
TestSysroot* g_sysroot = nullptr;
}

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    velour::test::g_sysroot = &sysroot;
    for (const char* name : {"pubg", "pubg_international"})
        sysroot.write(std::string("/odm/etc/tesselfx/defaultEncryptedData/") + name + ".dat",
                      velour::utils::wrapDat(GAME_DATA));
    sysroot.write("/odm/etc/tesselfx/defaultEncryptedData/pubg4DShock.dat",
                  velour::utils::wrapDat(test_support::SHOCK_DATA));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
