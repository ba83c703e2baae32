#pragma once

#include "velour/styles/StyleManager.h"

namespace velour::styles {

// Where the layer's drawing meets the game's call: StyleManager::render, with
// a style whose shaders the driver refuses kept from taking the game down. The
// failure is logged once with the compiler's message, and that effect draws
// nothing until the effect word changes; the game's GL state and error flag
// are left as they were.
void renderGuarded(StyleManager& manager);

}  // namespace velour::styles
