// The effect drawn on Mesa: the game's state survives, pixels carry the effect
// where they should, failures stay inside the layer, a steady frame creates
// and allocates nothing beyond the state stores.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "AllocationCounter.h"
#include "GlSupport.h"
#include "TestStyle.h"
#include "ctrl/PropertyConfig.h"
#include "styles/RenderGuard.h"
#include "velour/entry_points.h"

namespace velour::test {
namespace {

constexpr int WIDTH = 64;
constexpr int HEIGHT = 48;

void selectEffect(const std::string& name) {
    ctrl::PropertyConfig::getInstance().setEffect(name);
}

bool hasFetch() {
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    for (GLint i = 0; i < count; ++i)
        if (std::string(reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, i))) ==
            "GL_EXT_shader_framebuffer_fetch")
            return true;
    return false;
}

enum Want { AS_DRAWN, INVERTED, BLACK };

// The pixels of `actual` that are not as `want` says for their column against
// the picture: exact where the picture stays, within one step where inverted.
template <typename WantAt>
int countWrongPixels(const std::vector<uint8_t>& actual, WantAt want) {
    const std::vector<uint8_t> expected = picture(WIDTH, HEIGHT);
    int wrong = 0;
    for (int y = 0; y < HEIGHT; ++y)
        for (int x = 0; x < WIDTH; ++x) {
            const size_t at = (static_cast<size_t>(y) * WIDTH + x) * 4;
            const Want w = want(x);
            for (int c = 0; c < 3; ++c) {
                const int value = w == BLACK      ? 0
                                  : w == INVERTED ? 255 - expected[at + c]
                                                  : expected[at + c];
                if (std::abs(actual[at + c] - value) > (w == INVERTED ? 1 : 0)) {
                    ++wrong;
                    break;
                }
            }
        }
    return wrong;
}
const auto everywhere = [](Want want) { return [want](int) { return want; }; };

// Counts the calls the layer makes through the driver table that create GL
// objects, while it lives.
inline int creations = 0;
template <auto& slot, typename Slot = std::remove_reference_t<decltype(slot)>>
struct Counted;
template <auto& slot, typename R, typename... Args>
struct Counted<slot, R (*)(Args...)> {
    Counted() {
        saved = slot;
        slot = [](Args... args) { return ++creations, saved(args...); };
    }
    ~Counted() { slot = saved; }
    static inline R (*saved)(Args...) = nullptr;
};
struct GlObjectCounter {
    GlObjectCounter() { creations = 0; }
    Counted<drv::glGenTextures> textures;
    Counted<drv::glGenBuffers> buffers;
    Counted<drv::glGenVertexArrays> arrays;
    Counted<drv::glGenFramebuffers> framebuffers;
    Counted<drv::glCreateProgram> programs;
    Counted<drv::glCreateShader> shaders;
};

struct Path {
    const char* name;
    bool fetch;       // the style asks for framebuffer fetch
    bool gameTarget;  // a game framebuffer object rather than the pbuffer
};

class EffectOnMesa : public testing::TestWithParam<Path> {
  protected:
    void SetUp() override {
        if (GetParam().fetch && !hasFetch()) GTEST_SKIP() << "driver without framebuffer fetch";
        if (GetParam().gameTarget) {
            target = std::make_unique<GameFramebuffer>(WIDTH, HEIGHT);
            // A read framebuffer of its own, which the copy must put back.
            other = std::make_unique<GameFramebuffer>(WIDTH, HEIGHT);
            glBindFramebuffer(GL_DRAW_FRAMEBUFFER, target->framebuffer);
            glBindFramebuffer(GL_READ_FRAMEBUFFER, other->framebuffer);
        }
        drawPicture(WIDTH, HEIGHT);
        style.emplace(&manager, "test_invert", 1.0f, GetParam().fetch);
        manager.addStyle(&*style);
        selectEffect("test_invert");
    }
    void TearDown() override { selectEffect(""); }

    std::vector<uint8_t> readTarget() {
        GLint read = 0;
        glGetIntegerv(GL_READ_FRAMEBUFFER_BINDING, &read);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, target ? target->framebuffer : 0);
        std::vector<uint8_t> pixels = readPixels(WIDTH, HEIGHT);
        glBindFramebuffer(GL_READ_FRAMEBUFFER, static_cast<GLuint>(read));
        return pixels;
    }

    GlContext context{WIDTH, HEIGHT};
    std::unique_ptr<GameFramebuffer> target, other;
    styles::StyleManager manager;
    std::optional<TestStyle> style;
};

// A game's frame: the game's state comes back as it was but for one thing,
// the back face's depth-fail operation, which comes back as its depth-pass
// operation; every pixel carries the effect; after the first frame, which
// builds everything, a frame creates no GL object and allocates only one array
// per state store: the draw's store (and on the copy path the texture
// binding's), and the capture's two plus, for an object, the attachment size
// look-up's.
TEST_P(EffectOnMesa, AGameFrameKeepsTheStateCarriesTheEffectAndCreatesNothingAfterTheFirst) {
    GLuint program = 0;
    setGameState(program);
    glStencilOpSeparate(GL_BACK, GL_KEEP, GL_DECR, GL_INVERT);
    GlState before = snapshot();
    styles::renderGuarded(manager);
    EXPECT_EQ(differences(before, snapshot()),
              "GL_STENCIL_BACK_PASS_DEPTH_FAIL: " + std::to_string(GL_DECR) + " -> " +
                  std::to_string(GL_INVERT) + "\n");
    before = snapshot();
    int allocated = 0;
    {
        GlObjectCounter objects;
        AllocationCounter allocations;
        styles::renderGuarded(manager);
        styles::renderGuarded(manager);
        allocated = allocations.count();
        EXPECT_EQ(creations, 0);
    }
    const int storesPerFrame = GetParam().fetch ? 1 : (GetParam().gameTarget ? 5 : 4);
    EXPECT_EQ(allocated, 2 * storesPerFrame);
    EXPECT_EQ(differences(before, snapshot()), "");
    // Three frames: inverted three times.
    EXPECT_EQ(countWrongPixels(readTarget(), everywhere(INVERTED)), 0);
}

INSTANTIATE_TEST_SUITE_P(Paths, EffectOnMesa,
                         testing::Values(Path{"CopyOnPbuffer", false, false},
                                         Path{"CopyOnGameFramebuffer", false, true},
                                         Path{"FetchOnPbuffer", true, false},
                                         Path{"FetchOnGameFramebuffer", true, true}),
                         [](const testing::TestParamInfo<Path>& info) { return info.param.name; });

struct Split {
    const char* name;
    styles::RenderMode mode;
    bool fetch;
};

class SplitScreen : public testing::TestWithParam<Split> {};

TEST_P(SplitScreen, OneHalfCarriesTheEffectTheOtherIsExactAndSixBlackColumnsDivide) {
    GlContext context(WIDTH, HEIGHT);
    if (GetParam().fetch && !hasFetch()) GTEST_SKIP() << "driver without framebuffer fetch";
    drawPicture(WIDTH, HEIGHT);
    styles::StyleManager manager;
    TestStyle style(&manager, "test_invert", 1.0f, GetParam().fetch);
    manager.addStyle(&style);
    manager.setRenderMode(GetParam().mode);
    selectEffect("test_invert");
    styles::renderGuarded(manager);
    selectEffect("");

    // Left of the divider inverted in left-half mode, right of it otherwise;
    // the other side exactly as drawn.
    const bool left = GetParam().mode == styles::RENDER_MODE_LEFT_HALF;
    EXPECT_EQ(countWrongPixels(readPixels(WIDTH, HEIGHT),
                               [&](int x) {
                                   if (x >= WIDTH / 2 - 3 && x < WIDTH / 2 + 3) return BLACK;
                                   return (left ? x < WIDTH / 2 : x >= WIDTH / 2) ? INVERTED
                                                                                  : AS_DRAWN;
                               }),
              0);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, SplitScreen,
    testing::Values(Split{"LeftHalfCopy", styles::RENDER_MODE_LEFT_HALF, false},
                    Split{"RightHalfCopy", styles::RENDER_MODE_RIGHT_HALF, false},
                    Split{"LeftHalfFetch", styles::RENDER_MODE_LEFT_HALF, true}),
    [](const testing::TestParamInfo<Split>& info) { return info.param.name; });

// What the layer cannot draw with: a shader that does not compile, a binary in
// a format the driver does not know, a framebuffer whose colour no texture can
// take (here: none at all). The game goes on with its frame and its state and
// no error to read; the next frame does not try again, a change of effect does.
TEST(CannotDraw, LeavesTheFrameTheStateAndNoErrorAndIsRetriedAfterAChangeOfEffect) {
    class BinaryStyle : public TestStyle {
      public:
        using TestStyle::TestStyle;
        bool hasBinaryShader() const override { return true; }
        std::vector<uint8_t> getShaderBinary() override { return {0x34, 0x12, 0, 0, 9, 9, 9, 9}; }
    };
    enum Case { BROKEN_SHADER, REFUSED_BINARY, NO_COLOUR_ATTACHMENT };
    for (Case c : {BROKEN_SHADER, REFUSED_BINARY, NO_COLOUR_ATTACHMENT}) {
        SCOPED_TRACE(c);
        GlContext context(WIDTH, HEIGHT);
        drawPicture(WIDTH, HEIGHT);
        styles::StyleManager manager;
        std::unique_ptr<TestStyle> style =
            c == REFUSED_BINARY ? std::make_unique<BinaryStyle>(&manager, "cannot", 1.0f)
                                : std::make_unique<TestStyle>(&manager, "cannot", 1.0f, false);
        if (c == BROKEN_SHADER) style->fragmentOverride = "#version 300 es\nthis is not a shader\n";
        TestStyle good(&manager, "test_invert", 1.0f, false);
        manager.addStyle(style.get());
        manager.addStyle(&good);
        GLuint program = 0;
        setGameState(program);
        if (c == NO_COLOUR_ATTACHMENT) {
            GLuint framebuffer = 0, depth = 0;
            glGenRenderbuffers(1, &depth);
            glBindRenderbuffer(GL_RENDERBUFFER, depth);
            glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT16, WIDTH, HEIGHT);
            glGenFramebuffers(1, &framebuffer);
            glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
            glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth);
        }

        selectEffect("cannot");
        for (int frame = 0; frame < 2; ++frame) {
            GlObjectCounter objects;
            const GlState before = snapshot();
            EXPECT_NO_THROW(styles::renderGuarded(manager));
            EXPECT_EQ(differences(before, snapshot()), "");
            // The first frame tries (and builds the divider); later ones do not.
            if (frame == 1) {
                EXPECT_EQ(creations, 0);
            }
        }
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        glDisable(GL_SCISSOR_TEST);
        EXPECT_EQ(countWrongPixels(readPixels(WIDTH, HEIGHT), everywhere(AS_DRAWN)), 0);

        selectEffect("test_invert");
        styles::renderGuarded(manager);
        EXPECT_EQ(countWrongPixels(readPixels(WIDTH, HEIGHT), everywhere(INVERTED)), 0);
        selectEffect("cannot");
        EXPECT_NO_THROW(styles::renderGuarded(manager));
        EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
        selectEffect("");
    }
}

// An effect library built against the public header alone, linked to nothing
// but libvelour.so, registers a style and the layer draws it.
TEST(ExportedSurface, ALibraryBuiltOnThePublicHeaderRegistersAStyleThatIsDrawn) {
    GlContext context(WIDTH, HEIGHT);
    drawPicture(WIDTH, HEIGHT);
    void* library = dlopen(VELOUR_STYLE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto initialize =
        reinterpret_cast<void (*)(styles::StyleManager*)>(dlsym(library, "Tessel_Initialize"));
    ASSERT_NE(initialize, nullptr);
    styles::StyleManager manager;
    initialize(&manager);
    selectEffect("library_invert");
    styles::renderGuarded(manager);
    selectEffect("");
    EXPECT_EQ(countWrongPixels(readPixels(WIDTH, HEIGHT), everywhere(INVERTED)), 0);
}

}  // namespace
}  // namespace velour::test
