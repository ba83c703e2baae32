#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "glapp/gl_program.h"
#include "labels.h"
#include "shaders.h"
#include "vecmath.h"

namespace demo {

using glapp::buildProgram;
using glapp::checkGl;
using glapp::Failure;
using glapp::uniformLocation;

namespace {

struct MeshVertex {
    float position[3];
    float normal[3];
    float uv[2];
};

constexpr int kShadowSize = 1024;
constexpr int kProbeSize = 8;  // the exposure probe: a square at the centre of the scene
constexpr int kCubeCount = 8;  // around the pillar; the pillar is the last instance
constexpr GLsizei kCubeIndices = 36;
constexpr GLsizei kGroundIndices = 6;
constexpr GLuint64 kFenceTimeoutNs = 5000000000u;
constexpr float kPi = 3.14159265358979f;
constexpr float kFramesPerSecond = 60.0f;  // animation rate, not the run's rate

const void* byteOffset(std::size_t bytes) {
    return reinterpret_cast<const void*>(static_cast<std::uintptr_t>(bytes));
}

// One quad, counter-clockwise seen from `n`; u x v must equal n.
void addFace(std::vector<MeshVertex>& vertices, std::vector<std::uint16_t>& indices, Vec3 centre,
             Vec3 n, Vec3 u, Vec3 v, float half, float uvRepeat) {
    const auto base = static_cast<std::uint16_t>(vertices.size());
    const float su[4] = {-1, 1, 1, -1}, sv[4] = {-1, -1, 1, 1};
    for (int i = 0; i < 4; ++i) {
        MeshVertex m{};
        m.position[0] = centre.x + (u.x * su[i] + v.x * sv[i]) * half;
        m.position[1] = centre.y + (u.y * su[i] + v.y * sv[i]) * half;
        m.position[2] = centre.z + (u.z * su[i] + v.z * sv[i]) * half;
        m.normal[0] = n.x;
        m.normal[1] = n.y;
        m.normal[2] = n.z;
        m.uv[0] = (su[i] + 1) * 0.5f * uvRepeat;
        m.uv[1] = (sv[i] + 1) * 0.5f * uvRepeat;
        vertices.push_back(m);
    }
    const std::uint16_t order[6] = {0, 1, 2, 0, 2, 3};
    for (std::uint16_t i : order) indices.push_back(static_cast<std::uint16_t>(base + i));
}

void checkFramebuffer(const char* name) {
    const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
    if (status != GL_FRAMEBUFFER_COMPLETE) {
        throw Failure(std::string(name) + " framebuffer incomplete (status 0x" +
                      std::to_string(status) + ")");
    }
}

bool hasExtension(const char* name) {
    GLint count = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    for (GLint i = 0; i < count; ++i) {
        const auto* e =
            reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, static_cast<GLuint>(i)));
        if (e && std::strcmp(e, name) == 0) return true;
    }
    return false;
}

// Generic attribute values stand in for the per-instance arrays on draws of
// a single object.
void setConstantInstance(const float model[16], const float color[4]) {
    for (GLuint column = 0; column < 4; ++column) glVertexAttrib4fv(3 + column, model + 4 * column);
    glVertexAttrib4fv(7, color);
}

}  // namespace

Scene::Scene(int width, int height, bool hud, int detailSize)
    : width_(width), height_(height), drawHud_(hud), detailSize_(detailSize) {
    GLint major = 0, minor = 0;
    glGetIntegerv(GL_MAJOR_VERSION, &major);
    glGetIntegerv(GL_MINOR_VERSION, &minor);
    // Float colour buffers are renderable in ES 3.2, or with the extension.
    hdr_ = major > 3 || (major == 3 && minor >= 2) || hasExtension("GL_EXT_color_buffer_float");

    for (int i = 0; i < 256; ++i) {
        sine_[i] = static_cast<std::int8_t>(std::lround(127.0 * std::sin(i * 2.0 * kPi / 256.0)));
    }

    shadowProgram_ = buildProgram("shadow", shaders::kShadowVertex, shaders::kShadowFragment);
    litProgram_ = buildProgram("lit", shaders::kLitVertex, shaders::kLitFragment);
    postProgram_ = buildProgram("post", shaders::kPostVertex, shaders::kPostFragment);
    loc_.shadowLightViewProj = uniformLocation(shadowProgram_, "uLightViewProj");
    loc_.viewProj = uniformLocation(litProgram_, "uViewProj");
    loc_.lightViewProj = uniformLocation(litProgram_, "uLightViewProj");
    loc_.sunDirection = uniformLocation(litProgram_, "uSunDirection");
    loc_.lights = uniformLocation(litProgram_, "uLights");
    loc_.emissive = uniformLocation(litProgram_, "uEmissive");
    loc_.exposure = uniformLocation(postProgram_, "uExposure");
    glUseProgram(litProgram_);
    glUniform1i(uniformLocation(litProgram_, "uShadowMap"), 0);
    glUniform1i(uniformLocation(litProgram_, "uDetail"), 1);
    glUseProgram(postProgram_);
    glUniform1i(uniformLocation(postProgram_, "uScene"), 2);

    // Static geometry: a unit cube, then the ground, in one buffer pair.
    std::vector<MeshVertex> vertices;
    std::vector<std::uint16_t> indices;
    const Vec3 px{1, 0, 0}, nx{-1, 0, 0}, py{0, 1, 0}, ny{0, -1, 0}, pz{0, 0, 1}, nz{0, 0, -1};
    auto cubeFace = [&](Vec3 n, Vec3 u, Vec3 v) {
        addFace(vertices, indices, {n.x * 0.5f, n.y * 0.5f, n.z * 0.5f}, n, u, v, 0.5f, 1.0f);
    };
    cubeFace(px, nz, py);
    cubeFace(nx, pz, py);
    cubeFace(py, px, nz);
    cubeFace(ny, px, pz);
    cubeFace(pz, px, py);
    cubeFace(nz, nx, py);
    addFace(vertices, indices, {0, 0, 0}, py, px, nz, 10.0f, 6.0f);

    glGenBuffers(1, &staticVbo_);
    glGenBuffers(1, &staticIbo_);
    glGenBuffers(1, &instanceVbo_);
    glGenVertexArrays(1, &cubeVao_);
    glGenVertexArrays(1, &plainVao_);

    // Index buffers bind to the vertex array object, so one must be bound
    // here: the default one stays free of buffers for the HUD.
    glBindVertexArray(cubeVao_);
    glBindBuffer(GL_ARRAY_BUFFER, staticVbo_);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(vertices.size() * sizeof(MeshVertex)),
                 vertices.data(), GL_STATIC_DRAW);
    glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, staticIbo_);
    glBufferData(GL_ELEMENT_ARRAY_BUFFER,
                 static_cast<GLsizeiptr>(indices.size() * sizeof(std::uint16_t)), indices.data(),
                 GL_STATIC_DRAW);
    for (GLuint vao : {cubeVao_, plainVao_}) {
        glBindVertexArray(vao);
        glBindBuffer(GL_ARRAY_BUFFER, staticVbo_);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, staticIbo_);
        const GLsizei stride = sizeof(MeshVertex);
        glEnableVertexAttribArray(0);
        glEnableVertexAttribArray(1);
        glEnableVertexAttribArray(2);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, stride,
                              byteOffset(offsetof(MeshVertex, position)));
        glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, stride,
                              byteOffset(offsetof(MeshVertex, normal)));
        glVertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, stride,
                              byteOffset(offsetof(MeshVertex, uv)));
    }
    // The cubes take their model matrix and colour per instance.
    instances_.resize(kCubeCount + 1);
    glBindVertexArray(cubeVao_);
    glBindBuffer(GL_ARRAY_BUFFER, instanceVbo_);
    glBufferData(GL_ARRAY_BUFFER, static_cast<GLsizeiptr>(instances_.size() * sizeof(Instance)),
                 nullptr, GL_DYNAMIC_DRAW);
    for (GLuint i = 0; i < 5; ++i) {
        glEnableVertexAttribArray(3 + i);
        glVertexAttribPointer(3 + i, 4, GL_FLOAT, GL_FALSE, sizeof(Instance),
                              byteOffset(i * 4 * sizeof(float)));
        glVertexAttribDivisor(3 + i, 1);
    }

    // A full-screen triangle for the post pass.
    const float triangle[6] = {-1, -1, 3, -1, -1, 3};
    glGenBuffers(1, &postVbo_);
    glGenVertexArrays(1, &postVao_);
    glBindVertexArray(postVao_);
    glBindBuffer(GL_ARRAY_BUFFER, postVbo_);
    glBufferData(GL_ARRAY_BUFFER, sizeof triangle, triangle, GL_STATIC_DRAW);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);

    // Shadow map: depth only, sampled with comparison for filtered edges.
    glGenTextures(1, &shadowDepth_);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, shadowDepth_);
    glTexStorage2D(GL_TEXTURE_2D, 1, GL_DEPTH_COMPONENT24, kShadowSize, kShadowSize);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_REF_TO_TEXTURE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_COMPARE_FUNC, GL_LEQUAL);
    glGenFramebuffers(1, &shadowFbo_);
    glBindFramebuffer(GL_FRAMEBUFFER, shadowFbo_);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_TEXTURE_2D, shadowDepth_, 0);
    const GLenum none = GL_NONE;
    glDrawBuffers(1, &none);
    glReadBuffer(GL_NONE);
    checkFramebuffer("shadow");

    // The lit scene, kept in a texture for the post pass.
    glGenTextures(1, &sceneColor_);
    glActiveTexture(GL_TEXTURE2);
    glBindTexture(GL_TEXTURE_2D, sceneColor_);
    glTexStorage2D(GL_TEXTURE_2D, 1, hdr_ ? GL_RGBA16F : GL_RGBA8, width_, height_);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glGenRenderbuffers(1, &sceneDepth_);
    glBindRenderbuffer(GL_RENDERBUFFER, sceneDepth_);
    glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width_, height_);
    glGenFramebuffers(1, &sceneFbo_);
    glBindFramebuffer(GL_FRAMEBUFFER, sceneFbo_);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, sceneColor_, 0);
    glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, sceneDepth_);
    checkFramebuffer("scene");
    glBindFramebuffer(GL_FRAMEBUFFER, 0);

    // The ground's detail texture, rewritten every frame.
    detailPixels_.resize(std::size_t(detailSize_) * detailSize_ * 4);
    glGenTextures(1, &detail_);
    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, detail_);
    updateDetailTexture(0);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, detailSize_, detailSize_, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                 detailPixels_.data());
    glGenerateMipmap(GL_TEXTURE_2D);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR_MIPMAP_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_REPEAT);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_REPEAT);

    glGenQueries(2, queries_);
    glGenBuffers(2, probePbo_);
    glGenBuffers(1, &capturePbo_);
    const GLsizeiptr probeBytes = kProbeSize * kProbeSize * 4 * (hdr_ ? 4 : 1);
    for (GLuint pbo : probePbo_) {
        glBindBuffer(GL_PIXEL_PACK_BUFFER, pbo);
        glBufferData(GL_PIXEL_PACK_BUFFER, probeBytes, nullptr, GL_STREAM_READ);
    }
    glBindBuffer(GL_PIXEL_PACK_BUFFER, capturePbo_);
    glBufferData(GL_PIXEL_PACK_BUFFER, static_cast<GLsizeiptr>(width_) * height_ * 4, nullptr,
                 GL_STREAM_READ);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);

    // The frame ends in the framebuffer the caller had bound: the screen.
    GLint screen = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &screen);
    screen_ = static_cast<GLuint>(screen);

    // Names for the engine's tools; the layer knows the game's passes by them.
    labelObject(kLabelTexture, shadowDepth_, "ShadowMap_Main");
    labelObject(kLabelTexture, sceneColor_, "SceneColor_Main");
    labelObject(kLabelTexture, detail_, "Terrain_Detail");
    labelObject(kLabelProgram, shadowProgram_, "Shadow_Caster");
    labelObject(kLabelProgram, litProgram_, "Lit_Material");
    labelObject(kLabelProgram, postProgram_, "Post_Tonemap");

    hud_ = std::make_unique<Hud>();
    checkGl("scene set-up");
}

Scene::~Scene() {
    hud_.reset();
    if (fence_) glDeleteSync(fence_);
    glDeleteBuffers(1, &capturePbo_);
    glDeleteBuffers(2, probePbo_);
    glDeleteQueries(2, queries_);
    glDeleteTextures(1, &detail_);
    glDeleteFramebuffers(1, &sceneFbo_);
    glDeleteRenderbuffers(1, &sceneDepth_);
    glDeleteTextures(1, &sceneColor_);
    glDeleteFramebuffers(1, &shadowFbo_);
    glDeleteTextures(1, &shadowDepth_);
    glDeleteVertexArrays(1, &postVao_);
    glDeleteVertexArrays(1, &plainVao_);
    glDeleteVertexArrays(1, &cubeVao_);
    glDeleteBuffers(1, &postVbo_);
    glDeleteBuffers(1, &instanceVbo_);
    glDeleteBuffers(1, &staticIbo_);
    glDeleteBuffers(1, &staticVbo_);
    glDeleteProgram(postProgram_);
    glDeleteProgram(litProgram_);
    glDeleteProgram(shadowProgram_);
}

void Scene::waitForPreviousFrame() {
    // One frame in flight: the CPU never runs more than a frame ahead.
    if (!fence_) return;
    const GLenum result = glClientWaitSync(fence_, GL_SYNC_FLUSH_COMMANDS_BIT, kFenceTimeoutNs);
    glDeleteSync(fence_);
    fence_ = nullptr;
    if (result == GL_TIMEOUT_EXPIRED) throw Failure("the previous frame did not finish in 5 s");
    if (result == GL_WAIT_FAILED) throw Failure("glClientWaitSync failed");
}

void Scene::collectPreviousResults(int frame, bool capture) {
    if (!previousPlayed_) return;
    // Blocking reads of last frame's results, never availability polls: what
    // the frame shows must not depend on timing. The query's answer only
    // shows in the HUD, so it is read for captured frames alone: a game does
    // not stall its pipeline every frame for a result.
    const int previous = (frame - 1) % 2;
    if (capture) {
        GLuint anySamples = 0;
        glGetQueryObjectuiv(queries_[previous], GL_QUERY_RESULT, &anySamples);
        targetVisible_ = anySamples != 0;
    }

    constexpr int kTexels = kProbeSize * kProbeSize;
    float rgba[kTexels * 4];
    glBindBuffer(GL_PIXEL_PACK_BUFFER, probePbo_[previous]);
    const GLsizeiptr bytes = kTexels * 4 * (hdr_ ? 4 : 1);
    const void* mapped = glMapBufferRange(GL_PIXEL_PACK_BUFFER, 0, bytes, GL_MAP_READ_BIT);
    if (!mapped) throw Failure("cannot map the exposure probe buffer");
    if (hdr_) {
        std::memcpy(rgba, mapped, sizeof rgba);
    } else {
        const auto* bytesIn = static_cast<const std::uint8_t*>(mapped);
        for (int i = 0; i < kTexels * 4; ++i) rgba[i] = bytesIn[i] / 255.0f;
    }
    const GLboolean intact = glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    if (!intact) throw Failure("exposure probe buffer lost while mapped");

    float luminance = 0;
    for (int i = 0; i < kTexels; ++i) {
        luminance += 0.2126f * rgba[4 * i] + 0.7152f * rgba[4 * i + 1] + 0.0722f * rgba[4 * i + 2];
    }
    luminance /= kTexels;
    const float target = std::clamp(0.3f / std::max(luminance, 0.05f), 0.4f, 2.0f);
    exposure_ += (target - exposure_) * 0.15f;
}

void Scene::updateDetailTexture(int frame) {
    // Integer ripples over stone tiles; unsigned arithmetic wraps the phase.
    const auto f = static_cast<unsigned>(frame);
    for (unsigned y = 0; y < unsigned(detailSize_); ++y) {
        for (unsigned x = 0; x < unsigned(detailSize_); ++x) {
            const int wave = sine_[(x * 8 + f * 5) & 255u] + sine_[(y * 8 - f * 3) & 255u] +
                             sine_[((x + y) * 4 + f * 2) & 255u];
            int stone = ((x / 16 + y / 16) & 1u) ? 205 : 175;
            if (x % 16 == 0 || y % 16 == 0) stone = 95;
            std::uint8_t* p = &detailPixels_[(y * unsigned(detailSize_) + x) * 4];
            p[0] = static_cast<std::uint8_t>(std::clamp(stone + wave / 10, 0, 255));
            p[1] = static_cast<std::uint8_t>(std::clamp(stone + wave / 8, 0, 255));
            p[2] = static_cast<std::uint8_t>(std::clamp(stone + wave / 5, 0, 255));
            p[3] = 255;
        }
    }
}

void Scene::updateInstances(float t) {
    static const float kPalette[kCubeCount][3] = {
        {0.9f, 0.3f, 0.25f},  {0.3f, 0.75f, 0.35f}, {0.3f, 0.45f, 0.9f}, {0.95f, 0.75f, 0.25f},
        {0.7f, 0.35f, 0.85f}, {0.25f, 0.8f, 0.8f},  {0.9f, 0.55f, 0.3f}, {0.85f, 0.85f, 0.9f}};
    int cube = 0;
    for (int gz = -1; gz <= 1; ++gz) {
        for (int gx = -1; gx <= 1; ++gx) {
            if (gx == 0 && gz == 0) continue;
            const float phase = static_cast<float>(cube);
            const Mat4 model =
                translate(gx * 3.4f, 0.75f + 0.3f * std::sin(2 * t + phase), gz * 3.4f) *
                rotateY(t * (0.5f + 0.15f * phase) + phase);
            Instance& in = instances_[static_cast<std::size_t>(cube)];
            std::memcpy(in.model, model.m, sizeof in.model);
            in.color[0] = kPalette[cube][0];
            in.color[1] = kPalette[cube][1];
            in.color[2] = kPalette[cube][2];
            in.color[3] = 0.25f;
            ++cube;
        }
    }
    Instance& pillar = instances_[kCubeCount];
    std::memcpy(pillar.model, (translate(0, 2, 0) * scale(1.6f, 4, 1.6f)).m, sizeof pillar.model);
    const float stoneColor[4] = {0.72f, 0.68f, 0.62f, 0.6f};
    std::memcpy(pillar.color, stoneColor, sizeof stoneColor);

    // The whole buffer is rewritten, so the old contents may be dropped
    // rather than waited for.
    glBindBuffer(GL_ARRAY_BUFFER, instanceVbo_);
    const auto bytes = static_cast<GLsizeiptr>(instances_.size() * sizeof(Instance));
    void* mapped = glMapBufferRange(GL_ARRAY_BUFFER, 0, bytes,
                                    GL_MAP_WRITE_BIT | GL_MAP_INVALIDATE_BUFFER_BIT);
    if (!mapped) throw Failure("cannot map the instance buffer");
    std::memcpy(mapped, instances_.data(), static_cast<std::size_t>(bytes));
    if (!glUnmapBuffer(GL_ARRAY_BUFFER)) throw Failure("instance buffer lost while mapped");
    glBindBuffer(GL_ARRAY_BUFFER, 0);

    // The target circles the pillar and passes behind it as seen from the camera.
    const float angle = 1.4f * t + 1.75f;
    const Mat4 target = translate(1.9f * std::sin(angle), 1.0f, 1.9f * std::cos(angle)) *
                        rotateY(3 * t) * rotateX(2 * t) * scale(0.45f, 0.45f, 0.45f);
    std::memcpy(targetModel_, target.m, sizeof targetModel_);
}

void Scene::drawScene(bool mainPass, int frame) {
    static const float kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    static const float kGroundColor[4] = {0.62f, 0.64f, 0.56f, 1.0f};
    static const float kTargetColor[4] = {1.0f, 0.8f, 0.2f, 0.0f};

    glBindVertexArray(plainVao_);
    setConstantInstance(kIdentity, kGroundColor);
    glDrawElements(GL_TRIANGLES, kGroundIndices, GL_UNSIGNED_SHORT,
                   byteOffset(kCubeIndices * sizeof(std::uint16_t)));

    glBindVertexArray(cubeVao_);
    glDrawElementsInstanced(GL_TRIANGLES, kCubeIndices, GL_UNSIGNED_SHORT, nullptr,
                            static_cast<GLsizei>(instances_.size()));

    // Drawn last so that the query sees the rest of the scene's depth.
    glBindVertexArray(plainVao_);
    setConstantInstance(targetModel_, kTargetColor);
    if (mainPass) {
        glUniform1f(loc_.emissive, 1.3f);
        glBeginQuery(GL_ANY_SAMPLES_PASSED, queries_[frame % 2]);
    }
    glDrawElements(GL_TRIANGLES, kCubeIndices, GL_UNSIGNED_SHORT, nullptr);
    if (mainPass) {
        glEndQuery(GL_ANY_SAMPLES_PASSED);
        glUniform1f(loc_.emissive, 0.0f);
    }
    glBindVertexArray(0);
}

void Scene::renderFrame(int frame, bool capture, bool lobby) {
    waitForPreviousFrame();
    if (lobby) {
        previousPlayed_ = false;
        glBindFramebuffer(GL_FRAMEBUFFER, screen_);
        glViewport(0, 0, width_, height_);
        glClearColor(0.1f, 0.12f, 0.2f, 1.0f);
        glClear(GL_COLOR_BUFFER_BIT);
        hud_->drawLobby(width_, height_, frame);
        finishFrame(capture);
        return;
    }
    collectPreviousResults(frame, capture);
    previousPlayed_ = true;
    const float t = static_cast<float>(frame - 1) / kFramesPerSecond;

    glActiveTexture(GL_TEXTURE1);
    glBindTexture(GL_TEXTURE_2D, detail_);
    updateDetailTexture(frame);
    glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, detailSize_, detailSize_, GL_RGBA, GL_UNSIGNED_BYTE,
                    detailPixels_.data());
    glGenerateMipmap(GL_TEXTURE_2D);
    updateInstances(t);

    const Vec3 sun = normalize({0.45f, 1.0f, 0.35f});
    const Mat4 lightViewProj = ortho(-13, 13, -13, 13, 1, 40) *
                               lookAt({sun.x * 18, sun.y * 18, sun.z * 18}, {0, 0, 0}, {0, 1, 0});
    const float swing = 0.35f * std::sin(0.5f * t);
    const Mat4 viewProj =
        perspective(50 * kPi / 180, static_cast<float>(width_) / height_, 0.5f, 60) *
        lookAt({11 * std::sin(swing), 5.5f, 11 * std::cos(swing)}, {0, 1, 0}, {0, 1, 0});

    // Shadow pass.
    glBindFramebuffer(GL_FRAMEBUFFER, shadowFbo_);
    glViewport(0, 0, kShadowSize, kShadowSize);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    glEnable(GL_POLYGON_OFFSET_FILL);
    glPolygonOffset(2.0f, 4.0f);
    glClear(GL_DEPTH_BUFFER_BIT);
    glUseProgram(shadowProgram_);
    glUniformMatrix4fv(loc_.shadowLightViewProj, 1, GL_FALSE, lightViewProj.m);
    drawScene(false, frame);
    glDisable(GL_POLYGON_OFFSET_FILL);

    // Lit pass.
    glBindFramebuffer(GL_FRAMEBUFFER, sceneFbo_);
    glViewport(0, 0, width_, height_);
    glClearColor(0.35f, 0.5f, 0.75f, 1.0f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_CULL_FACE);
    glUseProgram(litProgram_);
    glUniformMatrix4fv(loc_.viewProj, 1, GL_FALSE, viewProj.m);
    glUniformMatrix4fv(loc_.lightViewProj, 1, GL_FALSE, lightViewProj.m);
    glUniform3f(loc_.sunDirection, sun.x, sun.y, sun.z);
    static const float kLightColors[4][3] = {
        {1.0f, 0.3f, 0.2f}, {0.2f, 1.0f, 0.4f}, {0.3f, 0.4f, 1.0f}, {1.0f, 0.7f, 0.2f}};
    float lights[8][4];
    for (int i = 0; i < 4; ++i) {
        const float a = 0.8f * t + i * kPi / 2;
        lights[2 * i][0] = 4.8f * std::sin(a);
        lights[2 * i][1] = 1.3f;
        lights[2 * i][2] = 4.8f * std::cos(a);
        lights[2 * i][3] = 6.0f;
        std::memcpy(lights[2 * i + 1], kLightColors[i], sizeof kLightColors[i]);
        lights[2 * i + 1][3] = 1.4f;
    }
    glUniform4fv(loc_.lights, 8, &lights[0][0]);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, shadowDepth_);
    drawScene(true, frame);
    glDisable(GL_CULL_FACE);
    glDisable(GL_DEPTH_TEST);

    // Exposure probe, mapped next frame once the fence has passed.
    glBindBuffer(GL_PIXEL_PACK_BUFFER, probePbo_[frame % 2]);
    glReadPixels((width_ - kProbeSize) / 2, (height_ - kProbeSize) / 2, kProbeSize, kProbeSize,
                 GL_RGBA, hdr_ ? GL_FLOAT : GL_UNSIGNED_BYTE, nullptr);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);

    // Post pass.
    glBindFramebuffer(GL_FRAMEBUFFER, screen_);
    glViewport(0, 0, width_, height_);
    glUseProgram(postProgram_);
    glUniform1f(loc_.exposure, exposure_);
    glActiveTexture(GL_TEXTURE2);
    glBindTexture(GL_TEXTURE_2D, sceneColor_);
    glBindVertexArray(postVao_);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBindVertexArray(0);

    glBindFramebuffer(GL_FRAMEBUFFER, screen_);
    if (drawHud_)
        hud_->draw(width_, height_, frame, 0.55f + 0.4f * std::sin(2.2f * t), targetVisible_);
    if (overlay_) overlay_();
    finishFrame(capture);
}

void Scene::finishFrame(bool capture) {
    if (capture) {
        glBindBuffer(GL_PIXEL_PACK_BUFFER, capturePbo_);
        glReadPixels(0, 0, width_, height_, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    }
    fence_ = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
    if (!fence_) throw Failure("glFenceSync failed");
}

std::vector<std::uint8_t> Scene::readCapture() {
    const std::size_t bytes =
        static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4;
    std::vector<std::uint8_t> pixels(bytes);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, capturePbo_);
    const void* mapped =
        glMapBufferRange(GL_PIXEL_PACK_BUFFER, 0, static_cast<GLsizeiptr>(bytes), GL_MAP_READ_BIT);
    if (!mapped) throw Failure("cannot map the screenshot buffer");
    std::memcpy(pixels.data(), mapped, bytes);
    const GLboolean intact = glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    if (!intact) throw Failure("screenshot buffer lost while mapped");
    return pixels;
}

}  // namespace demo
