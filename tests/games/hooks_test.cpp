// The contract between the layer and a game hook: which slots feed it, in
// which order against the driver, and what the layer adds for every game.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <set>

#include "AllocationCounter.h"
#include "HookFixture.h"

using namespace velour;
using test::HookFixture;

namespace {

std::vector<std::string> events;

// Tells every call into the hook; the driver's calls are told by the fake.
struct RecordingHooks : games::GameGLHooks {
    bool onDraw() override {
        events.push_back("onDraw");
        GameGLHooks::onDraw();
        return letDrawsThrough;
    }
    void onFrameEnd() override {
        events.push_back("onFrameEnd");
        GameGLHooks::onFrameEnd();
        skipSwap = skipNextSwap;
        skipNextSwap = false;
    }
    void onSFRFrameBegin() override { events.push_back("onSFRFrameBegin"); }
    void onUseProgram(unsigned) override { events.push_back("onUseProgram"); }
    void onLinkProgram(unsigned) override { events.push_back("onLinkProgram"); }
    void onDeleteProgram(unsigned) override { events.push_back("onDeleteProgram"); }
    void onAttachShader(unsigned, unsigned) override { events.push_back("onAttachShader"); }
    void onDetachShader(unsigned, unsigned) override { events.push_back("onDetachShader"); }
    void onDeleteShader(unsigned) override { events.push_back("onDeleteShader"); }
    void onShaderSource(unsigned, int, const char* const*, const int*) override {
        events.push_back("onShaderSource");
    }
    void onLabelObjectEXT(unsigned, unsigned, int, const char*) override {
        events.push_back("onLabelObjectEXT");
    }
    bool letDrawsThrough = true;
    bool skipNextSwap = false;
};

class Contract : public HookFixture {
  protected:
    RecordingHooks* start(bool replayProcess = false) {
        install(1, replayProcess);
        auto hook = std::make_unique<RecordingHooks>();
        RecordingHooks* raw = hook.get();
        bind(std::move(hook));
        for (auto& entry : gles::entryPoints)
            fake::setHandler(entry.name, [](const fake::Call& call) -> std::uint64_t {
                events.push_back(std::string("driver:") + call.name);
                return 0;
            });
        events.clear();
        fake::clearCalls();
        return raw;
    }
};

TEST_F(Contract, CommonThunksTellTheHookBeforeTheDriver) {
    RecordingHooks* hook = start();
    const char* source = "void main() {}";
    const GLushort indices[3] = {0, 1, 2};
    const GLenum triangles = GL_TRIANGLES, shorts = GL_UNSIGNED_SHORT;
    // The driver's function each call reaches (none for a label), and the hook's before it.
    const struct {
        const char* driver;
        std::function<void()> call;
        const char* hook;
    } cases[] = {
        {"glUseProgram", [] { hijack::glUseProgram(3); }, "onUseProgram"},
        {"glLinkProgram", [] { hijack::glLinkProgram(3); }, "onLinkProgram"},
        {"glDeleteProgram", [] { hijack::glDeleteProgram(3); }, "onDeleteProgram"},
        {"glAttachShader", [] { hijack::glAttachShader(3, 4); }, "onAttachShader"},
        {"glDetachShader", [] { hijack::glDetachShader(3, 4); }, "onDetachShader"},
        {"glDeleteShader", [] { hijack::glDeleteShader(4); }, "onDeleteShader"},
        {"glShaderSource", [&] { hijack::glShaderSource(4, 1, &source, nullptr); },
         "onShaderSource"},
        {nullptr, [] { hijack::glLabelObjectEXT(GL_TEXTURE, 5, 3, "abc"); }, "onLabelObjectEXT"},
        {"glDrawArrays", [] { hijack::glDrawArrays(GL_TRIANGLES, 0, 3); }, "onDraw"},
        {"glDrawElements", [&] { hijack::glDrawElements(triangles, 3, shorts, indices); },
         "onDraw"},
        {"glDrawElementsInstanced",
         [&] { hijack::glDrawElementsInstanced(triangles, 3, shorts, indices, 2); }, "onDraw"},
        {"glDrawElementsBaseVertexOES",
         [&] { hijack::glDrawElementsBaseVertexOES(triangles, 3, shorts, indices, 7); }, "onDraw"},
        {"glClear", [] { hijack::glClear(0); }, nullptr},  // not fed to hooks
    };
    for (const auto& c : cases) {
        events.clear();
        c.call();
        std::vector<std::string> expected;
        if (c.hook) expected.push_back(c.hook);
        if (c.driver) expected.push_back(std::string("driver:") + c.driver);
        EXPECT_EQ(events, expected);
    }
    // A hook that refuses a draw swallows it.
    hook->letDrawsThrough = false;
    events.clear();
    hijack::glDrawArrays(GL_TRIANGLES, 0, 3);
    hijack::glDrawElements(GL_TRIANGLES, 3, GL_UNSIGNED_SHORT, indices);
    EXPECT_EQ(events, (std::vector<std::string>{"onDraw", "onDraw"}));

    // A thread without a hook only calls the driver.
    core::tlglobals = {nullptr, nullptr};
    events.clear();
    hijack::glUseProgram(1);
    draw();
    hijack::glLabelObjectEXT(GL_TEXTURE, 1, 0, "HUD_Atlas");
    swap();
    EXPECT_EQ(events, (std::vector<std::string>{"driver:glUseProgram", "driver:glDrawArrays",
                                                "driver:eglSwapBuffers"}));
}

TEST_F(Contract, DrawsLeaveTheirParametersForTheGame) {
    RecordingHooks* hook = start();
    const GLuint indices[6] = {};
    hijack::glDrawElementsInstanced(GL_LINES, 6, GL_UNSIGNED_INT, indices, 4);
    EXPECT_EQ(
        std::tuple(hook->drawMode, hook->drawIndexCount, hook->drawIndexType, hook->drawIndices,
                   hook->drawIndexed, hook->drawInstanced, hook->drawInstanceCount),
        std::tuple(unsigned{GL_LINES}, 6, unsigned{GL_UNSIGNED_INT},
                   static_cast<const void*>(indices), true, true, 4));
    hijack::glDrawArrays(GL_POINTS, 2, 9);
    EXPECT_EQ(std::tuple(hook->drawMode, hook->drawFirst, hook->drawArrayCount),
              std::tuple(unsigned{GL_POINTS}, 2, 9));
    EXPECT_TRUE(hook->drawIndexed && hook->drawInstanced) << "nothing clears them";
    hijack::glDrawElementsBaseVertexOES(GL_TRIANGLES, 3, GL_UNSIGNED_INT, indices, -5);
    EXPECT_EQ(hook->drawFirst, -5);
    EXPECT_EQ(hook->drawCount, 3u);
}

TEST_F(Contract, TheSwapEndsTheFrameAndSkipSwapSwallowsOne) {
    RecordingHooks* hook = start();
    auto recorder = record(hook);
    swap();  // the first frame also copies one pixel out
    EXPECT_EQ(events,
              (std::vector<std::string>{
                  "onFrameEnd", "driver:glGenTextures", "driver:glActiveTexture",
                  "driver:glBindTexture", "driver:glTexStorage2D", "driver:glCopyTexSubImage2D",
                  "driver:glBindTexture", "driver:glDeleteTextures", "driver:eglSwapBuffers"}));
    // A frame with no draws still ends, and nothing restores the texture state.
    EXPECT_EQ(recorder->seen, (std::vector<std::string>{"none>end@0", "end>none@0"}));
    EXPECT_EQ(hook->frameCount, 1u);

    hook->skipNextSwap = true;
    events.clear();
    EXPECT_EQ(hijack::eglSwapBuffers(nullptr, nullptr), EGLBoolean{EGL_TRUE});
    EXPECT_EQ(events, std::vector<std::string>{"onFrameEnd"});
    events.clear();
    swap();
    EXPECT_EQ(events, (std::vector<std::string>{"onFrameEnd", "driver:eglSwapBuffers"}));
    EXPECT_EQ(hook->frameCount, 3u);
}

// Every slot that differs from the driver's after start-up.
std::set<std::string> replacedSlots() {
    std::set<std::string> names;
    for (auto& entry : gles::entryPoints) {
        bool known = false;
        if (gles::hijackSlot(entry.name, &known) != fake::address(entry.name))
            names.insert(entry.name);
    }
    return names;
}

TEST_F(Contract, EachKnownGameReplacesItsOwnSlotsAndTheCommonOnes) {
    std::set<std::string> pubg = {
        "glUseProgram", "eglSwapBuffers", "glLinkProgram", "glDeleteProgram", "glAttachShader",
        "glDetachShader", "glDeleteShader", "glShaderSource", "glGetString", "glGetStringi",
        "glGetIntegerv", "glLabelObjectEXT", "glDrawArrays", "glDrawElements",
        "glDrawElementsInstanced", "glDrawElementsBaseVertexOES",
        // game 1's own
        "glDisable", "glBindFramebuffer", "glDepthRangef", "glBlendFuncSeparate", "glBindTexture",
        "glDeleteTextures"};
    for (int game : {1, 8}) {
        install(game);
        EXPECT_EQ(replacedSlots(), pubg) << "game " << game;
        TearDown();
    }
    // The replay tool's frames are marked.
    install(1, true);
    pubg.insert("glInsertEventMarkerEXT");
    EXPECT_EQ(replacedSlots(), pubg);
    TearDown();
    // Unknown games get no triggers.
    fake::reset();
    drv::initRealGL(nullptr, fake::getNextProc);
    gles::initFunctionTable();
    for (int game : {0, 10, -1}) {
        core::context.gameConfig.game = game;
        EXPECT_FALSE(games::GameGLHooks::registerGlobalTriggers()) << game;
        EXPECT_TRUE(replacedSlots().empty()) << game;
    }
}

TEST_F(Contract, ReplayMarkersNeedTheirExactLengthWithTheTerminator) {
    start(true);
    const char *end = "velour.marker.frame_end", *begin = "velour.marker.frame_begin";
    const struct {
        int length;
        const char* text;
        const char* hook;
    } cases[] = {
        {24, end, "onFrameEnd"}, {26, begin, "onSFRFrameBegin"},           {23, end, nullptr},
        {0, begin, nullptr},     {24, "velour.marker.frame_xyz", nullptr}, {24, nullptr, nullptr}};
    for (const auto& c : cases) {
        events.clear();
        hijack::glInsertEventMarkerEXT(c.length, c.text);
        // The first frame end copies a pixel out; only the hook's calls count here.
        std::vector<std::string> hookEvents;
        for (auto& e : events)
            if (e.rfind("driver:", 0) != 0) hookEvents.push_back(e);
        EXPECT_EQ(hookEvents,
                  c.hook ? std::vector<std::string>{c.hook} : std::vector<std::string>{})
            << c.length << " " << (c.text ? c.text : "null");
        EXPECT_EQ(events.back(), "driver:glInsertEventMarkerEXT");
    }
}

TEST_F(Contract, SafetyStubsAreTheFirstGamesAlone) {
    install(1);
    for (const char* name :
         {"glDrawArrays", "glBindTexture", "eglSwapBuffers", "eglMakeCurrent", "glIsEnabledX"})
        EXPECT_EQ(games::getGameUnsupportedFunction(name), nullptr) << name;
    for (const char* name : {"glIsEnabled", "eglCreatePixmapSurface",
                             "eglCreatePlatformWindowSurface", "eglGetProcAddress"})
        EXPECT_NE(games::getGameUnsupportedFunction(name), nullptr) << name;

    // With no executor on the thread a stub calls the slot at once.
    auto isEnabled =
        reinterpret_cast<GLboolean (*)(GLenum)>(games::getGameUnsupportedFunction("glIsEnabled"));
    fake::setReturn("glIsEnabled", GL_TRUE);
    EXPECT_EQ(isEnabled(GL_BLEND), GL_TRUE);
    EXPECT_EQ(fake::callsOf("glIsEnabled").size(), 1u);

    core::context.gameConfig.game = 2;
    EXPECT_EQ(games::getGameUnsupportedFunction("glIsEnabled"), nullptr);
}

void countingDraw(GLenum, GLint, GLsizei) {}

TEST_F(Contract, ADrawsHookPathAllocatesNothingAndCallsNoDriverFunction) {
    for (int game : {1, 8}) {
        install(game);
        games::GameGLHooks* hook = bind();
        fake::clearCalls();
        // The slot calls drv::, which the fake would record: a plain function here.
        drv::glDrawArrays = &countingDraw;
        {
            test::AllocationCounter allocations;
            for (int i = 0; i < 100; ++i) hijack::glDrawArrays(GL_TRIANGLES, 0, 3);
            EXPECT_EQ(allocations.count(), 0) << game;
        }
        EXPECT_TRUE(fake::calls().empty()) << game;
        EXPECT_EQ(hook->drawCount, 100u);
        TearDown();
    }
}

// The driver's extensions, with or without the debug-label one; each run of
// the suite asks the driver once, so the two cases run in separate processes.
void fakeExtensions(std::vector<const char*> list, const char* joined) {
    static std::vector<const char*> names;
    static const char* all;
    names = list;
    all = joined;
    fake::setHandler("glGetIntegerv", [](const fake::Call& call) -> std::uint64_t {
        auto* data = reinterpret_cast<GLint*>(static_cast<std::uintptr_t>(call.args[1].bits));
        *data = call.args[0].bits == GL_NUM_EXTENSIONS ? static_cast<GLint>(names.size()) : 77;
        return 0;
    });
    fake::setHandler("glGetStringi", [](const fake::Call& call) -> std::uint64_t {
        std::uint64_t i = call.args[1].bits;
        return i < names.size() ? reinterpret_cast<std::uintptr_t>(names[i]) : 0;
    });
    fake::setHandler("glGetString", [](const fake::Call& call) -> std::uint64_t {
        return call.args[0].bits == GL_EXTENSIONS ? reinterpret_cast<std::uintptr_t>(all)
                                                  : reinterpret_cast<std::uintptr_t>("Fake");
    });
}

std::string text(const GLubyte* s) {
    return s ? reinterpret_cast<const char*>(s) : "(null)";
}

TEST_F(Contract, DriverWithoutDebugLabelIsOfferedIt) {
    install(1);
    fakeExtensions({"GL_OES_a", "GL_OES_b"}, "GL_OES_a GL_OES_b");
    GLint count = 0;
    hijack::glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    EXPECT_EQ(count, 3);
    hijack::glGetIntegerv(GL_MAX_TEXTURE_SIZE, &count);
    EXPECT_EQ(count, 77) << "other names untouched";
    EXPECT_EQ(text(hijack::glGetStringi(GL_EXTENSIONS, 0)), "GL_EXT_debug_label");
    EXPECT_EQ(text(hijack::glGetStringi(GL_EXTENSIONS, 1)), "GL_OES_a");
    EXPECT_EQ(text(hijack::glGetStringi(GL_EXTENSIONS, 2)), "GL_OES_b");
    EXPECT_EQ(text(hijack::glGetStringi(GL_EXTENSIONS, 3)), "(null)");
    EXPECT_EQ(text(hijack::glGetString(GL_EXTENSIONS)), "GL_EXT_debug_label GL_OES_a GL_OES_b");
    EXPECT_EQ(text(hijack::glGetString(GL_RENDERER)), "Fake");
}

TEST_F(Contract, DriverWithDebugLabelIsLeftAsItIs) {
    install(1);
    fakeExtensions({"GL_OES_a", "GL_EXT_debug_label"}, "GL_OES_a GL_EXT_debug_label");
    GLint count = 0;
    hijack::glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(text(hijack::glGetStringi(GL_EXTENSIONS, 0)), "GL_OES_a");
    EXPECT_EQ(text(hijack::glGetString(GL_EXTENSIONS)), "GL_OES_a GL_EXT_debug_label");
    // Still kept from the driver.
    bind();
    fake::clearCalls();
    hijack::glLabelObjectEXT(GL_TEXTURE, 1, 0, "HUD_Atlas");
    EXPECT_TRUE(fake::callsOf("glLabelObjectEXT").empty());
}

}  // namespace
