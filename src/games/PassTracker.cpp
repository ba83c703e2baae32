#include "games/PassTracker.h"

#include <unordered_map>

#include "velour/utils/Strings.h"

namespace velour::games {

namespace {

const std::unordered_map<std::string, Pass>& passNames() {
    static const std::unordered_map<std::string, Pass> names = [] {
        std::unordered_map<std::string, Pass> map;
        map.max_load_factor(1.0f);
        map.insert({{"", Pass::none},
                    {"simple", Pass::simple},
                    {"shadow", Pass::shadow},
                    {"main_color", Pass::main_color},
                    {"post_processing", Pass::post_processing},
                    {"ui", Pass::ui},
                    {"end", Pass::end}});
        return map;
    }();
    return names;
}

const char* printLabel(Pass pass) {
    switch (pass) {
        case Pass::shadow:
            return "Shadow Pass: ";
        case Pass::main_color:
            return "Main Color Pass: ";
        case Pass::post_processing:
            return "Post Processing Pass: ";
        case Pass::ui:
            return "UI Pass: ";
        default:
            return "Unknown Pass: ";
    }
}

}  // namespace

Pass toPass(const std::string& name) {
    auto it = passNames().find(utils::Strings::toLowerCase(name));
    return it == passNames().end() ? Pass::ui : it->second;
}

std::string toString(Pass pass) {
    switch (pass) {
        case Pass::none:
            return "none";
        case Pass::simple:
            return "simple";
        case Pass::shadow:
            return "shadow";
        case Pass::main_color:
            return "main_color";
        case Pass::post_processing:
            return "post_processing";
        case Pass::end:
            return "end";
        default:
            return "ui";
    }
}

PassTracker::PassTracker() : passProperty(this, "pass", Pass::none) {}
PassTracker::~PassTracker() = default;

void PassTracker::next(Pass pass, unsigned int draw) {
    Pass current = getPass();
    if (pass == current) return;
    if (current != Pass::none) passToTime[current].second = draw - 1;
    passStart = draw;
    passToTime[pass] = {draw, OPEN};
    passProperty.setValue(pass);
}

void PassTracker::finish(unsigned int draw) {
    passToTime[getPass()].second = draw;
    passProperty.setValue(Pass::end);
}

void PassTracker::reset() {
    passStart = 0;
    passToTime.clear();
    passProperty.setValue(Pass::none);
}

std::ostream& operator<<(std::ostream& out, const PassTracker& tracker) {
    bool first = true;
    for (const auto& [pass, span] : tracker.getPassToTime()) {
        if (!first) out << "\n" << std::flush;
        first = false;
        out << printLabel(pass) << span.first << " - " << span.second;
    }
    return out;
}

}  // namespace velour::games
