#pragma once

#include "core/deferred_executor/ClientCalls.h"
#include "core/deferred_executor/Executor.h"
#include "core/deferred_executor/ObjectCalls.h"
#include "velour/gl_types.h"

// The calls whose wrappers hand over to a handler once the common frame has
// found an executor: name pools and fences.
//
// Out of memory (std::bad_alloc) the wrapper runs the call once more, with the
// game's own pointers. So a handler takes what it needs (frame data copies,
// shadow entries) before any job of the call can reach the driver, and throws
// nothing after; a shadow change made before a throw must be what that run
// makes of the driver's state.
namespace velour::handled {

void glGenBuffers(core::Executor* executor, GLsizei n, GLuint* buffers);
void glGenTextures(core::Executor* executor, GLsizei n, GLuint* textures);
void glGenFramebuffers(core::Executor* executor, GLsizei n, GLuint* framebuffers);

GLsync glFenceSync(core::Executor* executor, GLenum condition, GLbitfield flags);
GLenum glClientWaitSync(core::Executor* executor, GLsync sync, GLbitfield flags, GLuint64 timeout);
void glWaitSync(core::Executor* executor, GLsync sync, GLbitfield flags, GLuint64 timeout);
GLboolean glIsSync(core::Executor* executor, GLsync sync);
void glDeleteSync(core::Executor* executor, GLsync sync);
void glGetSynciv(core::Executor* executor, GLsync sync, GLenum pname, GLsizei count,
                 GLsizei* length, GLint* values);

EGLSyncKHR eglCreateSyncKHR(core::Executor* executor, EGLDisplay dpy, EGLenum type,
                            const EGLint* attrib_list);
EGLBoolean eglDestroySyncKHR(core::Executor* executor, EGLDisplay dpy, EGLSyncKHR sync);
EGLint eglClientWaitSyncKHR(core::Executor* executor, EGLDisplay dpy, EGLSyncKHR sync, EGLint flags,
                            EGLTimeKHR timeout);
EGLint eglWaitSyncKHR(core::Executor* executor, EGLDisplay dpy, EGLSyncKHR sync, EGLint flags);

}  // namespace velour::handled
