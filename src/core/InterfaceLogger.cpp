#include "core/InterfaceLogger.h"

#include <cstring>
#include <string_view>

#include "platform/paths.h"

namespace velour::core {

InterfaceLogger g_interfaceLogger;

size_t InterfaceLogger::TextHash::operator()(const char* text) const {
    return std::hash<std::string_view>()(text);
}

bool InterfaceLogger::TextEqual::operator()(const char* a, const char* b) const {
    return std::strcmp(a, b) == 0;
}

InterfaceLogger::InterfaceLogger() : path("/data/local/tmp/orlo/interface_log.txt") {
    seenCalls.max_load_factor(1.0f);
}

void InterfaceLogger::init() {
    std::lock_guard<std::mutex> lock(mutex);
    if (stream.is_open()) stream.close();
    stream.clear();
    stream.open(platform::devicePath(path), std::ios::out | std::ios::trunc);
}

void InterfaceLogger::logCall(const char* name) {
    if (name == nullptr) return;
    std::lock_guard<std::mutex> lock(mutex);
    if (!seenCalls.insert(name).second) return;
    stream << name << '\n';
    stream.flush();
}

}  // namespace velour::core
