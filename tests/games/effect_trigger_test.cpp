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

TEST_F(EffectTrigger, DrawsAtTheUIPassWhenTheGameCanTellIt) {
    styles::StyleManager manager;
    core::RenderEffectOnPass trigger(&manager, {Pass::end, Pass::shadow, Pass::ui});
    EXPECT_EQ(trigger.getTargetPass(), Pass::ui);
    games::PassTracker tracker;
    tracker.getPassProperty().addListener(
        std::shared_ptr<core::RenderEffectOnPass>(&trigger, [](auto*) {}));
    EXPECT_FALSE(draws(tracker, Pass::shadow));
    EXPECT_TRUE(draws(tracker, Pass::ui));
}

TEST_F(EffectTrigger, DrawsAtTheFrameEndOtherwise) {
    styles::StyleManager manager;
    core::RenderEffectOnPass trigger(&manager, {Pass::end, Pass::main_color});
    EXPECT_EQ(trigger.getTargetPass(), Pass::end);
    games::PassTracker tracker;
    tracker.getPassProperty().addListener(
        std::shared_ptr<core::RenderEffectOnPass>(&trigger, [](auto*) {}));
    EXPECT_FALSE(draws(tracker, Pass::main_color));
    EXPECT_FALSE(draws(tracker, Pass::ui)) << "not a pass this game tells";
    EXPECT_TRUE(draws(tracker, Pass::end));
    EXPECT_EQ(trigger.getTargetPass(), Pass::end);
}

}  // namespace
