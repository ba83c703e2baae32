#pragma once

#include <string>

namespace velour::utils {

// Base64 with the standard alphabet and "=" padding.
std::string base64_encode(const std::string& data);
// As above, with a line break after every 64 characters.
std::string base64_encode_pem(const std::string& data);
// As above, with a line break after every 76 characters.
std::string base64_encode_mime(const std::string& data);

// Throws std::runtime_error for a character outside the alphabet, misplaced
// padding, or a length that no encoder produces. With `remove_linebreaks`
// the line breaks of the two wrapped forms are dropped first.
std::string base64_decode(const std::string& encoded, bool remove_linebreaks = false);

// The .dat wrapper of the configuration and data files: the base64 text
// written backwards, so that the file does not read at a glance. No key, no
// other transformation, and no line breaks anywhere in the file.
std::string wrapDat(const std::string& plain);
// Throws std::runtime_error as base64_decode does.
std::string unwrapDat(const std::string& wrapped);

}  // namespace velour::utils
