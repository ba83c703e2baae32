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

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    for (const char* name : {"pubg", "pubg_international"})
        sysroot.write(std::string("/odm/etc/tesselfx/defaultEncryptedData/") + name + ".dat",
                      velour::utils::wrapDat(GAME_DATA));
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
