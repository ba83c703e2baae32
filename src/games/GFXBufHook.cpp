#include "games/GFXBufHook.h"

#include <algorithm>
#include <cstring>

#include "core/log.h"
#include "velour/entry_points.h"

namespace velour::games {

namespace {

void insertSorted(std::vector<GLuint>& set, GLuint handle) {
    auto at = std::lower_bound(set.begin(), set.end(), handle);
    if (at == set.end() || *at != handle) set.insert(at, handle);
}

bool containsSorted(const std::vector<GLuint>& set, GLuint handle) {
    return std::binary_search(set.begin(), set.end(), handle);
}

// Grows the shadow to `size` bytes, keeping what it holds.
void growTo(GFXBufHook::BufferObject& buffer, std::size_t size) {
    if (buffer.data.size() < size) buffer.data.resize(size);
}

}  // namespace

void GFXBufHook::hookglGenBuffers(GLsizei n, GLuint* names) {
    drv::glGenBuffers(n, names);
}

void GFXBufHook::hookglGenVertexArrays(GLsizei n, GLuint* names) {
    drv::glGenVertexArrays(n, names);
}

void GFXBufHook::hookglBindVertexArray(GLuint array) {
    curVAO = array;
    auto found = vertexArrays.find(array);
    if (found != vertexArrays.end()) {
        const VAO& vao = *found->second;
        curEbo = vao.elementBuffer;
        for (int i = MAX_ATTRIB; i >= 0; --i)
            if (vao.attribs[i].enabled) curVbo = vao.attribs[i].vbo;
    }
    drv::glBindVertexArray(array);
}

void GFXBufHook::hookglBindBuffer(GLenum target, GLuint buffer) {
    if (target == GL_ELEMENT_ARRAY_BUFFER) {
        curEbo = buffer;
        currentVAO().elementBuffer = buffer;
    } else if (target == GL_ARRAY_BUFFER) {
        curVbo = buffer;
    }
    drv::glBindBuffer(target, buffer);
}

GLuint GFXBufHook::handleOf(GLenum target) const {
    if (target == GL_ARRAY_BUFFER) return curVbo;
    if (target == GL_ELEMENT_ARRAY_BUFFER) return curEbo;
    return 0;
}

GFXBufHook::BufferObject* GFXBufHook::selected(GLenum target) {
    GLuint handle = handleOf(target);
    if (handle == 0 || !containsSorted(lastFrameUIHandles, handle)) return nullptr;
    std::shared_ptr<BufferObject>& buffer = buffers[handle];
    if (!buffer) buffer = std::make_shared<BufferObject>();
    return buffer.get();
}

GFXBufHook::BufferObject* GFXBufHook::find(GLuint handle) {
    auto found = buffers.find(handle);
    return found == buffers.end() ? nullptr : found->second.get();
}

GFXBufHook::VAO& GFXBufHook::currentVAO() {
    std::shared_ptr<VAO>& vao = vertexArrays[curVAO];
    if (!vao) {
        vao = std::make_shared<VAO>();
        vao->handle = curVAO;
    }
    return *vao;
}

void GFXBufHook::hookglBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage) {
    if (BufferObject* buffer = selected(target); buffer && size >= 0) {
        buffer->target = target;
        buffer->handle = handleOf(target);
        buffer->size = static_cast<GLuint>(size);
        growTo(*buffer, static_cast<std::size_t>(size));
        if (data) std::memcpy(buffer->data.data(), data, static_cast<std::size_t>(size));
    }
    drv::glBufferData(target, size, data, usage);
}

void GFXBufHook::hookglBufferSubData(GLenum target, GLintptr offset, GLsizeiptr size,
                                     const void* data) {
    if (BufferObject* buffer = selected(target); buffer && offset >= 0 && size >= 0) {
        buffer->target = target;
        buffer->handle = handleOf(target);
        growTo(*buffer, static_cast<std::size_t>(offset) + static_cast<std::size_t>(size));
        if (data) std::memcpy(buffer->data.data() + offset, data, static_cast<std::size_t>(size));
    }
    drv::glBufferSubData(target, offset, size, data);
}

void* GFXBufHook::hookglMapBufferRange(GLenum target, GLintptr offset, GLsizeiptr length,
                                       GLbitfield access) {
    // A written map is given the shadow itself: the game's writes are then
    // seen, and reach the driver at the unmap.
    if ((access & GL_MAP_WRITE_BIT) && offset >= 0 && length >= 0) {
        if (BufferObject* buffer = selected(target)) {
            buffer->target = target;
            buffer->handle = handleOf(target);
            buffer->mapped = std::make_shared<MapBufferRangeParameter>(
                MapBufferRangeParameter{target, offset, length, access});
            growTo(*buffer, static_cast<std::size_t>(offset) + static_cast<std::size_t>(length));
            return buffer->data.data() + offset;
        }
    }
    return drv::glMapBufferRange(target, offset, length, access);
}

GLboolean GFXBufHook::hookglUnmapBuffer(GLenum target) {
    GLuint handle = handleOf(target);
    BufferObject* buffer = handle ? find(handle) : nullptr;
    if (!buffer || !buffer->mapped) return drv::glUnmapBuffer(target);
    const MapBufferRangeParameter map = *buffer->mapped;
    buffer->mapped.reset();
    void* real = drv::glMapBufferRange(map.target, map.offset, map.length, map.access);
    if (!real) return GL_FALSE;
    std::memcpy(real, buffer->data.data() + map.offset, static_cast<std::size_t>(map.length));
    return drv::glUnmapBuffer(map.target);
}

void GFXBufHook::hookglDeleteBuffers(GLsizei n, const GLuint* names) {
    for (GLsizei i = 0; names && i < n; ++i) buffers.erase(names[i]);
    drv::glDeleteBuffers(n, names);
}

void GFXBufHook::hookglVertexAttribPointer(GLuint index, GLint size, GLenum type,
                                           GLboolean normalized, GLsizei stride,
                                           const void* pointer) {
    if (index <= MAX_ATTRIB) {
        VertexAttribPointer& attrib = currentVAO().attribs[index];
        attrib.index = index;
        attrib.size = size;
        attrib.type = type;
        attrib.normalized = normalized;
        attrib.stride = stride;
        attrib.pointer = pointer;
        attrib.vbo = curVbo;
    }
    drv::glVertexAttribPointer(index, size, type, normalized, stride, pointer);
}

void GFXBufHook::hookglEnableVertexAttribArray(GLuint index) {
    if (index <= MAX_ATTRIB) currentVAO().attribs[index].enabled = true;
    drv::glEnableVertexAttribArray(index);
}

void GFXBufHook::hookglDisableVertexAttribArray(GLuint index) {
    if (index <= MAX_ATTRIB) currentVAO().attribs[index].enabled = false;
    drv::glDisableVertexAttribArray(index);
}

void GFXBufHook::storeUIBufferHandles() {
    insertSorted(frameUIHandles, curVbo);
    insertSorted(frameUIHandles, curEbo);
}

void GFXBufHook::resetUIBufferHandles() {
    lastFrameUIHandles.swap(frameUIHandles);
    frameUIHandles.clear();
}

GFXBufHook::VertexAttribPointer* GFXBufHook::attrib0() {
    auto found = vertexArrays.find(curVAO);
    if (found == vertexArrays.end() || !found->second->attribs[0].enabled) return nullptr;
    return &found->second->attribs[0];
}

const std::uint8_t* GFXBufHook::getVertexBufferData() {
    VertexAttribPointer* attrib = attrib0();
    if (!attrib) return nullptr;
    const auto offset = reinterpret_cast<std::uintptr_t>(attrib->pointer);
    BufferObject* buffer = find(attrib->vbo);
    if (!buffer) return static_cast<const std::uint8_t*>(attrib->pointer);
    return buffer->data.data() + offset;
}

std::size_t GFXBufHook::getVertexBufferSize() {
    VertexAttribPointer* attrib = attrib0();
    BufferObject* buffer = attrib ? find(attrib->vbo) : nullptr;
    if (!buffer) return 0;
    const auto offset = reinterpret_cast<std::uintptr_t>(attrib->pointer);
    return offset < buffer->data.size() ? buffer->data.size() - offset : 0;
}

const std::uint16_t* GFXBufHook::getElementBufferData() {
    BufferObject* buffer = curEbo ? find(curEbo) : nullptr;
    return buffer ? reinterpret_cast<const std::uint16_t*>(buffer->data.data()) : nullptr;
}

std::size_t GFXBufHook::getElementBufferSize() {
    BufferObject* buffer = curEbo ? find(curEbo) : nullptr;
    return buffer ? buffer->data.size() : 0;
}

const std::uint8_t* GFXBufHook::getVertexBufferData(GLuint index, VertexAttribPointer& attrib) {
    if (index > MAX_ATTRIB) return nullptr;
    auto found = vertexArrays.find(curVAO);
    if (found == vertexArrays.end()) return nullptr;
    attrib = found->second->attribs[index];
    BufferObject* buffer = find(attrib.vbo);
    return buffer ? buffer->data.data() : nullptr;
}

void GFXBufHook::dump(const char* tag) {
    static unsigned calls = 0;
    if (calls++ % 9000 != 0) return;
    if (core::g_enabledLogSeverity < core::LOG_DEBUG) return;
    GLint vbo = 0, ebo = 0;
    drv::glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &vbo);
    drv::glGetIntegerv(GL_ELEMENT_ARRAY_BUFFER_BINDING, &ebo);
    VELOUR_LOG(core::LOG_DEBUG,
               "debug_velour (%s) vao_size:%d, curVAO:%d, curVbo:%d, "
               "curEbo:%d==========gpu(vbo:%d,ebo:%d)",
               tag, static_cast<int>(vertexArrays.size()), curVAO, curVbo, curEbo, vbo, ebo);
    for (const auto& [handle, vao] : vertexArrays) {
        VELOUR_LOG(core::LOG_DEBUG, "debug_velour  vao:%d ----", handle);
        for (int i = MAX_ATTRIB; i >= 0; --i) {
            const VertexAttribPointer& attrib = vao->attribs[i];
            VELOUR_LOG(core::LOG_DEBUG, "debug_velour    attrib: enable:%d, index%d, vbo:%d",
                       attrib.enabled, i, attrib.vbo);
            BufferObject* buffer = attrib.enabled ? find(attrib.vbo) : nullptr;
            if (buffer)
                VELOUR_LOG(core::LOG_DEBUG, "debug_velour   vbo:%d, size:%d", attrib.vbo,
                           static_cast<int>(buffer->size));
        }
    }
    VELOUR_LOG(core::LOG_DEBUG, "debug_velour buffer size=%u",
               static_cast<unsigned>(buffers.size()));
}

}  // namespace velour::games
