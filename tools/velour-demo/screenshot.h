// PNG screenshots of the demo's frames, written through libpng.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace demo {

// Writes an 8-bit RGB image whose rows are stored bottom-up, as glReadPixels
// returns them. `rgba` holds width * height tightly packed RGBA pixels; alpha
// is dropped, as the default framebuffer's alpha is only a by-product of
// blending. Returns false and fills `error` on failure.
bool writePngFromGl(const std::string& path, int width, int height,
                    const std::vector<std::uint8_t>& rgba, std::string* error);

}  // namespace demo
