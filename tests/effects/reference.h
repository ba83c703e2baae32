#pragma once

// The effects computed on the CPU, step by step as their shaders do, from the
// same 8-bit input. Rows run bottom-up, as in GL.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tessel::test {

struct Rgba {
    float r, g, b, a;
};

struct Image {
    int width = 0, height = 0;
    std::vector<Rgba> pixels;
    Rgba at(int x, int y) const;  // clamped to the edge, as the shaders read
};

// Which form of an effect: with the neighbourhood (copied frame) or the
// per-pixel form of the fetch variants.
enum class Form { Copy, Fetch };

// The effect `name` at pixel (x, y) with the given uniforms; the noisy
// effects with their random terms off.
Rgba reference(const std::string& name, Form form, const Image& frame, int x, int y,
               const std::map<std::string, float>& uniforms);

}  // namespace tessel::test
