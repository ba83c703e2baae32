// GLSL ES 3.00 sources of every pass. Attribute locations are fixed here and
// in the vertex layouts of scene.cpp and hud.cpp.
#pragma once

namespace demo::shaders {

// Locations 0-2: position, normal, texture coordinate. Locations 3-6: the
// model matrix columns, 7: colour (rgb) and detail-texture weight (a). The
// cubes feed 3-7 per instance; the ground and the target leave those arrays
// disabled and set them as constant attribute values.
#define VELOUR_DEMO_SCENE_ATTRIBUTES            \
    "layout(location = 0) in vec3 aPosition;\n" \
    "layout(location = 1) in vec3 aNormal;\n"   \
    "layout(location = 2) in vec2 aUv;\n"       \
    "layout(location = 3) in vec4 aModel0;\n"   \
    "layout(location = 4) in vec4 aModel1;\n"   \
    "layout(location = 5) in vec4 aModel2;\n"   \
    "layout(location = 6) in vec4 aModel3;\n"   \
    "layout(location = 7) in vec4 aColor;\n"

inline constexpr const char* kShadowVertex = "#version 300 es\n" VELOUR_DEMO_SCENE_ATTRIBUTES R"(
uniform mat4 uLightViewProj;
void main() {
    mat4 model = mat4(aModel0, aModel1, aModel2, aModel3);
    gl_Position = uLightViewProj * model * vec4(aPosition, 1.0);
}
)";

inline constexpr const char* kShadowFragment = R"(#version 300 es
void main() {}
)";

inline constexpr const char* kLitVertex = "#version 300 es\n" VELOUR_DEMO_SCENE_ATTRIBUTES R"(
uniform mat4 uViewProj;
uniform mat4 uLightViewProj;
out vec3 vWorld;
out vec3 vNormal;
out vec2 vUv;
out vec4 vColor;
out vec4 vShadow;
void main() {
    mat4 model = mat4(aModel0, aModel1, aModel2, aModel3);
    vec4 world = model * vec4(aPosition, 1.0);
    vWorld = world.xyz;
    // Models are rotations and axis-aligned scales, and cube normals lie on
    // the axes, so the upper 3x3 keeps their direction.
    vNormal = mat3(model) * aNormal;
    vUv = aUv;
    vColor = aColor;
    vShadow = uLightViewProj * world;
    gl_Position = uViewProj * world;
}
)";

inline constexpr const char* kLitFragment = R"(#version 300 es
precision highp float;
precision highp sampler2DShadow;
uniform sampler2DShadow uShadowMap;
uniform sampler2D uDetail;
uniform vec3 uSunDirection;
// Four point lights, two entries each: position and radius, colour and intensity.
uniform vec4 uLights[8];
uniform float uEmissive;
in vec3 vWorld;
in vec3 vNormal;
in vec2 vUv;
in vec4 vColor;
in vec4 vShadow;
out vec4 fragColor;

float sunVisibility() {
    vec3 c = vShadow.xyz / vShadow.w * 0.5 + 0.5;
    if (c.z >= 1.0) return 1.0;
    vec2 texel = 1.0 / vec2(textureSize(uShadowMap, 0));
    // Four bilinear comparisons cover a 3x3 texel footprint.
    float lit = 0.0;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x)
            lit += texture(uShadowMap, vec3(c.xy + (vec2(x, y) - 0.5) * texel, c.z - 0.003));
    return lit * 0.25;
}

void main() {
    vec3 n = normalize(vNormal);
    vec3 albedo = vColor.rgb * mix(vec3(1.0), texture(uDetail, vUv).rgb, vColor.a);
    vec3 light = vec3(0.10, 0.12, 0.18);
    light += vec3(1.3, 1.2, 1.05) * max(dot(n, uSunDirection), 0.0) * sunVisibility();
    for (int i = 0; i < 4; ++i) {
        vec3 toLight = uLights[2 * i].xyz - vWorld;
        float distance = length(toLight);
        float falloff = max(1.0 - distance / uLights[2 * i].w, 0.0);
        light += uLights[2 * i + 1].rgb * uLights[2 * i + 1].a * falloff * falloff *
                 max(dot(n, toLight / distance), 0.0);
    }
    fragColor = vec4(albedo * light + vColor.rgb * uEmissive, 1.0);
}
)";

inline constexpr const char* kPostVertex = R"(#version 300 es
layout(location = 0) in vec2 aPosition;
out vec2 vUv;
void main() {
    vUv = aPosition * 0.5 + 0.5;
    gl_Position = vec4(aPosition, 0.0, 1.0);
}
)";

inline constexpr const char* kPostFragment = R"(#version 300 es
precision highp float;
uniform sampler2D uScene;
uniform float uExposure;
in vec2 vUv;
out vec4 fragColor;
void main() {
    vec3 c = texture(uScene, vUv).rgb * uExposure;
    // Filmic curve, then a vignette darkening the corners.
    c = (c * (2.51 * c + 0.03)) / (c * (2.43 * c + 0.59) + 0.14);
    vec2 d = vUv - 0.5;
    c *= 1.0 - 0.9 * dot(d, d);
    fragColor = vec4(pow(clamp(c, 0.0, 1.0), vec3(1.0 / 2.2)), 1.0);
}
)";

// The HUDs' vertices carry a position in pixels (origin top left), a texture
// coordinate and a colour; the vertex layouts differ in where each sits.
#define VELOUR_DEMO_HUD_VERTEX_OUTPUTS                                                           \
    "uniform vec2 uViewport;\n"                                                                  \
    "out vec2 vUv;\n"                                                                            \
    "out vec4 vColor;\n"                                                                         \
    "vec4 clipFromPixels(vec2 p) {\n"                                                            \
    "    return vec4(p.x / uViewport.x * 2.0 - 1.0, 1.0 - p.y / uViewport.y * 2.0, 0.0, 1.0);\n" \
    "}\n"

inline constexpr const char* kHudVertex = "#version 300 es\n" VELOUR_DEMO_HUD_VERTEX_OUTPUTS R"(
layout(location = 0) in vec2 aPosition;
layout(location = 1) in vec2 aUv;
layout(location = 2) in vec4 aColor;
void main() {
    vUv = aUv;
    vColor = aColor;
    gl_Position = clipFromPixels(aPosition);
}
)";

// The shooter's HUD batches: 40-byte vertices with the texture coordinate at
// location 0 (byte 0), the position in pixels at location 1 (byte 24) and a
// colour at location 2 (bytes 32 to 35: red, green, opacity, blue).
inline constexpr const char* kShooterVertex = "#version 300 es\n" VELOUR_DEMO_HUD_VERTEX_OUTPUTS R"(
layout(location = 0) in vec2 aUv;
layout(location = 1) in vec2 aPosition;
layout(location = 2) in vec4 aColor;
void main() {
    vUv = aUv;
    vColor = vec4(aColor.r, aColor.g, aColor.a, aColor.b);
    gl_Position = clipFromPixels(aPosition);
}
)";

// Both HUDs: the colour, its opacity scaled by the one-channel texture.
inline constexpr const char* kHudFragment = R"(#version 300 es
precision mediump float;
uniform sampler2D uAtlas;
in vec2 vUv;
in vec4 vColor;
out vec4 fragColor;
void main() {
    fragColor = vec4(vColor.rgb, vColor.a * texture(uAtlas, vUv).r);
}
)";

#undef VELOUR_DEMO_HUD_VERTEX_OUTPUTS
#undef VELOUR_DEMO_SCENE_ATTRIBUTES

}  // namespace demo::shaders
