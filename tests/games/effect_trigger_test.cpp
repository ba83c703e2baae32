// The effect is drawn when a frame reaches the pass the game's hook can tell:
// its user interface, else the end of the frame.
#include "HookFixture.h"

using namespace velour;
using games::Pass;

namespace {

class EffectTrigger : public test::HookFixture {
  protected:
    void SetUp() override {
        fake::reset();
        drv::initRealGL(nullptr, fake::getNextProc);
        gles::initFunctionTable();
    }
    // Whether moving the tracker to `pass` reached the driver, that is drew.
    bool draws(games::PassTracker& tracker, Pass pass) {
        fake::clearCalls();
        if (pass == Pass::end)
            tracker.finish(10);
        else
            tracker.next(pass, 1);
        return !fake::calls().empty();
    }
};

TEST_F(EffectTrigger, DrawsAtTheUIPassWhenTheGameCanTellItElseAtTheFrameEnd) {
    struct Case {
        std::unordered_set<Pass> detectable;
        Pass target;
    };
    for (const Case& c : {Case{{Pass::end, Pass::shadow, Pass::ui}, Pass::ui},
                          Case{{Pass::end, Pass::main_color}, Pass::end}}) {
        styles::StyleManager manager;
        core::RenderEffectOnPass trigger(&manager, c.detectable);
        EXPECT_EQ(trigger.getTargetPass(), c.target);
        games::PassTracker tracker;
        tracker.getPassProperty().addListener(
            std::shared_ptr<core::RenderEffectOnPass>(&trigger, [](auto*) {}));
        // Passes in frame order: only the target's draws.
        for (Pass pass : {Pass::shadow, Pass::main_color, Pass::ui, Pass::end})
            EXPECT_EQ(draws(tracker, pass), pass == c.target) << games::toString(pass);
    }
}

}  // namespace
