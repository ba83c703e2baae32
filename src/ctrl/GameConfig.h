#pragma once

namespace velour {

// What the configuration says of this process.
struct GameConfig {
    char processName[512];
    int game;  // 0 none, 1 to 9 the known games
    bool enabled;
    unsigned runtimeMode;
    int fallback;
    bool disableAnySamplesPassed;
    bool disableEglTimeStamps;
};

}  // namespace velour
