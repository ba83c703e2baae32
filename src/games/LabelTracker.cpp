#include "games/LabelTracker.h"

#include <utility>

namespace velour::games {

LabelTracker::LabelTracker(std::string name) : name(std::move(name)) {
    labels.max_load_factor(1.0f);
    objects.max_load_factor(1.0f);
}

std::string LabelTracker::labelText(int length, const char* label) {
    if (!label) return std::string();
    if (length > 0) return std::string(label, static_cast<std::size_t>(length));
    return std::string(label);
}

void LabelTracker::addLabel(const std::string& label) {
    labels.insert(label);
}

bool LabelTracker::trackObject(unsigned type, unsigned object, int length, const char* label) {
    return trackObject(type, object, labelText(length, label));
}

bool LabelTracker::trackObject(unsigned type, unsigned object, const std::string& text) {
    if (text.empty() || !wants(text)) return false;
    objects[key(type, object)] = text;
    return true;
}

void LabelTracker::trackObjectAs(unsigned type, unsigned object, const std::string& text) {
    objects[key(type, object)] = text;
}

const std::string* LabelTracker::findLabel(unsigned type, unsigned object) {
    std::lock_guard<std::mutex> lock(mutex);
    auto it = objects.find(key(type, object));
    return it == objects.end() ? nullptr : &it->second;
}

void LabelTracker::forgetObjects(unsigned type, int count, const unsigned* names) {
    if (count < 1 || !names) return;
    for (int i = 0; i < count; ++i) objects.erase(key(type, names[i]));
}

}  // namespace velour::games
