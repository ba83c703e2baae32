#include "velour/utils/Strings.h"

namespace velour::utils {

namespace {

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}
char upper(char c) {
    return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
}

}  // namespace

std::string Strings::toLowerCase(std::string text) {
    for (char& c : text) c = lower(c);
    return text;
}

std::string Strings::toUpperCase(std::string text) {
    for (char& c : text) c = upper(c);
    return text;
}

std::string Strings::replaceAll(std::string text, const std::string& from, const std::string& to) {
    if (from.empty()) return text;
    std::string::size_type pos = 0;
    while ((pos = text.find(from, pos)) != std::string::npos) {
        text.replace(pos, from.size(), to);
        pos += to.size();
    }
    return text;
}

bool Strings::equalsIgnoreCase(const std::string& a, const std::string& b) {
    if (a.size() != b.size()) return false;
    for (std::string::size_type i = 0; i < a.size(); ++i) {
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

}  // namespace velour::utils
