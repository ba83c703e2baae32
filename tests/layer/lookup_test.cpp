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

TEST_F(Lookup, EachNameIsLookedUpOnceAndCopiedToItsSlot) {
    EXPECT_EQ(fake::lookupCount(), ENTRY_POINT_COUNT);
    for (auto& entry : gles::entryPoints) {
        bool known = false;
        void* slot = gles::hijackSlot(entry.name, &known);
        ASSERT_TRUE(known) << entry.name;
        ASSERT_EQ(slot, fake::address(entry.name)) << entry.name;
    }
}

TEST_F(Lookup, EveryNameHasItsOwnWrapperAndCompareIsExact) {
    EXPECT_EQ(gles::eglGPA("glClear"), address(&gl_deferred_glClear));
    EXPECT_EQ(gles::eglGPA("eglWaitSyncKHR"), address(&gl_deferred_eglWaitSyncKHR));
    for (const char* name : {"glclear", "glClear ", "glClearX", ""}) {
        EXPECT_EQ(gles::eglGPA(name), nullptr) << name;
    }
    std::set<void*> wrappers;
    for (auto& entry : gles::entryPoints) {
        void* wrapper = gles::eglGPA(entry.name);
        ASSERT_NE(wrapper, nullptr) << entry.name;
        wrappers.insert(wrapper);
    }
    EXPECT_EQ(wrappers.size(), ENTRY_POINT_COUNT);
}

TEST_F(Lookup, EglSetDependsOnMode) {
    const std::vector<std::string> names = {
        "eglCreateContext",     "eglDestroyContext",           "eglMakeCurrent",
        "eglSwapBuffers",       "eglSwapBuffersWithDamageKHR", "eglSwapBuffersWithDamageEXT",
        "eglGetCurrentContext", "eglGetCurrentSurface",        "eglInitialize"};
    for (unsigned m = 0; m <= 4; ++m) {
        mode(m);
        std::vector<std::string> answered;
        for (const std::string& name : names)
            if (gles::getEglProcAddress(name.c_str())) answered.push_back(name);
        // The layer answers the current-context queries only where it defers.
        const bool defers = m < 3;
        EXPECT_EQ(answered, std::vector<std::string>(names.begin(), names.end() - (defers ? 1 : 3)))
            << "mode " << m;
        EXPECT_TRUE(!defers || gles::getGlProcAddress("glDrawArrays") == nullptr) << m;
    }
}

// What hooks only hands out for other names is checked through the probe, at start-up.
TEST_F(Lookup, HooksOnlyModeHandsOutDrawThunks) {
    mode(3);
    void* draw = velourGetProcAddress("glDrawArrays", NEXT);
    ASSERT_TRUE(draw != nullptr && draw != NEXT);
    // The thunk reads the slot at each call: a slot changed after the look-up
    // still takes effect.
    auto thunk = reinterpret_cast<void (*)(GLenum, GLint, GLsizei)>(draw);
    thunk(4, 0, 3);
    ASSERT_EQ(fake::callsOf("glDrawArrays").size(), 1u);
    hijack::glDrawArrays = reinterpret_cast<fn::glDrawArrays>(fake::address("glDrawElements"));
    thunk(4, 0, 3);
    EXPECT_EQ(fake::callsOf("glDrawArrays").size(), 1u);
    EXPECT_EQ(fake::callsOf("glDrawElements").size(), 1u);
    for (const char* name :
         {"glDrawBuffers", "glDrawElements", "glDrawElementsInstanced", "glDrawRangeElements"}) {
        void* fn = velourGetProcAddress(name, NEXT);
        EXPECT_TRUE(fn != nullptr && fn != fake::address(name)) << name;
    }
}

TEST_F(Lookup, WrappersInOtherModesEndInTheHijackSlot) {
    for (unsigned m : {0u, 1u, 2u, 4u}) {
        mode(m);
        EXPECT_EQ(velourGetProcAddress("glClear", NEXT), address(&gl_deferred_glClear));
        EXPECT_EQ(velourGetProcAddress("glDrawArrays", NEXT), address(&gl_deferred_glDrawArrays));
        EXPECT_EQ(velourGetProcAddress("notAGLName", NEXT), NEXT);
    }
    // No thread here has an executor, so the wrapper calls straight through.
    mode(4);
    gl_deferred_glClear(0x4000);
    gl_deferred_glClearColor(0.25f, 0.5f, 0.75f, 1.0f);
    const std::vector<fake::Call> calls = fake::calls();
    ASSERT_EQ(calls.size(), 2u);
    // Floats travel unchanged.
    EXPECT_EQ(std::tuple(std::string(calls[0].name), calls[0].args[0].bits,
                         std::string(calls[1].name), calls[1].args[2].real),
              std::tuple("glClear", 0x4000u, "glClearColor", 0.75));
}

TEST_F(Lookup, DisabledProcessGetsEverythingBack) {
    core::context.gameConfig.enabled = false;
    for (unsigned m : {0u, 3u, 4u}) {
        mode(m);
        EXPECT_EQ(velourGetProcAddress("glClear", NEXT), NEXT);
        EXPECT_EQ(velourGetProcAddress("eglMakeCurrent", NEXT), NEXT);
        EXPECT_EQ(velourGetProcAddress("unknownName", nullptr), nullptr);
    }
}

TEST_F(Lookup, MissingDriverEntryLeavesNullSlotsButTheWrapperStays) {
    fake::setMissing("glTexPageCommitmentEXT", true);
    drv::initRealGL(nullptr, fake::getNextProc);
    gles::initFunctionTable();
    EXPECT_EQ(drv::glTexPageCommitmentEXT, nullptr);
    EXPECT_EQ(hijack::glTexPageCommitmentEXT, nullptr);
    mode(0);
    EXPECT_EQ(velourGetProcAddress("glTexPageCommitmentEXT", NEXT),
              address(&gl_deferred_glTexPageCommitmentEXT));
    mode(3);
    EXPECT_EQ(velourGetProcAddress("glTexPageCommitmentEXT", NEXT), nullptr);
}

}  // namespace
