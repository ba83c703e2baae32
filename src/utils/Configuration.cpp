#include "velour/utils/Configuration.h"

#include <cstring>
#include <exception>

#include "platform/properties.h"

namespace velour::utils {

namespace {

constexpr std::size_t NAME_BUFFER_SIZE = 92;

const std::string& prefix() {
    static const std::string PREFIX("vendor.nimbo.");
    return PREFIX;
}

// Composes prefix + key in a per-thread buffer, so the game's thread, the
// worker and the log thread can read at once without a lock. A key too long
// for the buffer is cut, not refused.
const char* composeName(const std::string& key) {
    thread_local char name[NAME_BUFFER_SIZE];
    std::size_t length = 0;
    for (const std::string* part : {&prefix(), &key}) {
        std::size_t n = part->size();
        if (n > NAME_BUFFER_SIZE - 1 - length) n = NAME_BUFFER_SIZE - 1 - length;
        std::memcpy(name + length, part->data(), n);
        length += n;
    }
    name[length] = '\0';
    return name;
}

}  // namespace

Configuration& Configuration::global() {
    static Configuration instance;
    return instance;
}

std::string Configuration::gets(const std::string& key) const {
    thread_local char value[PROP_VALUE_MAX];
    value[0] = '\0';
    if (__system_property_get(composeName(key), value) == 0) return std::string();
    return std::string(value);
}

double Configuration::getf(const std::string& key) const {
    const std::string text = gets(key);
    if (text.empty()) return 0.0;
    try {
        return std::stod(text);
    } catch (const std::exception&) {
        return 0.0;
    }
}

bool Configuration::getb(const std::string& key) const {
    const std::string text = gets(key);
    return text == "1.0" || text == "1" || text == "yes" || text == "true";
}

void Configuration::sets(const std::string& key, const std::string& value) {
    (void)__system_property_set(composeName(key), value.c_str());
}

}  // namespace velour::utils
