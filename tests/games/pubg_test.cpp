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
    // A frame that binds each kind of texture so often, then draws; with
    // `hudAt`, on the screen and binding a HUD label before that draw.
    void frame(int draws, Counts counts, int hudAt = -1) {
        for (int i = 0; i < counts.gamePlay; ++i) bindTexture(gamePlay);
        for (int i = 0; i < counts.crosshair; ++i) bindTexture(crosshair);
        for (int i = 0; i < counts.lobby; ++i) bindTexture(lobby);
        for (int i = 0; i < counts.none; ++i) bindTexture(none);
        if (hudAt >= 0) {
            bindScreen();
            draw(hudAt);
            bindTexture(hud);
        }
        draw(draws - std::max(hudAt, 0));
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
    // The labels of one list, of the edition under test.
    static games::LabelTracker& labels(int game, const char* list) {
        using P = games::PubgGLHooks;
        using I = games::PubgInternationalGLHooks;
        const std::string name = list;
        if (name == "hud") return game == 1 ? P::_hudLabels : I::_hudLabels;
        if (name == "crosshair") return game == 1 ? P::_crosshairLabels : I::_crosshairLabels;
        return game == 1 ? P::_gamePlayLabels : I::_gamePlayLabels;
    }

    GLuint gamePlay = 0, crosshair = 0, lobby = 0, hud = 0, none = 0;
};

// The end-of-frame decision of both editions, from the counters of the frame.
TEST_F(Pubg, PlayIsDecidedAtTheFrameEndFromTheCounters) {
    struct Decision {
        const char* what;
        int game;  // 0: both editions
        bool playBefore;
        int draws;
        Counts counts;
        bool playAfter;
        int hudAt = -1;
    };
    const Decision cases[] = {
        {"a short frame is never play", 0, true, 16, {3, 0, 0, 0}, false},
        {"17 draws with play labels", 0, false, 17, {1, 0, 0, 0}, true},
        {"nothing known bound keeps play", 0, true, 17, {0, 0, 0, 0}, true},
        {"nothing known bound keeps menu", 0, false, 17, {0, 0, 0, 0}, false},
        {"3 + 0 is not above 3", 0, true, 17, {3, 0, 3, 0}, false},
        {"crosshair outweighs the lobby", 0, false, 30, {0, 2, 1, 0}, true},
        {"none list with no play label allows play", 1, false, 17, {0, 2, 0, 1}, true},
        {"none list with a play label forbids play", 1, false, 17, {1, 2, 0, 1}, false},
        {"only a none label says menu", 1, true, 17, {0, 0, 0, 1}, false},
        {"no crosshair nor lobby, play 0 keeps play", 8, true, 17, {0, 0, 0, 0}, true},
        {"no crosshair nor lobby, play 1 is play", 8, false, 17, {1, 0, 0, 0}, true},
        {"0 + 1 is not above 2", 8, true, 17, {0, 1, 2, 0}, false},
        // A HUD started in the frame: the none list counts; game 8 has none.
        {"a HUD with a none label", 1, true, 17, {0, 2, 0, 1}, false, 3},
        {"a HUD with a none label", 8, true, 17, {0, 2, 0, 1}, true, 3},
    };
    for (int game : {1, 8}) {
        for (const Decision& c : cases) {
            if (c.game != 0 && c.game != game) continue;
            SCOPED_TRACE(testing::Message() << "game " << game << ": " << c.what);
            PubgHooksBase* hook = start(game);
            if (c.playBefore) enterPlay(hook);
            frame(c.draws, c.counts, c.hudAt);
            EXPECT_EQ(hook->isGamePlayDetected(), c.playAfter);
            TearDown();
        }
    }
}

// Menus, the first frame of play, then frames whose HUD starts by a label or
// by a state pattern: where the effect goes in each.
TEST_P(Pubg, FromTheMenusIntoPlay) {
    PubgHooksBase* hook = start(GetParam());
    // The effect goes at the HUD, where this hook tells one.
    EXPECT_EQ(hook->getDetectablePasses(),
              (std::unordered_set<Pass>{Pass::shadow, Pass::main_color, Pass::post_processing,
                                        Pass::ui, Pass::end}));
    EXPECT_EQ(hook->getPassTracker().getPass(), Pass::shadow) << "a frame starts in it";
    auto recorder = record(hook);
    auto ui = [&] {
        auto at = recorder->into(Pass::ui);
        recorder->seen.clear();
        return at;
    };
    using At = std::vector<std::string>;
    bindScreen();
    for (int i = 0; i < 3; ++i) frame(40, {0, 0, 3, 0});
    bindTexture(hud);
    hijack::glDepthRangef(0.0f, 0.0f);
    draw(20);
    swap();
    EXPECT_FALSE(hook->isGamePlayDetected());
    EXPECT_EQ(ui(), At{}) << "menus draw no effect";

    frame(17, {1, 0, 0, 0});  // detected at its end only
    EXPECT_TRUE(hook->isGamePlayDetected());
    EXPECT_EQ(recorder->seen.back(), "none>shadow@0");
    EXPECT_EQ(ui(), At{}) << "the first frame of play carries no effect";

    // A HUD label at draw 5, then every state pattern again: UI once a frame.
    scene(5);
    bindTexture(hud);
    draw();
    hijack::glDepthRangef(0.0f, 0.0f);
    bindTexture(crosshair);
    draw(11);
    swap();
    EXPECT_EQ(recorder->seen, (At{"shadow>ui@5", "ui>end@17", "end>none@0", "none>shadow@0"}));
    recorder->seen.clear();

    // State patterns need two draws of the frame before them; a label does not.
    for (int i = 0; i < 3; ++i) {
        hijack::glDepthRangef(0.0f, 0.0f);
        draw(i < 2 ? 1 : 18);
    }
    swap();
    EXPECT_EQ(ui(), At{"@2"});
    bindTexture(hud);
    draw(20);
    swap();
    EXPECT_EQ(ui(), At{"@0"});
}

// The state changes before draw 5 of a frame of play, one letter each: depth
// range, blends, no depth test or culling, and framebuffer binds.
void apply(char c) {
    const GLenum alpha = GL_SRC_ALPHA, rest = GL_ONE_MINUS_SRC_ALPHA;
    if (c == 'D') hijack::glDepthRangef(0.0f, 0.0f);
    if (c == 'd') hijack::glDepthRangef(0.0f, -0.0f);
    if (c == 'B') hijack::glBlendFuncSeparate(alpha, rest, GL_ZERO, GL_ONE);
    if (c == 'A') hijack::glBlendFuncSeparate(alpha, rest, GL_ONE, GL_ONE);
    if (c == 'b') hijack::glBlendFuncSeparate(GL_ONE, rest, GL_ZERO, GL_ONE);
    if (c == 'T') hijack::glDisable(GL_DEPTH_TEST);
    if (c == 'C') hijack::glDisable(GL_CULL_FACE);
    if (c == 'F') hijack::glBindFramebuffer(GL_FRAMEBUFFER, 9);
    if (c == 'R') hijack::glBindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    if (c == 'W') hijack::glBindFramebuffer(GL_DRAW_FRAMEBUFFER, 0);
}

TEST_P(Pubg, TheHudStartsAtTheDrawAfterItsStatePattern) {
    // Depth range 0, 0 and not 0, -0; a blend with no depth test or no culling,
    // but not another blend or either alone; only on the screen's draw framebuffer.
    const std::pair<const char*, bool> cases[] = {
        {"D", true},   {"d", false}, {"BT", true},  {"CA", true},  {"B", false},
        {"bT", false}, {"T", false}, {"FD", false}, {"RD", false}, {"RWD", true}};
    for (auto [changes, starts] : cases) {
        PubgHooksBase* hook = start(GetParam());
        enterPlay(hook);
        auto recorder = record(hook);
        scene(5);
        for (const char* c = changes; *c; ++c) apply(*c);
        draw(15);
        swap();
        // Without a start, the effect goes on top at the frame's end.
        EXPECT_EQ(recorder->into(Pass::ui), std::vector<std::string>{starts ? "@5" : "@20"})
            << changes;
        TearDown();
    }
}

TEST_P(Pubg, LabelsAreKeptByTheirExactTextAndForgottenWithTheirObject) {
    PubgHooksBase* hook = start(GetParam());
    auto& hudLabels = labels(GetParam(), "hud");
    auto& crosshairs = labels(GetParam(), "crosshair");
    // Crosshair textures need no list, but their exact spelling.
    EXPECT_NE(crosshairs.findLabel(GL_TEXTURE, labelled("Weapon_CrossHair_Red")), nullptr);
    EXPECT_EQ(crosshairs.findLabel(GL_PROGRAM_OBJECT_EXT,
                                   labelled("Weapon_CrossHair_Red", GL_PROGRAM_OBJECT_EXT)),
              nullptr);
    EXPECT_EQ(crosshairs.findLabel(GL_TEXTURE, labelled("Weapon_Crosshair_Red")), nullptr);

    const char unterminated[] = {'H', 'U', 'D', '_', 'F', 'o', 'n', 't'};
    const char longer[] = "HUD_Font and more";
    const std::string huge(70000, 'x');
    const struct {
        int length;
        const char* label;
        bool tracked;  // as "HUD_Font"
    } cases[] = {
        {0, "HUD_Font", true},     {-1, "HUD_Font", true}, {-99, "HUD_Font", true},
        {8, unterminated, true},   {8, longer, true},      {-1, longer, false},
        {9, "HUD_Font", false},    {0, "", false},         {4, nullptr, false},
        {-1, huge.c_str(), false},
    };
    for (const auto& c : cases) {
        static GLuint name = 50000;
        hijack::glLabelObjectEXT(GL_TEXTURE, ++name, c.length, c.label);
        const std::string* stored = hudLabels.findLabel(GL_TEXTURE, name);
        EXPECT_EQ(stored ? *stored : "(none)", c.tracked ? "HUD_Font" : "(none)")
            << "case " << (&c - cases);
    }

    enterPlay(hook);
    auto& gamePlayLabels = labels(GetParam(), "gamePlay");
    // Reused without a delete: an unwanted label leaves the old one.
    hijack::glLabelObjectEXT(GL_TEXTURE, gamePlay, 0, "Something_Else");
    EXPECT_NE(gamePlayLabels.findLabel(GL_TEXTURE, gamePlay), nullptr);
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
    EXPECT_NE(hudLabels.findLabel(GL_PROGRAM_OBJECT_EXT, program), nullptr);
    hijack::glDeleteProgram(program);
    EXPECT_EQ(hudLabels.findLabel(GL_PROGRAM_OBJECT_EXT, program), nullptr);
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

INSTANTIATE_TEST_SUITE_P(Editions, Pubg, ::testing::Values(1, 8), [](const auto& info) {
    return info.param == 1 ? std::string("Pubg") : std::string("International");
});

}  // namespace
