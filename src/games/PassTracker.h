#pragma once

#include <map>
#include <ostream>
#include <string>
#include <utility>

#include "velour/utils/SimpleProperty.h"

namespace velour::games {

// Where in its frame a game is, as a hook decides it.
enum class Pass : unsigned {
    none = 0,
    simple = 1,
    shadow = 2,
    main_color = 3,
    post_processing = 4,
    ui = 5,
    end = 6,
};

// Case-blind; an unknown name gives ui, and "none" is not a name here (the
// empty text is), unlike in toString.
Pass toPass(const std::string& name);
// A value outside the enumeration gives "ui".
std::string toString(Pass pass);

// The passes of the frame in progress: at which draw each began and ended,
// with listeners told at every change.
class PassTracker {
  public:
    // Marks a pass still running.
    static constexpr unsigned OPEN = ~0u;

    PassTracker();
    virtual ~PassTracker();
    PassTracker(const PassTracker&) = delete;
    PassTracker& operator=(const PassTracker&) = delete;

    // `pass` begins at draw index `draw`; the same pass again changes nothing.
    void next(Pass pass, unsigned int draw);
    // The frame ends after draw index `draw`.
    void finish(unsigned int draw);
    // Back to the state before a frame.
    void reset();

    Pass getPass() const { return *passProperty.value(); }
    unsigned getPassStart() const { return passStart; }
    const std::map<Pass, std::pair<unsigned int, unsigned int>>& getPassToTime() const {
        return passToTime;
    }
    utils::SimpleProperty<Pass>& getPassProperty() { return passProperty; }

  private:
    utils::SimpleProperty<Pass> passProperty;
    unsigned passStart = 0;
    std::map<Pass, std::pair<unsigned int, unsigned int>> passToTime;
};

// One line per pass of the frame, in pass order: "UI Pass: 12 - 40".
std::ostream& operator<<(std::ostream& out, const PassTracker& tracker);

}  // namespace velour::games
