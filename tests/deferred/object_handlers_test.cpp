// Programs, textures, queries, EGL frame times and the asynchronous
// read-back: what the driver gets, and which calls cost the game a drain.
#include <cstring>
#include <string>
#include <vector>

#include "DeferredFixture.h"

using namespace velour;
using velour::core::TextureHandler;
using velour::test::keepArray;
using velour::test::pointerArg;
using velour::test::threadId;

namespace {

constexpr GLenum RGBA = 0x1908, RGB = 0x1907, UNSIGNED_BYTE = 0x1401, FLOAT = 0x1406;
constexpr GLenum UNPACK_ROW_LENGTH = 0x0CF2, UNPACK_SKIP_ROWS = 0x0CF3, UNPACK_SKIP_PIXELS = 0x0CF4,
                 UNPACK_ALIGNMENT = 0x0CF5;
constexpr GLenum TEXTURE_2D = 0x0DE1;
constexpr GLenum ANY_SAMPLES_PASSED = 35887, ANY_SAMPLES_PASSED_CONSERVATIVE = 0x8D6A;
constexpr GLenum QUERY_RESULT = 0x8866, QUERY_RESULT_AVAILABLE = 0x8867;
constexpr GLenum PIXEL_PACK_BUFFER = 0x88EB, MAP_READ_BIT = 1;
constexpr GLenum CONDITION_SATISFIED = 0x911C, TIMEOUT_EXPIRED = 0x911B;

// Restores the two settings of this file, which the common fixture leaves.
class ObjectHandlers : public test::Deferred {
  protected:
    void TearDown() override {
        test::Deferred::TearDown();
        core::context.gameConfig.disableAnySamplesPassed = saved.disableAnySamplesPassed;
        core::context.gameConfig.disableEglTimeStamps = saved.disableEglTimeStamps;
    }
};

// ---- Pixel sizes and uploads -------------------------------------------

// Rows are padded to the alignment, below 1 taken as 1; a packed type gives
// the whole pixel whatever the format; an unknown type or a negative extent
// gives 0. The uploads below cover the pixel store, an unknown format and an
// empty extent.
TEST(ImageSize, OfAnUpload) {
    struct Case {
        GLsizei width, height, depth;
        GLenum format, type;
        GLint alignment;
        std::uint32_t size;
    };
    const Case cases[] = {
        {3, 2, 1, RGB, UNSIGNED_BYTE, 4, 24},  // 9 rounds to 12
        {3, 2, 1, RGB, UNSIGNED_BYTE, 1, 18},
        {3, 2, 1, RGB, UNSIGNED_BYTE, 0, 18},
        {3, 2, 4, RGB, UNSIGNED_BYTE, 8, 4 * 2 * 16},
        {5, 1, 1, RGBA, FLOAT, 4, 80},
        {4, 1, 1, RGBA, 0x8033 /*4_4_4_4*/, 1, 8},
        {4, 1, 1, RGB, 0x8363 /*5_6_5*/, 1, 8},
        {4, 1, 1, RGBA, 0x8368 /*2_10_10_10*/, 1, 16},
        {4, 1, 1, 0x84F9 /*DEPTH_STENCIL*/, 0x8DAD, 1, 32},
        {4, 1, 1, 0x8227 /*RG*/, 0x140B /*HALF*/, 1, 16},
        {4, 4, 1, RGBA, 0x1234, 4, 0},
        {-2, -3, 1, RGBA, UNSIGNED_BYTE, 4, 0},  // two negatives must not make a positive
    };
    for (const Case& c : cases)
        EXPECT_EQ(
            TextureHandler::imageSize(c.width, c.height, c.depth, c.format, c.type, c.alignment),
            c.size)
            << "case " << &c - cases;
}

TEST_F(ObjectHandlers, TexSubImageCopiesWhatThePixelStoreSaysAndNeverWaits) {
    bind(core::MODE_DEFERRED);
    fake::clearCalls();
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
    // Larger than a fresh frame pool, so the copy stands alone in an overflow
    // block of exactly its size.
    ASSERT_FALSE(executor().frameData->pool(0).overflow.empty());
    EXPECT_EQ(executor().frameData->pool(0).overflow.back().size(), size);
    std::fill(pixels.begin(), pixels.end(), 0xEE);

    gl_deferred_glFinish();
    EXPECT_EQ(seen, original) << "a copy taken at the call, before the game changed its memory";
    // Every pixel store reaches the driver first.
    EXPECT_EQ(trace(), (std::vector<std::string>{"worker glPixelStorei", "worker glPixelStorei",
                                                 "worker glPixelStorei", "worker glPixelStorei",
                                                 "worker glTexSubImage2D", "worker glFinish"}));
    auto upload = fake::callsOf("glTexSubImage2D").at(0);
    EXPECT_NE(pointerArg<unsigned char>(upload, 8), pixels.data());
    EXPECT_EQ(upload.args[4].bits, 10u);
    EXPECT_EQ(upload.args[5].bits, 20u) << "the game's own extent, not the copy's";
}

// A compressed upload copies its image size; with nothing to copy the driver
// gets null.
TEST_F(ObjectHandlers, UploadsWithNothingToCopyGiveTheDriverNull) {
    bind(core::MODE_DEFERRED);
    unsigned char block[16];
    for (int i = 0; i < 16; ++i) block[i] = static_cast<unsigned char>(i + 1);
    const std::vector<unsigned char> original(block, block + 16);
    std::vector<unsigned char> seen;
    keepArray("glCompressedTexSubImage2D", 8, seen, [](const fake::Call&) { return 16; });
    gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 4, 4, 0x9274, 16, block);
    std::memset(block, 0, sizeof(block));
    gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 4, 4, 0x9274, 0, block);
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 2, 2, 0x1234, UNSIGNED_BYTE, block);
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 2, 2, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 0, 2, RGBA, UNSIGNED_BYTE, block);
    gl_deferred_glFinish();
    auto compressed = fake::callsOf("glCompressedTexSubImage2D");
    ASSERT_EQ(compressed.size(), 2u);
    EXPECT_NE(pointerArg<unsigned char>(compressed[0], 8), block);
    EXPECT_EQ(seen, original);
    EXPECT_EQ(compressed[1].args[8].bits, 0u) << "an image size of 0";
    auto uploads = fake::callsOf("glTexSubImage2D");
    ASSERT_EQ(uploads.size(), 3u);
    for (auto& u : uploads) EXPECT_EQ(u.args[8].bits, 0u);
}

// ---- Queries -----------------------------------------------------------

TEST_F(ObjectHandlers, AnySamplesQueriesAnswerOneWithoutADrainWhenDisabled) {
    bind(core::MODE_DEFERRED);
    auto& queries = executor().handler<core::QueryHandler>();
    fake::setHandler("glGetQueryObjectuiv", [](const fake::Call& c) {
        *pointerArg<GLuint>(c, 2) = 0;
        return 0;
    });
    GLuint result = 7, available = 7;

    // Not disabled: the driver's answer, after a drain.
    core::context.gameConfig.disableAnySamplesPassed = false;
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 4);
    EXPECT_TRUE(queries.anySamplesQueries.empty());
    std::uint64_t before = drains();
    gl_deferred_glGetQueryObjectuiv(4, QUERY_RESULT, &result);
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(drains(), before + 1);
    EXPECT_EQ(trace().back(), "worker glGetQueryObjectuiv");

    core::context.gameConfig.disableAnySamplesPassed = true;
    fake::clearCalls();
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 5);
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 0);
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED_CONSERVATIVE, 6);
    EXPECT_TRUE(queries.answered(5));
    EXPECT_FALSE(queries.answered(0)) << "id 0 is never kept";
    EXPECT_FALSE(queries.answered(6));

    before = drains();
    gl_deferred_glGetQueryObjectuiv(5, QUERY_RESULT, &result);
    gl_deferred_glGetQueryObjectuiv(5, QUERY_RESULT_AVAILABLE, &available);
    EXPECT_EQ(result, 1u);
    EXPECT_EQ(available, 1u);
    EXPECT_EQ(drains(), before);
    EXPECT_TRUE(fake::callsOf("glGetQueryObjectuiv").empty());

    gl_deferred_glGetQueryObjectuiv(6, QUERY_RESULT, &result);
    EXPECT_EQ(result, 0u) << "another target asks the driver";
    EXPECT_EQ(drains(), before + 1);
    EXPECT_EQ(fake::callsOf("glBeginQuery").size(), 3u) << "the real queries still run";

    // Deleting an unknown id changes nothing; a deleted id asks the driver.
    const GLuint ids[] = {99, 5};
    gl_deferred_glDeleteQueries(2, ids);
    EXPECT_FALSE(queries.answered(5));
    EXPECT_TRUE(queries.anySamplesQueries.empty());
    gl_deferred_glGetQueryObjectuiv(5, QUERY_RESULT, &result);
    EXPECT_EQ(result, 0u);
}

TEST_F(ObjectHandlers, DeleteQueriesPassesTheGamesArrayUncopiedAndUnwaited) {
    bind(core::MODE_DEFERRED);
    std::vector<GLuint> seen;
    keepArray("glDeleteQueries", 1, seen, [](const fake::Call& c) { return c.args[0].bits; });
    GLuint ids[] = {3, 4};
    std::uint64_t before = drains();
    gl_deferred_glDeleteQueries(2, ids);
    EXPECT_EQ(drains(), before);
    ids[0] = 8;
    ids[1] = 9;
    gl_deferred_glFinish();
    auto deleted = fake::callsOf("glDeleteQueries");
    ASSERT_EQ(deleted.size(), 1u);
    EXPECT_EQ(deleted[0].args[1].bits, reinterpret_cast<std::uintptr_t>(ids));
    EXPECT_EQ(seen, (std::vector<GLuint>{8, 9})) << "the driver reads the array as it is then";
}

// ---- EGL frame times ---------------------------------------------------

// Asked every time with time stamps on; with them off, the first successful
// answer is kept.
TEST_F(ObjectHandlers, FrameIdIsKeptOnlyWhenTimeStampsAreOff) {
    bind(core::MODE_DEFERRED);
    std::uint64_t next = 41;
    EGLBoolean answer = EGL_TRUE;
    fake::setHandler("eglGetNextFrameIdANDROID", [&](const fake::Call& c) {
        *pointerArg<EGLuint64KHR>(c, 2) = next++;
        return answer;
    });
    EGLuint64KHR id = 0;
    auto ask = [&] {
        id = 0;
        return gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id);
    };
    core::context.gameConfig.disableEglTimeStamps = false;
    EXPECT_EQ(ask(), EGL_TRUE);
    EXPECT_EQ(id, 41u);
    EXPECT_EQ(ask(), EGL_TRUE);
    EXPECT_EQ(id, 42u);

    core::context.gameConfig.disableEglTimeStamps = true;
    answer = EGL_FALSE;
    EXPECT_EQ(ask(), EGL_FALSE);
    answer = EGL_TRUE;
    EXPECT_EQ(ask(), EGL_TRUE);
    EXPECT_EQ(id, 44u) << "a failed answer is not kept";
    std::uint64_t before = drains();
    EXPECT_EQ(ask(), EGL_TRUE);
    EXPECT_EQ(id, 44u);
    EXPECT_EQ(drains(), before);
    EXPECT_EQ(fake::callsOf("eglGetNextFrameIdANDROID").size(), 4u);
}

TEST_F(ObjectHandlers, FrameTimestampsAreKeptByTheirNamesNotTheirFrame) {
    core::context.gameConfig.disableEglTimeStamps = true;
    bind(core::MODE_DEFERRED);
    EGLnsecsANDROID base = 100;
    fake::setHandler("eglGetFrameTimestampsANDROID", [&](const fake::Call& c) {
        auto* values = pointerArg<EGLnsecsANDROID>(c, 5);
        for (std::uint64_t i = 0; i < c.args[3].bits; ++i) values[i] = base + EGLnsecsANDROID(i);
        return EGL_TRUE;
    });
    const EGLint two[] = {1, 2}, three[] = {1, 2, 3};
    EGLnsecsANDROID values[3] = {};
    auto ask = [&](EGLuint64KHR frame, EGLint n, const EGLint* names) {
        std::fill(values, values + 3, 0);
        return gl_deferred_eglGetFrameTimestampsANDROID(display(), surface(), frame, n, names,
                                                        values);
    };

    EXPECT_EQ(ask(7, 2, two), EGL_TRUE);
    base = 500;
    std::uint64_t before = drains();
    EXPECT_EQ(ask(8, 2, two), EGL_TRUE);
    EXPECT_EQ(values[0], 100);
    EXPECT_EQ(values[1], 101) << "the first answer, for a later frame";
    EXPECT_EQ(drains(), before);

    // Other names: asked, and they replace what was kept.
    EXPECT_EQ(ask(9, 3, three), EGL_TRUE);
    EXPECT_EQ(values[2], 502);
    base = 900;
    EXPECT_EQ(ask(10, 3, three), EGL_TRUE);
    EXPECT_EQ(values[2], 502);
    EXPECT_EQ(ask(11, 2, two), EGL_TRUE);
    EXPECT_EQ(values[1], 901) << "the old names are asked again";
    EXPECT_EQ(fake::callsOf("eglGetFrameTimestampsANDROID").size(), 3u);
}

TEST_F(ObjectHandlers, PresentationTimeIsRecordedWithItsSixtyFourBits) {
    bind(core::MODE_DEFERRED);
    std::uint64_t before = drains();
    const EGLnsecsANDROID time = 0x123456789ABCDEFLL;
    EXPECT_EQ(gl_deferred_eglPresentationTimeANDROID(display(), surface(), time), EGL_TRUE);
    EXPECT_EQ(drains(), before);
    EXPECT_TRUE(fake::callsOf("eglPresentationTimeANDROID").empty());
    gl_deferred_glFinish();
    auto call = fake::callsOf("eglPresentationTimeANDROID").at(0);
    EXPECT_EQ(call.args[2].bits, static_cast<std::uint64_t>(time));
    EXPECT_NE(call.thread, threadId());
}

// ---- Read-back ---------------------------------------------------------

class Readback : public ObjectHandlers {
  protected:
    void SetUp() override {
        ObjectHandlers::SetUp();
        bind(core::MODE_DEFERRED);
        fake::setHandler("glFenceSync", [this](const fake::Call&) { return nextFence++; });
        fake::setHandler("glClientWaitSync", [this](const fake::Call&) { return waitStatus; });
        fake::setHandler("glGetBufferParameteriv", [this](const fake::Call& c) {
            *pointerArg<GLint>(c, 2) = static_cast<GLint>(packed.size());
            return 0;
        });
        fake::setHandler("glMapBufferRange", [this](const fake::Call&) {
            return mapFails ? 0 : reinterpret_cast<std::uintptr_t>(packed.data());
        });
        fake::setHandler("glGetIntegerv", [](const fake::Call& c) {
            if (c.args[0].bits == 0x88ED) *pointerArg<GLint>(c, 1) = 77;
            return 0;
        });
        fill(1500, 1);
        fake::clearCalls();
    }
    void fill(std::size_t size, unsigned char seed) {
        packed.resize(size);
        for (std::size_t i = 0; i < size; ++i) packed[i] = static_cast<unsigned char>(seed + i);
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

TEST_F(Readback, IntoAPackBufferCopiesOnTheWorkerWithoutADrain) {
    std::uint64_t before = drains();
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    EXPECT_EQ(drains(), before);
    gl_deferred_glFinish();

    EXPECT_EQ(trace(), (std::vector<std::string>{
                           "worker glReadPixels", "worker glFenceSync", "worker glClientWaitSync",
                           "worker glDeleteSync", "worker glGetBufferParameteriv",
                           "worker glMapBufferRange", "worker glFenceSync", "worker glUnmapBuffer",
                           "worker glGetIntegerv", "worker glFinish"}));
    EXPECT_EQ(fake::callsOf("glReadPixels")[0].args[6].bits, 0u);
    EXPECT_EQ(fake::callsOf("glDeleteSync")[0].args[0].bits, 0xf1u) << "the wait's own fence";
    std::vector<std::uint64_t> mapArgs;
    auto map = fake::callsOf("glMapBufferRange").at(0);
    for (auto& arg : map.args) mapArgs.push_back(arg.bits);
    EXPECT_EQ(mapArgs, (std::vector<std::uint64_t>{PIXEL_PACK_BUFFER, 0, 1500, MAP_READ_BIT}));

    std::lock_guard<std::mutex> lock(cache().mutex);
    EXPECT_TRUE(cache().valid);
    EXPECT_EQ(cache().buffer, 77u);
    EXPECT_EQ(cache().size, 1500u);
    EXPECT_EQ(cache().fence, reinterpret_cast<GLsync>(0xf2));
    ASSERT_NE(cache().data, nullptr);
    EXPECT_NE(cache().data, packed.data());
    EXPECT_EQ(std::memcmp(cache().data, packed.data(), 1500), 0);
}

TEST_F(Readback, AnUnconsumedCopyStaysAndALargerOneGetsANewBlock) {
    readBack();
    void* first = cache().data;
    fill(1500, 9);
    fake::clearCalls();
    readBack();
    EXPECT_TRUE(fake::callsOf("glMapBufferRange").empty()) << "no map while the copy is unread";
    EXPECT_EQ(static_cast<unsigned char*>(first)[0], 1) << "the first copy stands";

    // Smaller: the block is kept with its size.
    consume();
    fill(1000, 20);
    readBack();
    EXPECT_EQ(cache().data, first);
    EXPECT_EQ(cache().size, 1500u);
    EXPECT_EQ(static_cast<unsigned char*>(cache().data)[999], static_cast<unsigned char>(1019));
    EXPECT_EQ(fake::callsOf("glDeleteSync").back().args[0].bits, 0xf2u)
        << "the fence of the last copy goes when a new copy's fence is set";

    // Larger: a new block of the new size.
    consume();
    fill(3000, 30);
    readBack();
    EXPECT_EQ(cache().size, 3000u);
    EXPECT_TRUE(cache().valid);
    EXPECT_EQ(std::memcmp(cache().data, packed.data(), 3000), 0);
}

TEST_F(Readback, AFailedWaitOrMapOrEmptyBufferLeavesNoCopy) {
    waitStatus = TIMEOUT_EXPIRED;
    readBack();
    EXPECT_TRUE(fake::callsOf("glGetBufferParameteriv").empty());
    EXPECT_EQ(fake::callsOf("glDeleteSync").size(), 1u) << "the wait's fence goes all the same";

    waitStatus = 0x911A;  // already signalled
    packed.clear();
    readBack();
    EXPECT_TRUE(fake::callsOf("glMapBufferRange").empty()) << "an empty buffer is not mapped";

    fill(64, 0);
    mapFails = true;
    readBack();
    EXPECT_EQ(fake::callsOf("glMapBufferRange").size(), 1u);
    EXPECT_TRUE(fake::callsOf("glUnmapBuffer").empty());
    EXPECT_FALSE(cache().valid);
    EXPECT_EQ(cache().data, nullptr);
}

TEST_F(Readback, TheGamesReadMapOfTheCopiedBufferIsServedFromTheCopy) {
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    readBack();
    // Another buffer, a range beyond the copy or a failed wait: the real
    // buffer is mapped, and the copy stays.
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 78);
    map(0, 16);
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    map(1000, 501);
    waitStatus = TIMEOUT_EXPIRED;
    map(0, 16);
    EXPECT_EQ(fake::callsOf("glMapBufferRange").size(), 1u + 3u);
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
    EXPECT_EQ(trace(), (std::vector<std::string>{"game glClientWaitSync"}));
    EXPECT_EQ(fake::callsOf("glClientWaitSync")[0].args[0].bits, 0xf2u) << "the copy's own fence";
    EXPECT_FALSE(cache().valid);

    // Consumed: the next map and unmap are the driver's.
    map(0, 16);
    gl_deferred_glUnmapBuffer(PIXEL_PACK_BUFFER);
    EXPECT_EQ(drains(), before + 2);
    EXPECT_EQ(fake::callsOf("glMapBufferRange").size(), 1u);
    EXPECT_EQ(fake::callsOf("glUnmapBuffer").size(), 1u);
}

TEST_F(Readback, IntoClientMemoryOrAtAnOffsetWaitsAndPassesThePointer) {
    std::uint64_t before = drains();
    gl_deferred_glReadPixels(1, 2, 3, 4, RGBA, UNSIGNED_BYTE, reinterpret_cast<void*>(16));
    EXPECT_EQ(drains(), before + 1);
    EXPECT_EQ(trace(), (std::vector<std::string>{"worker glReadPixels"}));
    EXPECT_EQ(fake::callsOf("glReadPixels")[0].args[6].bits, 16u);
    EXPECT_FALSE(cache().valid);
}

}  // namespace
