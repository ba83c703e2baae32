#include "reference.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace tessel::test {

Rgba Image::at(int x, int y) const {
    x = std::clamp(x, 0, width - 1);
    y = std::clamp(y, 0, height - 1);
    return pixels[static_cast<size_t>(y) * width + x];
}

namespace {

struct Vec3 {
    float r, g, b;
};
Vec3 operator*(Vec3 a, float s) {
    return {a.r * s, a.g * s, a.b * s};
}
Vec3 operator*(Vec3 a, Vec3 b) {
    return {a.r * b.r, a.g * b.g, a.b * b.b};
}
Vec3 rgb(Rgba c) {
    return {c.r, c.g, c.b};
}
Vec3 splat(float v) {
    return {v, v, v};
}
template <typename F>
Vec3 each(Vec3 v, F f) {
    return {f(v.r), f(v.g), f(v.b)};
}
float clamp01(float v) {
    return std::clamp(v, 0.0f, 1.0f);
}
float mix(float a, float b, float t) {
    return a * (1.0f - t) + b * t;
}
Vec3 mix(Vec3 a, Vec3 b, float t) {
    return {mix(a.r, b.r, t), mix(a.g, b.g, t), mix(a.b, b.b, t)};
}
float dot(Vec3 a, Vec3 b) {
    return a.r * b.r + a.g * b.g + a.b * b.b;
}
float luma(Vec3 c) {
    return dot(c, {0.2126f, 0.7152f, 0.0722f});
}
float smoothstep(float e0, float e1, float x) {
    const float t = clamp01((x - e0) / (e1 - e0));
    return t * t * (3.0f - 2.0f * t);
}
struct Pixel {
    const Image& frame;
    int x, y;
    const std::map<std::string, float>& uniforms;

    Rgba at(int dx, int dy) const { return frame.at(x + dx, y + dy); }
    Rgba color() const { return at(0, 0); }
    float u() const { return (x + 0.5f) / frame.width; }
    float v() const { return (y + 0.5f) / frame.height; }
    float operator[](const char* name) const {
        const auto found = uniforms.find(name);
        if (found == uniforms.end()) throw std::invalid_argument(std::string("no uniform ") + name);
        return found->second;
    }
    float vignette(float strength) const {
        const float du = u() - 0.5f, dv = v() - 0.5f;
        return 1.0f - strength * smoothstep(0.2f, 0.8f, 2.0f * (du * du + dv * dv));
    }
    float sobel() const {
        auto l = [&](int dx, int dy) { return luma(rgb(at(dx, dy))); };
        const float gx =
            (l(1, 1) + 2.0f * l(1, 0) + l(1, -1)) - (l(-1, 1) + 2.0f * l(-1, 0) + l(-1, -1));
        const float gy =
            (l(-1, 1) + 2.0f * l(0, 1) + l(1, 1)) - (l(-1, -1) + 2.0f * l(0, -1) + l(1, -1));
        return 0.25f * std::sqrt(gx * gx + gy * gy);
    }
};

Rgba withAlpha(Vec3 c, float a) {
    return {c.r, c.g, c.b, a};
}

Rgba colorInvert(const Pixel& p, Form) {
    const Rgba c = p.color();
    return withAlpha(mix(rgb(c), each(rgb(c), [](float v) { return 1.0f - v; }), p["uStrength"]),
                     c.a);
}

Rgba gammaCorrection(const Pixel& p, Form) {
    const Rgba c = p.color();
    const float exponent = 1.0f / std::max(p["uGamma"], 0.1f);
    return withAlpha(each(rgb(c), [&](float v) { return std::pow(v, exponent); }), c.a);
}

Rgba nightVision(const Pixel& p, Form) {
    const Rgba c = p.color();
    const float l = (1.0f - std::exp(-p["uGain"] * luma(rgb(c)))) * p.vignette(p["uVignette"]);
    const Vec3 color = Vec3{0.18f, 1.0f, 0.3f} * l;
    return withAlpha(each(color, [&](float v) { return std::min(v + 0.35f * l * l, 1.0f); }), c.a);
}

Rgba oldMovie(const Pixel& p, Form) {
    const Rgba c = p.color();
    const Vec3 in = rgb(c);
    const Vec3 sepia = {dot(in, {0.393f, 0.769f, 0.189f}), dot(in, {0.349f, 0.686f, 0.168f}),
                        dot(in, {0.272f, 0.534f, 0.131f})};
    const Vec3 color = mix(in, each(sepia, [](float v) { return std::min(v, 1.0f); }), p["uSepia"]);
    return withAlpha(each(color * p.vignette(p["uVignette"]), clamp01), c.a);
}

Rgba pixelize(const Pixel& p, Form form) {
    const int size = std::max(static_cast<int>(p["uBlockSize"]), 1);
    if (form == Form::Copy) {
        const int cx = (p.x / size) * size - p.x, cy = (p.y / size) * size - p.y;
        const int near = size / 4, far = (3 * size) / 4;
        const Rgba s[] = {p.at(cx + near, cy + near), p.at(cx + far, cy + near),
                          p.at(cx + near, cy + far), p.at(cx + far, cy + far)};
        return {0.25f * (s[0].r + s[1].r + s[2].r + s[3].r),
                0.25f * (s[0].g + s[1].g + s[2].g + s[3].g),
                0.25f * (s[0].b + s[1].b + s[2].b + s[3].b),
                0.25f * (s[0].a + s[1].a + s[2].a + s[3].a)};
    }
    const Rgba c = p.color();
    const float grid = (p.x % size == 0 || p.y % size == 0) ? 0.8f : 1.0f;
    return withAlpha(
        each(rgb(c), [&](float v) { return std::floor(v * 6.0f + 0.5f) / 6.0f * grid; }), c.a);
}

Rgba hdr(const Pixel& p, Form form) {
    const Rgba c = p.color();
    Vec3 color = rgb(c) * rgb(c);
    if (form == Form::Copy) {
        float mean = 0.0f;
        for (int y = -2; y <= 2; ++y) {
            for (int x = -2; x <= 2; ++x) {
                const Vec3 s = rgb(p.at(3 * x, 3 * y));
                mean += luma(s * s);
            }
        }
        mean /= 25.0f;
        const float ratio = std::clamp((luma(color) + 0.01f) / (mean + 0.01f), 0.25f, 4.0f);
        color = color * std::pow(ratio, p["uLocalContrast"]);
    }
    color = color * p["uExposure"];
    color = each(color, [](float v) {
        return std::sqrt(clamp01((v * (2.51f * v + 0.03f)) / (v * (2.43f * v + 0.59f) + 0.14f)));
    });
    color = mix(splat(luma(color)), color, p["uSaturation"]);
    return withAlpha(each(color, clamp01), c.a);
}

// The copy form only: the fetch form's quad differences depend on the driver.
Rgba celShading(const Pixel& p, Form) {
    const Rgba c = p.color();
    const float l = luma(rgb(c));
    const float levels = std::max(p["uLevels"], 1.0f);
    float band = std::min(std::floor(l * levels), levels - 1.0f);
    band += smoothstep(0.9f, 1.0f, l * levels - band) * (band <= levels - 2.0f ? 1.0f : 0.0f);
    const float banded = (band + 0.5f) / levels;
    Vec3 color = rgb(c) * (banded / std::max(l, 0.001f));
    color = mix(splat(banded), color, p["uSaturation"]);
    const float t = p["uEdgeThreshold"];
    const float outline = smoothstep(t, t + 0.1f, p.sobel());
    return withAlpha(each(color * (1.0f - outline), clamp01), c.a);
}

Rgba edgeDetection(const Pixel& p, Form) {
    const Rgba c = p.color();
    const float t = p["uThreshold"];
    const float edge = smoothstep(t, t + 0.2f, p.sobel());
    return withAlpha(mix(rgb(c) * p["uBackground"], splat(1.0f), edge), c.a);
}

}  // namespace

Rgba reference(const std::string& name, Form form, const Image& frame, int x, int y,
               const std::map<std::string, float>& uniforms) {
    using Function = Rgba (*)(const Pixel&, Form);
    static const std::map<std::string, Function> functions = {
        {"color_invert", colorInvert},
        {"cel_shading", celShading},
        {"hdr", hdr},
        {"old_movie", oldMovie},
        {"night_vision", nightVision},
        {"pixelize", pixelize},
        {"gamma_correction", gammaCorrection},
        {"edge_detection", edgeDetection},
    };
    return functions.at(name)(Pixel{frame, x, y, uniforms}, form);
}

}  // namespace tessel::test
