#pragma once

#include <EGL/egl.h>

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

    void generate(NamePool& pool, int n, unsigned* names);
    std::size_t pooled(NamePool& pool);

    core::DeferredExecutor* executor;
    NamePool buffers;
    NamePool textures;
    NamePool framebuffers;
};

// Handlers whose shadow state comes with the client-data work. Until then
// their calls take the record-and-wait path, which is correct if slower.
#define VELOUR_PLAIN_HANDLER(Name)                                          \
    class Name {                                                            \
    public:                                                                 \
        explicit Name(core::DeferredExecutor* executor) : executor(executor) {} \
        virtual ~Name() = default;                                          \
        core::DeferredExecutor* executor;                                   \
    };
VELOUR_PLAIN_HANDLER(ProgramAndShaderHandler)
VELOUR_PLAIN_HANDLER(ClientGLHandler)
VELOUR_PLAIN_HANDLER(TextureHandler)
VELOUR_PLAIN_HANDLER(QueryHandler)
VELOUR_PLAIN_HANDLER(EglTimeHandler)
VELOUR_PLAIN_HANDLER(MiscHandler)
#undef VELOUR_PLAIN_HANDLER

}  // namespace velour
