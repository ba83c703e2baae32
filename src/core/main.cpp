#include "core/main.h"

#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "core/InterfaceLogger.h"
#include "core/context.h"
#include "core/log.h"
#include "core/render-context.h"
#include "ctrl/ctrl.h"
#include "games/GameGLHooks.h"
#include "gles/lookup.h"
#include "platform/paths.h"
#include "velour/entry_points.h"
#include "velour/utils/Configuration.h"
#include "velour/utils/Process.h"

namespace velour::core {

Context::Context() = default;
Context::~Context() = default;

Context context;

// The log settings thread reads the record, so it starts right after it, in
// this unit's initialisation order rather than in an unspecified one.
namespace {
const bool g_logWatcherStarted = (startLogConfigWatcher(), true);
}

namespace {

const char REPLAY_PACKAGE[] = "com.orlo.replay";

// Diagnosis only: the content is logged as read and never interpreted.
void logSimpleTextFile(char const* path) {
    std::ifstream in(platform::devicePath(path));
    std::stringstream text;
    if (in) text << in.rdbuf();
    if (g_enabledLogSeverity >= LOG_BANNER)
        log("src/core/main", __LINE__, "logSimpleTextFile", LOG_BANNER, "%s: %s", path,
            text.str().c_str());
}

void logBanner() {
    const GameConfig& config = context.gameConfig;
    std::string mode = config.enabled ? std::to_string(config.runtimeMode) : "<undefined>";
    log("src/core/main", 151, "velourInitialize", LOG_BANNER,
        "\n\n======================================================================\n\n"
        "   Velour layer loaded.\n\n"
        "         Build date : %s %s (UTC)\n"
        "         Build type : %s\n"
        "       Package Name : %s\n"
        "       Interception : %s\n"
        "       Runtime Mode : %s\n\n"
        "======================================================================\n\n",
        __DATE__, __TIME__, "Release", config.processName, config.enabled ? "enabled" : "disabled",
        mode.c_str());
}

// The table's own copy of a known name, which lives as long as the process.
const char* tableName(char const* name) {
    for (const gles::EntryPoint& entry : gles::entryPoints)
        if (std::strcmp(entry.name, name) == 0) return entry.name;
    return nullptr;
}

}  // namespace

}  // namespace velour::core

using namespace velour;

extern "C" void velourInitialize(void* layerHandle,
                                 void* (*getNextProc)(void* layerHandle, char const* name)) {
    core::Context& context = core::context;
    GameConfig config = ctrl::getGameConfig();
    if (config.runtimeMode >= 5) config.runtimeMode = core::MODE_DEFERRED;
    // Field by field: the log watcher may be reading the interception flag.
    std::memcpy(context.gameConfig.processName, config.processName, sizeof(config.processName));
    context.gameConfig.game = config.game;
    context.gameConfig.runtimeMode = config.runtimeMode;
    context.gameConfig.fallback = config.fallback;
    context.gameConfig.disableAnySamplesPassed = config.disableAnySamplesPassed;
    context.gameConfig.disableEglTimeStamps = config.disableEglTimeStamps;
    core::setInterceptionEnabled(config.enabled);
    if (!config.enabled) return;

    context.replayProcess = utils::getProcessName() == core::REPLAY_PACKAGE;

    if (core::g_enabledLogSeverity >= core::LOG_BANNER) core::logBanner();
    core::logSimpleTextFile("/sys/kernel/fpsgo/common/force_onoff");
    core::logSimpleTextFile("/sys/kernel/fpsgo/common/fpsgo_enable");

    drv::initRealGL(layerHandle, getNextProc);
    gles::initFunctionTable();
    core::registerTriggers();

    auto& configuration = utils::Configuration::global();
    configuration.sets("orlo.release.pid", std::to_string(getpid()));
    configuration.sets("orlo.release.tag", std::to_string(context.gameConfig.runtimeMode));

    if (context.gameConfig.runtimeMode == core::MODE_INTERFACE_LOG) core::g_interfaceLogger.init();
}

extern "C" void* velourGetProcAddress(char const* name, void* next) {
    const GameConfig& config = core::context.gameConfig;
    if (!config.enabled) return next;

    if (config.runtimeMode == core::MODE_HOOKS_ONLY) {
        if (void* fn = gles::getEglProcAddress(name)) return fn;
        if (void* fn = gles::getGlProcAddress(name)) return fn;
        bool known = false;
        void* slot = gles::hijackSlot(name, &known);
        return known ? slot : next;
    }

    // The interface log lists the entry points a game resolves, which the
    // loader does on first use: logged here, the frame pays nothing for it.
    if (config.runtimeMode == core::MODE_INTERFACE_LOG) {
        if (const char* known = core::tableName(name)) core::g_interfaceLogger.logCall(known);
    }

    if (!core::context.replayProcess) {
        if (void* stub = games::getGameUnsupportedFunction(name)) return stub;
    }
    if (void* fn = gles::getEglProcAddress(name)) return fn;
    if (void* fn = gles::eglGPA(name)) return fn;
    return next;
}
