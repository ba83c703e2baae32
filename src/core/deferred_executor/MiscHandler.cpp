#include <cstring>
#include <mutex>

#include "core/deferred_executor/DeferredExecutor.h"
#include "core/deferred_executor/ObjectHandlers.h"
#include "velour/entry_points.h"

namespace velour::core {

namespace {

constexpr GLenum PIXEL_PACK_BUFFER = 0x88EB;
constexpr GLenum PIXEL_PACK_BUFFER_BINDING = 0x88ED;
constexpr GLenum BUFFER_SIZE = 0x8764;
constexpr GLbitfield MAP_READ_BIT = 0x0001;
constexpr GLenum SYNC_GPU_COMMANDS_COMPLETE = 0x9117;
constexpr GLbitfield SYNC_FLUSH_COMMANDS_BIT = 0x0001;
constexpr GLenum ALREADY_SIGNALED = 0x911A;
constexpr GLenum CONDITION_SATISFIED = 0x911C;
constexpr GLuint64 ONE_SECOND = 1000000000;

struct ReadPixelsArgs {
    GLint x;
    GLint y;
    GLsizei width;
    GLsizei height;
    GLenum format;
    GLenum type;
    void* pixels;
};

struct ReadbackArgs {
    DeferredExecutor* executor;
    GLint x;
    GLint y;
    GLsizei width;
    GLsizei height;
    GLenum format;
    GLenum type;
};

// On the worker: the read into the pack buffer, then, once the GPU has
// written it, a copy of the whole buffer into the cache. A failed wait or
// map leaves the cache as it was, and the game's map then reads the real
// buffer.
void readback(void* args) {
    auto* a = static_cast<ReadbackArgs*>(args);
    hijack::glReadPixels(a->x, a->y, a->width, a->height, a->format, a->type, nullptr);

    GLsync done = hijack::glFenceSync(SYNC_GPU_COMMANDS_COMPLETE, 0);
    bool passed = DeferredExecutor::ReadbackCache::fencePassed(done);
    // Nothing else refers to this fence.
    hijack::glDeleteSync(done);
    if (!passed) return;

    DeferredExecutor::ReadbackCache& cache = a->executor->readbackCache;
    std::lock_guard<std::mutex> lock(cache.mutex);
    // The last copy has not been mapped yet: it stays, this one is skipped.
    if (cache.valid) return;
    GLint size = 0;
    hijack::glGetBufferParameteriv(PIXEL_PACK_BUFFER, BUFFER_SIZE, &size);
    if (size < 1) return;
    void* mapped = hijack::glMapBufferRange(PIXEL_PACK_BUFFER, 0, size, MAP_READ_BIT);
    // The map of the game's thread waits on this fence with the mutex held,
    // so the one it replaces has no waiter left.
    if (cache.fence) hijack::glDeleteSync(cache.fence);
    cache.fence = hijack::glFenceSync(SYNC_GPU_COMMANDS_COMPLETE, 0);
    if (!mapped) return;
    auto bytes = static_cast<std::uint32_t>(size);
    if (cache.data && cache.size < bytes) {
        FixedSizeRawMemoryPool::release(cache.data);
        cache.data = nullptr;
    }
    if (!cache.data) {
        cache.data = a->executor->rawMemoryPools.allocate(bytes);
        cache.size = cache.data ? bytes : 0;
    }
    if (cache.data) {
        std::memcpy(cache.data, mapped, bytes);
        cache.valid = true;
    }
    hijack::glUnmapBuffer(PIXEL_PACK_BUFFER);
    if (!cache.valid) return;
    GLint binding = 0;
    hijack::glGetIntegerv(PIXEL_PACK_BUFFER_BINDING, &binding);
    cache.buffer = static_cast<GLuint>(binding);
}

}  // namespace

bool DeferredExecutor::ReadbackCache::fencePassed(GLsync fence) {
    GLenum status = hijack::glClientWaitSync(fence, SYNC_FLUSH_COMMANDS_BIT, ONE_SECOND);
    return status == ALREADY_SIGNALED || status == CONDITION_SATISFIED;
}

void MiscHandler::readPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format,
                             GLenum type, void* pixels) {
    if (pixels) {
        // Into the game's memory, or at an offset into a bound pack buffer:
        // either way the game's thread waits and the driver reads the
        // argument as it came.
        executor->queue.record(
            +[](void* args) {
                auto* a = static_cast<ReadPixelsArgs*>(args);
                hijack::glReadPixels(a->x, a->y, a->width, a->height, a->format, a->type,
                                     a->pixels);
            },
            ReadPixelsArgs{x, y, width, height, format, type, pixels});
        executor->queue.flushAndWait(gles::id::glReadPixels);
        return;
    }
    executor->queue.record(&readback, ReadbackArgs{executor, x, y, width, height, format, type});
}

}  // namespace velour::core
