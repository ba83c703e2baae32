#include "velour/styles/Style.h"

namespace velour::styles {

Style::Style(StyleManager* manager, const std::string& name) : manager(manager), name(name) {}

Style::~Style() = default;

void Style::onPreRender() {}

bool Style::hasBinaryShader() const {
    return false;
}

std::vector<uint8_t> Style::getShaderBinary() {
    return {};
}

bool Style::hasFetchFramebufferSupport() const {
    return false;
}

}  // namespace velour::styles
