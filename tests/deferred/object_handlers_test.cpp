// Programs, textures, queries, EGL frame times and the asynchronous
// read-back: what the driver gets, and which calls cost the game a drain.
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "DeferredFixture.h"

using namespace velour;
using namespace velour::test;

namespace {

constexpr GLenum RGBA = 0x1908, RGB = 0x1907, UNSIGNED_BYTE = 0x1401, FLOAT = 0x1406;
constexpr GLenum UNPACK_ROW_LENGTH = 0x0CF2, UNPACK_SKIP_ROWS = 0x0CF3, UNPACK_SKIP_PIXELS = 0x0CF4,
                 UNPACK_ALIGNMENT = 0x0CF5;
constexpr GLenum TEXTURE_2D = 0x0DE1;
constexpr GLenum ANY_SAMPLES_PASSED = 35887, ANY_SAMPLES_PASSED_CONSERVATIVE = 0x8D6A;
constexpr GLenum QUERY_RESULT = 0x8866, QUERY_RESULT_AVAILABLE = 0x8867;
constexpr GLenum PIXEL_PACK_BUFFER = 0x88EB, MAP_READ_BIT = 1;
constexpr GLenum CONDITION_SATISFIED = 0x911C, TIMEOUT_EXPIRED = 0x911B;

using ObjectHandlers = Bound;

// ---- Pixel sizes and uploads -------------------------------------------

// Rows are padded to the alignment (below 1 taken as 1); a packed type gives
// the whole pixel whatever the format; an unknown type or negative extent, 0.
TEST(ImageSize, OfAnUpload) {
    constexpr auto size = &core::TextureHandler::imageSize;
    EXPECT_EQ(size(3, 2, 1, RGB, UNSIGNED_BYTE, 4), 24u);  // 9 rounds to 12
    EXPECT_EQ(size(3, 2, 1, RGB, UNSIGNED_BYTE, 1), 18u);
    EXPECT_EQ(size(3, 2, 1, RGB, UNSIGNED_BYTE, 0), 18u);
    EXPECT_EQ(size(3, 2, 4, RGB, UNSIGNED_BYTE, 8), 4u * 2 * 16);
    EXPECT_EQ(size(5, 1, 1, RGBA, FLOAT, 4), 80u);
    EXPECT_EQ(size(4, 1, 1, RGBA, 0x8033 /*4_4_4_4*/, 1), 8u);
    EXPECT_EQ(size(4, 1, 1, RGB, 0x8363 /*5_6_5*/, 1), 8u);
    EXPECT_EQ(size(4, 1, 1, RGBA, 0x8368 /*2_10_10_10*/, 1), 16u);
    EXPECT_EQ(size(4, 1, 1, 0x84F9 /*DEPTH_STENCIL*/, 0x8DAD, 1), 32u);
    EXPECT_EQ(size(4, 1, 1, 0x8227 /*RG*/, 0x140B /*HALF*/, 1), 16u);
    EXPECT_EQ(size(4, 4, 1, RGBA, 0x1234, 4), 0u);
    EXPECT_EQ(size(-2, -3, 1, RGBA, UNSIGNED_BYTE, 4), 0u) << "two negatives make no positive";
}

TEST_F(ObjectHandlers, TexSubImageCopiesWhatThePixelStoreSaysAndNeverWaits) {
    std::vector<unsigned char> seen;
    const std::size_t size = 23 * 3016;  // (1000 + 3) * 3 rounded to 8, over 20 + 3 rows
    keepArray("glTexSubImage2D", 8, seen, [&](const fake::Call&) { return size; });
    std::uint64_t before = drains();
    gl_deferred_glPixelStorei(UNPACK_ROW_LENGTH, 1000);
    gl_deferred_glPixelStorei(UNPACK_SKIP_PIXELS, 3);
    gl_deferred_glPixelStorei(UNPACK_SKIP_ROWS, 3);
    gl_deferred_glPixelStorei(UNPACK_ALIGNMENT, 8);

    // Exactly as large as the size: a copy of a byte more reads past it.
    std::vector<unsigned char> pixels(size);
    for (std::size_t i = 0; i < size; ++i) pixels[i] = static_cast<unsigned char>(i * 7);
    const std::vector<unsigned char> original = pixels;
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 1, 2, 10, 20, RGB, UNSIGNED_BYTE, pixels.data());
    EXPECT_EQ(drains(), before);
    // Larger than a fresh frame pool: alone in an overflow block of its size.
    ASSERT_FALSE(executor().frameData->pool(0).overflow.empty());
    EXPECT_EQ(executor().frameData->pool(0).overflow.back().size(), size);
    std::fill(pixels.begin(), pixels.end(), 0xEE);

    gl_deferred_glFinish();
    EXPECT_EQ(seen, original) << "a copy taken at the call, before the game changed its memory";
    // Pixel stores first; the upload has the game's own extent, not the copy's.
    EXPECT_EQ(trace(),
              (Names{"worker glPixelStorei", "worker glPixelStorei", "worker glPixelStorei",
                     "worker glPixelStorei", "worker glTexSubImage2D", "worker glFinish"}));
    EXPECT_EQ(callsWith("glTexSubImage2D", {4, 5}), (Seen{{"worker", {10, 20}}}));
}

// A compressed upload copies its image size; with nothing to copy, null.
TEST_F(ObjectHandlers, UploadsWithNothingToCopyGiveTheDriverNull) {
    std::vector<unsigned char> block(16), seen;
    std::iota(block.begin(), block.end(), 1);
    const auto original = block;
    keepArray("glCompressedTexSubImage2D", 8, seen, [](const fake::Call&) { return 16; });
    gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 4, 4, 0x9274, 16, block.data());
    std::fill(block.begin(), block.end(), 0);
    gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 4, 4, 0x9274, 0, block.data());
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 2, 2, 0x1234, UNSIGNED_BYTE, block.data());
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 2, 2, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 0, 2, RGBA, UNSIGNED_BYTE, block.data());
    gl_deferred_glFinish();
    EXPECT_EQ(seen, original);
    auto compressed = argOf("glCompressedTexSubImage2D", 8);
    ASSERT_EQ(compressed.size(), 2u);
    EXPECT_EQ(compressed[1], 0u) << "an image size of 0";
    EXPECT_EQ(argOf("glTexSubImage2D", 8), (Bits{0, 0, 0}));
}

// ---- Queries -----------------------------------------------------------

TEST_F(ObjectHandlers, AnySamplesQueriesAnswerOneWithoutADrainWhenDisabled) {
    auto& queries = executor().handler<core::QueryHandler>();
    writeBack<GLuint>("glGetQueryObjectuiv", 2, [](auto&) { return 0; });
    auto query = [](GLuint id, GLenum pname) {
        return fetch<GLuint>(gl_deferred_glGetQueryObjectuiv, id, pname);
    };

    // Not disabled: the driver's answer, after a drain.
    core::context.gameConfig.disableAnySamplesPassed = false;
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 4);
    EXPECT_TRUE(queries.anySamplesQueries.empty());
    std::uint64_t before = drains();
    EXPECT_EQ(query(4, QUERY_RESULT), 0u);
    EXPECT_EQ(drains(), before + 1);
    EXPECT_EQ(trace().back(), "worker glGetQueryObjectuiv");

    core::context.gameConfig.disableAnySamplesPassed = true;
    fake::clearCalls();
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 5);
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 0);
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED_CONSERVATIVE, 6);
    EXPECT_EQ((Bits{queries.answered(5), queries.answered(0), queries.answered(6)}),
              (Bits{1, 0, 0}))
        << "id 0 is never kept, nor another target";
    before = drains();
    EXPECT_EQ((Bits{query(5, QUERY_RESULT), query(5, QUERY_RESULT_AVAILABLE)}), (Bits{1, 1}));
    EXPECT_EQ(drains(), before);
    EXPECT_EQ(query(6, QUERY_RESULT), 0u) << "another target asks the driver";
    EXPECT_EQ(drains(), before + 1);
    // The real queries still run; the one question asked is the other target's.
    EXPECT_EQ(trace(), (Names{"worker glBeginQuery", "worker glBeginQuery", "worker glBeginQuery",
                              "worker glGetQueryObjectuiv"}));

    // Deleting an unknown id changes nothing; a deleted id asks the driver.
    // Kept though odd: the job passes the game's array uncopied, read at replay.
    std::vector<GLuint> deleted;
    keepArray("glDeleteQueries", 1, deleted, [](const fake::Call& c) { return c.args[0].bits; });
    GLuint ids[] = {99, 5};
    before = drains();
    gl_deferred_glDeleteQueries(2, ids);
    EXPECT_EQ(drains(), before);
    EXPECT_FALSE(queries.answered(5));
    EXPECT_TRUE(queries.anySamplesQueries.empty());
    ids[0] = 8;
    EXPECT_EQ(query(5, QUERY_RESULT), 0u);
    EXPECT_EQ(argOf("glDeleteQueries", 1), (Bits{bitsOf(ids)}));
    EXPECT_EQ(deleted, (std::vector<GLuint>{8, 5}));
}

// ---- EGL frame times ---------------------------------------------------

// Frame ids are asked every time with time stamps on; with them off, the first
// success is kept. Time stamps are kept by their names, not their frame.
TEST_F(ObjectHandlers, FrameIdsAndTimeStampsAreKeptOnlyWhenTimeStampsAreOff) {
    std::uint64_t next = 41;
    EGLBoolean answer = EGL_TRUE;
    fake::setHandler("eglGetNextFrameIdANDROID", [&](const fake::Call& c) {
        *pointerArg<EGLuint64KHR>(c, 2) = next++;
        return answer;
    });
    auto id = [] {  // the id, or 0 for a failure
        EGLuint64KHR id = 0;
        return gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id) ? id : 0;
    };
    core::context.gameConfig.disableEglTimeStamps = false;
    EXPECT_EQ((Bits{id(), id()}), (Bits{41, 42}));
    core::context.gameConfig.disableEglTimeStamps = true;
    answer = EGL_FALSE;
    EXPECT_EQ(id(), 0u);
    answer = EGL_TRUE;
    std::uint64_t before = drains();
    EXPECT_EQ((Bits{id(), id()}), (Bits{44, 44})) << "a failed answer is not kept";
    EXPECT_EQ(drains(), before + 1);
    EXPECT_EQ(count("eglGetNextFrameIdANDROID"), 4u);

    using Times = std::vector<EGLnsecsANDROID>;
    EGLnsecsANDROID base = 100;
    fake::setHandler("eglGetFrameTimestampsANDROID", [&](const fake::Call& c) {
        auto* values = pointerArg<EGLnsecsANDROID>(c, 5);
        for (std::uint64_t i = 0; i < c.args[3].bits; ++i) values[i] = base + EGLnsecsANDROID(i);
        return EGL_TRUE;
    });
    auto times = [](EGLuint64KHR frame, const std::vector<EGLint>& names) {  // none: a failure
        Times values(names.size());
        bool ok = gl_deferred_eglGetFrameTimestampsANDROID(
            display(), surface(), frame, names.size(), names.data(), values.data());
        return ok ? values : Times{};
    };
    EXPECT_EQ(times(7, {1, 2}), (Times{100, 101}));
    base = 500;
    before = drains();
    EXPECT_EQ(times(8, {1, 2}), (Times{100, 101})) << "the first answer, for a later frame";
    EXPECT_EQ(drains(), before);
    // Other names: asked, and they replace what was kept.
    EXPECT_EQ(times(9, {1, 2, 3}), (Times{500, 501, 502}));
    base = 900;
    EXPECT_EQ(times(10, {1, 2, 3}), (Times{500, 501, 502}));
    EXPECT_EQ(times(11, {1, 2}), (Times{900, 901})) << "the old names are asked again";
    EXPECT_EQ(count("eglGetFrameTimestampsANDROID"), 3u);

    // A presentation time is recorded with its sixty-four bits.
    const EGLnsecsANDROID time = 0x123456789ABCDEFLL;
    fake::clearCalls();
    before = drains();
    EXPECT_EQ(gl_deferred_eglPresentationTimeANDROID(display(), surface(), time), EGL_TRUE);
    EXPECT_EQ(drains(), before);
    EXPECT_TRUE(fake::calls().empty()) << "recorded";
    gl_deferred_glFinish();
    EXPECT_EQ(callsWith("eglPresentationTimeANDROID", {2}),
              (Seen{{"worker", {std::uint64_t(time)}}}));
}

// ---- Read-back ---------------------------------------------------------

class Readback : public ObjectHandlers {
  protected:
    void SetUp() override {
        ObjectHandlers::SetUp();
        fake::setHandler("glFenceSync", [this](const fake::Call&) { return nextFence++; });
        fake::setHandler("glClientWaitSync", [this](const fake::Call&) { return waitStatus; });
        writeBack<GLint>("glGetBufferParameteriv", 2,
                         [this](auto&) { return GLint(packed.size()); });
        fake::setHandler("glMapBufferRange", [this](const fake::Call&) {
            return mapFails ? 0 : bitsOf(packed.data());
        });
        writeBack<GLint>("glGetIntegerv", 1,
                         [](auto& c) { return c.args[0].bits == 0x88ED ? 77 : 0; });
        fill(1500, 1);
    }
    void fill(std::size_t size, unsigned char seed) {
        packed.resize(size);
        std::iota(packed.begin(), packed.end(), seed);
    }
    // A read into the bound pack buffer, replayed.
    void readBack() {
        gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
        gl_deferred_glFinish();
    }
    void* map(GLintptr offset, GLsizeiptr length) {
        return gl_deferred_glMapBufferRange(PIXEL_PACK_BUFFER, offset, length, MAP_READ_BIT);
    }
    core::DeferredExecutor::ReadbackCache& cache() { return executor().readbackCache; }
    void consume() {
        std::lock_guard<std::mutex> lock(cache().mutex);
        cache().valid = false;
    }

    std::uint64_t nextFence = 0xf1;
    std::uint64_t waitStatus = CONDITION_SATISFIED;
    bool mapFails = false;
    std::vector<unsigned char> packed;
};

TEST_F(Readback, IntoAPackBufferCopiesOnTheWorkerWithoutADrainAndKeepsOneCopy) {
    std::uint64_t before = drains();
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    EXPECT_EQ(drains(), before);
    gl_deferred_glFinish();

    EXPECT_EQ(trace(),
              (Names{"worker glReadPixels", "worker glFenceSync", "worker glClientWaitSync",
                     "worker glDeleteSync", "worker glGetBufferParameteriv",
                     "worker glMapBufferRange", "worker glFenceSync", "worker glUnmapBuffer",
                     "worker glGetIntegerv", "worker glFinish"}));
    EXPECT_EQ(argOf("glReadPixels", 6), (Bits{0}));
    EXPECT_EQ(argOf("glDeleteSync", 0), (Bits{0xf1})) << "the wait's own fence";
    EXPECT_EQ(callsWith("glMapBufferRange", {0, 1, 2, 3}),
              (Seen{{"worker", {PIXEL_PACK_BUFFER, 0, 1500, MAP_READ_BIT}}}));

    {
        std::lock_guard<std::mutex> lock(cache().mutex);
        EXPECT_EQ((Bits{cache().valid, cache().buffer, cache().size, bitsOf(cache().fence)}),
                  (Bits{1, 77, 1500, 0xf2}));
        ASSERT_NE(cache().data, nullptr);
        EXPECT_NE(cache().data, packed.data());
        EXPECT_EQ(std::memcmp(cache().data, packed.data(), 1500), 0);
    }

    // An unconsumed copy stays; a smaller one keeps the block, a larger one gets a new block.
    void* first = cache().data;
    fill(1500, 9);
    fake::clearCalls();
    readBack();
    EXPECT_EQ(count("glMapBufferRange"), 0u) << "no map while the copy is unread";
    EXPECT_EQ(static_cast<unsigned char*>(first)[0], 1) << "the first copy stands";

    // Smaller: the block is kept with its size.
    consume();
    fill(1000, 20);
    readBack();
    EXPECT_EQ((Bits{bitsOf(cache().data), cache().size}), (Bits{bitsOf(first), 1500}));
    EXPECT_EQ(static_cast<unsigned char*>(cache().data)[999], static_cast<unsigned char>(1019));
    EXPECT_EQ(argOf("glDeleteSync", 0).back(), 0xf2u)
        << "the fence of the last copy goes when a new copy's fence is set";

    // Larger: a new block of the new size.
    consume();
    fill(3000, 30);
    readBack();
    EXPECT_EQ((Bits{cache().valid, cache().size}), (Bits{1, 3000}));
    EXPECT_EQ(std::memcmp(cache().data, packed.data(), 3000), 0);
}

// Into client memory or at an offset, a read waits and passes the pointer.
TEST_F(Readback, AReadIntoClientMemoryOrAFailedWaitOrMapLeavesNoCopy) {
    std::uint64_t before = drains();
    gl_deferred_glReadPixels(1, 2, 3, 4, RGBA, UNSIGNED_BYTE, reinterpret_cast<void*>(16));
    EXPECT_EQ(drains(), before + 1);
    EXPECT_EQ(callsWith("glReadPixels", {6}), (Seen{{"worker", {16}}}));
    EXPECT_EQ(trace(), (Names{"worker glReadPixels"}));
    EXPECT_FALSE(cache().valid);

    fake::clearCalls();
    waitStatus = TIMEOUT_EXPIRED;
    readBack();
    EXPECT_EQ(count("glGetBufferParameteriv"), 0u);
    EXPECT_EQ(count("glDeleteSync"), 1u) << "the wait's fence goes all the same";

    waitStatus = 0x911A;  // already signalled
    packed.clear();
    readBack();
    EXPECT_EQ(count("glMapBufferRange"), 0u) << "an empty buffer is not mapped";

    fill(64, 0);
    mapFails = true;
    readBack();
    EXPECT_EQ((Bits{count("glMapBufferRange"), count("glUnmapBuffer")}), (Bits{1, 0}));
    EXPECT_FALSE(cache().valid);
    EXPECT_EQ(cache().data, nullptr);
}

TEST_F(Readback, TheGamesReadMapOfTheCopiedBufferIsServedFromTheCopy) {
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    readBack();
    // Another buffer, a range beyond the copy or a failed wait: a real map.
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 78);
    map(0, 16);
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    map(1000, 501);
    waitStatus = TIMEOUT_EXPIRED;
    map(0, 16);
    EXPECT_EQ(count("glMapBufferRange"), 1u + 3u);
    EXPECT_TRUE(cache().valid) << "only an unmap of the copy consumes it";

    waitStatus = CONDITION_SATISFIED;
    fake::clearCalls();
    std::uint64_t before = drains();
    auto* mapped = static_cast<unsigned char*>(map(100, 200));
    ASSERT_NE(mapped, nullptr);
    EXPECT_NE(mapped, packed.data() + 100) << "the copy, not the driver's memory";
    EXPECT_EQ(std::memcmp(mapped, packed.data() + 100, 200), 0);
    EXPECT_EQ(gl_deferred_glUnmapBuffer(PIXEL_PACK_BUFFER), 1);
    EXPECT_EQ(drains(), before);
    EXPECT_EQ(callsWith("glClientWaitSync", {0}), (Seen{{"game", {0xf2}}})) << "the copy's fence";
    EXPECT_FALSE(cache().valid);

    // Consumed: the next map and unmap are the driver's.
    map(0, 16);
    gl_deferred_glUnmapBuffer(PIXEL_PACK_BUFFER);
    EXPECT_EQ(drains(), before + 2);
    EXPECT_EQ(trace(),
              (Names{"game glClientWaitSync", "worker glMapBufferRange", "worker glUnmapBuffer"}));
}

}  // namespace
