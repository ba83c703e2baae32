#include "glapp/options.h"

#include <cerrno>
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

}  // namespace glapp
