#include "core/deferred_executor/ClientCalls.h"

#include <limits>
#include <new>

#include "core/deferred_executor/ClientGLHandler.h"
#include "core/deferred_executor/CopyParams.h"
#include "velour/entry_points.h"

namespace velour::handled {

namespace {

using core::recordCall;
using core::syncCall;
using ClientDrawArgs = ClientGLHandler::ClientDrawArgs;

constexpr GLenum ARRAY_BUFFER = 34962;
constexpr GLenum ELEMENT_ARRAY_BUFFER = 34963;

ClientGLHandler& client(Executor* executor) {
    return executor->handler<ClientGLHandler>();
}

// A draw of buffer data only: the hand-over every so many draws, the job, and
// the count that paces both.
template <auto& Slot, typename... A>
void plainDraw(Executor* executor, A... args) {
    executor->submitEarly();
    recordCall<Slot>(executor->queue, args...);
    executor->countDraw();
}

// A draw whose client ranges are unknown: the game's own pointers are applied
// on the worker, and the game waits, which keeps its memory valid meanwhile.
template <typename Record>
void liveDraw(Executor* executor, std::uint32_t cause, ClientGLHandler& handler, Record record) {
    handler.recordLiveApply();
    record();
    executor->queue.flushAndWait(cause);
}

// The copied arrays start at the draw's first element.
void drawArraysCopied(const ClientDrawArgs& a) {
    hijack::glDrawArrays(a.mode, 0, a.count);
}

void drawArraysInstancedCopied(const ClientDrawArgs& a) {
    hijack::glDrawArraysInstanced(a.mode, 0, a.count, a.instanceCount);
}

void drawElementsCopied(const ClientDrawArgs& a) {
    const auto& s = *a.state;
    hijack::glDrawElements(a.mode, s.indexCount, s.indexType, s.indices);
}

void drawRangeElementsCopied(const ClientDrawArgs& a) {
    const auto& s = *a.state;
    hijack::glDrawRangeElements(a.mode, a.start, a.end, s.indexCount, s.indexType, s.indices);
}

void drawElementsInstancedCopied(const ClientDrawArgs& a) {
    const auto& s = *a.state;
    hijack::glDrawElementsInstanced(a.mode, s.indexCount, s.indexType, s.indices, a.instanceCount);
}

// The base vertex is in the copy's start already.
template <auto& Slot>
void drawBaseVertexCopied(const ClientDrawArgs& a) {
    const auto& s = *a.state;
    Slot(a.mode, s.indexCount, s.indexType, s.indices, 0);
}

template <auto& Slot>
void drawRangeBaseVertexCopied(const ClientDrawArgs& a) {
    const auto& s = *a.state;
    Slot(a.mode, a.start, a.end, s.indexCount, s.indexType, s.indices, 0);
}

template <auto& Slot>
void drawInstancedBaseVertexCopied(const ClientDrawArgs& a) {
    const auto& s = *a.state;
    Slot(a.mode, s.indexCount, s.indexType, s.indices, a.instanceCount, 0);
}

template <typename Record>
void drawArraysFamily(Executor* executor, std::uint32_t cause,
                      void (*copied)(const ClientDrawArgs&), GLenum mode, GLint first,
                      GLsizei count, GLsizei instanceCount, bool instanced, Record record) {
    ClientGLHandler& handler = client(executor);
    if (!handler.isClientDraw()) {
        executor->submitEarly();
        record();
        executor->countDraw();
        return;
    }
    if (count < 1 || (instanced && instanceCount < 1)) return;
    // Elements before the array are not ours to read; the driver refuses it.
    if (first < 0) return liveDraw(executor, cause, handler, record);
    ClientGLHandler::ClientDrawState* state;
    try {
        state = handler.copyClientArrays(first, count, instanceCount);
    } catch (const std::bad_alloc&) {
        core::DeferredExecutor::onFrameDataExhausted();
        return liveDraw(executor, cause, handler, record);
    }
    ClientDrawArgs args{copied, state, handler.binding(ARRAY_BUFFER), mode, count, instanceCount,
                        0,      0};
    handler.recordClientDraw(args);
    executor->submitEarly();
}

struct Elements {
    GLenum mode;
    GLsizei count;
    GLenum type;
    const void* indices;
    GLsizei instanceCount;  // 0 for a draw that is not instanced
    bool instanced;
    GLint basevertex;
    bool ranged;
    GLuint start;
    GLuint end;
};

// record(indices) records the driver's own call with the indices given.
template <typename Record>
void drawElementsFamily(Executor* executor, std::uint32_t cause, const Elements& e,
                        void (*copied)(const ClientDrawArgs&), Record record) {
    if (e.count < 1) return;
    ClientGLHandler& handler = client(executor);
    bool isClient = handler.isClientDraw();
    GLuint elementBuffer = handler.binding(ELEMENT_ARRAY_BUFFER);
    if (elementBuffer != 0) {
        if (!isClient) {
            executor->submitEarly();
            record(e.indices);
            executor->countDraw();
            return;
        }
        // Indices in a buffer: the range they reach is unknown here.
        return liveDraw(executor, cause, handler, [&] { record(e.indices); });
    }
    if (!isClient) {
        const void* indices;
        try {
            indices = handler.copyIndices(e.count, e.type, e.indices);
        } catch (const std::bad_alloc&) {
            core::DeferredExecutor::onFrameDataExhausted();
            record(e.indices);
            return executor->queue.flushAndWait(cause);
        }
        record(indices);
        executor->submitEarly();
        return;
    }
    if (e.instanced && e.instanceCount < 1) return;
    long long largest = e.ranged ? e.end : handler.largestIndex(e.count, e.type, e.indices);
    long long vertices = largest + e.basevertex + 1;
    if (e.basevertex < 0 || vertices > std::numeric_limits<GLsizei>::max())
        return liveDraw(executor, cause, handler, [&] { record(e.indices); });
    ClientGLHandler::ClientDrawState* state;
    try {
        state =
            handler.copyClientArrays(e.basevertex, static_cast<GLsizei>(vertices), e.instanceCount);
        state->indices = handler.copyIndices(e.count, e.type, e.indices);
    } catch (const std::bad_alloc&) {
        // Out of frame data: the game's own arrays, and a wait.
        core::DeferredExecutor::onFrameDataExhausted();
        return liveDraw(executor, cause, handler, [&] { record(e.indices); });
    }
    state->indexCount = e.count;
    state->indexType = e.type;
    handler.recordClientDraw(ClientDrawArgs{copied, state, handler.binding(ARRAY_BUFFER), e.mode,
                                            e.count, e.instanceCount, e.start, e.end});
    executor->submitEarly();
}

// Draws that take no copy: client arrays are applied live and waited for;
// otherwise an indexed draw from a buffer counts, and any other waits.
template <typename Record>
void drawWaitingFamily(Executor* executor, std::uint32_t cause, Record record) {
    ClientGLHandler& handler = client(executor);
    if (handler.isClientDraw()) return liveDraw(executor, cause, handler, record);
    if (handler.binding(ELEMENT_ARRAY_BUFFER) != 0) {
        executor->submitEarly();
        record();
        executor->countDraw();
        return;
    }
    record();
    executor->queue.flushAndWait(cause);
}

// Multi-draws read arrays of counts and pointers of the game's: always waited for.
template <typename Record>
void multiDraw(Executor* executor, std::uint32_t cause, Record record) {
    ClientGLHandler& handler = client(executor);
    if (handler.isClientDraw()) handler.recordLiveApply();
    record();
    executor->queue.flushAndWait(cause);
}

}  // namespace

void glBindBuffer(Executor* executor, GLenum target, GLuint buffer) {
    client(executor).bindBuffer(target, buffer);
    recordCall<hijack::glBindBuffer>(executor->queue, target, buffer);
}

void glBindVertexArray(Executor* executor, GLuint array) {
    client(executor).bindVertexArray(array);
    recordCall<hijack::glBindVertexArray>(executor->queue, array);
}

void glBindVertexArrayOES(Executor* executor, GLuint array) {
    client(executor).bindVertexArray(array);
    recordCall<hijack::glBindVertexArrayOES>(executor->queue, array);
}

void glDeleteVertexArrays(Executor* executor, GLsizei n, const GLuint* arrays) {
    const void* copy = core::copyArray(*executor->frameData, arrays, n, sizeof(GLuint));
    client(executor).deleteVertexArrays(n, arrays);
    recordCall<hijack::glDeleteVertexArrays>(executor->queue, n, static_cast<const GLuint*>(copy));
}

void glDeleteBuffers(Executor* executor, GLsizei n, const GLuint* buffers) {
    const void* copy = core::copyArray(*executor->frameData, buffers, n, sizeof(GLuint));
    client(executor).deleteBuffers(n, buffers);
    recordCall<hijack::glDeleteBuffers>(executor->queue, n, static_cast<const GLuint*>(copy));
}

void glDeleteTextures(Executor* executor, GLsizei n, const GLuint* textures) {
    const void* copy = core::copyArray(*executor->frameData, textures, n, sizeof(GLuint));
    client(executor).deleteTextures(n, textures);
    recordCall<hijack::glDeleteTextures>(executor->queue, n, static_cast<const GLuint*>(copy));
}

void glActiveTexture(Executor* executor, GLenum texture) {
    client(executor).activeTexture = texture;
    recordCall<hijack::glActiveTexture>(executor->queue, texture);
}

void glBindTexture(Executor* executor, GLenum target, GLuint texture) {
    client(executor).bindTexture(target, texture);
    recordCall<hijack::glBindTexture>(executor->queue, target, texture);
}

void glReadBuffer(Executor* executor, GLenum src) {
    client(executor).readBuffer = src;
    recordCall<hijack::glReadBuffer>(executor->queue, src);
}

void glEnable(Executor* executor, GLenum cap) {
    client(executor).setCapability(cap, true);
    recordCall<hijack::glEnable>(executor->queue, cap);
}

void glDisable(Executor* executor, GLenum cap) {
    client(executor).setCapability(cap, false);
    recordCall<hijack::glDisable>(executor->queue, cap);
}

void glEnableVertexAttribArray(Executor* executor, GLuint index) {
    client(executor).enableAttribArray(index, true);
    recordCall<hijack::glEnableVertexAttribArray>(executor->queue, index);
}

void glDisableVertexAttribArray(Executor* executor, GLuint index) {
    client(executor).enableAttribArray(index, false);
    recordCall<hijack::glDisableVertexAttribArray>(executor->queue, index);
}

void glVertexAttribDivisor(Executor* executor, GLuint index, GLuint divisor) {
    client(executor).attribDivisor(index, divisor);
    recordCall<hijack::glVertexAttribDivisor>(executor->queue, index, divisor);
}

// A client pointer reaches the driver with the draw that reads it.
void glVertexAttribPointer(Executor* executor, GLuint index, GLint size, GLenum type,
                           GLboolean normalized, GLsizei stride, const void* pointer) {
    if (client(executor).attribPointer(index, size, type, normalized != 0, stride, pointer, false))
        return;
    recordCall<hijack::glVertexAttribPointer>(executor->queue, index, size, type, normalized,
                                              stride, pointer);
}

void glVertexAttribIPointer(Executor* executor, GLuint index, GLint size, GLenum type,
                            GLsizei stride, const void* pointer) {
    if (client(executor).attribPointer(index, size, type, false, stride, pointer, true)) return;
    recordCall<hijack::glVertexAttribIPointer>(executor->queue, index, size, type, stride, pointer);
}

namespace {
// Indexed enables: the plain query of the capability answers index 0.
template <auto& Slot>
void enableIndexed(Executor* executor, GLenum target, GLuint index) {
    client(executor).forgetCapability(target);
    recordCall<Slot>(executor->queue, target, index);
}
}  // namespace

void glEnablei(Executor* executor, GLenum target, GLuint index) {
    enableIndexed<hijack::glEnablei>(executor, target, index);
}

void glDisablei(Executor* executor, GLenum target, GLuint index) {
    enableIndexed<hijack::glDisablei>(executor, target, index);
}

void glEnableiOES(Executor* executor, GLenum target, GLuint index) {
    enableIndexed<hijack::glEnableiOES>(executor, target, index);
}

void glDisableiOES(Executor* executor, GLenum target, GLuint index) {
    enableIndexed<hijack::glDisableiOES>(executor, target, index);
}

void glEnableiEXT(Executor* executor, GLenum target, GLuint index) {
    enableIndexed<hijack::glEnableiEXT>(executor, target, index);
}

void glDisableiEXT(Executor* executor, GLenum target, GLuint index) {
    enableIndexed<hijack::glDisableiEXT>(executor, target, index);
}

GLboolean glIsEnabled(Executor* executor, GLenum cap) {
    bool on;
    if (client(executor).isEnabled(cap, on)) return on;
    return syncCall<hijack::glIsEnabled>(executor->queue, gles::id::glIsEnabled, cap);
}

void glGetBooleanv(Executor* executor, GLenum pname, GLboolean* data) {
    bool on;
    if (data && client(executor).isEnabled(pname, on)) {
        *data = on;
        return;
    }
    syncCall<hijack::glGetBooleanv>(executor->queue, gles::id::glGetBooleanv, pname, data);
}

void glViewport(Executor* executor, GLint x, GLint y, GLsizei width, GLsizei height) {
    client(executor).viewport(x, y, width, height);
    recordCall<hijack::glViewport>(executor->queue, x, y, width, height);
}

void glScissor(Executor* executor, GLint x, GLint y, GLsizei width, GLsizei height) {
    client(executor).scissor(x, y, width, height);
    recordCall<hijack::glScissor>(executor->queue, x, y, width, height);
}

void glUseProgram(Executor* executor, GLuint program) {
    client(executor).useProgram(program);
    recordCall<hijack::glUseProgram>(executor->queue, program);
}

namespace {
struct LinkArgs {
    GLuint program;
    GLint* linked;
};
}  // namespace

// The link waits as it always has; its result, read in the same job, tells
// the shadow whether a later glUseProgram of the program can fail.
void glLinkProgram(Executor* executor, GLuint program) {
    GLint linked = 0;
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<LinkArgs*>(args);
            hijack::glLinkProgram(a->program);
            // Only a program can be asked, or the driver raises a second error.
            if (hijack::glIsProgram(a->program))
                hijack::glGetProgramiv(a->program, 0x8B82 /* GL_LINK_STATUS */, a->linked);
        },
        LinkArgs{program, &linked});
    executor->queue.flushAndWait(gles::id::glLinkProgram);
    client(executor).programLinked(program, linked != 0);
}

void glDeleteProgram(Executor* executor, GLuint program) {
    client(executor).forgetProgram(program);
    recordCall<hijack::glDeleteProgram>(executor->queue, program);
}

void glProgramBinary(Executor* executor, GLuint program, GLenum binaryFormat, const void* binary,
                     GLsizei length) {
    const void* copy = core::copySized(*executor->frameData, binary, length);
    client(executor).forgetProgram(program);
    recordCall<hijack::glProgramBinary>(executor->queue, program, binaryFormat, copy, length);
}

// Runs at once, as before; only the shadow hears of it.
void glProgramBinaryOES(Executor* executor, GLuint program, GLenum binaryFormat, const void* binary,
                        GLint length) {
    client(executor).forgetProgram(program);
    hijack::glProgramBinaryOES(program, binaryFormat, binary, length);
}

void glBindFramebuffer(Executor* executor, GLenum target, GLuint framebuffer) {
    client(executor).bindFramebuffer(target, framebuffer);
    recordCall<hijack::glBindFramebuffer>(executor->queue, target, framebuffer);
}

void glBindRenderbuffer(Executor* executor, GLenum target, GLuint renderbuffer) {
    client(executor).bindRenderbuffer(target, renderbuffer);
    recordCall<hijack::glBindRenderbuffer>(executor->queue, target, renderbuffer);
}

void glDeleteFramebuffers(Executor* executor, GLsizei n, const GLuint* framebuffers) {
    const void* copy = core::copyArray(*executor->frameData, framebuffers, n, sizeof(GLuint));
    client(executor).deleteFramebuffers(n, framebuffers);
    recordCall<hijack::glDeleteFramebuffers>(executor->queue, n, static_cast<const GLuint*>(copy));
}

void glDeleteRenderbuffers(Executor* executor, GLsizei n, const GLuint* renderbuffers) {
    const void* copy = core::copyArray(*executor->frameData, renderbuffers, n, sizeof(GLuint));
    client(executor).deleteRenderbuffers(n, renderbuffers);
    recordCall<hijack::glDeleteRenderbuffers>(executor->queue, n, static_cast<const GLuint*>(copy));
}

void glBeginTransformFeedback(Executor* executor, GLenum primitiveMode) {
    client(executor).transformFeedback(true);
    recordCall<hijack::glBeginTransformFeedback>(executor->queue, primitiveMode);
}

void glEndTransformFeedback(Executor* executor) {
    client(executor).transformFeedback(false);
    recordCall<hijack::glEndTransformFeedback>(executor->queue);
}

void glBufferData(Executor* executor, GLenum target, GLsizeiptr size, const void* data,
                  GLenum usage) {
    const void* copy = core::copySized(*executor->frameData, data, size);
    client(executor).bufferData(target, size, usage);
    recordCall<hijack::glBufferData>(executor->queue, target, size, copy, usage);
}

void glBufferStorageEXT(Executor* executor, GLenum target, GLsizeiptr size, const void* data,
                        GLbitfield flags) {
    const void* copy = core::copySized(*executor->frameData, data, size);
    client(executor).bufferStorage(target);
    recordCall<hijack::glBufferStorageEXT>(executor->queue, target, size, copy, flags);
}

void* glMapBufferOES(Executor* executor, GLenum target, GLenum access) {
    if (void* shadow = client(executor).mapWholeForWrite(target, access)) return shadow;
    return syncCall<hijack::glMapBufferOES>(executor->queue, gles::id::glMapBufferOES, target,
                                            access);
}

void forgetState(Executor* executor, GLenum pname) {
    client(executor).forgetState(pname);
}

void glGetIntegerv(Executor* executor, GLenum pname, GLint* data) {
    if (!data) return;
    if (client(executor).getIntegerv(pname, data)) return;
    syncCall<hijack::glGetIntegerv>(executor->queue, gles::id::glGetIntegerv, pname, data);
}

GLboolean glIsVertexArray(Executor* executor, GLuint array) {
    return client(executor).vertexArrayElementBuffers.contains(array) ? 1 : 0;
}

namespace {
// The four attribute queries differ only in the type they write: one shadow
// answer, else the driver after a drain.
template <auto& Slot, std::uint32_t Cause, typename T>
void getVertexAttrib(Executor* executor, GLuint index, GLenum pname, T* params) {
    GLint value;
    if (params && client(executor).vertexAttrib(index, pname, value)) {
        *params = static_cast<T>(value);
        return;
    }
    syncCall<Slot>(executor->queue, Cause, index, pname, params);
}
}  // namespace

void glGetVertexAttribiv(Executor* executor, GLuint index, GLenum pname, GLint* params) {
    getVertexAttrib<hijack::glGetVertexAttribiv, gles::id::glGetVertexAttribiv>(executor, index,
                                                                                pname, params);
}

void glGetVertexAttribfv(Executor* executor, GLuint index, GLenum pname, GLfloat* params) {
    getVertexAttrib<hijack::glGetVertexAttribfv, gles::id::glGetVertexAttribfv>(executor, index,
                                                                                pname, params);
}

void glGetVertexAttribIiv(Executor* executor, GLuint index, GLenum pname, GLint* params) {
    getVertexAttrib<hijack::glGetVertexAttribIiv, gles::id::glGetVertexAttribIiv>(executor, index,
                                                                                  pname, params);
}

void glGetVertexAttribIuiv(Executor* executor, GLuint index, GLenum pname, GLuint* params) {
    getVertexAttrib<hijack::glGetVertexAttribIuiv, gles::id::glGetVertexAttribIuiv>(executor, index,
                                                                                    pname, params);
}

void glGetVertexAttribPointerv(Executor* executor, GLuint index, GLenum pname, void** pointer) {
    if (pointer && client(executor).vertexAttribPointer(index, pname, pointer)) return;
    syncCall<hijack::glGetVertexAttribPointerv>(
        executor->queue, gles::id::glGetVertexAttribPointerv, index, pname, pointer);
}

void glGetBufferParameteriv(Executor* executor, GLenum target, GLenum pname, GLint* params) {
    GLint64 value;
    if (params && client(executor).bufferParameter(target, pname, value)) {
        *params = static_cast<GLint>(value);
        return;
    }
    syncCall<hijack::glGetBufferParameteriv>(executor->queue, gles::id::glGetBufferParameteriv,
                                             target, pname, params);
}

void glGetBufferParameteri64v(Executor* executor, GLenum target, GLenum pname, GLint64* params) {
    if (params && client(executor).bufferParameter(target, pname, *params)) return;
    syncCall<hijack::glGetBufferParameteri64v>(executor->queue, gles::id::glGetBufferParameteri64v,
                                               target, pname, params);
}

void glGetBufferPointerv(Executor* executor, GLenum target, GLenum pname, void** params) {
    if (params && client(executor).bufferPointer(target, pname, params)) return;
    syncCall<hijack::glGetBufferPointerv>(executor->queue, gles::id::glGetBufferPointerv, target,
                                          pname, params);
}

void glGetBufferPointervOES(Executor* executor, GLenum target, GLenum pname, void** params) {
    if (params && client(executor).bufferPointer(target, pname, params)) return;
    syncCall<hijack::glGetBufferPointervOES>(executor->queue, gles::id::glGetBufferPointervOES,
                                             target, pname, params);
}

// Reads of a pixel-pack buffer that a read-back already holds are the
// texture handler's to serve; they reach the driver here until it does.
void* glMapBufferRange(Executor* executor, GLenum target, GLintptr offset, GLsizeiptr length,
                       GLbitfield access) {
    if (void* shadow = client(executor).mapForWrite(target, offset, length, access)) return shadow;
    if (void* copy = client(executor).mapReadBack(target, offset, length, access)) return copy;
    return syncCall<hijack::glMapBufferRange>(executor->queue, gles::id::glMapBufferRange, target,
                                              offset, length, access);
}

// A write map of ours goes back whole at the unmap.
void glFlushMappedBufferRange(Executor* executor, GLenum target, GLintptr offset,
                              GLsizeiptr length) {
    if (client(executor).isMappedForWrite(target)) return;
    recordCall<hijack::glFlushMappedBufferRange>(executor->queue, target, offset, length);
}

GLboolean glUnmapBuffer(Executor* executor, GLenum target) {
    if (client(executor).unmapReadBack(target)) return 1;
    if (client(executor).unmapWritten(target)) return 1;
    return syncCall<hijack::glUnmapBuffer>(executor->queue, gles::id::glUnmapBuffer, target);
}

GLboolean glUnmapBufferOES(Executor* executor, GLenum target) {
    if (client(executor).unmapReadBack(target)) return 1;
    if (client(executor).unmapWritten(target)) return 1;
    return syncCall<hijack::glUnmapBufferOES>(executor->queue, gles::id::glUnmapBufferOES, target);
}

void glDrawBuffers(Executor* executor, GLsizei n, const GLenum* bufs) {
    client(executor).drawBuffers(n, bufs);
}

void glDrawArrays(Executor* executor, GLenum mode, GLint first, GLsizei count) {
    drawArraysFamily(
        executor, gles::id::glDrawArrays, &drawArraysCopied, mode, first, count, 0, false,
        [&] { recordCall<hijack::glDrawArrays>(executor->queue, mode, first, count); });
}

void glDrawArraysInstanced(Executor* executor, GLenum mode, GLint first, GLsizei count,
                           GLsizei instancecount) {
    drawArraysFamily(executor, gles::id::glDrawArraysInstanced, &drawArraysInstancedCopied, mode,
                     first, count, instancecount, true, [&] {
                         recordCall<hijack::glDrawArraysInstanced>(executor->queue, mode, first,
                                                                   count, instancecount);
                     });
}

void glDrawElements(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                    const void* indices) {
    drawElementsFamily(executor, gles::id::glDrawElements,
                       Elements{mode, count, type, indices, 0, false, 0, false, 0, 0},
                       &drawElementsCopied, [&](const void* i) {
                           recordCall<hijack::glDrawElements>(executor->queue, mode, count, type,
                                                              i);
                       });
}

void glDrawRangeElements(Executor* executor, GLenum mode, GLuint start, GLuint end, GLsizei count,
                         GLenum type, const void* indices) {
    drawElementsFamily(executor, gles::id::glDrawRangeElements,
                       Elements{mode, count, type, indices, 0, false, 0, true, start, end},
                       &drawRangeElementsCopied, [&](const void* i) {
                           recordCall<hijack::glDrawRangeElements>(executor->queue, mode, start,
                                                                   end, count, type, i);
                       });
}

void glDrawElementsInstanced(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                             const void* indices, GLsizei instancecount) {
    drawElementsFamily(executor, gles::id::glDrawElementsInstanced,
                       Elements{mode, count, type, indices, instancecount, true, 0, false, 0, 0},
                       &drawElementsInstancedCopied, [&](const void* i) {
                           recordCall<hijack::glDrawElementsInstanced>(executor->queue, mode, count,
                                                                       type, i, instancecount);
                       });
}

namespace {

template <auto& Slot, std::uint32_t Cause>
void baseVertex(Executor* executor, GLenum mode, GLsizei count, GLenum type, const void* indices,
                GLint basevertex) {
    drawElementsFamily(executor, Cause,
                       Elements{mode, count, type, indices, 0, false, basevertex, false, 0, 0},
                       &drawBaseVertexCopied<Slot>, [&](const void* i) {
                           recordCall<Slot>(executor->queue, mode, count, type, i, basevertex);
                       });
}

template <auto& Slot, std::uint32_t Cause>
void rangeBaseVertex(Executor* executor, GLenum mode, GLuint start, GLuint end, GLsizei count,
                     GLenum type, const void* indices, GLint basevertex) {
    drawElementsFamily(executor, Cause,
                       Elements{mode, count, type, indices, 0, false, basevertex, true, start, end},
                       &drawRangeBaseVertexCopied<Slot>, [&](const void* i) {
                           recordCall<Slot>(executor->queue, mode, start, end, count, type, i,
                                            basevertex);
                       });
}

// Instances are counted in the copy too, or per-instance arrays would be cut
// short.
template <auto& Slot, std::uint32_t Cause>
void instancedBaseVertex(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                         const void* indices, GLsizei instancecount, GLint basevertex) {
    drawElementsFamily(
        executor, Cause,
        Elements{mode, count, type, indices, instancecount, true, basevertex, false, 0, 0},
        &drawInstancedBaseVertexCopied<Slot>, [&](const void* i) {
            recordCall<Slot>(executor->queue, mode, count, type, i, instancecount, basevertex);
        });
}

}  // namespace

void glDrawElementsBaseVertex(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                              const void* indices, GLint basevertex) {
    baseVertex<hijack::glDrawElementsBaseVertex, gles::id::glDrawElementsBaseVertex>(
        executor, mode, count, type, indices, basevertex);
}

void glDrawElementsBaseVertexOES(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                 const void* indices, GLint basevertex) {
    baseVertex<hijack::glDrawElementsBaseVertexOES, gles::id::glDrawElementsBaseVertexOES>(
        executor, mode, count, type, indices, basevertex);
}

void glDrawElementsBaseVertexEXT(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                 const void* indices, GLint basevertex) {
    baseVertex<hijack::glDrawElementsBaseVertexEXT, gles::id::glDrawElementsBaseVertexEXT>(
        executor, mode, count, type, indices, basevertex);
}

void glDrawRangeElementsBaseVertex(Executor* executor, GLenum mode, GLuint start, GLuint end,
                                   GLsizei count, GLenum type, const void* indices,
                                   GLint basevertex) {
    rangeBaseVertex<hijack::glDrawRangeElementsBaseVertex, gles::id::glDrawRangeElementsBaseVertex>(
        executor, mode, start, end, count, type, indices, basevertex);
}

void glDrawRangeElementsBaseVertexOES(Executor* executor, GLenum mode, GLuint start, GLuint end,
                                      GLsizei count, GLenum type, const void* indices,
                                      GLint basevertex) {
    rangeBaseVertex<hijack::glDrawRangeElementsBaseVertexOES,
                    gles::id::glDrawRangeElementsBaseVertexOES>(executor, mode, start, end, count,
                                                                type, indices, basevertex);
}

void glDrawRangeElementsBaseVertexEXT(Executor* executor, GLenum mode, GLuint start, GLuint end,
                                      GLsizei count, GLenum type, const void* indices,
                                      GLint basevertex) {
    rangeBaseVertex<hijack::glDrawRangeElementsBaseVertexEXT,
                    gles::id::glDrawRangeElementsBaseVertexEXT>(executor, mode, start, end, count,
                                                                type, indices, basevertex);
}

void glDrawElementsInstancedBaseVertex(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                       const void* indices, GLsizei instancecount,
                                       GLint basevertex) {
    instancedBaseVertex<hijack::glDrawElementsInstancedBaseVertex,
                        gles::id::glDrawElementsInstancedBaseVertex>(
        executor, mode, count, type, indices, instancecount, basevertex);
}

void glDrawElementsInstancedBaseVertexOES(Executor* executor, GLenum mode, GLsizei count,
                                          GLenum type, const void* indices, GLsizei instancecount,
                                          GLint basevertex) {
    instancedBaseVertex<hijack::glDrawElementsInstancedBaseVertexOES,
                        gles::id::glDrawElementsInstancedBaseVertexOES>(
        executor, mode, count, type, indices, instancecount, basevertex);
}

void glDrawElementsInstancedBaseVertexEXT(Executor* executor, GLenum mode, GLsizei count,
                                          GLenum type, const void* indices, GLsizei instancecount,
                                          GLint basevertex) {
    instancedBaseVertex<hijack::glDrawElementsInstancedBaseVertexEXT,
                        gles::id::glDrawElementsInstancedBaseVertexEXT>(
        executor, mode, count, type, indices, instancecount, basevertex);
}

void glDrawArraysIndirect(Executor* executor, GLenum mode, const void* indirect) {
    plainDraw<hijack::glDrawArraysIndirect>(executor, mode, indirect);
}

void glDrawElementsIndirect(Executor* executor, GLenum mode, GLenum type, const void* indirect) {
    plainDraw<hijack::glDrawElementsIndirect>(executor, mode, type, indirect);
}

void glMultiDrawArraysEXT(Executor* executor, GLenum mode, const GLint* first, const GLsizei* count,
                          GLsizei primcount) {
    multiDraw(executor, gles::id::glMultiDrawArraysEXT, [&] {
        recordCall<hijack::glMultiDrawArraysEXT>(executor->queue, mode, first, count, primcount);
    });
}

void glMultiDrawElementsEXT(Executor* executor, GLenum mode, const GLsizei* count, GLenum type,
                            const void* const* indices, GLsizei primcount) {
    multiDraw(executor, gles::id::glMultiDrawElementsEXT, [&] {
        recordCall<hijack::glMultiDrawElementsEXT>(executor->queue, mode, count, type, indices,
                                                   primcount);
    });
}

void glMultiDrawArraysIndirectEXT(Executor* executor, GLenum mode, const void* indirect,
                                  GLsizei drawcount, GLsizei stride) {
    multiDraw(executor, gles::id::glMultiDrawArraysIndirectEXT, [&] {
        recordCall<hijack::glMultiDrawArraysIndirectEXT>(executor->queue, mode, indirect, drawcount,
                                                         stride);
    });
}

void glMultiDrawElementsIndirectEXT(Executor* executor, GLenum mode, GLenum type,
                                    const void* indirect, GLsizei drawcount, GLsizei stride) {
    multiDraw(executor, gles::id::glMultiDrawElementsIndirectEXT, [&] {
        recordCall<hijack::glMultiDrawElementsIndirectEXT>(executor->queue, mode, type, indirect,
                                                           drawcount, stride);
    });
}

void glMultiDrawElementsBaseVertexEXT(Executor* executor, GLenum mode, const GLsizei* count,
                                      GLenum type, const void* const* indices, GLsizei drawcount,
                                      const GLint* basevertex) {
    multiDraw(executor, gles::id::glMultiDrawElementsBaseVertexEXT, [&] {
        recordCall<hijack::glMultiDrawElementsBaseVertexEXT>(executor->queue, mode, count, type,
                                                             indices, drawcount, basevertex);
    });
}

void glMultiDrawElementsBaseVertexOES(Executor* executor, GLenum mode, const GLsizei* count,
                                      GLenum type, const void* const* indices, GLsizei drawcount,
                                      const GLint* basevertex) {
    multiDraw(executor, gles::id::glMultiDrawElementsBaseVertexOES, [&] {
        recordCall<hijack::glMultiDrawElementsBaseVertexOES>(executor->queue, mode, count, type,
                                                             indices, drawcount, basevertex);
    });
}

void glDrawArraysInstancedANGLE(Executor* executor, GLenum mode, GLint first, GLsizei count,
                                GLsizei primcount) {
    drawWaitingFamily(executor, gles::id::glDrawArraysInstancedANGLE, [&] {
        recordCall<hijack::glDrawArraysInstancedANGLE>(executor->queue, mode, first, count,
                                                       primcount);
    });
}

void glDrawElementsInstancedANGLE(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                  const void* indices, GLsizei primcount) {
    drawWaitingFamily(executor, gles::id::glDrawElementsInstancedANGLE, [&] {
        recordCall<hijack::glDrawElementsInstancedANGLE>(executor->queue, mode, count, type,
                                                         indices, primcount);
    });
}

void glDrawArraysInstancedEXT(Executor* executor, GLenum mode, GLint start, GLsizei count,
                              GLsizei primcount) {
    drawWaitingFamily(executor, gles::id::glDrawArraysInstancedEXT, [&] {
        recordCall<hijack::glDrawArraysInstancedEXT>(executor->queue, mode, start, count,
                                                     primcount);
    });
}

void glDrawElementsInstancedEXT(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                const void* indices, GLsizei primcount) {
    drawWaitingFamily(executor, gles::id::glDrawElementsInstancedEXT, [&] {
        recordCall<hijack::glDrawElementsInstancedEXT>(executor->queue, mode, count, type, indices,
                                                       primcount);
    });
}

void glDrawArraysInstancedNV(Executor* executor, GLenum mode, GLint first, GLsizei count,
                             GLsizei primcount) {
    drawWaitingFamily(executor, gles::id::glDrawArraysInstancedNV, [&] {
        recordCall<hijack::glDrawArraysInstancedNV>(executor->queue, mode, first, count, primcount);
    });
}

void glDrawElementsInstancedNV(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                               const void* indices, GLsizei primcount) {
    drawWaitingFamily(executor, gles::id::glDrawElementsInstancedNV, [&] {
        recordCall<hijack::glDrawElementsInstancedNV>(executor->queue, mode, count, type, indices,
                                                      primcount);
    });
}

void glDrawArraysInstancedBaseInstanceEXT(Executor* executor, GLenum mode, GLint first,
                                          GLsizei count, GLsizei instancecount,
                                          GLuint baseinstance) {
    drawWaitingFamily(executor, gles::id::glDrawArraysInstancedBaseInstanceEXT, [&] {
        recordCall<hijack::glDrawArraysInstancedBaseInstanceEXT>(
            executor->queue, mode, first, count, instancecount, baseinstance);
    });
}

void glDrawElementsInstancedBaseInstanceEXT(Executor* executor, GLenum mode, GLsizei count,
                                            GLenum type, const void* indices, GLsizei instancecount,
                                            GLuint baseinstance) {
    drawWaitingFamily(executor, gles::id::glDrawElementsInstancedBaseInstanceEXT, [&] {
        recordCall<hijack::glDrawElementsInstancedBaseInstanceEXT>(
            executor->queue, mode, count, type, indices, instancecount, baseinstance);
    });
}

void glDrawElementsInstancedBaseVertexBaseInstanceEXT(Executor* executor, GLenum mode,
                                                      GLsizei count, GLenum type,
                                                      const void* indices, GLsizei instancecount,
                                                      GLint basevertex, GLuint baseinstance) {
    drawWaitingFamily(executor, gles::id::glDrawElementsInstancedBaseVertexBaseInstanceEXT, [&] {
        recordCall<hijack::glDrawElementsInstancedBaseVertexBaseInstanceEXT>(
            executor->queue, mode, count, type, indices, instancecount, basevertex, baseinstance);
    });
}

void glDrawTransformFeedbackEXT(Executor* executor, GLenum mode, GLuint id) {
    drawWaitingFamily(executor, gles::id::glDrawTransformFeedbackEXT, [&] {
        recordCall<hijack::glDrawTransformFeedbackEXT>(executor->queue, mode, id);
    });
}

void glDrawTransformFeedbackInstancedEXT(Executor* executor, GLenum mode, GLuint id,
                                         GLsizei instancecount) {
    drawWaitingFamily(executor, gles::id::glDrawTransformFeedbackInstancedEXT, [&] {
        recordCall<hijack::glDrawTransformFeedbackInstancedEXT>(executor->queue, mode, id,
                                                                instancecount);
    });
}

}  // namespace velour::handled
