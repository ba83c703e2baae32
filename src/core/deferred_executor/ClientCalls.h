#pragma once

#include "core/deferred_executor/Executor.h"
#include "velour/gl_types.h"

// The calls whose wrappers hand over to the client-data handler: bindings,
// vertex attribute state, the draws, buffer mapping, and the gets it answers.
namespace velour::handled {

using core::Executor;

void glBindBuffer(Executor* executor, GLenum target, GLuint buffer);
void glBindVertexArray(Executor* executor, GLuint array);
void glBindVertexArrayOES(Executor* executor, GLuint array);
void glDeleteVertexArrays(Executor* executor, GLsizei n, const GLuint* arrays);
void glDeleteBuffers(Executor* executor, GLsizei n, const GLuint* buffers);
void glDeleteTextures(Executor* executor, GLsizei n, const GLuint* textures);
void glActiveTexture(Executor* executor, GLenum texture);
void glBindTexture(Executor* executor, GLenum target, GLuint texture);
void glReadBuffer(Executor* executor, GLenum src);
void glEnable(Executor* executor, GLenum cap);
void glDisable(Executor* executor, GLenum cap);

void glEnableVertexAttribArray(Executor* executor, GLuint index);
void glDisableVertexAttribArray(Executor* executor, GLuint index);
void glVertexAttribDivisor(Executor* executor, GLuint index, GLuint divisor);
void glVertexAttribPointer(Executor* executor, GLuint index, GLint size, GLenum type,
                           GLboolean normalized, GLsizei stride, const void* pointer);
void glVertexAttribIPointer(Executor* executor, GLuint index, GLint size, GLenum type,
                            GLsizei stride, const void* pointer);

void glUseProgram(Executor* executor, GLuint program);
void glLinkProgram(Executor* executor, GLuint program);
void glDeleteProgram(Executor* executor, GLuint program);
void glProgramBinary(Executor* executor, GLuint program, GLenum binaryFormat, const void* binary,
                     GLsizei length);
void glProgramBinaryOES(Executor* executor, GLuint program, GLenum binaryFormat, const void* binary,
                        GLint length);
void glBindFramebuffer(Executor* executor, GLenum target, GLuint framebuffer);
void glBindRenderbuffer(Executor* executor, GLenum target, GLuint renderbuffer);
void glDeleteFramebuffers(Executor* executor, GLsizei n, const GLuint* framebuffers);
void glDeleteRenderbuffers(Executor* executor, GLsizei n, const GLuint* renderbuffers);
void glBeginTransformFeedback(Executor* executor, GLenum primitiveMode);
void glEndTransformFeedback(Executor* executor);
void glBufferData(Executor* executor, GLenum target, GLsizeiptr size, const void* data,
                  GLenum usage);
void glBufferStorageEXT(Executor* executor, GLenum target, GLsizeiptr size, const void* data,
                        GLbitfield flags);
void* glMapBufferOES(Executor* executor, GLenum target, GLenum access);

void glEnablei(Executor* executor, GLenum target, GLuint index);
void glDisablei(Executor* executor, GLenum target, GLuint index);
void glEnableiOES(Executor* executor, GLenum target, GLuint index);
void glDisableiOES(Executor* executor, GLenum target, GLuint index);
void glEnableiEXT(Executor* executor, GLenum target, GLuint index);
void glDisableiEXT(Executor* executor, GLenum target, GLuint index);
GLboolean glIsEnabled(Executor* executor, GLenum cap);
void glGetBooleanv(Executor* executor, GLenum pname, GLboolean* data);
void glViewport(Executor* executor, GLint x, GLint y, GLsizei width, GLsizei height);
void glScissor(Executor* executor, GLint x, GLint y, GLsizei width, GLsizei height);

// For the calls that change answered state in ways the shadow does not follow.
void forgetState(Executor* executor, GLenum pname);

void glGetIntegerv(Executor* executor, GLenum pname, GLint* data);
GLboolean glIsVertexArray(Executor* executor, GLuint array);
void glGetVertexAttribiv(Executor* executor, GLuint index, GLenum pname, GLint* params);
void glGetVertexAttribfv(Executor* executor, GLuint index, GLenum pname, GLfloat* params);
void glGetVertexAttribIiv(Executor* executor, GLuint index, GLenum pname, GLint* params);
void glGetVertexAttribIuiv(Executor* executor, GLuint index, GLenum pname, GLuint* params);
void glGetVertexAttribPointerv(Executor* executor, GLuint index, GLenum pname, void** pointer);
void glGetBufferParameteriv(Executor* executor, GLenum target, GLenum pname, GLint* params);
void glGetBufferParameteri64v(Executor* executor, GLenum target, GLenum pname, GLint64* params);
void glGetBufferPointerv(Executor* executor, GLenum target, GLenum pname, void** params);
void glGetBufferPointervOES(Executor* executor, GLenum target, GLenum pname, void** params);

void* glMapBufferRange(Executor* executor, GLenum target, GLintptr offset, GLsizeiptr length,
                       GLbitfield access);
void glFlushMappedBufferRange(Executor* executor, GLenum target, GLintptr offset,
                              GLsizeiptr length);
GLboolean glUnmapBuffer(Executor* executor, GLenum target);
GLboolean glUnmapBufferOES(Executor* executor, GLenum target);
void glDrawBuffers(Executor* executor, GLsizei n, const GLenum* bufs);

void glDrawArrays(Executor* executor, GLenum mode, GLint first, GLsizei count);
void glDrawArraysInstanced(Executor* executor, GLenum mode, GLint first, GLsizei count,
                           GLsizei instancecount);
void glDrawElements(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                    const void* indices);
void glDrawRangeElements(Executor* executor, GLenum mode, GLuint start, GLuint end, GLsizei count,
                         GLenum type, const void* indices);
void glDrawElementsInstanced(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                             const void* indices, GLsizei instancecount);
void glDrawElementsBaseVertex(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                              const void* indices, GLint basevertex);
void glDrawRangeElementsBaseVertex(Executor* executor, GLenum mode, GLuint start, GLuint end,
                                   GLsizei count, GLenum type, const void* indices,
                                   GLint basevertex);
void glDrawElementsInstancedBaseVertex(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                       const void* indices, GLsizei instancecount,
                                       GLint basevertex);
void glDrawElementsBaseVertexOES(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                 const void* indices, GLint basevertex);
void glDrawRangeElementsBaseVertexOES(Executor* executor, GLenum mode, GLuint start, GLuint end,
                                      GLsizei count, GLenum type, const void* indices,
                                      GLint basevertex);
void glDrawElementsInstancedBaseVertexOES(Executor* executor, GLenum mode, GLsizei count,
                                          GLenum type, const void* indices, GLsizei instancecount,
                                          GLint basevertex);
void glDrawElementsBaseVertexEXT(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                 const void* indices, GLint basevertex);
void glDrawRangeElementsBaseVertexEXT(Executor* executor, GLenum mode, GLuint start, GLuint end,
                                      GLsizei count, GLenum type, const void* indices,
                                      GLint basevertex);
void glDrawElementsInstancedBaseVertexEXT(Executor* executor, GLenum mode, GLsizei count,
                                          GLenum type, const void* indices, GLsizei instancecount,
                                          GLint basevertex);
void glDrawArraysIndirect(Executor* executor, GLenum mode, const void* indirect);
void glDrawElementsIndirect(Executor* executor, GLenum mode, GLenum type, const void* indirect);

void glMultiDrawArraysEXT(Executor* executor, GLenum mode, const GLint* first, const GLsizei* count,
                          GLsizei primcount);
void glMultiDrawElementsEXT(Executor* executor, GLenum mode, const GLsizei* count, GLenum type,
                            const void* const* indices, GLsizei primcount);
void glMultiDrawArraysIndirectEXT(Executor* executor, GLenum mode, const void* indirect,
                                  GLsizei drawcount, GLsizei stride);
void glMultiDrawElementsIndirectEXT(Executor* executor, GLenum mode, GLenum type,
                                    const void* indirect, GLsizei drawcount, GLsizei stride);
void glMultiDrawElementsBaseVertexEXT(Executor* executor, GLenum mode, const GLsizei* count,
                                      GLenum type, const void* const* indices, GLsizei drawcount,
                                      const GLint* basevertex);
void glMultiDrawElementsBaseVertexOES(Executor* executor, GLenum mode, const GLsizei* count,
                                      GLenum type, const void* const* indices, GLsizei drawcount,
                                      const GLint* basevertex);

void glDrawArraysInstancedANGLE(Executor* executor, GLenum mode, GLint first, GLsizei count,
                                GLsizei primcount);
void glDrawElementsInstancedANGLE(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                  const void* indices, GLsizei primcount);
void glDrawArraysInstancedEXT(Executor* executor, GLenum mode, GLint start, GLsizei count,
                              GLsizei primcount);
void glDrawElementsInstancedEXT(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                                const void* indices, GLsizei primcount);
void glDrawArraysInstancedNV(Executor* executor, GLenum mode, GLint first, GLsizei count,
                             GLsizei primcount);
void glDrawElementsInstancedNV(Executor* executor, GLenum mode, GLsizei count, GLenum type,
                               const void* indices, GLsizei primcount);
void glDrawArraysInstancedBaseInstanceEXT(Executor* executor, GLenum mode, GLint first,
                                          GLsizei count, GLsizei instancecount,
                                          GLuint baseinstance);
void glDrawElementsInstancedBaseInstanceEXT(Executor* executor, GLenum mode, GLsizei count,
                                            GLenum type, const void* indices, GLsizei instancecount,
                                            GLuint baseinstance);
void glDrawElementsInstancedBaseVertexBaseInstanceEXT(Executor* executor, GLenum mode,
                                                      GLsizei count, GLenum type,
                                                      const void* indices, GLsizei instancecount,
                                                      GLint basevertex, GLuint baseinstance);
void glDrawTransformFeedbackEXT(Executor* executor, GLenum mode, GLuint id);
void glDrawTransformFeedbackInstancedEXT(Executor* executor, GLenum mode, GLuint id,
                                         GLsizei instancecount);

}  // namespace velour::handled
