#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "velour/gl_types.h"

namespace velour::core {

class DeferredExecutor;

// A GL fence as the game holds it: its real object is made when the job
// reaches the worker, at the fence's place in the stream.
struct DeferredFence {
    GLenum condition = 0;
    GLbitfield flags = 0;
    GLsync sync = nullptr;
    std::atomic<bool> created{false};
    std::mutex mutex;
    std::condition_variable creationDone;
    DeferredExecutor* executor = nullptr;

    void waitForCreation();
};

// The same for an EGL fence.
struct DeferredSync {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLenum type = 0;
    std::vector<EGLint> attribs;
    EGLSyncKHR sync = EGL_NO_SYNC_KHR;
    std::atomic<bool> created{false};
    std::mutex mutex;
    std::condition_variable creationDone;
    DeferredExecutor* executor = nullptr;

    void waitForCreation();
};

// GL fences: the game gets the numbers 1, 2, 3 and so on as handles and
// never sees a real GLsync.
class FenceSyncManager {
  public:
    GLsync create(DeferredExecutor* executor, GLenum condition, GLbitfield flags);
    void createDeferred(GLsync handle);
    DeferredFence* promote(GLsync handle);
    void destroy(GLsync handle);
    GLenum clientWait(GLsync handle, GLbitfield flags, GLuint64 timeout);
    void serverWait(GLsync handle, GLbitfield flags, GLuint64 timeout);
    GLboolean isSync(GLsync handle);
    void getSynciv(GLsync handle, GLenum pname, GLsizei bufSize, GLsizei* length, GLint* values);

    static std::atomic<std::uint32_t> _proxy;

  private:
    std::mutex mutex;
    std::unordered_map<GLsync, DeferredFence> fences;
};

// EGL fences: the game's handle is a real object made at once, and the
// worker's object, made at the right place in the stream, stands in for it.
class EglFenceSyncManager {
  public:
    EGLSyncKHR create(DeferredExecutor* executor, bool& deferred, EGLDisplay display, EGLenum type,
                      const EGLint* attribs);
    void createDeferred(EGLSyncKHR handle);
    DeferredSync* promote(EGLSyncKHR handle);
    EGLBoolean destroy(EGLDisplay display, EGLSyncKHR handle);
    EGLint clientWait(EGLDisplay display, EGLSyncKHR handle, EGLint flags, EGLTimeKHR timeout);
    void serverWait(EGLDisplay display, EGLSyncKHR handle, EGLint flags);

  private:
    std::mutex mutex;
    std::unordered_map<EGLSyncKHR, DeferredSync> syncs;
};

extern FenceSyncManager globalGLFenceSyncMgr;

}  // namespace velour::core

namespace velour {

extern core::EglFenceSyncManager globalFenceSyncMgr;

class GLFenceSyncHandler {
  public:
    explicit GLFenceSyncHandler(core::DeferredExecutor* executor) : executor(executor) {}
    virtual ~GLFenceSyncHandler() = default;
    core::DeferredExecutor* executor;
};

class EGLSyncKHRHandler {
  public:
    explicit EGLSyncKHRHandler(core::DeferredExecutor* executor) : executor(executor) {}
    virtual ~EGLSyncKHRHandler() = default;
    core::DeferredExecutor* executor;
};

}  // namespace velour
