// The style manager's and renderer's rules over the fake driver: which way of
// reading the frame a style is asked for and drawn by, reloading, the
// divider, and pixelize's parameters from the filter configuration.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "TestStyle.h"
#include "TestSysroot.h"
#include "ctrl/PropertyConfig.h"
#include "drv/gl.h"
#include "fake_driver.h"
#include "styles/RenderGuard.h"
#include "velour/entry_points.h"
#include "velour/utils/base64.h"

namespace velour::test {

extern TestSysroot* g_sysroot;

namespace {

const char* const FILTER_CONFIG = "/odm/etc/tesselfx/defaultFilterConfig.dat";

template <typename T>
T* pointerArg(const fake::Call& call, size_t index) {
    return reinterpret_cast<T*>(static_cast<uintptr_t>(call.args[index].bits));
}

// Remembers which way of reading the frame it was asked for.
class RecordingStyle : public TestStyle {
  public:
    using TestStyle::TestStyle;
    std::string getFragmentShaderSource(styles::ShaderFramebufferType type) override {
        asked = type;
        return TestStyle::getFragmentShaderSource(type);
    }
    int asked = -1;
};

// A driver that builds everything it is given, on a 64 x 64 RGBA8 surface,
// offering the one extension named.
class StylesOnFake : public testing::Test {
  protected:
    void start(const char* extension) {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        static std::string offered;
        offered = extension;
        fake::setHandler("glGetIntegerv", [](const fake::Call& call) {
            *pointerArg<GLint>(call, 1) =
                call.args[0].bits == GL_NUM_EXTENSIONS ? (offered.empty() ? 0 : 1) : 0;
            return 0;
        });
        fake::setHandler("glGetStringi", [](const fake::Call&) {
            return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(offered.c_str()));
        });
        for (const char* status : {"glGetShaderiv", "glGetProgramiv"})
            fake::setHandler(status, [](const fake::Call& call) {
                *pointerArg<GLint>(call, 2) = 1;
                return 0;
            });
        fake::setHandler("eglQuerySurface", [](const fake::Call& call) {
            *pointerArg<EGLint>(call, 3) = 64;
            return 1;
        });
        fake::setHandler("glGetFramebufferAttachmentParameteriv", [](const fake::Call& call) {
            const uint64_t query = call.args[2].bits;
            *pointerArg<GLint>(call, 3) =
                query == GL_FRAMEBUFFER_ATTACHMENT_OBJECT_TYPE      ? GL_FRAMEBUFFER_DEFAULT
                : query == GL_FRAMEBUFFER_ATTACHMENT_COMPONENT_TYPE ? GL_UNSIGNED_NORMALIZED
                                                                    : 8;
            return 0;
        });
        static unsigned nextName;
        nextName = 1;
        fake::setHandler("glCreateShader", [](const fake::Call&) { return nextName++; });
        fake::setHandler("glCreateProgram", [](const fake::Call&) { return nextName++; });
        fake::setHandler("glGetUniformLocation", [](const fake::Call& call) {
            return static_cast<uint64_t>(
                std::strcmp(pointerArg<const char>(call, 1), "gone") == 0 ? -1 : 5);
        });
    }
    void TearDown() override { ctrl::PropertyConfig::getInstance().setEffect(""); }
    static void select(const char* effect) {
        ctrl::PropertyConfig::getInstance().setEffect(effect);
    }
};

struct FetchCase {
    const char* extension;
    bool styleFetches;
    int asked;
    bool copied;
};

TEST_F(StylesOnFake, TheStyleIsAskedForTheOfferedFetchAndDrawnByItsOwnChoice) {
    const FetchCase cases[] = {
        {"GL_EXT_shader_framebuffer_fetch", true, styles::SHADER_FRAMEBUFFER_EXT_FETCH, false},
        {"GL_ARM_shader_framebuffer_fetch", true, styles::SHADER_FRAMEBUFFER_ARM_FETCH, false},
        // Asked for the fetch variant, yet copied: it says it cannot fetch.
        {"GL_ARM_shader_framebuffer_fetch", false, styles::SHADER_FRAMEBUFFER_ARM_FETCH, true},
        {"", true, styles::SHADER_FRAMEBUFFER_NO_FETCH, true},
    };
    for (const FetchCase& c : cases) {
        start(c.extension);
        styles::StyleManager manager;
        RecordingStyle style(&manager, "recorded", 1.0f, c.styleFetches);
        manager.addStyle(&style);
        select("recorded");
        manager.render();
        EXPECT_EQ(style.asked, c.asked) << c.extension;
        EXPECT_EQ(fake::callsOf("glCopyTexSubImage2D").size(), c.copied ? 1u : 0u)
            << c.extension << " " << c.styleFetches;
        EXPECT_EQ(fake::callsOf("glDrawElements").size(), 1u);
    }
}

TEST_F(StylesOnFake, TheSameEffectAgainReloadsNothingAndNoStyleDrawsOnlyTheDivider) {
    start("GL_EXT_shader_framebuffer_fetch");
    styles::StyleManager manager;
    TestStyle style(&manager, "style", 1.0f);
    manager.addStyle(&style);
    manager.addStyle(nullptr);
    select("style");
    manager.render();
    EXPECT_EQ(fake::callsOf("glCreateShader").size(), 4u);  // divider and style
    fake::clearCalls();
    manager.render();
    EXPECT_TRUE(fake::callsOf("glCreateShader").empty());
    EXPECT_TRUE(fake::callsOf("glCreateProgram").empty());

    manager.setRenderMode(styles::RENDER_MODE_LEFT_HALF);
    select("null");
    fake::clearCalls();
    manager.render();
    // The divider is rebuilt after the change of effect and drawn; no style.
    EXPECT_EQ(fake::callsOf("glCreateShader").size(), 2u);
    EXPECT_EQ(fake::callsOf("glDrawElements").size(), 1u);
    EXPECT_TRUE(fake::callsOf("glCopyTexSubImage2D").empty());
}

TEST_F(StylesOnFake, RenderModeWords) {
    const std::pair<const char*, styles::RenderMode> words[] = {
        {"LEFT_HALF", styles::RENDER_MODE_LEFT_HALF}, {"half", styles::RENDER_MODE_LEFT_HALF},
        {"Right", styles::RENDER_MODE_RIGHT_HALF},    {"", styles::RENDER_MODE_FULL},
        {"sideways", styles::RENDER_MODE_FULL},
    };
    for (const auto& [word, mode] : words) EXPECT_EQ(styles::toRenderMode(word), mode) << word;
    EXPECT_EQ(styles::toString(styles::RENDER_MODE_RIGHT_HALF), "right_half");
    EXPECT_EQ(styles::toString(static_cast<styles::RenderMode>(7)), "full");
}

std::string wrap(const std::string& json) {
    std::string text = utils::base64_encode(json);
    std::reverse(text.begin(), text.end());
    return text;
}

// Pixelize takes its uniforms from the filter configuration, skipping those
// its program lacks; a section of the wrong shape leaves the defaults.
TEST_F(StylesOnFake, PixelizeTakesItsUniformsFromTheFilterConfiguration) {
    const std::pair<std::string, size_t> configs[] = {
        {R"({"version":"1.0.0","config":"filters","pixelizeConfig":{"parameters":[
             {"varName":"cells","type":"uniform1f","value":8.5},
             {"varName":"gone","type":"uniform1f","value":1},
             {"varName":"mode","type":"int","value":2}]}})",
         1},
        {R"({"version":"1.0.0","pixelizeConfig":{"parameters":7}})", 0},
    };
    for (const auto& [json, uniforms] : configs) {
        g_sysroot->write(FILTER_CONFIG, wrap(json));
        start("");
        styles::StyleManager manager;
        TestStyle style(&manager, "pixelize", 1.0f);
        manager.addStyle(&style);
        select("pixelize");
        EXPECT_NO_THROW(styles::renderGuarded(manager));
        const auto set = fake::callsOf("glProgramUniform1f");
        ASSERT_EQ(set.size(), uniforms) << json;
        if (uniforms) {
            EXPECT_EQ(set[0].args[1].bits, 5u);
            EXPECT_DOUBLE_EQ(set[0].args[2].real, 8.5);
        }
        EXPECT_EQ(fake::callsOf("glDrawElements").size(), 1u);
    }
    g_sysroot->write(FILTER_CONFIG, "");
}

TEST_F(StylesOnFake, ARefusedBinaryLeavesTheStyleWithoutAProgramAndDrawsNothing) {
    class BinaryStyle : public TestStyle {
      public:
        using TestStyle::TestStyle;
        bool hasBinaryShader() const override { return true; }
        std::vector<uint8_t> getShaderBinary() override { return {1, 0, 0, 0, 9, 9}; }
    };
    start("");
    // Names go out in order: the divider's two shaders and program, then the
    // style's program, whose binary the driver refuses.
    fake::setHandler("glGetProgramiv", [](const fake::Call& call) {
        *pointerArg<GLint>(call, 2) = call.args[0].bits == 4 ? 0 : 1;
        return 0;
    });
    styles::StyleManager manager;
    BinaryStyle style(&manager, "binary", 1.0f);
    manager.addStyle(&style);
    select("binary");
    EXPECT_NO_THROW(manager.render());
    const auto loaded = fake::callsOf("glProgramBinary");
    ASSERT_EQ(loaded.size(), 1u);
    EXPECT_EQ(loaded[0].args[1].bits, 1u);  // the format, the first four bytes
    EXPECT_EQ(loaded[0].args[3].bits, 2u);
    ASSERT_EQ(fake::callsOf("glDeleteProgram").size(), 1u);
    EXPECT_EQ(fake::callsOf("glDeleteProgram")[0].args[0].bits, 4u);
    EXPECT_TRUE(fake::callsOf("glDrawElements").empty());
    EXPECT_TRUE(fake::callsOf("glUseProgram").empty());
}

}  // namespace
}  // namespace velour::test
