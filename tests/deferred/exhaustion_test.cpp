// Out of memory, each handled call reaches the driver once: a call whose data
// does not fit runs with the game's own pointer before its wrapper returns,
// and the shadow still answers what the driver was given.
#include <cstddef>
#include <functional>
#include <vector>

#include "DeferredFixture.h"

namespace velour::test {
namespace {

using core::MemCategory;

constexpr GLenum ARRAY_BUFFER = 0x8892, STATIC_DRAW = 0x88E4, TEXTURE_2D = 0x0DE1, RGBA = 0x1908,
                 UNSIGNED_BYTE = 0x1401, UNSIGNED_SHORT = 0x1403, TRIANGLES = 4,
                 COPY_READ_BUFFER = 0x8F36, TEXTURE_BINDING_2D = 0x8069,
                 VERTEX_ARRAY_BINDING = 0x85B5;
// More than a fresh frame pool holds, so that every copy must overflow.
constexpr GLsizei BYTES = 0x20000;
constexpr std::size_t NO_POINTER = ~std::size_t(0);

// Holds a category at the bytes it has now.
struct Exhausted {
    explicit Exhausted(MemCategory category) : category(category) { set(false); }
    ~Exhausted() { set(true); }
    void set(bool lift) {
        if (category == MemCategory::FrameData) hold<MemCategory::FrameData>(lift);
        if (category == MemCategory::Executor) hold<MemCategory::Executor>(lift);
    }
    template <MemCategory C>
    static void hold(bool lift) {
        core::MemTracker<C>::limit =
            lift ? ~std::uint64_t(0) : core::MemTracker<C>::memory_usage.load();
    }
    MemCategory category;
};

struct Case {
    const char* name;
    std::size_t pointer;  // the argument that carries the game's data
    MemCategory exhausted;
    std::function<void(unsigned char*)> call;
    // A query the shadow answers, and what the call should have made it.
    GLenum query = 0;
    GLint answer = 0;
};

TEST_F(Bound, OutOfMemoryEachCallReachesTheDriverOnceWithTheGamesData) {
    std::vector<unsigned char> game(BYTES, 7);
    game.back() = 0;  // a string too
    fake::setHandler("glIsProgram", [](const fake::Call&) -> std::uint64_t { return 1; });
    writeBack<GLint>("glGetProgramiv", 2, [](auto&) { return 1; });
    auto names = [](const unsigned char* p) { return reinterpret_cast<const GLuint*>(p); };
    const GLsizei nameCount = BYTES / 4;
    auto frameData = MemCategory::FrameData;
    const Case cases[] = {
        {"glBufferData", 2, frameData,
         [](auto p) { gl_deferred_glBufferData(ARRAY_BUFFER, BYTES, p, STATIC_DRAW); }},
        {"glBufferStorageEXT", 2, frameData,
         [](auto p) { gl_deferred_glBufferStorageEXT(ARRAY_BUFFER, BYTES, p, 0); }},
        {"glTexSubImage2D", 8, frameData,
         [](auto p) {
             gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 256, 128, RGBA, UNSIGNED_BYTE, p);
         }},
        {"glCompressedTexSubImage2D", 8, frameData,
         [](auto p) {
             gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 64, 64, 0x9278, BYTES, p);
         }},
        {"glProgramBinary", 2, frameData,
         [](auto p) { gl_deferred_glProgramBinary(5, 0x1234, p, BYTES); }},
        {"glBindAttribLocation", 2, frameData,
         [](auto p) {
             gl_deferred_glBindAttribLocation(5, 0, reinterpret_cast<const GLchar*>(p));
         }},
        {"glDeleteBuffers", 1, frameData,
         [&](auto p) { gl_deferred_glDeleteBuffers(nameCount, names(p)); }},
        {"glDeleteTextures", 1, frameData,
         [&](auto p) { gl_deferred_glDeleteTextures(nameCount, names(p)); }},
        {"glDeleteFramebuffers", 1, frameData,
         [&](auto p) { gl_deferred_glDeleteFramebuffers(nameCount, names(p)); }},
        {"glDeleteRenderbuffers", 1, frameData,
         [&](auto p) { gl_deferred_glDeleteRenderbuffers(nameCount, names(p)); }},
        {"glDeleteVertexArrays", 1, frameData,
         [&](auto p) { gl_deferred_glDeleteVertexArrays(nameCount, names(p)); }},
        {"glDrawElements", 3, frameData,
         [](auto p) { gl_deferred_glDrawElements(TRIANGLES, BYTES / 2, UNSIGNED_SHORT, p); }},
        // A first call, which would learn the limit with the call itself.
        {"glDrawBuffers", 1, frameData,
         [&](auto p) { gl_deferred_glDrawBuffers(nameCount, reinterpret_cast<const GLenum*>(p)); }},
        // The link's shadow entry comes after its job.
        {"glLinkProgram", NO_POINTER, MemCategory::Executor,
         [](auto) { gl_deferred_glLinkProgram(5); }},
        // Names the pool has no room for: made by the driver in place.
        {"glGenBuffers", 1, MemCategory::Executor,
         [](auto p) { gl_deferred_glGenBuffers(BYTES / 4, reinterpret_cast<GLuint*>(p)); }},
        // Bindings: the shadow must still say what the driver was given.
        {"glBindBuffer", NO_POINTER, MemCategory::Executor,
         [](auto) { gl_deferred_glBindBuffer(COPY_READ_BUFFER, 9); }, COPY_READ_BUFFER, 9},
        {"glBindTexture", NO_POINTER, MemCategory::Executor,
         [](auto) { gl_deferred_glBindTexture(TEXTURE_2D, 4); }, TEXTURE_BINDING_2D, 4},
        {"glBindVertexArray", NO_POINTER, MemCategory::Executor,
         [](auto) { gl_deferred_glBindVertexArray(3); }, VERTEX_ARRAY_BINDING, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        fake::clearCalls();
        {
            Exhausted full(c.exhausted);
            c.call(game.data());
        }
        // The game's own pointer: the call ran before its wrapper returned.
        if (c.pointer != NO_POINTER) {
            EXPECT_EQ(argOf(c.name, c.pointer), Bits{bitsOf(game.data())});
        }
        gl_deferred_glFinish();
        EXPECT_EQ(count(c.name), 1u);
        if (c.query != 0) {
            EXPECT_EQ(fetch(gl_deferred_glGetIntegerv, c.query), c.answer);
            EXPECT_EQ(count("glGetIntegerv"), 0u) << "answered by the shadow";
        }
    }
}

}  // namespace
}  // namespace velour::test
