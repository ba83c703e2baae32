// What the programs that draw the styles outside a game (the style viewer and
// the style benchmark) need: the driver handed to the layer, with the
// framebuffer-fetch extensions hidden on request so that the copy path is
// taken on a driver that has them, and the effect library's entry point.
#pragma once

#include <string>

namespace glapp {

// Whether the next look-ups of glGetStringi deny the fetch extensions.
void hideFramebufferFetch(bool hide);

// A look-up for the layer's driver table: the driver's own functions by
// eglGetProcAddress, but glGetStringi through the hiding above.
void* lookUpDriver(void* unused, const char* name);

// Tessel_Initialize of the effect library at `path`, or null with the reason
// in `error`.
void* openEffectLibrary(const std::string& path, std::string* error);

// The same, typed for the caller's style manager.
template <typename Manager>
auto effectInitializer(const std::string& path, std::string* error) {
    return reinterpret_cast<void (*)(Manager*)>(openEffectLibrary(path, error));
}

}  // namespace glapp
