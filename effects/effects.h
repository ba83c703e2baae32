#pragma once

// The effects of libtessel.so, apart from the layer's Style class: each
// effect is one GLSL body plus its parameters, and the three shader variants
// (copied frame, EXT fetch, ARM fetch) are assembled from that body.

#include <map>
#include <string>
#include <vector>

#include "velour/styles/Style.h"

namespace tessel {

struct Parameter {
    const char* name;  // the uniform
    float value;       // the default, used when the configuration lacks it
};

struct Effect {
    const char* name;           // the style name
    const char* configSection;  // filter configuration section, or null
    bool usesTime;              // has a uTime uniform, in seconds
    std::vector<Parameter> parameters;
    // Defines `vec4 effect()` from `vec4 frameColor()` (the pixel under the
    // fragment) and helpers of the prelude. Neighbourhood reads with
    // `frameAt(ivec2)` only under `#ifdef FRAME_NEIGHBOURS`: the fetch
    // variants can read no other pixel.
    const char* body;
};

// The eight effects, in the order of the service's effect table.
const std::vector<Effect>& effects();
// Null for an unknown name.
const Effect* findEffect(const std::string& name);

std::string vertexShaderSource();
std::string fragmentShaderSource(velour::styles::ShaderFramebufferType type, const Effect& effect);

// A uniform with its value for this process.
struct Uniform {
    std::string name;
    float value;
};

// The effect's parameters: the section's "uniform1f" entries of the filter
// configuration over the defaults. `section` is null when the configuration
// has no such section (or could not be read). Names the effect does not have
// are ignored and listed in `unknown`.
std::vector<Uniform> resolveParameters(const Effect& effect,
                                       const std::map<std::string, float>* section,
                                       std::vector<std::string>& unknown);

// The "uniform1f" entries of each effect's section of the filter configuration
// (the service's edition or the shipped one), by section name. A missing file
// or a section of the wrong shape is left out and described in `problems`,
// one line for the file or for each such section.
using FilterSections = std::map<std::string, std::map<std::string, float>>;
FilterSections readFilterConfiguration(std::vector<std::string>& problems);

// Seconds since the first call, or the fixed value of the environment
// variable TESSEL_FIXED_TIME (for reproducible pictures), wrapped at one hour
// so that the shader's float keeps its precision.
float effectTime();

}  // namespace tessel
