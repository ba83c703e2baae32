#pragma once

// Reads screenshots with libpng, independently of the writers under test.
// Header-only: a suite that includes it links libpng itself.

#include <png.h>

#include <string>
#include <vector>

namespace velour::test {

struct Image {
    int width = 0, height = 0;
    std::vector<unsigned char> rgba;  // top row first

    const unsigned char* at(std::size_t i) const { return &rgba[4 * i]; }
    const unsigned char* at(int x, int y) const {
        return at(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x));
    }
};

// Empty when the file is no PNG. A failed read frees libpng's state itself.
inline Image readPng(const std::string& path) {
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&png, path.c_str())) return {};
    png.format = PNG_FORMAT_RGBA;
    Image image{static_cast<int>(png.width), static_cast<int>(png.height),
                std::vector<unsigned char>(PNG_IMAGE_SIZE(png))};
    if (!png_image_finish_read(&png, nullptr, image.rgba.data(), 0, nullptr)) return {};
    return image;
}

}  // namespace velour::test
