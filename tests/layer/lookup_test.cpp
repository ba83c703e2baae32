// What the layer hands out for a name, by runtime mode, over the fake driver.
#include "gles/lookup.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "core/context.h"
#include "core/main.h"
#include "fake_driver.h"
#include "velour/entry_points.h"

using namespace velour;

namespace {

void* const NEXT = reinterpret_cast<void*>(0x1234);  // the next layer's answer

const auto address = [](auto* function) { return reinterpret_cast<void*>(function); };

class Lookup : public ::testing::Test {
  protected:
    void SetUp() override {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        gles::initFunctionTable();
        saved = core::context.gameConfig;
        core::context.gameConfig.enabled = true;
        core::context.replayProcess = false;
    }
    // The other fixtures over the fake driver reset it and the tables themselves.
    void TearDown() override { core::context.gameConfig = saved; }
    void mode(unsigned m) { core::context.gameConfig.runtimeMode = m; }
    GameConfig saved;
};

TEST_F(Lookup, EachNameIsLookedUpOnceAndHasASlotAndAWrapperOfItsOwn) {
    EXPECT_EQ(fake::lookupCount(), ENTRY_POINT_COUNT);
    std::set<void*> wrappers;
    for (auto& entry : gles::entryPoints) {
        bool known = false;
        ASSERT_EQ(gles::hijackSlot(entry.name, &known), fake::address(entry.name)) << entry.name;
        ASSERT_TRUE(known) << entry.name;
        wrappers.insert(gles::eglGPA(entry.name));
    }
    EXPECT_EQ(wrappers.size(), ENTRY_POINT_COUNT);
    EXPECT_EQ(wrappers.count(nullptr), 0u);
    EXPECT_EQ(gles::eglGPA("eglWaitSyncKHR"), address(&gl_deferred_eglWaitSyncKHR));
}

// Each mode's answer for each name: W the wrapper, D the driver's function (the
// slot), N the next layer's, 0 none, L another function of the layer (an EGL
// variant or a draw thunk). A driver without glTexPageCommitmentEXT
// leaves its slot empty but its wrapper in place.
TEST_F(Lookup, AnswersByModeAndName) {
    fake::setMissing("glTexPageCommitmentEXT", true);
    drv::initRealGL(nullptr, fake::getNextProc);
    gles::initFunctionTable();
    EXPECT_EQ(drv::glTexPageCommitmentEXT, nullptr);

    // clang-format off
    const std::vector<std::string> names = {
        "glClear", "glDrawArrays", "glDrawBuffers", "glDrawElements", "glDrawElementsInstanced",
        "glDrawRangeElements", "eglInitialize", "glTexPageCommitmentEXT", "glclear",
        "glClear ", "", "eglCreateContext", "eglDestroyContext", "eglMakeCurrent",
        "eglSwapBuffers", "eglSwapBuffersWithDamageKHR", "eglSwapBuffersWithDamageEXT",
        "eglGetCurrentContext", "eglGetCurrentSurface"};
    const std::tuple<bool, unsigned, const char*> cases[] = {
        {true, 0,  "WWWWWWWWNNN" "LLLLLLLL"},
        {true, 1,  "WWWWWWWWNNN" "LLLLLLLL"},
        {true, 2,  "WWWWWWWWNNN" "LLLLLLLL"},
        {true, 3,  "DLLLLLD0NNN" "LLLLLLDD"},
        {true, 4,  "WWWWWWWWNNN" "LLLLLLWW"},
        {false, 0, "NNNNNNNNNNN" "NNNNNNNN"},
        {false, 3, "NNNNNNNNNNN" "NNNNNNNN"},
        {false, 4, "NNNNNNNNNNN" "NNNNNNNN"},
        // clang-format on
    };
    for (const auto& [enabled, m, kinds] : cases) {
        core::context.gameConfig.enabled = enabled;
        mode(m);
        std::string seen;
        for (const std::string& name : names) {
            void* got = velourGetProcAddress(name.c_str(), NEXT);
            seen += !got                                 ? '0'
                    : got == NEXT                        ? 'N'
                    : got == gles::eglGPA(name.c_str())  ? 'W'
                    : got == fake::address(name.c_str()) ? 'D'
                                                         : 'L';
        }
        EXPECT_EQ(seen, kinds) << "mode " << m << (enabled ? "" : ", layer off");
    }
}

// The thunk reads the slot at each call: a slot changed after the look-up
// still takes effect.
TEST_F(Lookup, HooksOnlyDrawThunksFollowTheirSlot) {
    mode(3);
    auto thunk = reinterpret_cast<void (*)(GLenum, GLint, GLsizei)>(
        velourGetProcAddress("glDrawArrays", NEXT));
    thunk(4, 0, 3);
    hijack::glDrawArrays = reinterpret_cast<fn::glDrawArrays>(fake::address("glDrawElements"));
    thunk(4, 0, 3);
    EXPECT_EQ(
        std::pair(fake::callsOf("glDrawArrays").size(), fake::callsOf("glDrawElements").size()),
        std::pair(size_t{1}, size_t{1}));
}

}  // namespace
