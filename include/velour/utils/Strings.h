#pragma once

#include <string>

namespace velour::utils {

// ASCII-only helpers: the texts they see are keys and GL labels, never
// user-facing prose, so locale-aware conversion would only add surprises.
class Strings {
  public:
    static std::string toLowerCase(std::string text);
    static std::string toUpperCase(std::string text);
    // Every occurrence of `from`, left to right; the replacement is not
    // searched again. An empty `from` leaves the text as it is.
    static std::string replaceAll(std::string text, const std::string& from, const std::string& to);
    static bool equalsIgnoreCase(const std::string& a, const std::string& b);
};

}  // namespace velour::utils
