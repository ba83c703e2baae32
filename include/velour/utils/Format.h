#pragma once

#include <cstdarg>
#include <string>
#include <vector>

namespace velour::utils {

// printf into a buffer of the calling thread, grown to fit. The result stays
// valid until the same thread's next call.
const char* formatString(const char* format, ...) __attribute__((format(printf, 1, 2)));

// vprintf into `buffer`, grown when the text does not fit; never shrunk, so
// that a reused buffer stops allocating. On a failure it keeps what it holds.
void formatInto(std::vector<char>& buffer, const char* format, va_list args);

// A duration for people: five characters of number, then a two-character unit
// ("ns", "us", "ms" or "s "), so that columns line up.
std::string ns2string(unsigned long long ns);

}  // namespace velour::utils
