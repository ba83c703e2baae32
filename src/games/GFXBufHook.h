#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "drv/gl.h"

namespace velour::games {

// Client-side shadows of the buffers the game's UI draws from, so that their
// vertices can be read with no GL call. A buffer is mirrored once a UI draw
// of the last frame used it; the game rewrites its UI buffers each frame.
// One thread, the one that runs the context's GL calls; no locks.
class GFXBufHook {
  public:
    struct MapBufferRangeParameter {
        GLenum target;
        GLintptr offset;
        GLsizeiptr length;
        GLbitfield access;
    };

    struct BufferObject {
        GLenum target = 0;
        GLuint handle = 0;
        GLuint size = 0;
        // Only grows, so steady updates do not allocate.
        std::vector<std::uint8_t> data = std::vector<std::uint8_t>(1);
        std::shared_ptr<MapBufferRangeParameter> mapped;
    };

    struct VertexAttribPointer {
        bool enabled = false;
        GLuint index = 0;
        GLint size = 0;
        GLenum type = 0;
        GLboolean normalized = GL_FALSE;
        GLsizei stride = 0;
        const void* pointer = nullptr;  // an offset into vbo
        GLuint vbo = 0;
    };

    // Attributes above this index are not tracked.
    static constexpr GLuint MAX_ATTRIB = 5;

    struct VAO {
        GLuint handle = 0;
        GLuint elementBuffer = 0;
        VertexAttribPointer attribs[MAX_ATTRIB + 1] = {};
    };

    void hookglGenBuffers(GLsizei n, GLuint* names);
    void hookglGenVertexArrays(GLsizei n, GLuint* names);
    void hookglBindVertexArray(GLuint array);
    void hookglBindBuffer(GLenum target, GLuint buffer);
    void hookglBufferData(GLenum target, GLsizeiptr size, const void* data, GLenum usage);
    void hookglBufferSubData(GLenum target, GLintptr offset, GLsizeiptr size, const void* data);
    void* hookglMapBufferRange(GLenum target, GLintptr offset, GLsizeiptr length,
                               GLbitfield access);
    GLboolean hookglUnmapBuffer(GLenum target);
    void hookglDeleteBuffers(GLsizei n, const GLuint* names);
    void hookglVertexAttribPointer(GLuint index, GLint size, GLenum type, GLboolean normalized,
                                   GLsizei stride, const void* pointer);
    void hookglEnableVertexAttribArray(GLuint index);
    void hookglDisableVertexAttribArray(GLuint index);

    // The buffers bound at a UI draw of this frame.
    void storeUIBufferHandles();
    // A frame ends: its UI buffers become the ones to mirror.
    void resetUIBufferHandles();

    // The shadow of attribute 0's buffer at its offset; null without a vertex
    // array or with attribute 0 disabled. Without a shadow, attribute 0's
    // offset itself, which is no address: read through getVertexBufferSize.
    const std::uint8_t* getVertexBufferData();
    // The shadow of the element buffer as 16-bit indices, or null.
    const std::uint16_t* getElementBufferData();
    // Bytes that may be read from what the two above return; 0 without a
    // shadow.
    std::size_t getVertexBufferSize();
    std::size_t getElementBufferSize();
    // Fills `attrib` from attribute `index` of the bound vertex array and
    // returns the start of the shadow of its buffer, or null.
    const std::uint8_t* getVertexBufferData(GLuint index, VertexAttribPointer& attrib);

    // Logs the records now and then; for debugging only.
    void dump(const char* tag);

    GLuint boundVertexArray() const { return curVAO; }
    GLuint boundArrayBuffer() const { return curVbo; }
    GLuint boundElementBuffer() const { return curEbo; }
    bool isShadowed(GLuint handle) const { return buffers.count(handle) != 0; }

  private:
    GLuint handleOf(GLenum target) const;
    // The record of the buffer bound to `target` if it is a UI buffer.
    BufferObject* selected(GLenum target);
    VAO& currentVAO();
    BufferObject* find(GLuint handle);
    VertexAttribPointer* attrib0();

    std::map<GLuint, std::shared_ptr<BufferObject>> buffers;
    std::map<GLuint, std::shared_ptr<VAO>> vertexArrays;
    GLuint curVAO = 0;
    GLuint curVbo = 0;
    GLuint curEbo = 0;
    // Sorted and without repeats; swapped at a frame's end, so that they keep
    // their room and a steady frame does not allocate.
    std::vector<GLuint> lastFrameUIHandles;
    std::vector<GLuint> frameUIHandles;
};

}  // namespace velour::games
