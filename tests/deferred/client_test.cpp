// Client-side data: what a draw copies, where the driver finds it, what is
// answered without a drain, and which draws count towards early submission.
#include <cstring>
#include <map>
#include <numeric>

#include "DeferredFixture.h"
#include "platform/properties.h"
#include "velour/utils/Configuration.h"

using namespace velour;
using namespace velour::test;

namespace {

constexpr GLenum TRIANGLES = 4, FLOAT = 0x1406, UNSIGNED_BYTE = 0x1401, UNSIGNED_SHORT = 0x1403;
constexpr GLenum ARRAY_BUFFER = 34962, ELEMENT_ARRAY_BUFFER = 34963, COPY_READ_BUFFER = 36662;
constexpr GLenum MAP_WRITE = 0x2, MAP_READ = 0x1;
using Ints = std::vector<GLint>;

GLint integer(GLenum pname) {
    return fetch(gl_deferred_glGetIntegerv, pname);
}

class Client : public Bound {
  protected:
    void SetUp() override {
        Bound::SetUp();
        gl_deferred_glEnableVertexAttribArray(0);  // every test draws from attribute 0, if any
    }
    ClientGLHandler& handler() { return executor().handler<ClientGLHandler>(); }
    std::uint64_t handOvers() { return executor().counters().handOvers; }
    std::uint32_t recorded() { return executor().queue.currentBuffer()->writeIndex; }
    // A client array at attribute 0, or with a buffer bound, a buffer's.
    void attribute(const void* pointer, GLuint buffer = 0) {
        gl_deferred_glBindBuffer(ARRAY_BUFFER, buffer);
        gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 0, pointer);
    }
    // Keeps what each attribute's pointer and the draw's indices show at the draw.
    void watchDraws(const char* draw, int floats) {
        fake::setHandler("glVertexAttribPointer", [this](const fake::Call& c) {
            pointers[c.args[0].bits] = pointerArg<const float>(c, 5);
            return 0;
        });
        const bool elements = std::strstr(draw, "Elements") != nullptr;
        fake::setHandler(draw, [this, floats, elements](const fake::Call& c) {
            for (auto& [index, p] : pointers) seen[index].assign(p, p + floats);
            if (auto* i = elements ? pointerArg<const GLushort>(c, 3) : nullptr)
                indices.assign(i, i + c.args[1].bits);
            return 0;
        });
    }
    std::map<std::uint64_t, const float*> pointers;
    std::map<std::uint64_t, std::vector<float>> seen;
    std::vector<GLushort> indices;
};

// --- What a draw copies ------------------------------------------------------

// The game's memory is copied at the draw from where the draw reads it (first,
// base vertex) and the driver draws the copy from zero.
TEST_F(Client, ADrawCopiesWhatItReadsAndTheDriverDrawsTheCopyFromZero) {
    float game[32];
    std::iota(game, game + 32, 0.f);
    GLushort gameIndices[] = {0, 2, 1};
    watchDraws("glDrawElementsBaseVertex", 2);
    watchDraws("glDrawArrays", 8);
    gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 0, game);
    gl_deferred_glDrawArrays(TRIANGLES, 8, 4);
    gl_deferred_glFinish();
    // The pointer reaches the driver with the draw only; first went into the copy.
    EXPECT_EQ(trace(), (Names{"worker glEnableVertexAttribArray", "worker glVertexAttribPointer",
                              "worker glDrawArrays", "worker glFinish"}));
    EXPECT_EQ(callsWith("glDrawArrays", {1, 2}), (Seen{{"worker", {0, 4}}}));
    EXPECT_EQ(seen[0], (std::vector<float>{16, 17, 18, 19, 20, 21, 22, 23}));

    gl_deferred_glVertexAttribPointer(0, 1, FLOAT, 0, 0, game);
    gl_deferred_glDrawElementsBaseVertex(TRIANGLES, 3, UNSIGNED_SHORT, gameIndices, 5);
    std::fill(game, game + 32, -1.f);  // the game may reuse its memory at once
    gameIndices[1] = 9;
    gl_deferred_glFinish();
    EXPECT_EQ(argOf("glDrawElementsBaseVertex", 4), (Bits{0}));
    EXPECT_EQ(Bits(seen[0].begin(), seen[0].begin() + 2), (Bits{5, 6}));
    EXPECT_EQ(indices, (std::vector<GLushort>{0, 2, 1})) << "a copy of the game's indices";
}

// Interleaved attributes are one copy, members at their offsets, whatever
// order they were declared in; a per-instance array is read from its start,
// an element per divisor's worth of instances, and one for a plain draw. The
// game's arrays end where the draw stops reading: a longer copy reads past them.
TEST_F(Client, InterleavedAndPerInstanceArraysAreCopiedAsTheDrawReadsThem) {
    float vertices[4][4];  // x, y, then r, g; the draw reads vertices 1 to 3
    std::iota(&vertices[0][0], &vertices[0][0] + 16, 0.f);
    watchDraws("glDrawArrays", 12);
    watchDraws("glDrawArraysInstanced", 8);
    gl_deferred_glEnableVertexAttribArray(1);
    gl_deferred_glVertexAttribPointer(1, 2, FLOAT, 0, 16, &vertices[0][2]);
    gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 16, &vertices[0][0]);
    gl_deferred_glDrawArrays(TRIANGLES, 1, 3);
    gl_deferred_glFinish();
    EXPECT_EQ(seen[0], std::vector<float>(&vertices[1][0], &vertices[0][0] + 16));
    EXPECT_EQ(pointers[1], pointers[0] + 2) << "one copy, the colours 8 bytes in";
    EXPECT_EQ(argOf("glVertexAttribPointer", 4), (Bits{16, 16}));

    float positions[16], offsets[3] = {7, 8, 9}, one = 42;
    std::iota(positions, positions + 16, 100.f);
    gl_deferred_glDisableVertexAttribArray(1);
    gl_deferred_glEnableVertexAttribArray(2);
    gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 0, positions);
    gl_deferred_glVertexAttribPointer(2, 1, FLOAT, 0, 0, offsets);
    gl_deferred_glVertexAttribDivisor(2, 2);
    gl_deferred_glDrawArraysInstanced(TRIANGLES, 4, 4, 5);
    gl_deferred_glFinish();
    EXPECT_EQ(seen[0], std::vector<float>(positions + 8, positions + 16));
    EXPECT_EQ(std::vector<float>(seen[2].begin(), seen[2].begin() + 3),
              (std::vector<float>{7, 8, 9}));
    gl_deferred_glVertexAttribPointer(2, 1, FLOAT, 0, 0, &one);
    gl_deferred_glDrawArrays(TRIANGLES, 0, 1);
    gl_deferred_glFinish();
    EXPECT_EQ(seen[2].at(0), 42.f);
}

TEST_F(Client, LargestIndexSkipsTheRestartIndexOnlyWhenRestartIsOn) {
    GLushort shorts[] = {0, 3, 0xFFFF, 1};
    GLubyte bytes[] = {7, 0xFF};
    GLuint ints[] = {4};
    EXPECT_EQ(handler().largestIndex(4, UNSIGNED_SHORT, shorts), 0xFFFFu);
    EXPECT_EQ(handler().largestIndex(1, 0x1405, ints), 4u);
    gl_deferred_glEnable(36201);
    EXPECT_EQ(handler().largestIndex(4, UNSIGNED_SHORT, shorts), 3u);
    EXPECT_EQ(handler().largestIndex(2, UNSIGNED_BYTE, bytes), 7u);
    gl_deferred_glDisable(36201);
    EXPECT_EQ(handler().largestIndex(2, UNSIGNED_BYTE, bytes), 0xFFu);
    EXPECT_TRUE(fake::calls().empty()) << "recorded, not yet replayed";
    gl_deferred_glFinish();
    EXPECT_EQ(count("glEnable"), 1u);
}

// --- Which path a draw takes ---------------------------------------------------

TEST_F(Client, ClientArraysWithAnElementBufferApplyTheGamePointersAndWait) {
    float game[8] = {};
    gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 0, game);
    gl_deferred_glBindBuffer(ARRAY_BUFFER, 6);
    gl_deferred_glBindBuffer(ELEMENT_ARRAY_BUFFER, 4);
    auto before = drains();
    gl_deferred_glDrawElements(TRIANGLES, 3, UNSIGNED_SHORT, reinterpret_cast<void*>(0x10));
    EXPECT_EQ(drains(), before + 1);

    // Unbound around the pointer, so that it is taken as client memory, then bound back.
    EXPECT_EQ(trace(),
              (Names{"worker glEnableVertexAttribArray", "worker glBindBuffer",
                     "worker glBindBuffer", "worker glBindBuffer", "worker glVertexAttribPointer",
                     "worker glBindBuffer", "worker glDrawElements"}));
    EXPECT_EQ(argOf("glBindBuffer", 1), (Bits{6, 4, 0, 6}));
    EXPECT_EQ(argOf("glVertexAttribPointer", 5), (Bits{bitsOf(game)}));
    EXPECT_EQ(argOf("glDrawElements", 3), (Bits{0x10}));
}

// Out of frame data, a generated call with pointer data runs before its
// wrapper returns, with the game's own pointer, and a client draw is drawn
// from the game's own arrays and indices; what fits is still recorded and the
// mode stays deferred. Handled calls out of memory: exhaustion_test.
TEST_F(Client, OutOfFrameDataRunsWhatCannotBeCopiedAtOnce) {
    using FrameData = core::MemTracker<core::MemCategory::FrameData>;
    struct Restore {
        ~Restore() { FrameData::limit = ~std::uint64_t(0); }
    } restore;
    FrameData::limit = FrameData::memory_usage.load();

    std::vector<float> uniforms(0x8000 * 4, 2.f), seenUniforms;  // larger than a frame's memory
    keepArray("glUniform4fv", 2, seenUniforms,
              [](const fake::Call& c) { return 4 * c.args[1].bits; });
    gl_deferred_glUniform4fv(3, 0x8000, uniforms.data());
    EXPECT_EQ(seenUniforms, uniforms) << "ran before the wrapper returned";
    EXPECT_EQ(argOf("glUniform4fv", 2), (Bits{bitsOf(uniforms.data())}));

    std::vector<float> game(0x8001 * 2);
    GLushort game_indices[3] = {0, 1, 0x8000};
    gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 0, game.data());
    auto before = drains();
    gl_deferred_glDrawElements(TRIANGLES, 3, UNSIGNED_SHORT, game_indices);
    gl_deferred_glDrawArrays(TRIANGLES, 0, 0x8001);
    EXPECT_EQ(drains(), before + 2);
    auto pointers = argOf("glVertexAttribPointer", 5);
    EXPECT_EQ(Bits(pointers.begin(), pointers.begin() + 2),
              (Bits{bitsOf(game.data()), bitsOf(game.data())}));
    EXPECT_EQ(argOf("glDrawElements", 3), (Bits{bitsOf(game_indices)}));

    float small[4] = {1, 2, 3, 4};
    gl_deferred_glUniform4fv(4, 1, small);
    EXPECT_EQ(count("glUniform4fv"), 1u) << "what fits is still recorded";
    core::egl::deferred::swapBuffers(display(), surface());
    gl_deferred_glFinish();
    EXPECT_EQ(core::context.gameConfig.runtimeMode, core::MODE_DEFERRED);
    Names all = trace();
    EXPECT_EQ(Names(all.end() - 3, all.end()),
              (Names{"worker glUniform4fv", "worker eglSwapBuffers", "worker glFinish"}));
}

// Client draws take a pointer into client memory: no buffer bound with it,
// and no vertex array.
TEST_F(Client, ABufferOrAVertexArrayKeepsADrawOffTheClientPath) {
    float game[8] = {};
    attribute(game);
    EXPECT_TRUE(handler().isClientDraw());
    attribute(nullptr, 5);
    EXPECT_FALSE(handler().isClientDraw()) << "the buffer took the client bit away";
    GLuint deleted = 5;
    gl_deferred_glDeleteBuffers(1, &deleted);
    deleted = 77;  // the copy, not the game's array, reaches the driver
    gl_deferred_glVertexAttribPointer(0, 2, FLOAT, 0, 0, game);
    EXPECT_TRUE(handler().isClientDraw()) << "deleting the bound buffer unbinds it";

    gl_deferred_glBindVertexArray(3);
    auto before = drains();
    gl_deferred_glDrawArrays(TRIANGLES, 8, 4);
    gl_deferred_glBindBuffer(ELEMENT_ARRAY_BUFFER, 2);
    gl_deferred_glDrawElements(TRIANGLES, 3, UNSIGNED_SHORT, nullptr);
    gl_deferred_glFinish();
    EXPECT_EQ(drains(), before + 1) << "the finish alone";
    EXPECT_EQ(count("glVertexAttribPointer"), 1u) << "only the buffer one";
    EXPECT_EQ(argOf("glDrawArrays", 1), (Bits{8}));
    EXPECT_EQ(*pointerArg<const GLuint>(fake::callsOf("glDeleteBuffers").at(0), 1), 5u);

    // The element buffer went to the vertex array, not the default one.
    gl_deferred_glBindVertexArray(0);
    EXPECT_EQ(integer(0x85B5), 0);
    EXPECT_EQ(handler().binding(ELEMENT_ARRAY_BUFFER), 0u);
}

// Counted draws hand over early every 20th, and a frame of 50 of them ends the
// warm-up at its swap after a hundred frames; client draws do neither. The
// worker swaps, and publishes its thread when the warm-up ends.
TEST_F(Client, OnlyCountedDrawsSubmitEarlyAndEndTheWarmUp) {
    utils::Configuration::global().sets("orlo.de.job_queue_count", "3");
    utils::Configuration::global().sets("de.job_queue_count", "3");
    float game[8] = {};
    attribute(game);
    auto before = handOvers();
    for (int i = 0; i < 40; ++i) gl_deferred_glDrawArrays(TRIANGLES, 0, 3);
    EXPECT_EQ(handOvers(), before) << "client draws leave the draw count at 0";

    attribute(nullptr, 1);
    gl_deferred_glBindBuffer(ELEMENT_ARRAY_BUFFER, 2);
    for (int i = 0; i < 19; ++i) gl_deferred_glDrawElements(TRIANGLES, 3, UNSIGNED_SHORT, nullptr);
    EXPECT_EQ(handOvers(), before);
    gl_deferred_glDrawArrays(TRIANGLES, 0, 3);
    EXPECT_EQ(handOvers(), before + 1) << "the 20th counted draw hands over early";
    for (int i = 0; i < 20; ++i) gl_deferred_glDrawArraysIndirect(TRIANGLES, nullptr);
    EXPECT_EQ(handOvers(), before + 2);
    gl_deferred_glFinish();
    EXPECT_EQ(count("glFlush"), 2u);

    auto frame = [&](int client, int counted) {
        attribute(game);
        for (int i = 0; i < client; ++i) gl_deferred_glDrawArrays(TRIANGLES, 0, 3);
        attribute(nullptr, 1);
        for (int i = 0; i < counted; ++i) gl_deferred_glDrawArrays(TRIANGLES, 0, 3);
        EXPECT_EQ(core::egl::deferred::swapBuffers(display(), surface()), EGL_TRUE);
    };
    before = handOvers();
    for (int i = 0; i < 101; ++i) frame(50, 49);
    EXPECT_EQ(executor().counters().deferredState, 0) << "client draws do not count";
    // Per frame: two early hand-overs for the 49 counted draws, and the swap's.
    EXPECT_GE(handOvers() - before, 101u * 3);
    frame(0, 50);
    gl_deferred_glFinish();
    EXPECT_EQ(executor().counters().deferredState, 2) << "the worker published its thread";
    char value[PROP_VALUE_MAX] = {};
    __system_property_get("vendor.nimbo.orlo.thread.render.id", value);
    EXPECT_EQ(std::string(value), std::to_string(threadId()));
    EXPECT_EQ(executor().queue.bufferCount(), 3u);
    EXPECT_EQ(callsWith("eglSwapBuffers", {}).back().first, "worker");
    EXPECT_EQ(count("eglSwapBuffers"), 102u);
}

// --- Buffer maps ---------------------------------------------------------------

TEST_F(Client, AWriteMapAndUnmapAreOneJobAndNoDrainOtherMapsTheDriversAlone) {
    unsigned char driverBuffer[64] = {};
    fake::setReturn("glMapBufferRange", bitsOf(driverBuffer));
    gl_deferred_glBindBuffer(ARRAY_BUFFER, 5);
    auto before = drains();
    std::uint32_t jobs = recorded();

    auto* block =
        static_cast<unsigned char*>(gl_deferred_glMapBufferRange(ARRAY_BUFFER, 16, 64, MAP_WRITE));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(fetch<void*>(gl_deferred_glGetBufferPointerv, ARRAY_BUFFER, 0x88BD), block);
    auto parameter = [](GLenum p) {
        return fetch(gl_deferred_glGetBufferParameteriv, ARRAY_BUFFER, p);
    };
    EXPECT_EQ((Ints{parameter(0x88BC), parameter(0x9120), parameter(0x9121)}), (Ints{1, 64, 16}))
        << "mapped, length, offset";
    gl_deferred_glFlushMappedBufferRange(ARRAY_BUFFER, 0, 8);
    std::iota(block, block + 64, static_cast<unsigned char>(1));
    EXPECT_EQ(gl_deferred_glUnmapBuffer(ARRAY_BUFFER), 1);

    EXPECT_EQ(recorded(), jobs + 1) << "the unmap's job alone";
    EXPECT_EQ(drains(), before);
    EXPECT_TRUE(fake::calls().empty()) << "the driver has heard nothing yet";
    gl_deferred_glFinish();
    // The driver's own map gets the game's bytes; no flush of its own.
    EXPECT_EQ(trace(),
              (Names{"worker glEnableVertexAttribArray", "worker glBindBuffer",
                     "worker glMapBufferRange", "worker glUnmapBuffer", "worker glFinish"}));
    EXPECT_EQ(callsWith("glMapBufferRange", {1, 2}), (Seen{{"worker", {16, 64}}}));
    EXPECT_EQ((Bits{driverBuffer[0], driverBuffer[63]}), (Bits{1, 64}));

    // The pointer unmapped, and read, persistent and unbound maps: the driver's, with a drain.
    fake::clearCalls();
    fake::setReturn("glUnmapBuffer", 1);
    before = drains();
    fetch<void*>(gl_deferred_glGetBufferPointerv, ARRAY_BUFFER, 0x88BD);
    EXPECT_EQ(gl_deferred_glMapBufferRange(ARRAY_BUFFER, 0, 16, MAP_READ | MAP_WRITE),
              driverBuffer);
    EXPECT_EQ(gl_deferred_glUnmapBuffer(ARRAY_BUFFER), 1);
    EXPECT_EQ(gl_deferred_glMapBufferRange(ARRAY_BUFFER, 0, 16, MAP_WRITE | 0x40), driverBuffer);
    gl_deferred_glBindBuffer(ARRAY_BUFFER, 0);
    EXPECT_EQ(gl_deferred_glMapBufferRange(ARRAY_BUFFER, 0, 16, MAP_WRITE), driverBuffer);
    EXPECT_EQ(drains(), before + 5);
    EXPECT_EQ(trace(), (Names{"worker glGetBufferPointerv", "worker glMapBufferRange",
                              "worker glUnmapBuffer", "worker glMapBufferRange",
                              "worker glBindBuffer", "worker glMapBufferRange"}));
}

// --- Answers from the shadow -----------------------------------------------------

TEST_F(Client, GetsAnswerFromTheShadowWithoutADrain) {
    // A driver that writes nothing, as for a pname the context lacks: the
    // game's memory is left alone and the driver asked again. Drains are
    // counted under the call that asked for them.
    const auto& by = executor().queue.stats().drainsBy;
    const std::uint32_t causes[] = {gles::id::glGetError, gles::id::glGetIntegerv,
                                    core::JobQueue::DRAIN_BY_LAYER};
    auto drainsBy = [&] {
        Ints out;
        for (auto cause : causes) out.push_back(GLint(by[cause]));
        return out;
    };
    Ints causesBefore = drainsBy();
    gl_deferred_glGetError();
    gl_deferred_glGetError();
    EXPECT_EQ((Ints{integer(0x821B), integer(0x821B)}), (Ints{-1, -1}));
    executor().queue.flushAndWait();
    EXPECT_EQ(drainsBy(), (Ints{causesBefore[0] + 2, causesBefore[1] + 2, causesBefore[2] + 1}));

    writeBack<GLint>("glGetIntegerv", 1, [](auto& c) { return c.args[0].bits == 0x8824 ? 8 : 42; });
    gl_deferred_glActiveTexture(0x84C3);
    gl_deferred_glBindTexture(0x0DE1, 7);
    gl_deferred_glBindTexture(0x8513, 9);  // a cube map is not followed
    gl_deferred_glReadBuffer(0x8CE0);
    gl_deferred_glBindVertexArray(11);
    gl_deferred_glBindBuffer(COPY_READ_BUFFER, 4);
    gl_deferred_glPixelStorei(0x0CF5, 1);   // unpack alignment
    gl_deferred_glPixelStorei(0x0CF2, 64);  // unpack row length
    gl_deferred_glPixelStorei(0x0D05, 2);   // pack alignment: not answered
    auto before = drains();
    // Unpack image height (0x806E) is never set: GL starts it at 0.
    const std::pair<GLenum, GLint> shadowed[] = {
        {0x84E0, 0x84C3},      {0x8069, 7}, {0x0C02, 0x8CE0}, {0x85B5, 11},
        {COPY_READ_BUFFER, 4}, {0x0CF5, 1}, {0x0CF2, 64},     {0x806E, 0}};
    for (auto [pname, value] : shadowed) EXPECT_EQ(integer(pname), value) << std::hex << pname;
    EXPECT_TRUE(gl_deferred_glIsVertexArray(11));
    EXPECT_FALSE(gl_deferred_glIsVertexArray(12));
    gl_deferred_glGetIntegerv(0x0D33, nullptr);
    EXPECT_EQ(drains(), before);

    gl_deferred_glActiveTexture(0x84C0);
    EXPECT_EQ(integer(0x8069), 0) << "per texture unit";
    gl_deferred_glActiveTexture(0x84C3);
    GLuint texture = 7, array = 11;
    gl_deferred_glDeleteTextures(1, &texture);
    EXPECT_EQ(integer(0x8069), 0);
    gl_deferred_glDeleteVertexArrays(1, &array);
    EXPECT_EQ(integer(0x85B5), 0);
    EXPECT_FALSE(gl_deferred_glIsVertexArray(11));
    EXPECT_EQ(drains(), before);

    // Limits are read once, anything else every time: answers, then drains so far.
    auto drained = [&] { return GLint(drains() - before); };
    EXPECT_EQ((Ints{integer(0x8824), integer(0x8824), drained()}), (Ints{8, 8, 1}));
    EXPECT_EQ((Ints{integer(0x0D33), integer(0x0D33), integer(0x0D05), integer(0x0D05), drained()}),
              (Ints{42, 42, 42, 42, 4}));

    // Attributes of the default array: size, integer, no buffer, divisor, pointer.
    float game[4] = {};
    gl_deferred_glEnableVertexAttribArray(2);
    gl_deferred_glVertexAttribIPointer(2, 3, 0x1404, 20, game);
    gl_deferred_glVertexAttribDivisor(2, 4);
    before = drains();
    auto attrib = [](GLuint i, GLenum p) { return fetch(gl_deferred_glGetVertexAttribiv, i, p); };
    EXPECT_EQ((Ints{attrib(2, 0x8623), attrib(2, 0x88FD), attrib(2, 0x889F)}), (Ints{3, 1, 0}));
    EXPECT_EQ(fetch<GLfloat>(gl_deferred_glGetVertexAttribfv, 2, 0x88FE), 4.f);
    EXPECT_EQ(fetch<void*>(gl_deferred_glGetVertexAttribPointerv, 2, 0x8645), game);
    EXPECT_EQ(drains(), before);

    attrib(7, 0x8623);  // never touched
    gl_deferred_glBindVertexArray(1);
    attrib(2, 0x8623);
    EXPECT_EQ(drains(), before + 2);
}

TEST_F(Client, BindingsAreAnsweredWhileCertainAndLearntByOneDrainWhenNot) {
    // Whatever the driver is asked, it answers 42: what the shadow learns.
    writeBack<GLint>("glGetIntegerv", 1, [](auto&) { return 42; });
    fake::setReturn("glIsProgram", 1);
    writeBack<GLint>("glGetProgramiv", 2, [](auto& c) { return c.args[0].bits == 5; });
    gl_deferred_glLinkProgram(5);  // links
    gl_deferred_glLinkProgram(6);  // does not
    gl_deferred_glUseProgram(5);
    gl_deferred_glBindFramebuffer(0x8D40, 3);
    gl_deferred_glBindRenderbuffer(0x8D41, 4);
    gl_deferred_glBindBuffer(ARRAY_BUFFER, 8);
    auto before = drains();
    const std::pair<GLenum, GLint> known[] = {
        {0x8B8D, 5}, {0x8CA6, 3}, {0x8CA7, 4}, {0x8894, 8}, {0x8895, 0}};
    for (auto [pname, value] : known) EXPECT_EQ(integer(pname), value) << std::hex << pname;
    GLuint framebuffer = 3, renderbuffer = 4;
    gl_deferred_glDeleteFramebuffers(1, &framebuffer);
    gl_deferred_glDeleteRenderbuffers(1, &renderbuffer);
    EXPECT_EQ((Ints{integer(0x8CA6), integer(0x8CA7)}), (Ints{0, 0})) << "deleted while bound";
    EXPECT_EQ(drains(), before);

    // Where the driver may refuse the call, its answer is asked once and kept.
    auto asked = [&](const char* what, GLenum pname) {
        before = drains();
        EXPECT_EQ(integer(pname), 42) << what;
        EXPECT_EQ(drains(), before + 1) << what;
    };
    gl_deferred_glUseProgram(6);
    asked("a program that did not link", 0x8B8D);
    gl_deferred_glBeginTransformFeedback(TRIANGLES);
    gl_deferred_glUseProgram(0);
    asked("a switch during transform feedback", 0x8B8D);
    gl_deferred_glBindFramebuffer(0x8CA9, 2);
    asked("a target the context may lack", 0x8CA6);
    gl_deferred_glBindVertexArray(9);
    asked("a vertex array's element buffer", 0x8895);
    before = drains();
    EXPECT_EQ((Ints{integer(0x8B8D), integer(0x8CA6)}), (Ints{42, 42})) << "learnt";
    EXPECT_EQ(drains(), before);
}

TEST_F(Client, CapabilitiesAndBoxesFollowTheCallsThatCannotFail) {
    // The driver fills every value it is asked for: 100 for the viewport limit.
    fake::setHandler("glGetIntegerv", [](const fake::Call& c) -> std::uint64_t {
        GLint value = c.args[0].bits == 0x0D3A ? 100 : 42;
        std::fill(pointerArg<GLint>(c, 1), pointerArg<GLint>(c, 1) + 4, value);
        return 0;
    });
    fake::setReturn("glIsEnabled", 1);
    constexpr GLenum BLEND = 0x0BE2, DITHER = 0x0BD0, VIEWPORT = 0x0BA2, SCISSOR = 0x0C10;
    auto box = [](GLenum pname) {
        Ints values(4, 0);
        gl_deferred_glGetIntegerv(pname, values.data());
        return values;
    };
    auto before = drains();
    EXPECT_EQ((Ints{gl_deferred_glIsEnabled(BLEND), gl_deferred_glIsEnabled(DITHER)}), (Ints{0, 1}))
        << "GL's defaults";
    gl_deferred_glEnable(BLEND);
    EXPECT_EQ((Ints{gl_deferred_glIsEnabled(BLEND),
                    fetch<GLboolean>(gl_deferred_glGetBooleanv, BLEND), integer(BLEND)}),
              (Ints{1, 1, 1}));
    gl_deferred_glScissor(1, 2, 3, 4);
    gl_deferred_glScissor(0, 0, -1, 5);  // refused
    EXPECT_EQ(box(SCISSOR), (Ints{1, 2, 3, 4}));
    EXPECT_EQ(drains(), before);

    // Unknown until a drain has learnt it: an indexed enable, a viewport
    // beyond a limit not yet read, or beyond the limit.
    gl_deferred_glDisable(BLEND);
    gl_deferred_glEnablei(BLEND, 1);
    EXPECT_EQ((Ints{gl_deferred_glIsEnabled(BLEND), gl_deferred_glIsEnabled(BLEND)}), (Ints{1, 1}));
    EXPECT_EQ(drains(), before + 1);
    gl_deferred_glViewport(0, 0, 50, 60);
    EXPECT_EQ(box(VIEWPORT), (Ints{42, 42, 42, 42}));
    EXPECT_EQ(box(0x0D3A), (Ints{100, 100, 0, 0}));
    gl_deferred_glViewport(0, 0, 50, 60);
    EXPECT_EQ(box(VIEWPORT), (Ints{0, 0, 50, 60}));
    EXPECT_EQ(drains(), before + 3);
    gl_deferred_glViewport(0, 0, 500, 60);  // clamped by the driver
    EXPECT_EQ(box(VIEWPORT), (Ints{42, 42, 42, 42}));
    EXPECT_EQ(drains(), before + 4);
    gl_deferred_glScissorIndexedOES(0, 5, 6, 7, 8);  // index 0 is the plain box
    EXPECT_EQ(drains(), before + 5);
    EXPECT_EQ(box(SCISSOR), (Ints{42, 42, 42, 42}));
    EXPECT_EQ(drains(), before + 6);
}

TEST_F(Client, BufferStoresAreAnsweredAndAWholeWriteOnlyMapIsOurs) {
    unsigned char driverBuffer[64] = {};
    fake::setReturn("glMapBufferRange", bitsOf(driverBuffer));
    gl_deferred_glBindBuffer(ARRAY_BUFFER, 8);
    gl_deferred_glBufferData(ARRAY_BUFFER, 64, nullptr, 0x88E8);
    auto parameter = [](GLenum p) {
        return fetch(gl_deferred_glGetBufferParameteriv, ARRAY_BUFFER, p);
    };
    auto before = drains();
    EXPECT_EQ((Ints{parameter(0x8764), parameter(0x8765)}), (Ints{64, 0x88E8})) << "size, usage";
    auto* block = static_cast<unsigned char*>(gl_deferred_glMapBufferOES(ARRAY_BUFFER, 0x88B9));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ((Ints{parameter(0x88BB), parameter(0x88BC)}), (Ints{0x88B9, 1})) << "access, mapped";
    EXPECT_EQ(fetch<void*>(gl_deferred_glGetBufferPointervOES, ARRAY_BUFFER, 0x88BD), block);
    EXPECT_EQ(gl_deferred_glUnmapBufferOES(ARRAY_BUFFER), 1);
    EXPECT_EQ(drains(), before);
    gl_deferred_glFinish();
    EXPECT_EQ(callsWith("glMapBufferRange", {1, 2, 3}), (Seen{{"worker", {0, 64, MAP_WRITE}}}));

    // Stores that the driver may have refused, or made where this context cannot
    // see, are the driver's to tell: the size drains, the map is the driver's.
    auto unknown = [&](const char* what) {
        before = drains();
        parameter(0x8764);
        gl_deferred_glMapBufferOES(ARRAY_BUFFER, 0x88B9);
        EXPECT_EQ(drains(), before + 2) << what;
    };
    gl_deferred_glBufferData(ARRAY_BUFFER, 64, nullptr, 0x88E1);
    unknown("a usage an ES 2 context refuses");
    gl_deferred_glBufferStorageEXT(ARRAY_BUFFER, 64, nullptr, 0);
    gl_deferred_glBufferData(ARRAY_BUFFER, 32, nullptr, 0x88E8);
    unknown("immutable storage");
    GLuint buffer = 8;
    gl_deferred_glBufferData(ARRAY_BUFFER, 64, nullptr, 0x88E8);
    gl_deferred_glDeleteBuffers(1, &buffer);
    gl_deferred_glBindBuffer(ARRAY_BUFFER, 8);
    unknown("a deleted buffer");
    executor().objectsShared = true;
    gl_deferred_glBufferData(ARRAY_BUFFER, 64, nullptr, 0x88E8);
    unknown("objects shared with another context");
}

TEST_F(Client, DrawBuffersLearnsTheLimitOnceAndThenCopies) {
    writeBack<GLint>("glGetIntegerv", 1, [](auto&) { return 2; });
    std::vector<GLenum> seenBuffers;
    keepArray("glDrawBuffers", 1, seenBuffers, [](const fake::Call& c) { return c.args[0].bits; });
    GLenum buffers[3] = {0x8CE0, 0x8CE1, 0x8CE2};
    auto before = drains();
    gl_deferred_glDrawBuffers(2, buffers);
    EXPECT_EQ(drains(), before + 1);
    gl_deferred_glDrawBuffers(3, buffers);  // above the limit: the driver's to refuse
    gl_deferred_glDrawBuffers(1, buffers);
    buffers[0] = 0;
    gl_deferred_glFinish();
    EXPECT_EQ(drains(), before + 2) << "the finish alone";
    EXPECT_EQ(argOf("glDrawBuffers", 0), (Bits{2, 2, 3, 1})) << "twice the first, then one each";
    EXPECT_EQ(seenBuffers, (std::vector<GLenum>{0x8CE0})) << "a copy of the game's array";
}

}  // namespace
