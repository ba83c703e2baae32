#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace velour::games {

// The debug labels a game's rules want, and the GL objects the game gave one
// of them. Shared by the hooks of all contexts of a game: trackObject,
// trackObjectAs and forgetObjects are called with `mutex` held; findLabel
// takes it itself.
class LabelTracker {
  public:
    explicit LabelTracker(std::string name);

    // The text of a glLabelObjectEXT label: `length` bytes when above 0, else
    // up to the terminator; null or empty gives "".
    static std::string labelText(int length, const char* label);
    // Object type in the low half, name in the high half.
    static std::uint64_t key(unsigned type, unsigned object) {
        return static_cast<std::uint64_t>(object) << 32 | type;
    }

    void addLabel(const std::string& label);
    bool wants(const std::string& text) const { return labels.count(text) != 0; }
    // Tracks the object when its label is one of the wanted ones; true then.
    bool trackObject(unsigned type, unsigned object, int length, const char* label);
    bool trackObject(unsigned type, unsigned object, const std::string& text);
    void trackObjectAs(unsigned type, unsigned object, const std::string& text);
    // The stored label, or null.
    const std::string* findLabel(unsigned type, unsigned object);
    void forgetObjects(unsigned type, int count, const unsigned* names);

    const std::string& getName() const { return name; }

    std::mutex mutex;

  private:
    std::unordered_set<std::string> labels;
    std::unordered_map<std::uint64_t, std::string> objects;
    std::string name;
};

}  // namespace velour::games
