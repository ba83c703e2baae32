#pragma once

#include "core/deferred_executor/Executor.h"
#include "velour/gl_types.h"

// The calls whose wrappers hand over to the program, texture, query, EGL time
// and read-back handlers.
namespace velour::handled {

void glBindAttribLocation(core::Executor* executor, GLuint program, GLuint index,
                          const GLchar* name);

void glPixelStorei(core::Executor* executor, GLenum pname, GLint param);
void glTexSubImage2D(core::Executor* executor, GLenum target, GLint level, GLint xoffset,
                     GLint yoffset, GLsizei width, GLsizei height, GLenum format, GLenum type,
                     const void* pixels);
void glCompressedTexSubImage2D(core::Executor* executor, GLenum target, GLint level, GLint xoffset,
                               GLint yoffset, GLsizei width, GLsizei height, GLenum format,
                               GLsizei imageSize, const void* data);

void glBeginQuery(core::Executor* executor, GLenum target, GLuint id);
void glGetQueryObjectuiv(core::Executor* executor, GLuint id, GLenum pname, GLuint* params);
void glDeleteQueries(core::Executor* executor, GLsizei n, const GLuint* ids);

EGLBoolean eglGetNextFrameIdANDROID(core::Executor* executor, EGLDisplay dpy, EGLSurface surface,
                                    EGLuint64KHR* frameId);
EGLBoolean eglGetFrameTimestampsANDROID(core::Executor* executor, EGLDisplay dpy,
                                        EGLSurface surface, EGLuint64KHR frameId,
                                        EGLint numTimestamps, const EGLint* timestamps,
                                        EGLnsecsANDROID* values);
EGLBoolean eglPresentationTimeANDROID(core::Executor* executor, EGLDisplay dpy, EGLSurface surface,
                                      EGLnsecsANDROID time);

void glReadPixels(core::Executor* executor, GLint x, GLint y, GLsizei width, GLsizei height,
                  GLenum format, GLenum type, void* pixels);

}  // namespace velour::handled
