// Passes, their names, the observable property and the tracker's book of a frame.
#include <gtest/gtest.h>

#include <sstream>
#include <vector>

#include "games/PassTracker.h"

using namespace velour;
using games::Pass;
using games::PassTracker;

namespace {

// Records each change as "old>new".
struct Recorder : utils::ChangeListener<Pass> {
    void changed(const utils::ChangeEvent<Pass>& event) override {
        seen.push_back(games::toString(*event.oldValue) + ">" + games::toString(*event.newValue));
    }
    std::vector<std::string> seen;
};

std::shared_ptr<Recorder> listen(PassTracker& tracker) {
    auto recorder = std::make_shared<Recorder>();
    tracker.getPassProperty().addListener(recorder);
    return recorder;
}

std::string print(const PassTracker& tracker) {
    std::ostringstream out;
    out << tracker;
    return out.str();
}

TEST(Pass, NamesBothWaysKeepTheirAsymmetry) {
    const std::pair<const char*, Pass> toPass[] = {
        {"", Pass::none},         {"MAIN_COLOR", Pass::main_color},
        {"Shadow", Pass::shadow}, {"end", Pass::end},
        {"none", Pass::ui},       {"no such pass", Pass::ui},
        {"simple", Pass::simple}, {"post_processing", Pass::post_processing}};
    for (auto& [name, pass] : toPass) EXPECT_EQ(games::toPass(name), pass) << name;
    EXPECT_EQ(games::toString(Pass::none), "none");
    EXPECT_EQ(games::toString(Pass::post_processing), "post_processing");
    EXPECT_EQ(games::toString(static_cast<Pass>(9)), "ui");
}

// Frames as games give them: a pass, the HUD, the end; the same pass again; a
// frame with no pass at all; a pass entered twice. Only changes are told.
TEST(PassTracker, TheBookOfAFrame) {
    PassTracker tracker;
    auto recorder = listen(tracker);
    tracker.next(Pass::shadow, 0);
    tracker.next(Pass::shadow, 9);
    tracker.next(Pass::ui, 12);
    tracker.finish(40);
    EXPECT_EQ(print(tracker), "Shadow Pass: 0 - 11\nUI Pass: 12 - 40");
    tracker.reset();
    tracker.reset();  // no second event
    EXPECT_EQ(print(tracker), "");
    EXPECT_EQ(tracker.getPassStart(), 0u);

    tracker.next(Pass::shadow, 7);
    EXPECT_EQ(print(tracker), "Shadow Pass: 7 - 4294967295");  // still open
    tracker.finish(10);
    tracker.next(Pass::end, 11);
    tracker.reset();
    tracker.finish(3);
    EXPECT_EQ(print(tracker), "Unknown Pass: 0 - 3");
    EXPECT_EQ(recorder->seen,
              (std::vector<std::string>{"none>shadow", "shadow>ui", "ui>end", "end>none",
                                        "none>shadow", "shadow>end", "end>none", "none>end"}));

    tracker.reset();
    tracker.next(Pass::main_color, 0);
    tracker.next(Pass::post_processing, 5);
    tracker.next(Pass::main_color, 8);
    EXPECT_EQ(print(tracker), "Main Color Pass: 8 - 4294967295\nPost Processing Pass: 5 - 7");
}

// A listener may take itself off the list while being told; the others are
// still told this time, since the list was copied first.
TEST(SimpleProperty, ListenersMayLeaveDuringTheEvent) {
    utils::SimpleProperty<Pass> property(nullptr, "pass", Pass::none);
    struct Leaver : utils::ChangeListener<Pass> {
        void changed(const utils::ChangeEvent<Pass>& event) override {
            ++calls;
            EXPECT_EQ(*event.property->value(), *event.newValue) << "stored before telling";
            event.property->removeListener(this);
        }
        int calls = 0;
    };
    auto leaver = std::make_shared<Leaver>();
    auto recorder = std::make_shared<Recorder>();
    property.addListener(leaver);
    property.addListener(recorder);
    property.setValue(Pass::shadow);
    property.setValue(Pass::shadow);
    property.setValue(Pass::ui);
    property.removeListener(leaver.get());  // gone already: ignored
    EXPECT_EQ(leaver->calls, 1);
    EXPECT_EQ(recorder->seen, (std::vector<std::string>{"none>shadow", "shadow>ui"}));
    EXPECT_EQ(property.name(), "pass");
}

}  // namespace
