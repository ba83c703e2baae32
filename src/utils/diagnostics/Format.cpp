#include "velour/utils/Format.h"

#include <cstdarg>
#include <cstdio>
#include <vector>

namespace velour::utils {

void formatInto(std::vector<char>& buffer, const char* format, va_list args) {
    if (buffer.empty()) buffer.resize(1);
    va_list retry;
    va_copy(retry, args);
    int length = std::vsnprintf(buffer.data(), buffer.size(), format, args);
    if (length >= 0 && static_cast<size_t>(length) >= buffer.size()) {
        buffer.resize(static_cast<size_t>(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), format, retry);
    }
    va_end(retry);
    buffer.back() = '\0';
}

const char* formatString(const char* format, ...) {
    thread_local std::vector<char> buffer(4096, '\0');
    va_list args;
    va_start(args, format);
    formatInto(buffer, format, args);
    va_end(args);
    return buffer.data();
}

std::string ns2string(unsigned long long ns) {
    char text[32];
    if (ns >= 1000000000ULL) {
        std::snprintf(text, sizeof text, "%5.1fs ", static_cast<double>(ns) / 1e9);
    } else if (ns >= 1000000ULL) {
        std::snprintf(text, sizeof text, "%5.1fms", static_cast<double>(ns) / 1e6);
    } else if (ns < 1000ULL) {
        std::snprintf(text, sizeof text, "%5lluns", ns);
    } else {
        std::snprintf(text, sizeof text, "%5.1fus", static_cast<double>(ns) / 1e3);
    }
    return text;
}

}  // namespace velour::utils
