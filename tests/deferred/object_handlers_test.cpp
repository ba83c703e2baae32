// Programs, textures, queries, EGL frame times and the asynchronous
// read-back: what the driver gets, and which calls cost the game a drain.
#include <cstring>
#include <string>
#include <vector>

#include "DeferredFixture.h"

using namespace velour;
using velour::core::TextureHandler;
using velour::test::threadId;

namespace {

constexpr GLenum RGBA = 0x1908, RGB = 0x1907, UNSIGNED_BYTE = 0x1401, FLOAT = 0x1406;
constexpr GLenum UNPACK_ROW_LENGTH = 0x0CF2, UNPACK_SKIP_ROWS = 0x0CF3, UNPACK_SKIP_PIXELS = 0x0CF4,
                 UNPACK_ALIGNMENT = 0x0CF5, PACK_ALIGNMENT = 0x0D05;
constexpr GLenum TEXTURE_2D = 0x0DE1;
constexpr GLenum ANY_SAMPLES_PASSED = 35887, ANY_SAMPLES_PASSED_CONSERVATIVE = 0x8D6A;
constexpr GLenum QUERY_RESULT = 0x8866, QUERY_RESULT_AVAILABLE = 0x8867;
constexpr GLenum PIXEL_PACK_BUFFER = 0x88EB, MAP_READ_BIT = 1;
constexpr GLenum CONDITION_SATISFIED = 0x911C, TIMEOUT_EXPIRED = 0x911B;

template <typename T>
T* pointerArg(const fake::Call& call, std::size_t index) {
    return reinterpret_cast<T*>(static_cast<std::uintptr_t>(call.args[index].bits));
}

// Restores the two settings of this file, which the common fixture leaves.
class ObjectHandlers : public test::Deferred {
  protected:
    void TearDown() override {
        test::Deferred::TearDown();
        core::context.gameConfig.disableAnySamplesPassed = saved.disableAnySamplesPassed;
        core::context.gameConfig.disableEglTimeStamps = saved.disableEglTimeStamps;
    }
    std::uint64_t drains() { return executor().counters().drains; }
};

// ---- Pixel sizes and uploads -------------------------------------------

TEST(ImageSize, RowsArePaddedToTheAlignment) {
    EXPECT_EQ(TextureHandler::imageSize(3, 2, 1, RGB, UNSIGNED_BYTE, 4), 24u) << "9 rounds to 12";
    EXPECT_EQ(TextureHandler::imageSize(3, 2, 1, RGB, UNSIGNED_BYTE, 1), 18u);
    EXPECT_EQ(TextureHandler::imageSize(3, 2, 1, RGB, UNSIGNED_BYTE, 0), 18u) << "below 1 is 1";
    EXPECT_EQ(TextureHandler::imageSize(3, 2, 4, RGB, UNSIGNED_BYTE, 8), 4u * 2 * 16);
    EXPECT_EQ(TextureHandler::imageSize(5, 1, 1, RGBA, FLOAT, 4), 80u);
}

TEST(ImageSize, PackedTypesGiveThePixelWhateverTheFormat) {
    EXPECT_EQ(TextureHandler::imageSize(4, 1, 1, RGBA, 0x8033 /*4_4_4_4*/, 1), 8u);
    EXPECT_EQ(TextureHandler::imageSize(4, 1, 1, RGB, 0x8363 /*5_6_5*/, 1), 8u);
    EXPECT_EQ(TextureHandler::imageSize(4, 1, 1, RGBA, 0x8368 /*2_10_10_10*/, 1), 16u);
    EXPECT_EQ(TextureHandler::imageSize(4, 1, 1, 0x84F9 /*DEPTH_STENCIL*/, 0x8DAD, 1), 32u);
    EXPECT_EQ(TextureHandler::imageSize(4, 1, 1, 0x8227 /*RG*/, 0x140B /*HALF*/, 1), 16u);
}

TEST(ImageSize, UnknownFormatTypeOrNegativeExtentIsZero) {
    EXPECT_EQ(TextureHandler::imageSize(4, 4, 1, 0x1234, UNSIGNED_BYTE, 4), 0u);
    EXPECT_EQ(TextureHandler::imageSize(4, 4, 1, RGBA, 0x1234, 4), 0u);
    EXPECT_EQ(TextureHandler::imageSize(-2, -3, 1, RGBA, UNSIGNED_BYTE, 4), 0u)
        << "two negative extents must not make a positive size";
    EXPECT_EQ(TextureHandler::imageSize(0, 3, 1, RGBA, UNSIGNED_BYTE, 4), 0u);
}

TEST_F(ObjectHandlers, TexSubImageCopiesWhatThePixelStoreSaysAndNeverWaits) {
    bind(core::MODE_DEFERRED);
    fake::clearCalls();
    std::vector<unsigned char> seen;
    const void* seenAt = nullptr;
    const std::size_t size = 23 * 3016;  // (1000 + 3) * 3 rounded to 8, over 20 + 3 rows
    fake::setHandler("glTexSubImage2D", [&](const fake::Call& c) {
        seenAt = pointerArg<const void>(c, 8);
        if (seenAt)
            seen.assign(static_cast<const unsigned char*>(seenAt),
                        static_cast<const unsigned char*>(seenAt) + size);
        return 0;
    });
    std::uint64_t before = drains();
    gl_deferred_glPixelStorei(UNPACK_ROW_LENGTH, 1000);
    gl_deferred_glPixelStorei(UNPACK_SKIP_PIXELS, 3);
    gl_deferred_glPixelStorei(UNPACK_SKIP_ROWS, 3);
    gl_deferred_glPixelStorei(UNPACK_ALIGNMENT, 8);
    GLint value = 0;
    EXPECT_TRUE(executor().unpackParameter(UNPACK_ROW_LENGTH, &value));
    EXPECT_EQ(value, 1000) << "glGetIntegerv can answer from the executor";

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
    ASSERT_NE(seenAt, nullptr);
    EXPECT_NE(seenAt, pixels.data()) << "the driver reads a copy";
    EXPECT_EQ(seen, original) << "taken at the call, before the game changed its memory";
    auto calls = driverCalls();
    std::size_t stores = 0;
    for (auto& c : calls) {
        if (c.first == "glTexSubImage2D") {
            EXPECT_EQ(stores, 4u) << "every pixel store reaches the driver first";
        }
        stores += c.first == "glPixelStorei";
        EXPECT_NE(c.second, threadId()) << c.first;
    }
    auto upload = fake::callsOf("glTexSubImage2D").at(0);
    EXPECT_EQ(upload.args[4].bits, 10u);
    EXPECT_EQ(upload.args[5].bits, 20u) << "the game's own extent, not the copy's";
}

TEST_F(ObjectHandlers, TexSubImageWithNothingToCopyGivesTheDriverNull) {
    bind(core::MODE_DEFERRED);
    unsigned char pixels[64] = {};
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 2, 2, 0x1234, UNSIGNED_BYTE, pixels);
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 2, 2, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glTexSubImage2D(TEXTURE_2D, 0, 0, 0, 0, 2, RGBA, UNSIGNED_BYTE, pixels);
    gl_deferred_glFinish();
    auto uploads = fake::callsOf("glTexSubImage2D");
    ASSERT_EQ(uploads.size(), 3u);
    for (auto& u : uploads) EXPECT_EQ(u.args[8].bits, 0u);
}

TEST_F(ObjectHandlers, CompressedUploadCopiesItsImageSize) {
    bind(core::MODE_DEFERRED);
    unsigned char block[16];
    for (int i = 0; i < 16; ++i) block[i] = static_cast<unsigned char>(i + 1);
    std::vector<unsigned char> seen;
    fake::setHandler("glCompressedTexSubImage2D", [&](const fake::Call& c) {
        if (auto* p = pointerArg<const unsigned char>(c, 8)) seen.assign(p, p + 16);
        return 0;
    });
    gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 4, 4, 0x9274, 16, block);
    std::memset(block, 0, sizeof(block));
    gl_deferred_glCompressedTexSubImage2D(TEXTURE_2D, 0, 0, 0, 4, 4, 0x9274, 0, block);
    gl_deferred_glFinish();
    auto uploads = fake::callsOf("glCompressedTexSubImage2D");
    ASSERT_EQ(uploads.size(), 2u);
    EXPECT_NE(uploads[0].args[8].bits, reinterpret_cast<std::uintptr_t>(block));
    ASSERT_EQ(seen.size(), 16u);
    EXPECT_EQ(seen[15], 16);
    EXPECT_EQ(uploads[1].args[8].bits, 0u) << "an image size of 0 records null";
}

// ---- Programs ----------------------------------------------------------

// ---- Queries -----------------------------------------------------------

TEST_F(ObjectHandlers, AnySamplesQueriesAnswerOneWithoutADrainWhenDisabled) {
    core::context.gameConfig.disableAnySamplesPassed = true;
    bind(core::MODE_DEFERRED);
    auto& queries = executor().handler<core::QueryHandler>();
    fake::setHandler("glGetQueryObjectuiv", [](const fake::Call& c) {
        *pointerArg<GLuint>(c, 2) = 0;
        return 0;
    });

    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 5);
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 0);
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED_CONSERVATIVE, 6);
    EXPECT_TRUE(queries.answered(5));
    EXPECT_FALSE(queries.answered(0)) << "id 0 is never kept";
    EXPECT_FALSE(queries.answered(6));

    std::uint64_t before = drains();
    GLuint result = 7, available = 7;
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

TEST_F(ObjectHandlers, QueriesGoToTheDriverWhenTheSettingIsOff) {
    core::context.gameConfig.disableAnySamplesPassed = false;
    bind(core::MODE_DEFERRED);
    fake::setHandler("glGetQueryObjectuiv", [](const fake::Call& c) {
        *pointerArg<GLuint>(c, 2) = 0;
        return 0;
    });
    gl_deferred_glBeginQuery(ANY_SAMPLES_PASSED, 5);
    EXPECT_TRUE(executor().handler<core::QueryHandler>().anySamplesQueries.empty());
    std::uint64_t before = drains();
    GLuint result = 7;
    gl_deferred_glGetQueryObjectuiv(5, QUERY_RESULT, &result);
    EXPECT_EQ(result, 0u);
    EXPECT_EQ(drains(), before + 1);
    EXPECT_NE(fake::callsOf("glGetQueryObjectuiv").at(0).thread, threadId());
}

TEST_F(ObjectHandlers, DeleteQueriesPassesTheGamesArrayUncopiedAndUnwaited) {
    bind(core::MODE_DEFERRED);
    std::vector<GLuint> seen;
    fake::setHandler("glDeleteQueries", [&](const fake::Call& c) {
        const GLuint* ids = pointerArg<const GLuint>(c, 1);
        seen.assign(ids, ids + c.args[0].bits);
        return 0;
    });
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

TEST_F(ObjectHandlers, FrameIdIsAskedEveryTimeWhenTimeStampsAreOn) {
    core::context.gameConfig.disableEglTimeStamps = false;
    bind(core::MODE_DEFERRED);
    std::uint64_t next = 41;
    fake::setHandler("eglGetNextFrameIdANDROID", [&](const fake::Call& c) {
        *pointerArg<EGLuint64KHR>(c, 2) = next++;
        return EGL_TRUE;
    });
    EGLuint64KHR id = 0;
    EXPECT_EQ(gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id), EGL_TRUE);
    EXPECT_EQ(id, 41u);
    EXPECT_EQ(gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id), EGL_TRUE);
    EXPECT_EQ(id, 42u);
    EXPECT_EQ(fake::callsOf("eglGetNextFrameIdANDROID").size(), 2u);
}

TEST_F(ObjectHandlers, FirstSuccessfulFrameIdIsKeptWhenTimeStampsAreOff) {
    core::context.gameConfig.disableEglTimeStamps = true;
    bind(core::MODE_DEFERRED);
    std::uint64_t next = 41;
    EGLBoolean answer = EGL_FALSE;
    fake::setHandler("eglGetNextFrameIdANDROID", [&](const fake::Call& c) {
        *pointerArg<EGLuint64KHR>(c, 2) = next++;
        return answer;
    });
    EGLuint64KHR id = 0;
    EXPECT_EQ(gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id), EGL_FALSE);
    answer = EGL_TRUE;
    EXPECT_EQ(gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id), EGL_TRUE);
    EXPECT_EQ(id, 42u) << "a failed answer is not kept";
    std::uint64_t before = drains();
    id = 0;
    EXPECT_EQ(gl_deferred_eglGetNextFrameIdANDROID(display(), surface(), &id), EGL_TRUE);
    EXPECT_EQ(id, 42u);
    EXPECT_EQ(drains(), before);
    EXPECT_EQ(fake::callsOf("eglGetNextFrameIdANDROID").size(), 2u);
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
    auto calls = fake::callsOf("eglPresentationTimeANDROID");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args[2].bits, static_cast<std::uint64_t>(time));
    EXPECT_NE(calls[0].thread, threadId());
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
    core::DeferredExecutor::ReadbackCache& cache() { return executor().readbackCache; }
    void consume() {
        std::lock_guard<std::mutex> lock(cache().mutex);
        cache().valid = false;
    }
    std::vector<std::string> names() {
        std::vector<std::string> out;
        for (auto& c : driverCalls()) out.push_back(c.first);
        return out;
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

    EXPECT_EQ(names(), (std::vector<std::string>{"glReadPixels", "glFenceSync", "glClientWaitSync",
                                                 "glDeleteSync", "glGetBufferParameteriv",
                                                 "glMapBufferRange", "glFenceSync", "glUnmapBuffer",
                                                 "glGetIntegerv", "glFinish"}));
    for (auto& c : driverCalls()) EXPECT_NE(c.second, threadId()) << c.first;
    EXPECT_EQ(fake::callsOf("glReadPixels")[0].args[6].bits, 0u);
    EXPECT_EQ(fake::callsOf("glDeleteSync")[0].args[0].bits, 0xf1u) << "the wait's own fence";
    auto map = fake::callsOf("glMapBufferRange")[0];
    EXPECT_EQ(map.args[0].bits, PIXEL_PACK_BUFFER);
    EXPECT_EQ(map.args[1].bits, 0u);
    EXPECT_EQ(map.args[2].bits, 1500u);
    EXPECT_EQ(map.args[3].bits, MAP_READ_BIT);

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
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    void* first = cache().data;
    fill(1500, 9);
    fake::clearCalls();
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    EXPECT_TRUE(fake::callsOf("glMapBufferRange").empty()) << "no map while the copy is unread";
    EXPECT_EQ(static_cast<unsigned char*>(first)[0], 1) << "the first copy stands";

    // Smaller: the block is kept with its size.
    consume();
    fill(1000, 20);
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    EXPECT_EQ(cache().data, first);
    EXPECT_EQ(cache().size, 1500u);
    EXPECT_EQ(static_cast<unsigned char*>(cache().data)[999], static_cast<unsigned char>(1019));
    EXPECT_EQ(fake::callsOf("glDeleteSync").back().args[0].bits, 0xf2u)
        << "the fence of the last copy goes when a new copy's fence is set";

    // Larger: a new block of the new size.
    consume();
    fill(3000, 30);
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    EXPECT_EQ(cache().size, 3000u);
    EXPECT_TRUE(cache().valid);
    EXPECT_EQ(std::memcmp(cache().data, packed.data(), 3000), 0);
}

TEST_F(Readback, AFailedWaitOrMapOrEmptyBufferLeavesNoCopy) {
    waitStatus = TIMEOUT_EXPIRED;
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    EXPECT_TRUE(fake::callsOf("glGetBufferParameteriv").empty());
    EXPECT_EQ(fake::callsOf("glDeleteSync").size(), 1u) << "the wait's fence goes all the same";

    waitStatus = 0x911A;  // already signalled
    packed.clear();
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    EXPECT_TRUE(fake::callsOf("glMapBufferRange").empty()) << "an empty buffer is not mapped";

    fill(64, 0);
    mapFails = true;
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    EXPECT_EQ(fake::callsOf("glMapBufferRange").size(), 1u);
    EXPECT_TRUE(fake::callsOf("glUnmapBuffer").empty());
    EXPECT_FALSE(cache().valid);
    EXPECT_EQ(cache().data, nullptr);
}

TEST_F(Readback, TheGamesReadMapOfTheCopiedBufferIsServedFromTheCopy) {
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    fake::clearCalls();
    std::uint64_t before = drains();

    auto* mapped = static_cast<unsigned char*>(
        gl_deferred_glMapBufferRange(PIXEL_PACK_BUFFER, 100, 200, MAP_READ_BIT));
    ASSERT_NE(mapped, nullptr);
    EXPECT_NE(mapped, packed.data() + 100) << "the copy, not the driver's memory";
    EXPECT_EQ(std::memcmp(mapped, packed.data() + 100, 200), 0);
    EXPECT_EQ(gl_deferred_glUnmapBuffer(PIXEL_PACK_BUFFER), 1);
    EXPECT_EQ(drains(), before);
    EXPECT_EQ(names(), (std::vector<std::string>{"glClientWaitSync"}));
    auto wait = fake::callsOf("glClientWaitSync")[0];
    EXPECT_EQ(wait.args[0].bits, 0xf2u) << "the copy's own fence";
    EXPECT_EQ(wait.thread, threadId());
    EXPECT_FALSE(cache().valid);

    // Consumed: the next map and unmap are the driver's.
    gl_deferred_glMapBufferRange(PIXEL_PACK_BUFFER, 0, 16, MAP_READ_BIT);
    gl_deferred_glUnmapBuffer(PIXEL_PACK_BUFFER);
    EXPECT_EQ(drains(), before + 2);
    EXPECT_EQ(fake::callsOf("glMapBufferRange").size(), 1u);
    EXPECT_EQ(fake::callsOf("glUnmapBuffer").size(), 1u);
}

TEST_F(Readback, AnotherBufferARangeBeyondTheCopyOrAFailedWaitMapsTheRealBuffer) {
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    gl_deferred_glReadPixels(0, 0, 4, 4, RGBA, UNSIGNED_BYTE, nullptr);
    gl_deferred_glFinish();
    fake::clearCalls();

    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 78);
    gl_deferred_glMapBufferRange(PIXEL_PACK_BUFFER, 0, 16, MAP_READ_BIT);
    gl_deferred_glBindBuffer(PIXEL_PACK_BUFFER, 77);
    gl_deferred_glMapBufferRange(PIXEL_PACK_BUFFER, 1000, 501, MAP_READ_BIT);
    waitStatus = TIMEOUT_EXPIRED;
    gl_deferred_glMapBufferRange(PIXEL_PACK_BUFFER, 0, 16, MAP_READ_BIT);
    EXPECT_EQ(fake::callsOf("glMapBufferRange").size(), 3u);
    EXPECT_TRUE(cache().valid) << "only an unmap of the copy consumes it";
}

TEST_F(Readback, IntoClientMemoryOrAtAnOffsetWaitsAndPassesThePointer) {
    std::uint64_t before = drains();
    auto* offset = reinterpret_cast<void*>(16);
    gl_deferred_glReadPixels(1, 2, 3, 4, RGBA, UNSIGNED_BYTE, offset);
    EXPECT_EQ(drains(), before + 1);
    auto reads = fake::callsOf("glReadPixels");
    ASSERT_EQ(reads.size(), 1u);
    EXPECT_EQ(reads[0].args[6].bits, 16u);
    EXPECT_NE(reads[0].thread, threadId());
    EXPECT_TRUE(fake::callsOf("glFenceSync").empty());
    EXPECT_FALSE(cache().valid);
}

}  // namespace
