#include "core/deferred_executor/FenceSync.h"

#include "core/deferred_executor/DeferredExecutor.h"
#include "velour/entry_points.h"

namespace velour::core {

FenceSyncManager globalGLFenceSyncMgr;

// GL_INVALID_VALUE: what a wait on an unknown handle answers.
constexpr GLenum INVALID_VALUE = 1281;
std::atomic<std::uint32_t> FenceSyncManager::_proxy{0};

namespace {

// The fence's job may still sit unsent in the buffer: hand it over, or a wait
// from the recording thread would never end.
template <typename Fence>
void waitUntilCreated(Fence& fence) {
    if (fence.created.load()) return;
    fence.executor->queue.submit(false, nullptr, nullptr);
    std::unique_lock<std::mutex> lock(fence.mutex);
    fence.creationDone.wait(lock, [&] { return fence.created.load(); });
}

}  // namespace

void DeferredFence::waitForCreation() {
    waitUntilCreated(*this);
}
void DeferredSync::waitForCreation() {
    waitUntilCreated(*this);
}

GLsync FenceSyncManager::create(DeferredExecutor* executor, GLenum condition, GLbitfield flags) {
    std::lock_guard<std::mutex> lock(mutex);
    auto handle = reinterpret_cast<GLsync>(static_cast<std::uintptr_t>(++_proxy));
    DeferredFence& fence = fences[handle];
    fence.condition = condition;
    fence.flags = flags;
    fence.executor = executor;
    return handle;
}

void FenceSyncManager::createDeferred(GLsync handle) {
    DeferredFence* fence = promote(handle);
    // Deleted before its job ran: never made at all.
    if (!fence) return;
    std::lock_guard<std::mutex> lock(fence->mutex);
    fence->sync = hijack::glFenceSync(fence->condition, fence->flags);
    fence->created.store(true);
    fence->creationDone.notify_all();
}

DeferredFence* FenceSyncManager::promote(GLsync handle) {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = fences.find(handle);
    return it == fences.end() ? nullptr : &it->second;
}

void FenceSyncManager::destroy(GLsync handle) {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = fences.find(handle);
    if (it == fences.end()) return;
    if (it->second.created.load()) hijack::glDeleteSync(it->second.sync);
    fences.erase(it);
}

GLenum FenceSyncManager::clientWait(GLsync handle, GLbitfield flags, GLuint64 timeout) {
    DeferredFence* fence = promote(handle);
    if (!fence) return INVALID_VALUE;
    fence->waitForCreation();
    return hijack::glClientWaitSync(fence->sync, flags, timeout);
}

void FenceSyncManager::serverWait(GLsync handle, GLbitfield flags, GLuint64 timeout) {
    DeferredFence* fence = promote(handle);
    if (!fence) return;
    hijack::glWaitSync(fence->sync, flags, timeout);
}

GLboolean FenceSyncManager::isSync(GLsync handle) {
    DeferredFence* fence = promote(handle);
    if (!fence) return 0;
    fence->waitForCreation();
    return hijack::glIsSync(fence->sync);
}

void FenceSyncManager::getSynciv(GLsync handle, GLenum pname, GLsizei bufSize, GLsizei* length,
                                 GLint* values) {
    DeferredFence* fence = promote(handle);
    if (!fence) return;
    fence->waitForCreation();
    hijack::glGetSynciv(fence->sync, pname, bufSize, length, values);
}

EGLSyncKHR EglFenceSyncManager::create(DeferredExecutor* executor, bool& deferred,
                                       EGLDisplay display, EGLenum type, const EGLint* attribs) {
    deferred = false;
    EGLSyncKHR handle = hijack::eglCreateSyncKHR(display, type, attribs);
    if (type != EGL_SYNC_FENCE_KHR) return handle;
    std::lock_guard<std::mutex> lock(mutex);
    DeferredSync& sync = syncs[handle];
    sync.display = display;
    sync.type = type;
    sync.executor = executor;
    sync.attribs.reserve(10);
    for (const EGLint* a = attribs; a && *a != EGL_NONE; ++a) sync.attribs.push_back(*a);
    sync.attribs.push_back(EGL_NONE);
    deferred = true;
    return handle;
}

void EglFenceSyncManager::createDeferred(EGLSyncKHR handle) {
    DeferredSync* sync = promote(handle);
    if (!sync) return;
    std::lock_guard<std::mutex> lock(sync->mutex);
    sync->sync = hijack::eglCreateSyncKHR(sync->display, sync->type, sync->attribs.data());
    sync->created.store(true);
    sync->creationDone.notify_all();
}

DeferredSync* EglFenceSyncManager::promote(EGLSyncKHR handle) {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = syncs.find(handle);
    return it == syncs.end() ? nullptr : &it->second;
}

EGLBoolean EglFenceSyncManager::destroy(EGLDisplay display, EGLSyncKHR handle) {
    {
        std::lock_guard<std::mutex> lock(mutex);
        auto it = syncs.find(handle);
        if (it != syncs.end()) {
            if (it->second.created.load())
                hijack::eglDestroySyncKHR(it->second.display, it->second.sync);
            syncs.erase(it);
        }
    }
    return hijack::eglDestroySyncKHR(display, handle);
}

EGLint EglFenceSyncManager::clientWait(EGLDisplay display, EGLSyncKHR handle, EGLint flags,
                                       EGLTimeKHR timeout) {
    DeferredSync* sync = promote(handle);
    if (!sync) return hijack::eglClientWaitSyncKHR(display, handle, flags, timeout);
    sync->waitForCreation();
    return hijack::eglClientWaitSyncKHR(sync->display, sync->sync, flags, timeout);
}

void EglFenceSyncManager::serverWait(EGLDisplay, EGLSyncKHR handle, EGLint flags) {
    DeferredSync* sync = promote(handle);
    if (!sync) return;
    hijack::eglWaitSyncKHR(sync->display, sync->sync, flags);
}

}  // namespace velour::core

namespace velour {
core::EglFenceSyncManager globalFenceSyncMgr;
}  // namespace velour
