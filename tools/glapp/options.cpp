#include "glapp/options.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

namespace glapp {

int parseInt(const std::string& option, const char* text, int low, int high) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || value < low || value > high) {
        throw UsageError(option + " wants a whole number from " + std::to_string(low) + " to " +
                         std::to_string(high) + ", not '" + text + "'");
    }
    return static_cast<int>(value);
}

void parseSize(const std::string& option, const std::string& text, int low, int high, int* width,
               int* height) {
    const std::size_t x = text.find('x');
    if (x == std::string::npos) throw UsageError(option + " wants WxH, not '" + text + "'");
    *width = parseInt(option, text.substr(0, x).c_str(), low, high);
    *height = parseInt(option, text.substr(x + 1).c_str(), low, high);
}

bool Arguments::next() {
    while (++index < argc) {
        current = argv[index];
        if (current != "--help" && current != "-h") return true;
        help = true;
    }
    return false;
}

const char* Arguments::value() {
    if (index + 1 >= argc) throw UsageError(current + " wants a value");
    return argv[++index];
}

}  // namespace glapp
