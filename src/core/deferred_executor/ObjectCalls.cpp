#include "core/deferred_executor/ObjectCalls.h"

#include "core/deferred_executor/ObjectHandlers.h"

namespace velour::handled {

using core::EglTimeHandler;
using core::Executor;
using core::MiscHandler;
using core::ProgramAndShaderHandler;
using core::QueryHandler;
using core::TextureHandler;

void glBindAttribLocation(Executor* executor, GLuint program, GLuint index, const GLchar* name) {
    executor->handler<ProgramAndShaderHandler>().bindAttribLocation(program, index, name);
}

void glPixelStorei(Executor* executor, GLenum pname, GLint param) {
    executor->handler<TextureHandler>().pixelStore(pname, param);
}

void glTexSubImage2D(Executor* executor, GLenum target, GLint level, GLint xoffset, GLint yoffset,
                     GLsizei width, GLsizei height, GLenum format, GLenum type,
                     const void* pixels) {
    executor->handler<TextureHandler>().texSubImage2D(target, level, xoffset, yoffset, width,
                                                      height, format, type, pixels);
}

void glCompressedTexSubImage2D(Executor* executor, GLenum target, GLint level, GLint xoffset,
                               GLint yoffset, GLsizei width, GLsizei height, GLenum format,
                               GLsizei imageSize, const void* data) {
    executor->handler<TextureHandler>().compressedTexSubImage2D(
        target, level, xoffset, yoffset, width, height, format, imageSize, data);
}

void glBeginQuery(Executor* executor, GLenum target, GLuint id) {
    executor->handler<QueryHandler>().beginQuery(target, id);
}

void glGetQueryObjectuiv(Executor* executor, GLuint id, GLenum pname, GLuint* params) {
    executor->handler<QueryHandler>().getQueryObjectuiv(id, pname, params);
}

void glDeleteQueries(Executor* executor, GLsizei n, const GLuint* ids) {
    executor->handler<QueryHandler>().deleteQueries(n, ids);
}

EGLBoolean eglGetNextFrameIdANDROID(Executor* executor, EGLDisplay dpy, EGLSurface surface,
                                    EGLuint64KHR* frameId) {
    return executor->handler<EglTimeHandler>().getNextFrameId(dpy, surface, frameId);
}

EGLBoolean eglGetFrameTimestampsANDROID(Executor* executor, EGLDisplay dpy, EGLSurface surface,
                                        EGLuint64KHR frameId, EGLint numTimestamps,
                                        const EGLint* timestamps, EGLnsecsANDROID* values) {
    return executor->handler<EglTimeHandler>().getFrameTimestamps(
        dpy, surface, frameId, numTimestamps, timestamps, values);
}

EGLBoolean eglPresentationTimeANDROID(Executor* executor, EGLDisplay dpy, EGLSurface surface,
                                      EGLnsecsANDROID time) {
    return executor->handler<EglTimeHandler>().presentationTime(dpy, surface, time);
}

void glReadPixels(Executor* executor, GLint x, GLint y, GLsizei width, GLsizei height,
                  GLenum format, GLenum type, void* pixels) {
    executor->handler<MiscHandler>().readPixels(x, y, width, height, format, type, pixels);
}

}  // namespace velour::handled
