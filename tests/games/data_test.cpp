// A data file that cannot serve leaves the hook without labels: the game
// plays untouched, and one log line says why. Each case runs in a process of
// its own, since the label lists are shared by all hooks of a process.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "HookFixture.h"
#include "TestSysroot.h"
#include "core/log.h"
#include "games/PubgGLHooks.h"
#include "platform/paths.h"
#include "velour/utils/base64.h"

using namespace velour;

namespace {

struct BadData {
    const char* what;
    std::optional<std::string> file;  // none: no file at all
    const char* logged;
};

const char PATH[] = "/odm/etc/tesselfx/defaultEncryptedData/pubg.dat";

class GameData : public test::HookFixture {};

TEST_F(GameData, ABadFileLeavesEveryListEmpty) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const BadData cases[] = {
        {"missing", std::nullopt, "pubg.dat: not found"},
        {"not wrapped", R"({"version": "1.0.0", "game": "pubg"})", "not a readable data file"},
        {"not JSON", utils::wrapDat("{\"version\": \"1.0.0\", \"game\": "), "not a readable"},
        {"another game", utils::wrapDat(R"({"version": "1.0.0", "game": "wzry",
                            "labelTracker": {"gamePlay": ["Play_Terrain"]}})"),
         "not the data of game \"pubg\""},
        {"another shape", utils::wrapDat(R"({"version": "1.0.0", "game": "pubg",
                            "labelTracker": {"gamePlay": "Play_Terrain", "crosshair": [],
                                             "lobby": [], "hud": []}})"),
         "gamePlay"},
    };
    for (const BadData& c : cases) {
        EXPECT_EXIT(
            {
                core::g_enabledLogSeverity = core::LOG_WARN;
                std::string path = platform::devicePath(PATH);
                if (c.file)
                    std::ofstream(path) << *c.file;
                else
                    std::remove(path.c_str());
                install(1);
                games::GameGLHooks* hook = bind();
                hijack::glLabelObjectEXT(GL_TEXTURE, 1, 0, "Play_Terrain");
                hook->onFrameEnd();
                std::exit(games::PubgGLHooks::_gamePlayLabels.findLabel(GL_TEXTURE, 1) ? 1 : 0);
            },
            ::testing::ExitedWithCode(0), c.logged)
            << c.what;
    }
}

}  // namespace
