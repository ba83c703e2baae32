#include "screenshot.h"

#include <png.h>

#include <cstring>

namespace demo {

bool writePngFromGl(const std::string& path, int width, int height,
                    const std::vector<std::uint8_t>& rgba, std::string* error) {
    const std::size_t w = static_cast<std::size_t>(width);
    const std::size_t h = static_cast<std::size_t>(height);
    if (rgba.size() < w * h * 4) {
        *error = "screenshot buffer too small";
        return false;
    }
    // Flip to top-down and drop alpha in one pass.
    std::vector<std::uint8_t> rgb(w * h * 3);
    for (std::size_t y = 0; y < h; ++y) {
        const std::uint8_t* src = rgba.data() + (h - 1 - y) * w * 4;
        std::uint8_t* dst = rgb.data() + y * w * 3;
        for (std::size_t x = 0; x < w; ++x) {
            dst[x * 3 + 0] = src[x * 4 + 0];
            dst[x * 3 + 1] = src[x * 4 + 1];
            dst[x * 3 + 2] = src[x * 4 + 2];
        }
    }

    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    // The simplified writer adds no time stamp, so equal pixels give equal files.
    if (!png_image_write_to_file(&image, path.c_str(), 0, rgb.data(), 0, nullptr)) {
        *error = path + ": " + image.message;
        png_image_free(&image);
        return false;
    }
    return true;
}

}  // namespace demo
