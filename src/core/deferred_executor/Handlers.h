#pragma once

#include <EGL/egl.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "core/deferred_executor/MemTracker.h"

namespace velour::core {
class DeferredExecutor;
}

namespace velour {

// glGetError needs no shadow: it is a drain and a read of the driver's error
// state on the worker. The swap hook has no body.
class ErrorHandler {
  public:
    explicit ErrorHandler(core::DeferredExecutor* executor) : executor(executor) {}
    virtual ~ErrorHandler() = default;
    virtual void onSwap(EGLDisplay display, EGLSurface surface) {}

    core::DeferredExecutor* executor;
};

// Serves glGen* of buffers, textures and framebuffers from pools of real
// driver names made ahead of need on the worker, so the game's names are the
// driver's own and nothing is ever translated.
class GLNamesHandler {
  public:
    struct NamePool {
        const char* kind;
        void (*generate)(int n, unsigned* names);
        void (*destroy)(int n, const unsigned* names);
        std::vector<unsigned, core::MemTracker<core::MemCategory::Executor>::allocator<unsigned>>
            names;
        std::mutex mutex;
    };

    static constexpr int REFILL = 32;

    explicit GLNamesHandler(core::DeferredExecutor* executor);
    virtual ~GLNamesHandler();

    void generate(NamePool& pool, int n, unsigned* names, std::uint32_t cause);
    std::size_t pooled(NamePool& pool);

    core::DeferredExecutor* executor;
    NamePool buffers;
    NamePool textures;
    NamePool framebuffers;
};

}  // namespace velour
