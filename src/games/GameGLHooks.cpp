#include "games/GameGLHooks.h"

#include "core/context.h"
#include "core/log.h"

namespace velour::games {

bool GameGLHooks::registerGlobalTriggers() {
    int game = core::context.gameConfig.game;
    if (game < 1 || game > 9) {
        if (core::g_enabledLogSeverity >= core::LOG_BANNER)
            core::log("src/games/GameGLHooks", 335, "registerGlobalTriggers", core::LOG_BANNER,
                      "Unsupported game. Game triggers disabled.");
        return false;
    }
    VELOUR_LOG(core::LOG_INFO, "Game %d has no hooks in this build", game);
    return false;
}

void* getGameUnsupportedFunction(char const*) {
    return nullptr;
}

}  // namespace velour::games
