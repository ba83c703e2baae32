#include "effects.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <stdexcept>

#include "velour/utils/JsonParserBase.h"

namespace tessel {

using velour::styles::ShaderFramebufferType;

namespace {

const char VERTEX_SHADER[] = R"(#version 320 es
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec2 aTexCoord;
out vec2 vTexCoord;
void main() {
    vTexCoord = aTexCoord;
    gl_Position = vec4(aPosition, 1.0);
}
)";

// How each variant reads the frame. The copy is the size of the framebuffer,
// so the pixel under the fragment is at gl_FragCoord in both ways, and a
// per-pixel effect gives the same picture by either.
const char COPY_PRELUDE[] = R"(#version 320 es
precision highp float;
precision highp int;
#define FRAME_NEIGHBOURS 1
uniform highp sampler2D uFrame;
layout(location = 0) out vec4 fragColor;
vec4 frameAt(ivec2 offset) {
    ivec2 p = clamp(ivec2(gl_FragCoord.xy) + offset, ivec2(0), textureSize(uFrame, 0) - 1);
    return texelFetch(uFrame, p, 0);
}
vec4 frameColor() { return frameAt(ivec2(0)); }
)";

const char EXT_FETCH_PRELUDE[] = R"(#version 320 es
#extension GL_EXT_shader_framebuffer_fetch : require
precision highp float;
precision highp int;
layout(location = 0) inout highp vec4 fragColor;
vec4 frameColor() { return fragColor; }
)";

const char ARM_FETCH_PRELUDE[] = R"(#version 320 es
#extension GL_ARM_shader_framebuffer_fetch : require
precision highp float;
precision highp int;
layout(location = 0) out vec4 fragColor;
vec4 frameColor() { return gl_LastFragColorARM; }
)";

// Helpers every effect may use, after the variant's prelude.
const char COMMON[] = R"(in vec2 vTexCoord;
float luma(vec3 c) { return dot(c, vec3(0.2126, 0.7152, 0.0722)); }
// An integer hash: the same numbers on every driver and in the tests' CPU
// references, where a sine-based one would differ.
uint hash(uint x) {
    x ^= x >> 16; x *= 0x7feb352du;
    x ^= x >> 15; x *= 0x846ca68bu;
    x ^= x >> 16;
    return x;
}
// Uniform in [0, 1), 24 bits.
float random(uvec3 v) { return float(hash(v.x ^ hash(v.y ^ hash(v.z))) >> 8) / 16777216.0; }
// 1 at the centre, falling by up to `strength` towards the corners.
float vignette(float strength) {
    vec2 d = vTexCoord - 0.5;
    return 1.0 - strength * smoothstep(0.2, 0.8, 2.0 * dot(d, d));
}
#ifdef FRAME_NEIGHBOURS
// Sobel on luminance, scaled so that a black-to-white step gives 1.
float edgeStrength() {
    float tl = luma(frameAt(ivec2(-1, 1)).rgb), t = luma(frameAt(ivec2(0, 1)).rgb);
    float tr = luma(frameAt(ivec2(1, 1)).rgb), l = luma(frameAt(ivec2(-1, 0)).rgb);
    float r = luma(frameAt(ivec2(1, 0)).rgb), bl = luma(frameAt(ivec2(-1, -1)).rgb);
    float b = luma(frameAt(ivec2(0, -1)).rgb), br = luma(frameAt(ivec2(1, -1)).rgb);
    float gx = (tr + 2.0 * r + br) - (tl + 2.0 * l + bl);
    float gy = (tl + 2.0 * t + tr) - (bl + 2.0 * b + br);
    return 0.25 * length(vec2(gx, gy));
}
#else
// Without neighbours the differences across the 2x2 fragment quad stand in
// for the Sobel kernel, on the same scale. Along the seam between the
// layer's two triangles a quad's helper lanes read pixels that the other
// triangle has already drawn over: no edge is taken from such a quad.
float edgeStrength() {
    float l = luma(frameColor().rgb);
    float helper = gl_HelperInvocation ? 1.0 : 0.0;
    vec2 dl = vec2(dFdx(l), dFdy(l));
    vec2 dh = vec2(dFdx(helper), dFdy(helper));
    return dh == vec2(0.0) ? length(dl) : 0.0;
}
#endif
)";

const char MAIN[] = R"(
void main() { fragColor = effect(); }
)";

const char COLOR_INVERT[] = R"(
uniform float uStrength;
vec4 effect() {
    vec4 c = frameColor();
    return vec4(mix(c.rgb, 1.0 - c.rgb, uStrength), c.a);
}
)";

// Posterised luminance in uLevels bands, hue kept, with dark outlines where
// the luminance changes sharply.
const char CEL_SHADING[] = R"(
uniform float uLevels;
uniform float uEdgeThreshold;
uniform float uSaturation;
vec4 effect() {
    vec4 c = frameColor();
    float l = luma(c.rgb);
    float levels = max(uLevels, 1.0);
    // Each band steps up to the next over the top tenth of its range, so
    // that textures near a step do not break into ragged patches.
    float band = min(floor(l * levels), levels - 1.0);
    band += smoothstep(0.9, 1.0, l * levels - band) * step(band, levels - 2.0);
    float banded = (band + 0.5) / levels;
    vec3 color = c.rgb * (banded / max(l, 0.001));
    color = mix(vec3(banded), color, uSaturation);
    float outline = smoothstep(uEdgeThreshold, uEdgeThreshold + 0.1, edgeStrength());
    return vec4(clamp(color * (1.0 - outline), 0.0, 1.0), c.a);
}
)";

// Local contrast in linear light (each pixel pushed away from the mean of its
// surroundings), then exposure and a filmic curve that rolls the highlights
// off instead of clipping them. The fetch variants see no surroundings and
// do the tone mapping alone.
const char HDR[] = R"(
uniform float uExposure;
uniform float uLocalContrast;
uniform float uSaturation;
vec4 effect() {
    vec4 c = frameColor();
    vec3 color = c.rgb * c.rgb;
#ifdef FRAME_NEIGHBOURS
    float mean = 0.0;
    for (int y = -2; y <= 2; ++y) {
        for (int x = -2; x <= 2; ++x) {
            vec3 s = frameAt(ivec2(x, y) * 3).rgb;
            mean += luma(s * s);
        }
    }
    mean /= 25.0;
    float ratio = clamp((luma(color) + 0.01) / (mean + 0.01), 0.25, 4.0);
    color *= pow(ratio, uLocalContrast);
#endif
    color *= uExposure;
    color = (color * (2.51 * color + 0.03)) / (color * (2.43 * color + 0.59) + 0.14);
    color = sqrt(clamp(color, 0.0, 1.0));
    color = mix(vec3(luma(color)), color, uSaturation);
    return vec4(clamp(color, 0.0, 1.0), c.a);
}
)";

// Sepia, grain, scratches and the lamp's flicker of a film running at 18
// frames a second: the random parts change with each film frame.
const char OLD_MOVIE[] = R"(
uniform float uTime;
uniform float uSepia;
uniform float uGrain;
uniform float uScratches;
uniform float uFlicker;
uniform float uVignette;
vec4 effect() {
    vec4 c = frameColor();
    vec3 sepia = vec3(dot(c.rgb, vec3(0.393, 0.769, 0.189)),
                      dot(c.rgb, vec3(0.349, 0.686, 0.168)),
                      dot(c.rgb, vec3(0.272, 0.534, 0.131)));
    vec3 color = mix(c.rgb, min(sepia, 1.0), uSepia);
    uint frame = uint(uTime * 18.0);
    float flicker = 1.0 + uFlicker * (2.0 * random(uvec3(0u, 0u, frame)) - 1.0);
    float grain = uGrain * (random(uvec3(uvec2(gl_FragCoord.xy), frame)) - 0.5);
    float scratch = 0.0;
    for (uint i = 1u; i <= 3u; ++i) {
        if (random(uvec3(i, 1u, frame)) >= uScratches) continue;
        float d = abs(vTexCoord.x - random(uvec3(i, 2u, frame)));
        scratch = max(scratch, 1.0 - smoothstep(0.0, 0.002, d));
    }
    color = color * flicker + grain;
    color = mix(color, vec3(0.95, 0.9, 0.8), 0.7 * scratch);
    return vec4(clamp(color * vignette(uVignette), 0.0, 1.0), c.a);
}
)";

// Amplified light with a soft knee, sensor noise that changes 30 times a
// second, phosphor green going white in the highlights, dark edges.
const char NIGHT_VISION[] = R"(
uniform float uTime;
uniform float uGain;
uniform float uNoise;
uniform float uVignette;
vec4 effect() {
    vec4 c = frameColor();
    float l = 1.0 - exp(-uGain * luma(c.rgb));
    float noise = random(uvec3(uvec2(gl_FragCoord.xy), uint(uTime * 30.0))) - 0.5;
    l = clamp(l + uNoise * noise, 0.0, 1.0) * vignette(uVignette);
    vec3 color = vec3(0.18, 1.0, 0.3) * l + vec3(0.35 * l * l);
    return vec4(min(color, 1.0), c.a);
}
)";

// Blocks of uBlockSize pixels, each the mean of four samples spread over it so
// that thin lines do not blink in and out. The fetch variants cannot gather a
// block: they quantise the colour and darken the block grid, which keeps the
// mosaic look at the pixel's own colour.
const char PIXELIZE[] = R"(
uniform float uBlockSize;
vec4 effect() {
    int size = max(int(uBlockSize), 1);
    ivec2 pixel = ivec2(gl_FragCoord.xy);
#ifdef FRAME_NEIGHBOURS
    ivec2 corner = (pixel / size) * size - pixel;
    int near = size / 4, far = (3 * size) / 4;
    return 0.25 * (frameAt(corner + ivec2(near, near)) + frameAt(corner + ivec2(far, near)) +
                   frameAt(corner + ivec2(near, far)) + frameAt(corner + ivec2(far, far)));
#else
    vec4 c = frameColor();
    ivec2 inBlock = pixel % size;
    float grid = (inBlock.x == 0 || inBlock.y == 0) ? 0.8 : 1.0;
    return vec4(floor(c.rgb * 6.0 + 0.5) / 6.0 * grid, c.a);
#endif
}
)";

const char GAMMA_CORRECTION[] = R"(
uniform float uGamma;
vec4 effect() {
    vec4 c = frameColor();
    return vec4(pow(c.rgb, vec3(1.0 / max(uGamma, 0.1))), c.a);
}
)";

// Bright lines where the luminance changes, over a darkened picture.
const char EDGE_DETECTION[] = R"(
uniform float uThreshold;
uniform float uBackground;
vec4 effect() {
    vec4 c = frameColor();
    float edge = smoothstep(uThreshold, uThreshold + 0.2, edgeStrength());
    return vec4(mix(c.rgb * uBackground, vec3(1.0), edge), c.a);
}
)";

}  // namespace

const std::vector<Effect>& effects() {
    static const std::vector<Effect> all = {
        {"color_invert", "colorInvertConfig", false, {{"uStrength", 1.0f}}, COLOR_INVERT},
        {"cel_shading",
         "celShadingConfig",
         false,
         {{"uLevels", 4.0f}, {"uEdgeThreshold", 0.2f}, {"uSaturation", 1.2f}},
         CEL_SHADING},
        {"hdr",
         "hdrConfig",
         false,
         {{"uExposure", 0.8f}, {"uLocalContrast", 0.8f}, {"uSaturation", 1.35f}},
         HDR},
        {"old_movie",
         "oldMovieConfig",
         true,
         {{"uSepia", 0.9f},
          {"uGrain", 0.12f},
          {"uScratches", 0.5f},
          {"uFlicker", 0.06f},
          {"uVignette", 0.6f}},
         OLD_MOVIE},
        {"night_vision",
         "nightVisionConfig",
         true,
         {{"uGain", 1.6f}, {"uNoise", 0.15f}, {"uVignette", 0.7f}},
         NIGHT_VISION},
        {"pixelize", "pixelizeConfig", false, {{"uBlockSize", 8.0f}}, PIXELIZE},
        {"gamma_correction", nullptr, false, {{"uGamma", 1.4f}}, GAMMA_CORRECTION},
        {"edge_detection",
         nullptr,
         false,
         {{"uThreshold", 0.08f}, {"uBackground", 0.2f}},
         EDGE_DETECTION},
    };
    return all;
}

const Effect* findEffect(const std::string& name) {
    for (const Effect& effect : effects())
        if (name == effect.name) return &effect;
    return nullptr;
}

std::string vertexShaderSource() {
    return VERTEX_SHADER;
}

std::string fragmentShaderSource(ShaderFramebufferType type, const Effect& effect) {
    std::string source;
    switch (type) {
        case velour::styles::SHADER_FRAMEBUFFER_EXT_FETCH:
            source = EXT_FETCH_PRELUDE;
            break;
        case velour::styles::SHADER_FRAMEBUFFER_ARM_FETCH:
            source = ARM_FETCH_PRELUDE;
            break;
        default:
            source = COPY_PRELUDE;
            break;
    }
    return source + COMMON + effect.body + MAIN;
}

std::vector<Uniform> resolveParameters(const Effect& effect,
                                       const std::map<std::string, float>* section,
                                       std::vector<std::string>& unknown) {
    std::vector<Uniform> uniforms;
    for (const Parameter& parameter : effect.parameters) {
        float value = parameter.value;
        if (section) {
            const auto found = section->find(parameter.name);
            if (found != section->end() && std::isfinite(found->second)) value = found->second;
        }
        uniforms.push_back({parameter.name, value});
    }
    if (section) {
        for (const auto& entry : *section) {
            bool known = false;
            for (const Parameter& parameter : effect.parameters)
                known = known || entry.first == parameter.name;
            if (!known) unknown.push_back(entry.first);
        }
    }
    return uniforms;
}

FilterSections readFilterConfiguration(std::vector<std::string>& problems) {
    static const char UPDATED[] = "/odm/etc/tesselfx/updatedFilterConfig.dat";
    static const char SHIPPED[] = "/odm/etc/tesselfx/defaultFilterConfig.dat";
    FilterSections sections;
    velour::utils::JsonParser parser(UPDATED, SHIPPED);
    if (!parser.getRoot().is<picojson::object>()) {
        problems.push_back(std::string(SHIPPED) +
                           " missing or unreadable: the styles use their default parameters");
        return sections;
    }
    const picojson::object& root = parser.getRoot().get<picojson::object>();
    for (const Effect& effect : effects()) {
        if (!effect.configSection) continue;
        try {
            const auto found = root.find(effect.configSection);
            if (found == root.end()) throw std::runtime_error("missing");
            // The parser's own checks would create members while they look.
            if (!found->second.is<picojson::object>() || !found->second.contains("parameters") ||
                !found->second.get("parameters").is<picojson::array>())
                throw std::runtime_error("not an object with a \"parameters\" array");
            sections[effect.configSection] = parser.getUniform1fData(effect.configSection);
        } catch (const std::exception& e) {
            problems.push_back(std::string("filter configuration, section ") +
                               effect.configSection + ": " + e.what() + "; " + effect.name +
                               " uses its defaults");
        }
    }
    return sections;
}

namespace {

// Negative when the variable is unset or not a time.
float fixedTime() {
    const char* text = std::getenv("TESSEL_FIXED_TIME");
    if (!text || !*text) return -1.0f;
    char* end = nullptr;
    const float seconds = std::strtof(text, &end);
    return *end == '\0' && std::isfinite(seconds) && seconds >= 0.0f ? seconds : -1.0f;
}

}  // namespace

float effectTime() {
    static const float fixed = fixedTime();
    if (fixed >= 0.0f) return fixed;
    using Clock = std::chrono::steady_clock;
    static const Clock::time_point start = Clock::now();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    return static_cast<float>(std::fmod(seconds, 3600.0));
}

}  // namespace tessel
