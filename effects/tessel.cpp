// libtessel.so: registers the eight styles with each style manager the layer
// creates. Parameters come from the filter configuration, read once per
// manager; anything wrong with it leaves the styles their defaults.

#include <android/log.h>

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "effects.h"
#include "velour/styles/StyleManager.h"

namespace tessel {
namespace {

using velour::styles::ShaderFramebufferType;
using velour::styles::StyleManager;

#define TESSEL_WARN(...) __android_log_print(ANDROID_LOG_WARN, "tessel", __VA_ARGS__)

class EffectStyle : public velour::styles::Style {
  public:
    EffectStyle(StyleManager* manager, const Effect& effect, std::vector<Uniform> uniforms)
        : Style(manager, effect.name), effect(effect), uniforms(std::move(uniforms)) {}

    std::string getFragmentShaderSource(ShaderFramebufferType type) override {
        return fragmentShaderSource(type, effect);
    }
    std::string getVertexShaderSource(ShaderFramebufferType) override {
        return vertexShaderSource();
    }
    // Runs every frame: the names are made once, so nothing is allocated here.
    void onPreRender() override {
        for (const Uniform& uniform : uniforms) manager->setUniform1f(uniform.name, uniform.value);
        if (effect.usesTime) manager->setUniform1f(timeName, effectTime());
    }
    bool hasFetchFramebufferSupport() const override { return true; }

  private:
    const Effect& effect;
    const std::vector<Uniform> uniforms;
    const std::string timeName = "uTime";
};

// The manager never deletes its styles and tells nobody when it goes, so
// they live as long as the library.
std::mutex stylesMutex;
std::vector<std::unique_ptr<EffectStyle>> allStyles;

}  // namespace
}  // namespace tessel

extern "C" __attribute__((visibility("default"))) void Tessel_Initialize(
    velour::styles::StyleManager* manager) {
    using namespace tessel;
    if (!manager) return;
    try {
        std::vector<std::string> problems;
        const FilterSections sections = readFilterConfiguration(problems);
        for (const std::string& problem : problems) TESSEL_WARN("%s", problem.c_str());
        std::lock_guard<std::mutex> lock(stylesMutex);
        for (const Effect& effect : effects()) {
            const std::map<std::string, float>* section = nullptr;
            if (effect.configSection) {
                const auto found = sections.find(effect.configSection);
                if (found != sections.end()) section = &found->second;
            }
            std::vector<std::string> unknown;
            std::vector<Uniform> uniforms = resolveParameters(effect, section, unknown);
            for (const std::string& name : unknown)
                TESSEL_WARN("filter configuration, section %s: no parameter %s, ignored",
                            effect.configSection, name.c_str());
            allStyles.push_back(
                std::make_unique<EffectStyle>(manager, effect, std::move(uniforms)));
            manager->addStyle(allStyles.back().get());
        }
    } catch (const std::exception& e) {
        // Never into the game: a manager without styles draws nothing.
        TESSEL_WARN("styles not registered: %s", e.what());
    }
}
