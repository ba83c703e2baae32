#include "styles/RenderGuard.h"

#include <exception>

#include "core/log.h"
#include "ctrl/ctrl.h"
#include "styles/StyleManagerImpl.h"

namespace velour::styles {

namespace {

void reportFailure(StyleManager::Impl& impl, const char* message) {
    impl.failedEffect = impl.activeStyleName;
    if (!impl.reportedFailures.insert(impl.activeStyleName).second) return;
    VELOUR_LOG(core::LOG_ERROR,
               "styles: style \"%s\" cannot be drawn, skipped until the effect changes: %s",
               impl.activeStyleName.c_str(), message);
}

}  // namespace

void renderGuarded(StyleManager& manager) {
    StyleManager::Impl& impl = *manager.impl;
    if (!impl.failedEffect.empty()) {
        if (ctrl::getCurrentEffect() == impl.failedEffect) return;
        impl.failedEffect.clear();
    }
    // Shader building fails before any of the game's state is changed, so
    // there is nothing to put back here.
    try {
        manager.render();
    } catch (const std::exception& error) {
        reportFailure(impl, error.what());
    } catch (...) {
        reportFailure(impl, "unknown exception");
    }
}

}  // namespace velour::styles
