// The game frame: shadow pass, lit main pass, post pass and HUD.
#pragma once

#include <GLES3/gl32.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "hud.h"

namespace demo {

class Scene {
  public:
    // Needs a current ES 3 context; throws Failure when a resource cannot be made.
    // detailSize: the side of the ground's detail texture, uploaded each frame.
    Scene(int width, int height, bool hud = true, int detailSize = 64);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    // Renders frame `frame` (counted from 1) into the default framebuffer:
    // the game in play, or with `lobby` its menu. Everything animated depends
    // on `frame` alone. With `capture`, the finished image is also read into
    // the screenshot pack buffer.
    void renderFrame(int frame, bool capture, bool lobby = false);

    // The last captured image: RGBA, bottom row first.
    std::vector<std::uint8_t> readCapture();

    bool hdr() const { return hdr_; }

    // Drawn after the HUD in each frame of play.
    void setOverlay(std::function<void()> overlay) { overlay_ = std::move(overlay); }

  private:
    struct Instance {
        float model[16];
        float color[4];
    };

    void waitForPreviousFrame();
    void collectPreviousResults(int frame, bool capture);
    void updateDetailTexture(int frame);
    void updateInstances(float t);
    void drawScene(bool withQuery, int frame);
    // The capture, if wanted, and the fence the next frame waits for.
    void finishFrame(bool capture);

    int width_, height_;
    bool drawHud_;
    bool hdr_ = false;

    GLuint staticVbo_ = 0, staticIbo_ = 0, instanceVbo_ = 0, postVbo_ = 0;
    GLuint cubeVao_ = 0, plainVao_ = 0, postVao_ = 0;
    GLuint shadowProgram_ = 0, litProgram_ = 0, postProgram_ = 0;
    GLuint shadowDepth_ = 0, shadowFbo_ = 0;
    GLuint sceneColor_ = 0, sceneDepth_ = 0, sceneFbo_ = 0;
    GLuint detail_ = 0;
    GLuint queries_[2] = {0, 0};
    GLuint probePbo_[2] = {0, 0};
    GLuint capturePbo_ = 0;
    GLuint screen_ = 0;
    GLsync fence_ = nullptr;

    struct {
        GLint shadowLightViewProj, viewProj, lightViewProj, sunDirection, lights, emissive,
            exposure;
    } loc_{};

    std::vector<Instance> instances_;
    int detailSize_;
    std::vector<std::uint8_t> detailPixels_;
    std::int8_t sine_[256] = {};
    float exposure_ = 1.0f;
    bool targetVisible_ = true;
    // The last frame drew the game, so its query and probe hold results.
    bool previousPlayed_ = false;
    // What the per-frame uniforms need from updateInstances().
    float targetModel_[16] = {};
    std::unique_ptr<Hud> hud_;
    std::function<void()> overlay_;
};

}  // namespace demo
