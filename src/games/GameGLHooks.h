#pragma once

namespace velour::games {

// The base of the per-game hooks. Until the game classes exist, only the
// start-up selection and the safety-stub look-up stand here.
class GameGLHooks {
  public:
    // Selects the configured game and installs its thunks; false for a game
    // this build has no hooks for.
    static bool registerGlobalTriggers();
};

// The safety stub that replaces the entry point of this name for the
// configured game, or null.
void* getGameUnsupportedFunction(char const* name);

}  // namespace velour::games
