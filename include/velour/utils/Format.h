#pragma once

#include <string>

namespace velour::utils {

// printf into a buffer of the calling thread, grown to fit. The result stays
// valid until the same thread's next call.
const char* formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

// A duration for people: five characters of number, then a two-character unit
// ("ns", "us", "ms" or "s "), so that columns line up.
std::string ns2string(unsigned long long ns);

}  // namespace velour::utils
