// The .dat wrapper of settings and data files, and the base64 under it.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "velour/utils/base64.h"

using namespace velour::utils;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    try {
        std::string plain = unwrapDat(text);
        // A wrapped file unwraps to what wrapping it gives back.
        if (unwrapDat(wrapDat(plain)) != plain) __builtin_trap();
    } catch (const std::runtime_error&) {
    }
    for (bool lineBreaks : {false, true}) {
        try {
            base64_decode(text, lineBreaks);
        } catch (const std::runtime_error&) {
        }
    }
    if (base64_decode(base64_encode_mime(text), true) != text) __builtin_trap();
    return 0;
}
