// The shadows of UI buffers: which buffers are mirrored, how data, sub-data
// and written maps reach them and the driver, and what vertex arrays record.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "drv/gl.h"
#include "fake_driver.h"
#include "games/GFXBufHook.h"
#include "velour/entry_points.h"

using namespace velour;
using games::GFXBufHook;

namespace {

class BufferShadow : public ::testing::Test {
  protected:
    void SetUp() override {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        hook.hookglBindVertexArray(VAO);
        hook.hookglBindBuffer(GL_ARRAY_BUFFER, VBO);
        hook.hookglBindBuffer(GL_ELEMENT_ARRAY_BUFFER, EBO);
        hook.hookglVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 40,
                                       reinterpret_cast<const void*>(8));
        hook.hookglEnableVertexAttribArray(0);
    }
    // The bound buffers were used by a UI draw in the frame that just ended.
    void uiFrame() {
        hook.storeUIBufferHandles();
        hook.resetUIBufferHandles();
    }
    static constexpr GLuint VAO = 3, VBO = 10, EBO = 11;
    GFXBufHook hook;
};

TEST_F(BufferShadow, OnlyBuffersOfLastFramesUIDrawsAreMirrored) {
    const std::uint8_t bytes[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    hook.hookglBufferData(GL_ARRAY_BUFFER, 16, bytes, GL_DYNAMIC_DRAW);
    EXPECT_FALSE(hook.isShadowed(VBO)) << "not seen at a UI draw yet";
    hook.storeUIBufferHandles();
    hook.hookglBufferData(GL_ARRAY_BUFFER, 16, bytes, GL_DYNAMIC_DRAW);
    EXPECT_FALSE(hook.isShadowed(VBO)) << "seen in this frame, mirrored from the next";
    hook.resetUIBufferHandles();
    hook.hookglBufferData(GL_ARRAY_BUFFER, 16, bytes, GL_DYNAMIC_DRAW);
    ASSERT_TRUE(hook.isShadowed(VBO));
    EXPECT_EQ(0, std::memcmp(hook.getVertexBufferData(), bytes + 8, 8)) << "attribute 0's offset";
    EXPECT_EQ(8u, hook.getVertexBufferSize());
    EXPECT_EQ(3u, fake::callsOf("glBufferData").size()) << "every call reaches the driver";
    hook.hookglDeleteBuffers(1, &VBO);
    EXPECT_FALSE(hook.isShadowed(VBO));
    EXPECT_EQ(0u, hook.getVertexBufferSize()) << "nothing to read";
    EXPECT_EQ(1u, fake::callsOf("glDeleteBuffers").size());

    hook.resetUIBufferHandles();  // a frame with no UI draw
    hook.hookglBindBuffer(GL_ARRAY_BUFFER, 20);
    hook.hookglBufferData(GL_ARRAY_BUFFER, 16, bytes, GL_DYNAMIC_DRAW);
    EXPECT_FALSE(hook.isShadowed(20));
    hook.hookglBufferData(GL_UNIFORM_BUFFER, 16, bytes, GL_DYNAMIC_DRAW);
    EXPECT_FALSE(hook.isShadowed(0)) << "another target counts as handle 0";
}

TEST_F(BufferShadow, WritesThroughMapsAndSubDataReachTheShadow) {
    uiFrame();
    std::vector<std::uint8_t> driverMemory(64, 0);
    fake::setReturn("glMapBufferRange", reinterpret_cast<std::uintptr_t>(driverMemory.data()));
    fake::setReturn("glUnmapBuffer", GL_TRUE);

    // A read map of a UI buffer goes to the driver.
    void* read = hook.hookglMapBufferRange(GL_ARRAY_BUFFER, 0, 16, GL_MAP_READ_BIT);
    EXPECT_EQ(driverMemory.data(), read);
    EXPECT_EQ(GL_TRUE, hook.hookglUnmapBuffer(GL_ARRAY_BUFFER));
    fake::clearCalls();

    auto* mapped = static_cast<std::uint8_t*>(
        hook.hookglMapBufferRange(GL_ARRAY_BUFFER, 8, 24, GL_MAP_WRITE_BIT));
    ASSERT_NE(nullptr, mapped);
    EXPECT_NE(driverMemory.data(), mapped);
    EXPECT_TRUE(fake::calls().empty()) << "nothing reaches the driver until the unmap";
    for (int i = 0; i < 24; ++i) mapped[i] = static_cast<std::uint8_t>(100 + i);
    EXPECT_EQ(100, hook.getVertexBufferData()[0]) << "the writes are seen in the shadow";

    EXPECT_EQ(GL_TRUE, hook.hookglUnmapBuffer(GL_ARRAY_BUFFER));
    auto maps = fake::callsOf("glMapBufferRange");
    ASSERT_EQ(1u, maps.size());
    EXPECT_EQ(8u, maps[0].args[1].bits);
    EXPECT_EQ(24u, maps[0].args[2].bits);
    EXPECT_EQ(1u, fake::callsOf("glUnmapBuffer").size());
    EXPECT_EQ(100, driverMemory[0]);
    EXPECT_EQ(123, driverMemory[23]);

    // A second unmap has nothing stored and goes to the driver as it is; a
    // driver that refuses the map makes the unmap fail.
    fake::clearCalls();
    hook.hookglUnmapBuffer(GL_ARRAY_BUFFER);
    EXPECT_TRUE(fake::callsOf("glMapBufferRange").empty());
    hook.hookglMapBufferRange(GL_ARRAY_BUFFER, 0, 4, GL_MAP_WRITE_BIT);
    fake::setReturn("glMapBufferRange", 0);
    EXPECT_EQ(GL_FALSE, hook.hookglUnmapBuffer(GL_ARRAY_BUFFER));

    // Null data, then sub-data, fills the shadow.
    hook.hookglBufferData(GL_ELEMENT_ARRAY_BUFFER, 8, nullptr, GL_DYNAMIC_DRAW);
    const std::uint16_t indices[2] = {7, 9};
    hook.hookglBufferSubData(GL_ELEMENT_ARRAY_BUFFER, 4, 4, indices);
    ASSERT_NE(nullptr, hook.getElementBufferData());
    EXPECT_EQ(7, hook.getElementBufferData()[2]);
    EXPECT_EQ(9, hook.getElementBufferData()[3]);
    // Sub-data past the end grows the shadow and keeps what it held.
    hook.hookglBufferSubData(GL_ELEMENT_ARRAY_BUFFER, 12, 4, indices);
    EXPECT_EQ(16u, hook.getElementBufferSize());
    EXPECT_EQ(7, hook.getElementBufferData()[2]);
    EXPECT_EQ(9, hook.getElementBufferData()[7]);
}

TEST_F(BufferShadow, VertexArraysRecordAttributesUpToIndexFive) {
    uiFrame();
    std::uint8_t bytes[48] = {};
    hook.hookglBufferData(GL_ARRAY_BUFFER, 48, bytes, GL_DYNAMIC_DRAW);
    fake::clearCalls();
    hook.hookglVertexAttribPointer(6, 4, GL_FLOAT, GL_FALSE, 16, nullptr);
    hook.hookglEnableVertexAttribArray(6);
    hook.hookglDisableVertexAttribArray(6);
    EXPECT_EQ(1u, fake::callsOf("glVertexAttribPointer").size());
    EXPECT_EQ(1u, fake::callsOf("glEnableVertexAttribArray").size());
    EXPECT_EQ(1u, fake::callsOf("glDisableVertexAttribArray").size());
    GFXBufHook::VertexAttribPointer attrib;
    EXPECT_EQ(nullptr, hook.getVertexBufferData(6, attrib)) << "index 6 is not tracked";
    ASSERT_NE(nullptr, hook.getVertexBufferData(0, attrib));
    EXPECT_EQ(VBO, attrib.vbo);
    EXPECT_EQ(40, attrib.stride);

    // Rebinding the array restores its buffers; an array with no record
    // leaves them.
    hook.hookglBindVertexArray(99);
    EXPECT_EQ(99u, hook.boundVertexArray());
    EXPECT_EQ(VBO, hook.boundArrayBuffer());
    EXPECT_EQ(EBO, hook.boundElementBuffer());
    EXPECT_EQ(nullptr, hook.getVertexBufferData()) << "no record for array 99";
    hook.hookglBindBuffer(GL_ARRAY_BUFFER, 0);
    hook.hookglBindBuffer(GL_ELEMENT_ARRAY_BUFFER, 0);
    hook.hookglBindVertexArray(VAO);
    EXPECT_EQ(VBO, hook.boundArrayBuffer());
    EXPECT_EQ(EBO, hook.boundElementBuffer());

    hook.hookglDisableVertexAttribArray(0);
    EXPECT_EQ(nullptr, hook.getVertexBufferData()) << "attribute 0 disabled";
}

}  // namespace
