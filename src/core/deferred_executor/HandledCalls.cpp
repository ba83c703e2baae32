#include "core/deferred_executor/HandledCalls.h"

#include "core/context.h"
#include "velour/entry_points.h"

namespace velour::handled {

namespace {

struct FenceArgs {
    GLsync handle;
};

struct ServerWaitArgs {
    GLsync handle;
    GLbitfield flags;
    GLuint64 timeout;
};

struct EglFenceArgs {
    EGLSyncKHR handle;
};

struct EglServerWaitArgs {
    EGLDisplay display;
    EGLSyncKHR handle;
    EGLint flags;
};

core::FenceSyncManager& glFences() {
    return core::globalGLFenceSyncMgr;
}

}  // namespace

void glGenBuffers(core::Executor* executor, GLsizei n, GLuint* buffers) {
    auto& names = executor->handler<GLNamesHandler>();
    names.generate(names.buffers, n, buffers, gles::id::glGenBuffers);
}

void glGenTextures(core::Executor* executor, GLsizei n, GLuint* textures) {
    auto& names = executor->handler<GLNamesHandler>();
    names.generate(names.textures, n, textures, gles::id::glGenTextures);
}

void glGenFramebuffers(core::Executor* executor, GLsizei n, GLuint* framebuffers) {
    auto& names = executor->handler<GLNamesHandler>();
    names.generate(names.framebuffers, n, framebuffers, gles::id::glGenFramebuffers);
}

GLsync glFenceSync(core::Executor* executor, GLenum condition, GLbitfield flags) {
    GLsync handle = glFences().create(executor, condition, flags);
    executor->queue.record(
        +[](void* args) { glFences().createDeferred(static_cast<FenceArgs*>(args)->handle); },
        FenceArgs{handle});
    return handle;
}

GLenum glClientWaitSync(core::Executor*, GLsync sync, GLbitfield flags, GLuint64 timeout) {
    return glFences().clientWait(sync, flags, timeout);
}

void glWaitSync(core::Executor* executor, GLsync sync, GLbitfield flags, GLuint64 timeout) {
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<ServerWaitArgs*>(args);
            glFences().serverWait(a->handle, a->flags, a->timeout);
        },
        ServerWaitArgs{sync, flags, timeout});
}

GLboolean glIsSync(core::Executor*, GLsync sync) {
    return glFences().isSync(sync);
}

void glDeleteSync(core::Executor*, GLsync sync) {
    glFences().destroy(sync);
}

void glGetSynciv(core::Executor*, GLsync sync, GLenum pname, GLsizei count, GLsizei* length,
                 GLint* values) {
    glFences().getSynciv(sync, pname, count, length, values);
}

EGLSyncKHR eglCreateSyncKHR(core::Executor* executor, EGLDisplay dpy, EGLenum type,
                            const EGLint* attrib_list) {
    if (!core::context.eglSyncManaged) {
        EGLSyncKHR result = EGL_NO_SYNC_KHR;
        struct Args {
            EGLSyncKHR* result;
            EGLDisplay dpy;
            EGLenum type;
            const EGLint* attribs;
        };
        executor->queue.record(
            +[](void* args) {
                auto* a = static_cast<Args*>(args);
                *a->result = hijack::eglCreateSyncKHR(a->dpy, a->type, a->attribs);
            },
            Args{&result, dpy, type, attrib_list});
        executor->queue.flushAndWait(gles::id::eglCreateSyncKHR);
        return result;
    }
    bool deferred = false;
    EGLSyncKHR handle = globalFenceSyncMgr.create(executor, deferred, dpy, type, attrib_list);
    if (deferred)
        executor->queue.record(
            +[](void* args) {
                globalFenceSyncMgr.createDeferred(static_cast<EglFenceArgs*>(args)->handle);
            },
            EglFenceArgs{handle});
    return handle;
}

EGLBoolean eglDestroySyncKHR(core::Executor*, EGLDisplay dpy, EGLSyncKHR sync) {
    if (!core::context.eglSyncManaged) return hijack::eglDestroySyncKHR(dpy, sync);
    return globalFenceSyncMgr.destroy(dpy, sync);
}

EGLint eglClientWaitSyncKHR(core::Executor* executor, EGLDisplay dpy, EGLSyncKHR sync, EGLint flags,
                            EGLTimeKHR timeout) {
    if (core::context.eglSyncManaged)
        return globalFenceSyncMgr.clientWait(dpy, sync, flags, timeout);
    if (executor->fastFenceEnabled()) return EGL_CONDITION_SATISFIED_KHR;
    return hijack::eglClientWaitSyncKHR(dpy, sync, flags, timeout);
}

EGLint eglWaitSyncKHR(core::Executor* executor, EGLDisplay dpy, EGLSyncKHR sync, EGLint flags) {
    if (core::context.eglSyncManaged) {
        executor->queue.record(
            +[](void* args) {
                auto* a = static_cast<EglServerWaitArgs*>(args);
                globalFenceSyncMgr.serverWait(a->display, a->handle, a->flags);
            },
            EglServerWaitArgs{dpy, sync, flags});
    } else {
        executor->queue.record(
            +[](void* args) {
                auto* a = static_cast<EglServerWaitArgs*>(args);
                hijack::eglWaitSyncKHR(a->display, a->handle, a->flags);
            },
            EglServerWaitArgs{dpy, sync, flags});
    }
    return EGL_TRUE;
}

}  // namespace velour::handled
