#pragma once

// Save and restore of the GL state that the layer's drawing disturbs. The
// caller names each item before it changes it; its value goes into a compact
// byte stream (a tag byte, then the payload, unaligned, machine order), and
// restore plays the stream back in store order.

#include <cstddef>
#include <cstdint>

#include "drv/gl.h"

namespace velour::drv {

class StateStore {
  public:
    enum State : uint8_t {
        ACTIVE_TEXTURE = 0,
        ARRAY_BUFFER_BINDING = 1,
        BLEND_FUNC = 2,
        DEPTH_MASK = 3,
        ELEMENT_ARRAY_BUFFER_BINDING = 4,
        ENABLED = 5,
        DRAW_FRAMEBUFFER = 6,
        READ_FRAMEBUFFER = 7,
        CURRENT_CONTEXT = 8,
        POLYGON_MODE = 9,
        PROGRAM = 10,
        RENDERBUFFER_BINDING = 11,
        STENCIL_FUNC = 12,
        STENCIL_MASK = 13,
        STENCIL_OP = 14,
        TEXTURE_BINDING_2D = 15,
        VERTEX_ARRAY_BINDING = 16,
        VIEWPORT = 17,
    };

    class StateWriter {
      public:
        StateWriter() : StateWriter(64) {}
        explicit StateWriter(size_t capacity);
        StateWriter(const StateWriter& other);
        StateWriter& operator=(const StateWriter& other);
        ~StateWriter();

        void writeU8(uint8_t value) { write(&value, 1); }
        void writeState(State state) { writeU8(state); }
        void writeGlBoolean(GLboolean value) { write(&value, 1); }
        void writeGlInt(GLint value) { write(&value, sizeof value); }
        void writeGlUint(GLuint value) { write(&value, sizeof value); }
        void writeGlEnum(GLenum value) { write(&value, sizeof value); }
        void writeDisplay(EGLDisplay value) { write(&value, sizeof value); }
        void writeSurface(EGLSurface value) { write(&value, sizeof value); }
        void writeContext(EGLContext value) { write(&value, sizeof value); }
        void writeGlIntArrayFixed(const GLint* values, size_t count) {
            write(values, count * sizeof(GLint));
        }

        // Grows to the larger of `needed` and half as much again.
        void ensureCapacity(size_t needed);
        const uint8_t* getData() const { return data; }
        size_t getSize() const { return size; }
        size_t getCapacity() const { return capacity; }
        void clear() { size = 0; }

      private:
        void write(const void* bytes, size_t count);

        uint8_t* data;
        size_t capacity;
        size_t size = 0;
    };

    // Reads what a writer of this process wrote; no bounds checks.
    class StateReader {
      public:
        explicit StateReader(const uint8_t* data) : cursor(data) {}

        State readState() { return static_cast<State>(readU8()); }
        uint8_t readU8() { return *cursor++; }
        GLboolean readGlBoolean() { return readU8(); }
        GLint readGlInt() { return read<GLint>(); }
        GLuint readGlUint() { return read<GLuint>(); }
        GLenum readGlEnum() { return read<GLenum>(); }
        EGLDisplay readGlDisplay() { return read<EGLDisplay>(); }
        EGLSurface readGlSurface() { return read<EGLSurface>(); }
        EGLContext readGlContext() { return read<EGLContext>(); }
        void readGlIntArrayFixed(GLint* values, size_t count);

      private:
        template <typename T>
        T read();

        const uint8_t* cursor;
    };

    explicit StateStore(unsigned capacity = 64, bool restoreOnDestruction = false)
        : restoreOnDestruction(restoreOnDestruction), writer(capacity) {}
    ~StateStore();
    StateStore(const StateStore&) = delete;
    StateStore& operator=(const StateStore&) = delete;

    void storeActiveTexture();
    void storeArrayBufferBinding();
    void storeBlendFunc();
    void storeDepthMask();
    void storeElementArrayBufferBinding();
    void storeEnabled(GLenum capability);
    void storeDrawFramebuffer();
    void storeReadFramebuffer();
    void storeGlContext();
    [[noreturn]] void storePolygonMode();
    void storeProgram();
    void storeRenderbufferBinding();
    void storeStencilFunc();
    void storeStencilMask();
    void storeStencilOp();
    void storeTextureBinding2D();
    void storeVertexArrayBinding();
    void storeViewport();

    // Plays every entry in store order; the stream stays, so it can run again.
    void restore();
    void clear();
    unsigned getCount() const { return count; }
    const StateWriter& getWriter() const { return writer; }

    void restoreActiveTexture(StateReader& reader);
    void restoreArrayBufferBinding(StateReader& reader);
    void restoreBlendFunc(StateReader& reader);
    void restoreDepthMasked(StateReader& reader);
    void restoreElementArrayBufferBinding(StateReader& reader);
    void restoreEnabled(StateReader& reader);
    void restoreFramebufferDraw(StateReader& reader);
    void restoreFramebufferRead(StateReader& reader);
    void restoreGlContext(StateReader& reader);
    void restorePolygonMode(StateReader& reader);
    void restoreProgram(StateReader& reader);
    void restoreRenderbufferBinding(StateReader& reader);
    void restoreStencilFunction(StateReader& reader);
    void restoreStencilMask(StateReader& reader);
    void restoreStencilOperation(StateReader& reader);
    void restoreTextureBinding2D(StateReader& reader);
    void restoreVertexArrayBinding(StateReader& reader);
    void restoreViewport(StateReader& reader);

  private:
    // One GL integer query, as one entry of the given tag.
    void storeInteger(State state, GLenum query);
    void storeIntegers(State state, const GLenum* queries, size_t count);

    bool restoreOnDestruction;
    StateWriter writer;
    unsigned count = 0;
};

}  // namespace velour::drv
