// The GL toolkit's rules over the fake driver: the state store's stream and
// replay, the format tables, the failure texts.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "TestSysroot.h"
#include "drv/GlUtils.h"
#include "drv/Program.h"
#include "drv/Shader.h"
#include "drv/StateStore.h"
#include "drv/Texture.h"
#include "fake_driver.h"

namespace velour::test {
namespace {

using drv::StateStore;

template <typename T>
T* pointerArg(const fake::Call& call, size_t index) {
    return reinterpret_cast<T*>(static_cast<uintptr_t>(call.args[index].bits));
}

// The names of the calls made, in order.
std::vector<std::string> callNames() {
    std::vector<std::string> names;
    for (const fake::Call& call : fake::calls()) names.emplace_back(call.name);
    return names;
}

class Toolkit : public testing::Test {
  protected:
    void SetUp() override {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        // Every integer query answers its own enum plus 1, so each value is
        // told apart on the way back.
        fake::setHandler("glGetIntegerv", [](const fake::Call& call) {
            *pointerArg<GLint>(call, 1) = static_cast<GLint>(call.args[0].bits) + 1;
            return 0;
        });
        fake::setReturn("glIsEnabled", GL_TRUE);
    }
};

// Entries of every size, unaligned in the stream, come back in store order,
// the vertex array before its element buffer; a restore keeps the stream (and
// one runs on the way out), a cleared store restores nothing.
TEST_F(Toolkit, EntriesComeBackInStoreOrderAgainAndOnTheWayOut) {
    const std::vector<std::string> restored = {"glStencilFuncSeparate",
                                               "glStencilFuncSeparate",
                                               "glStencilMaskSeparate",
                                               "glStencilMaskSeparate",
                                               "glStencilOpSeparate",
                                               "glStencilOpSeparate",
                                               "glEnable",
                                               "glBindVertexArray",
                                               "glBindBuffer",
                                               "glDisable"};
    {
        StateStore store(64, true);
        store.storeStencilFunc();
        store.storeStencilMask();
        store.storeStencilOp();
        store.storeEnabled(GL_BLEND);
        store.storeVertexArrayBinding();
        store.storeElementArrayBufferBinding();
        fake::setReturn("glIsEnabled", GL_FALSE);
        store.storeEnabled(GL_DEPTH_TEST);

        fake::clearCalls();
        store.restore();
        EXPECT_EQ(callNames(), restored);
        // Each query answers its enum plus 1: the back depth-fail slot is read
        // with the depth-pass query.
        const auto backOp = fake::callsOf("glStencilOpSeparate")[1];
        EXPECT_EQ(backOp.args[0].bits, static_cast<uint64_t>(GL_BACK));
        EXPECT_EQ(backOp.args[2].bits, GL_STENCIL_BACK_PASS_DEPTH_PASS + 1u);
        EXPECT_EQ(backOp.args[3].bits, GL_STENCIL_BACK_PASS_DEPTH_PASS + 1u);
        EXPECT_EQ(fake::callsOf("glStencilFuncSeparate")[1].args[2].bits, GL_STENCIL_BACK_REF + 1u);
        EXPECT_EQ(fake::callsOf("glEnable")[0].args[0].bits, static_cast<uint64_t>(GL_BLEND));
        fake::clearCalls();
    }
    EXPECT_EQ(callNames(), restored);
    StateStore cleared;
    cleared.storeStencilOp();
    cleared.clear();
    fake::clearCalls();
    cleared.restore();
    EXPECT_TRUE(fake::calls().empty());
}

TEST_F(Toolkit, ACompileFailureThrowsTheLogAndTheNumberedSource) {
    fake::setReturn("glCreateShader", 7);
    fake::setHandler("glGetShaderInfoLog", [](const fake::Call& call) {
        *pointerArg<GLsizei>(call, 2) = 5;
        std::memcpy(pointerArg<char>(call, 3), "0:2 x", 5);
        return 0;
    });
    drv::Shader shader;
    shader.setShaderType(GL_FRAGMENT_SHADER);
    shader.setSource("first\nsecond");
    try {
        shader.compile();
        FAIL();
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(), "src/drv/Shader: 0:2 x\n(  1) : first\n(  2) : second\n");
    }
    EXPECT_TRUE(shader.isOpen());
    EXPECT_EQ(fake::callsOf("glCreateShader").size(), 1u);
}

TEST_F(Toolkit, ALinkFailureDetachesTheShadersAndLeavesTheProgramOpen) {
    fake::setReturn("glCreateProgram", 9);
    drv::Program program;
    program.open();
    program.open();
    EXPECT_EQ(fake::callsOf("glCreateProgram").size(), 1u);
    drv::Shader vertex, fragment;
    fake::clearCalls();
    EXPECT_THROW(program.link({&vertex, &fragment}), std::invalid_argument);
    EXPECT_EQ(callNames(),
              (std::vector<std::string>{"glAttachShader", "glAttachShader", "glLinkProgram",
                                        "glDetachShader", "glDetachShader", "glGetProgramiv",
                                        "glGetProgramInfoLog"}));
    EXPECT_TRUE(program.isOpen());
    program.close();
    EXPECT_EQ(program.getName(), 0xFFFFFFFFu);
}

TEST(ShaderDump, WritesEachStringOnALineOfItsOwnAndNothingWhereItCannotOpen) {
    const std::string path = testing::TempDir() + "velour-shader-dump.txt";
    const GLchar* strings[] = {"abcdef", nullptr, "tail"};
    const GLint lengths[] = {3, 0, -1};
    drv::dumpShaderSource(path.c_str(), 3, strings, lengths);
    EXPECT_EQ(readFile(path), "abc\n\ntail\n");
    std::remove(path.c_str());
    drv::dumpShaderSource("/nonexistent-folder/dump.txt", 3, strings, nullptr);
    EXPECT_EQ(readFile("/nonexistent-folder/dump.txt"), "");
}

struct ColorCase {
    GLenum type;
    int r, g, b, a;
    GLenum format;
};

TEST(TextureFormats, SizedColourFormatsAsTheTableStands) {
    const ColorCase cases[] = {
        {GL_UNSIGNED_NORMALIZED, 8, 8, 8, 8, GL_RGBA8},
        {GL_NONE, 8, 8, 8, 8, GL_RGBA8},  // any other type on the 8-bit rows
        {GL_INT, 8, 8, 8, 8, GL_RGBA8I},
        {GL_SIGNED_NORMALIZED, 8, 8, 8, 8, GL_RGBA8_SNORM},
        {GL_UNSIGNED_NORMALIZED, 16, 16, 16, 16, GL_RGBA16UI},
        {GL_FLOAT, 16, 16, 16, 16, GL_RGBA16F},
        {GL_SIGNED_NORMALIZED, 32, 32, 32, 32, GL_RGBA32I},
        {GL_UNSIGNED_NORMALIZED, 16, 16, 16, 0, GL_RGB8},
        {GL_SIGNED_NORMALIZED, 16, 16, 16, 0, GL_RGB8I},
        {GL_UNSIGNED_INT, 16, 16, 0, 0, GL_RGB16UI},
        {GL_FLOAT, 8, 8, 0, 0, 0},
        {GL_NONE, 8, 8, 0, 0, 0},
        {GL_SIGNED_NORMALIZED, 32, 0, 0, 0, 0},
        {GL_FLOAT, 16, 0, 0, 0, GL_R16F},
        {GL_FLOAT, 5, 6, 5, 0, GL_RGB565},
        {GL_INT, 10, 10, 10, 2, GL_RGB10_A2},
        {GL_UNSIGNED_NORMALIZED, 11, 11, 10, 0, GL_R11F_G11F_B10F},
        {GL_UNSIGNED_NORMALIZED, 5, 5, 5, 1, GL_RGB5_A1},
        {GL_UNSIGNED_NORMALIZED, 8, 8, 8, 16, 0},  // channels must match the row
        {GL_UNSIGNED_NORMALIZED, 0, 0, 0, 0, 0},
    };
    for (const ColorCase& c : cases)
        EXPECT_EQ(drv::Texture::getSizedColorFormat(c.type, c.r, c.g, c.b, c.a), c.format)
            << std::hex << c.type << " " << std::dec << c.r << c.g << c.b << c.a;
}

// Each component is swapped on its own; a packed pixel as one word.
TEST(TextureFormats, ByteOrderFollowsTheComponentSize) {
    const uint8_t shorts[] = {1, 2, 3, 4, 5, 6};
    uint8_t swapped[6] = {};
    drv::Texture::swapEndian(1, GL_RGB, GL_UNSIGNED_SHORT, shorts, swapped);
    EXPECT_EQ(std::vector<uint8_t>(swapped, swapped + 6), (std::vector<uint8_t>{2, 1, 4, 3, 6, 5}));
    const uint8_t packed[] = {1, 2, 3, 4};
    drv::Texture::swapEndian(1, GL_RGBA, GL_UNSIGNED_INT_2_10_10_10_REV, packed, swapped);
    EXPECT_EQ(std::vector<uint8_t>(swapped, swapped + 4), (std::vector<uint8_t>{4, 3, 2, 1}));
}

}  // namespace
}  // namespace velour::test
