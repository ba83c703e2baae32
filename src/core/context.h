#pragma once

#include <EGL/egl.h>

#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "ctrl/GameConfig.h"

namespace velour::core {

class RenderContext;
class DeferredExecutor;

enum RuntimeMode : unsigned {
    MODE_DEFERRED = 0,
    MODE_IMMEDIATE = 1,
    MODE_DEFERRED_INLINE = 2,
    MODE_HOOKS_ONLY = 3,
    MODE_INTERFACE_LOG = 4,
};

// The layer's one process-wide record.
struct Context {
    struct Entry {
        std::unique_ptr<RenderContext> renderContext;
        bool current = false;
    };

    Context();
    ~Context();

    std::mutex renderContextMutex;
    std::unordered_map<EGLContext, Entry> renderContexts;
    bool replayProcess = false;
    bool eglSyncManaged = true;
    GameConfig gameConfig{};
};

// Hidden, so that code of the library reads its fields at a fixed offset from
// the instruction instead of through the GOT: the wrappers test two of them
// on every call.
extern __attribute__((visibility("hidden"))) Context context;

// The log watcher looks at this from its own thread while start-up fills the
// record.
inline bool interceptionEnabled() {
    return __atomic_load_n(&context.gameConfig.enabled, __ATOMIC_RELAXED);
}
inline void setInterceptionEnabled(bool enabled) {
    __atomic_store_n(&context.gameConfig.enabled, enabled, __ATOMIC_RELAXED);
}

// The mode is one value for the process, read by every thread at every call
// and changed once at most (the switch to immediate mode): relaxed atomic
// access, which costs a plain load.
inline unsigned runtimeMode() {
    return __atomic_load_n(&context.gameConfig.runtimeMode, __ATOMIC_RELAXED);
}
inline void setRuntimeMode(unsigned mode) {
    __atomic_store_n(&context.gameConfig.runtimeMode, mode, __ATOMIC_RELAXED);
}

// Every wrapper reads the thread's record first. The general model of a
// loaded library's thread-locals costs a call per access; glibc keeps room
// for a loaded library's initial-exec variables, which cost one load. The
// device's linker refuses that model in a loaded library, so there the
// toolchain's descriptor model stands.
#if defined(__ANDROID__)
#define VELOUR_TLS_MODEL
#else
#define VELOUR_TLS_MODEL __attribute__((tls_model("initial-exec")))
#endif

// What a thread has bound: both unowned, both null on a new thread.
struct ThreadGlobals {
    RenderContext* renderContext;
    DeferredExecutor* executor;
};

// Defined here with its constant initial value, so that every reader knows
// it needs no dynamic initialisation: a read is a plain thread-local load,
// with no call through a wrapper function.
inline thread_local ThreadGlobals tlglobals VELOUR_TLS_MODEL{nullptr, nullptr};

}  // namespace velour::core
