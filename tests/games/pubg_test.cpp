// The rules of game 1 and its international edition (game 8): play is told
// from the labelled textures a frame binds, and the HUD's first draw from
// labels or from the state a HUD is drawn with.
#include <thread>

#include "HookFixture.h"
#include "games/PubgGLHooks.h"

using namespace velour;
using games::Pass;
using games::PubgHooksBase;
using test::HookFixture;

namespace {

struct Counts {
    int gamePlay, crosshair, lobby, none;
};

class Pubg : public HookFixture, public ::testing::WithParamInterface<int> {
  protected:
    PubgHooksBase* start(int game) {
        install(game);
        auto* hook = static_cast<PubgHooksBase*>(bind());
        gamePlay = labelled("Play_Terrain");
        crosshair = labelled("Crosshair_Dot");
        lobby = labelled("Lobby_Button");
        hud = labelled("HUD_Atlas");
        none = labelled("Loading_Screen");
        return hook;
    }
    // A frame that binds each kind of texture so often, then draws.
    void frame(int draws, Counts counts) {
        for (int i = 0; i < counts.gamePlay; ++i) bindTexture(gamePlay);
        for (int i = 0; i < counts.crosshair; ++i) bindTexture(crosshair);
        for (int i = 0; i < counts.lobby; ++i) bindTexture(lobby);
        for (int i = 0; i < counts.none; ++i) bindTexture(none);
        draw(draws);
        swap();
    }
    void enterPlay(PubgHooksBase* hook) {
        frame(17, {1, 0, 0, 0});
        ASSERT_TRUE(hook->isGamePlayDetected());
    }
    static void bindScreen() { hijack::glBindFramebuffer(GL_FRAMEBUFFER, 0); }
    // The scene, drawn offscreen as a game does: its labels say play, but
    // start no HUD there.
    void scene(int draws) {
        hijack::glBindFramebuffer(GL_FRAMEBUFFER, 7);
        bindTexture(gamePlay);
        draw(draws);
        bindScreen();
    }

    GLuint gamePlay = 0, crosshair = 0, lobby = 0, hud = 0, none = 0;
};

struct Decision {
    const char* what;
    bool international;  // the case holds for game 8 only (or game 1 only when false)
    bool bothEditions;
    bool playBefore;
    int draws;
    Counts counts;
    bool playAfter;
};

// The end-of-frame decision of both editions, from the counters of the frame.
TEST_F(Pubg, PlayIsDecidedAtTheFrameEndFromTheCounters) {
    const Decision cases[] = {
        {"a short frame is never play", false, true, true, 16, {3, 0, 0, 0}, false},
        {"17 draws with play labels", false, true, false, 17, {1, 0, 0, 0}, true},
        {"nothing known bound keeps play", false, true, true, 17, {0, 0, 0, 0}, true},
        {"nothing known bound keeps menu", false, true, false, 17, {0, 0, 0, 0}, false},
        {"3 + 0 is not above 3", false, true, true, 17, {3, 0, 3, 0}, false},
        {"crosshair outweighs the lobby", false, true, false, 30, {0, 2, 1, 0}, true},
        {"none list with no play label allows play", false, false, false, 17, {0, 2, 0, 1}, true},
        {"none list with a play label forbids play", false, false, false, 17, {1, 2, 0, 1}, false},
        {"only a none label says menu", false, false, true, 17, {0, 0, 0, 1}, false},
        {"international: crosshair and lobby 0, play 0 keeps play",
         true,
         false,
         true,
         17,
         {0, 0, 0, 0},
         true},
        {"international: crosshair and lobby 0, play 1 is play",
         true,
         false,
         false,
         17,
         {1, 0, 0, 0},
         true},
        {"international: 0 + 1 is not above 2", true, false, true, 17, {0, 1, 2, 0}, false},
    };
    for (int game : {1, 8}) {
        for (const Decision& c : cases) {
            const bool international = game == 8;
            if (!c.bothEditions && c.international != international) continue;
            PubgHooksBase* hook = start(game);
            if (c.playBefore) enterPlay(hook);
            frame(c.draws, c.counts);
            EXPECT_EQ(hook->isGamePlayDetected(), c.playAfter) << "game " << game << ": " << c.what;
            TearDown();
        }
    }
}

TEST_P(Pubg, AHudStartedInTheFrameForbidsPlayWhenTheNoneListCounts) {
    PubgHooksBase* hook = start(GetParam());
    enterPlay(hook);
    bindScreen();
    bindTexture(none);
    bindTexture(crosshair);
    bindTexture(crosshair);
    draw(3);
    bindTexture(hud);  // the HUD starts at draw 3
    draw(14);
    swap();
    // Game 8 has no none list: the crosshair decides.
    EXPECT_EQ(hook->isGamePlayDetected(), GetParam() == 8);
}

TEST_P(Pubg, TheFirstFrameOfPlayCarriesNoEffectAndUIIsEnteredOnceAFrame) {
    PubgHooksBase* hook = start(GetParam());
    auto recorder = record(hook);
    bindScreen();
    frame(17, {1, 0, 0, 0});  // detected at its end only
    EXPECT_TRUE(recorder->into(Pass::ui).empty());
    EXPECT_EQ(recorder->seen.back(), "none>shadow@0");

    // The second: a HUD label at draw 5, then every state pattern again.
    recorder->seen.clear();
    scene(5);
    bindTexture(hud);
    draw();
    hijack::glDepthRangef(0.0f, 0.0f);
    bindTexture(crosshair);
    draw(11);
    swap();
    EXPECT_EQ(recorder->into(Pass::ui), std::vector<std::string>{"@5"});
    EXPECT_EQ(recorder->seen, (std::vector<std::string>{"shadow>ui@5", "ui>end@17", "end>none@0",
                                                        "none>shadow@0"}));
}

struct StartCase {
    const char* what;
    std::function<void()> before;  // the state changes just before draw 5
    bool starts;
};

TEST_P(Pubg, TheHudStartsAtTheDrawAfterItsStatePattern) {
    const StartCase cases[] = {
        {"depth range 0, 0", [] { hijack::glDepthRangef(0.0f, 0.0f); }, true},
        {"depth range 0, -0", [] { hijack::glDepthRangef(0.0f, -0.0f); }, false},
        {"blend and no depth test",
         [] {
             hijack::glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
             hijack::glDisable(GL_DEPTH_TEST);
         },
         true},
        {"blend and no culling",
         [] {
             hijack::glDisable(GL_CULL_FACE);
             hijack::glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE);
         },
         true},
        {"blend alone",
         [] { hijack::glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE); },
         false},
        {"another blend",
         [] {
             hijack::glBlendFuncSeparate(GL_ONE, GL_ONE_MINUS_SRC_ALPHA, GL_ZERO, GL_ONE);
             hijack::glDisable(GL_DEPTH_TEST);
         },
         false},
        {"no depth test alone", [] { hijack::glDisable(GL_DEPTH_TEST); }, false},
        {"an offscreen framebuffer",
         [] {
             hijack::glBindFramebuffer(GL_FRAMEBUFFER, 9);
             hijack::glDepthRangef(0.0f, 0.0f);
         },
         false},
        {"the read framebuffer is not the screen",
         [] {
             hijack::glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
             hijack::glDepthRangef(0.0f, 0.0f);
         },
         false},
        {"the draw framebuffer is",
         [] {
             hijack::glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
             hijack::glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
             hijack::glDepthRangef(0.0f, 0.0f);
         },
         true},
    };
    for (const StartCase& c : cases) {
        PubgHooksBase* hook = start(GetParam());
        enterPlay(hook);
        auto recorder = record(hook);
        scene(5);
        c.before();
        draw(15);
        swap();
        // Without a start, the effect goes on top at the frame's end.
        EXPECT_EQ(recorder->into(Pass::ui), std::vector<std::string>{c.starts ? "@5" : "@20"})
            << c.what;
        TearDown();
    }
}

TEST_P(Pubg, StatePatternsNeedTwoDrawsButALabelDoesNot) {
    PubgHooksBase* hook = start(GetParam());
    enterPlay(hook);
    auto recorder = record(hook);
    bindScreen();
    hijack::glDepthRangef(0.0f, 0.0f);
    draw();  // draw 0: too early for a pattern
    hijack::glDepthRangef(0.0f, 0.0f);
    draw();  // draw 1: still
    hijack::glDepthRangef(0.0f, 0.0f);
    draw(18);  // draw 2
    swap();
    EXPECT_EQ(recorder->into(Pass::ui), std::vector<std::string>{"@2"});

    recorder->seen.clear();
    bindTexture(hud);
    draw(20);  // draw 0 of a frame on the screen
    swap();
    EXPECT_EQ(recorder->into(Pass::ui), std::vector<std::string>{"@0"});
}

TEST_P(Pubg, MenusDrawNoEffect) {
    PubgHooksBase* hook = start(GetParam());
    auto recorder = record(hook);
    bindScreen();
    for (int i = 0; i < 3; ++i) frame(40, {0, 0, 3, 0});
    bindTexture(hud);
    hijack::glDepthRangef(0.0f, 0.0f);
    draw(20);
    swap();
    EXPECT_FALSE(hook->isGamePlayDetected());
    EXPECT_TRUE(recorder->into(Pass::ui).empty());
}

TEST_P(Pubg, CrosshairTexturesNeedNoList) {
    PubgHooksBase* hook = start(GetParam());
    GLuint variant = labelled("Weapon_CrossHair_Red");
    GLuint program = labelled("Weapon_CrossHair_Red", GL_PROGRAM_OBJECT_EXT);
    GLuint lowerCase = labelled("Weapon_Crosshair_Red");
    auto& trackers = GetParam() == 1 ? games::PubgGLHooks::_crosshairLabels
                                     : games::PubgInternationalGLHooks::_crosshairLabels;
    EXPECT_NE(trackers.findLabel(GL_TEXTURE, variant), nullptr);
    EXPECT_EQ(trackers.findLabel(GL_PROGRAM_OBJECT_EXT, program), nullptr);
    EXPECT_EQ(trackers.findLabel(GL_TEXTURE, lowerCase), nullptr);
    bindTexture(variant);
    draw(17);
    swap();
    EXPECT_TRUE(hook->isGamePlayDetected());
}

struct LabelCase {
    const char* what;
    int length;
    const char* label;
    const char* tracked;  // the stored text, or null
};

TEST_P(Pubg, LabelTextsFollowTheirLength) {
    start(GetParam());
    const char unterminated[] = {'H', 'U', 'D', '_', 'F', 'o', 'n', 't'};
    const char longer[] = "HUD_Font and more";
    const std::string huge(70000, 'x');
    const LabelCase cases[] = {
        {"terminated, length 0", 0, "HUD_Font", "HUD_Font"},
        {"terminated, length -1", -1, "HUD_Font", "HUD_Font"},
        {"terminated, length -99", -99, "HUD_Font", "HUD_Font"},
        {"no terminator, exact length", 8, unterminated, "HUD_Font"},
        {"a longer text cut by its length", 8, longer, "HUD_Font"},
        {"a longer text, whole", -1, longer, nullptr},
        {"a length inside the terminator's reach", 9, "HUD_Font", nullptr},
        {"empty", 0, "", nullptr},
        {"null", 4, nullptr, nullptr},
        {"a label far over any limit", -1, huge.c_str(), nullptr},
    };
    auto& hud = GetParam() == 1 ? games::PubgGLHooks::_hudLabels
                                : games::PubgInternationalGLHooks::_hudLabels;
    for (const LabelCase& c : cases) {
        static GLuint name = 50000;
        hijack::glLabelObjectEXT(GL_TEXTURE, ++name, c.length, c.label);
        const std::string* stored = hud.findLabel(GL_TEXTURE, name);
        if (c.tracked)
            EXPECT_TRUE(stored && *stored == c.tracked) << c.what;
        else
            EXPECT_EQ(stored, nullptr) << c.what;
    }
}

TEST_P(Pubg, DeletedAndReusedNamesKeepNoStaleLabel) {
    PubgHooksBase* hook = start(GetParam());
    enterPlay(hook);
    auto& gamePlayLabels = GetParam() == 1 ? games::PubgGLHooks::_gamePlayLabels
                                           : games::PubgInternationalGLHooks::_gamePlayLabels;
    // Reused without a delete: an unwanted label leaves the old one.
    hijack::glLabelObjectEXT(GL_TEXTURE, gamePlay, 0, "Something_Else");
    EXPECT_NE(gamePlayLabels.findLabel(GL_TEXTURE, gamePlay), nullptr);
    // A wanted one of another list leaves it too, and adds its own.
    GLuint deleted[] = {gamePlay, 424242};
    fake::clearCalls();
    hijack::glDeleteTextures(2, deleted);
    EXPECT_EQ(gamePlayLabels.findLabel(GL_TEXTURE, gamePlay), nullptr);
    EXPECT_EQ(fake::callsOf("glDeleteTextures").size(), 1u) << "the driver deletes too";
    // The deleted name no longer counts: a long frame with it is a frame of nothing known.
    frame(17, {3, 0, 1, 0});
    EXPECT_FALSE(hook->isGamePlayDetected());
    // Never generated, never labelled: nothing.
    bindTexture(987654);
    hijack::glDeleteTextures(-1, deleted);
    hijack::glDeleteTextures(1, nullptr);

    GLuint program = labelled("HUD_Atlas", GL_PROGRAM_OBJECT_EXT);
    auto& hud = GetParam() == 1 ? games::PubgGLHooks::_hudLabels
                                : games::PubgInternationalGLHooks::_hudLabels;
    EXPECT_NE(hud.findLabel(GL_PROGRAM_OBJECT_EXT, program), nullptr);
    hijack::glDeleteProgram(program);
    EXPECT_EQ(hud.findLabel(GL_PROGRAM_OBJECT_EXT, program), nullptr);
}

TEST_P(Pubg, ASecondContextHasItsOwnHookAndSharesTheLabels) {
    PubgHooksBase* first = start(GetParam());
    enterPlay(first);
    // A loading thread labels with a context of its own.
    PubgHooksBase* second = nullptr;
    GLuint loaded = 0;
    std::thread loader([&] {
        second = static_cast<PubgHooksBase*>(bind());
        loaded = labelled("Play_Shadow");
        core::tlglobals = {nullptr, nullptr};
    });
    loader.join();
    ASSERT_NE(second, first);
    EXPECT_FALSE(second->isGamePlayDetected()) << "the state is the hook's own";
    core::tlglobals = {contexts.front().get(), nullptr};
    bindTexture(loaded);
    draw(17);
    swap();
    EXPECT_TRUE(first->isGamePlayDetected());
}

TEST_P(Pubg, AFrameStartsInTheShadowPassAndTheOnDefaultFramebufferFlagFollowsBinds) {
    PubgHooksBase* hook = start(GetParam());
    EXPECT_EQ(hook->getPassTracker().getPass(), Pass::shadow);
    EXPECT_FALSE(hook->isOnDefaultFramebuffer()) << "until the game binds the screen";
    // The hook hears of the bind after the driver.
    bool duringDriverCall = true;
    fake::setHandler("glBindFramebuffer", [&](const fake::Call&) -> std::uint64_t {
        duringDriverCall = hook->isOnDefaultFramebuffer();
        return 0;
    });
    bindScreen();
    EXPECT_FALSE(duringDriverCall);
    EXPECT_TRUE(hook->isOnDefaultFramebuffer());
    hijack::glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 3);
    EXPECT_FALSE(hook->isOnDefaultFramebuffer());
    EXPECT_EQ(hook->getDetectablePasses(),
              (std::unordered_set<Pass>{Pass::shadow, Pass::main_color, Pass::post_processing,
                                        Pass::ui, Pass::end}));
}

INSTANTIATE_TEST_SUITE_P(Editions, Pubg, ::testing::Values(1, 8), [](const auto& info) {
    return info.param == 1 ? std::string("Pubg") : std::string("International");
});

}  // namespace
