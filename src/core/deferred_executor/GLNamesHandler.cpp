#include <new>

#include "core/deferred_executor/DeferredExecutor.h"
#include "core/deferred_executor/Handlers.h"
#include "velour/entry_points.h"

namespace velour {

namespace {

struct RefillArgs {
    GLNamesHandler::NamePool* pool;
    int count;
};

// On the worker, at the job's place in the stream. The pool's mutex is held
// across the driver call, so a taker waits at most for one glGen*.
void refill(void* args) {
    auto* a = static_cast<RefillArgs*>(args);
    std::lock_guard<std::mutex> lock(a->pool->mutex);
    std::size_t size = a->pool->names.size();
    // A job must not throw: out of memory the pool stays short, and the taker
    // that waited for it finds out.
    try {
        a->pool->names.resize(size + a->count);
    } catch (const std::bad_alloc&) {
        return;
    }
    a->pool->generate(a->count, a->pool->names.data() + size);
}

void release(GLNamesHandler::NamePool& pool) {
    std::lock_guard<std::mutex> lock(pool.mutex);
    if (pool.names.empty()) return;
    pool.destroy(static_cast<int>(pool.names.size()), pool.names.data());
    pool.names.clear();
}

}  // namespace

GLNamesHandler::GLNamesHandler(core::DeferredExecutor* executor)
    : executor(executor),
      buffers{"buffer", hijack::glGenBuffers, hijack::glDeleteBuffers, {}, {}},
      textures{"texture", hijack::glGenTextures, hijack::glDeleteTextures, {}, {}},
      framebuffers{"framebuffer", hijack::glGenFramebuffers, hijack::glDeleteFramebuffers, {}, {}} {
}

GLNamesHandler::~GLNamesHandler() {
    // Unused names go back to the driver.
    release(buffers);
    release(textures);
    release(framebuffers);
}

std::size_t GLNamesHandler::pooled(NamePool& pool) {
    std::lock_guard<std::mutex> lock(pool.mutex);
    return pool.names.size();
}

void GLNamesHandler::generate(NamePool& pool, int n, unsigned* names, std::uint32_t cause) {
    if (n < 1 || !names) return;
    std::size_t available = pooled(pool);
    if (static_cast<std::size_t>(n) > available) {
        executor->queue.record(&refill, RefillArgs{&pool, std::max(n, REFILL)});
        executor->queue.flushAndWait(cause);
    } else if (available < static_cast<std::size_t>(REFILL)) {
        // Refill in the background before the pool runs dry.
        executor->queue.record(&refill, RefillArgs{&pool, REFILL});
    }
    std::lock_guard<std::mutex> lock(pool.mutex);
    // The refill found no memory: the wrapper has the driver make these names.
    if (pool.names.size() < static_cast<std::size_t>(n)) throw std::bad_alloc();
    for (int i = 0; i < n; ++i) {
        names[i] = pool.names.back();
        pool.names.pop_back();
    }
}

}  // namespace velour
