#include "games/WeaponNamePattern.h"

namespace velour::games {

namespace {

// Counts beyond this many digits are refused: the expression could not be
// compiled within the library's state limit anyway.
constexpr std::size_t MAX_COUNT_DIGITS = 6;

bool hasLongCount(const std::string& counts) {
    std::size_t run = 0;
    for (char c : counts) {
        run = c == ',' ? 0 : run + 1;
        if (run > MAX_COUNT_DIGITS) return true;
    }
    return false;
}

// True when a quantifier follows a quantifier (a lazy '?' aside) or a count
// or back-reference is too long. Escapes and bracket expressions hold no quantifiers; a brace
// that is no "{n}", "{n,}" or "{n,m}" is left for the library to refuse.
bool hasStackedQuantifier(const std::string& pattern) {
    bool afterQuantifier = false;
    bool lazyTaken = false;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char c = pattern[i];
        std::size_t end = i;
        bool quantifier = c == '*' || c == '+' || c == '?';
        if (c == '{') {
            std::size_t stop = pattern.find_first_not_of("0123456789,", i + 1);
            if (stop == std::string::npos) stop = pattern.size();
            // The library reads a count into a long without a bound, even a
            // count in a brace it goes on to refuse.
            if (hasLongCount(pattern.substr(i + 1, stop - i - 1))) return true;
            quantifier = stop < pattern.size() && pattern[stop] == '}' && stop > i + 1;
            end = quantifier ? stop : i;
        }
        if (quantifier) {
            if (afterQuantifier) {
                if (c != '?' || lazyTaken) return true;
                lazyTaken = true;
                continue;
            }
            afterQuantifier = true;
            lazyTaken = false;
            i = end;
            continue;
        }
        afterQuantifier = false;
        if (c == '\\') {
            // A back-reference's number is read the same way as a count.
            std::size_t digits = pattern.find_first_not_of("0123456789", i + 1);
            if (digits == std::string::npos) digits = pattern.size();
            if (digits - i - 1 > MAX_COUNT_DIGITS) return true;
            ++i;
        } else if (c == '[') {
            std::size_t j = i + 1;
            for (; j < pattern.size() && pattern[j] != ']'; ++j)
                if (pattern[j] == '\\') ++j;
            i = j;
        }
    }
    return false;
}

}  // namespace

std::regex compileWeaponNamePattern(const std::string& pattern) {
    if (hasStackedQuantifier(pattern))
        throw std::regex_error(std::regex_constants::error_badrepeat);
    return std::regex(pattern);
}

}  // namespace velour::games
