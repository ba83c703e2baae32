#include "gles/lookup.h"

#include <cstring>

#include "core/context.h"
#include "core/render-context.h"
#include "velour/entry_points.h"

namespace velour::gles {

namespace {

bool hooksOnly() {
    unsigned mode = core::runtimeMode();
    return mode == core::MODE_HOOKS_ONLY || mode == core::MODE_INTERFACE_LOG;
}

template <typename F>
void* address(F* function) {
    return reinterpret_cast<void*>(function);
}

}  // namespace

void* getEglProcAddress(char const* name) {
    namespace simple = core::egl::simple;
    namespace deferred = core::egl::deferred;
    auto is = [name](const char* known) { return std::strcmp(name, known) == 0; };

    if (hooksOnly()) {
        if (is("eglCreateContext")) return address(&simple::createContext);
        if (is("eglDestroyContext")) return address(&simple::destroyContext);
        if (is("eglMakeCurrent")) return address(&simple::makeCurrent);
        if (is("eglSwapBuffers")) return address(&simple::swapBuffers);
        if (is("eglSwapBuffersWithDamageKHR")) return address(&simple::swapBuffersWithDamageKHR);
        if (is("eglSwapBuffersWithDamageEXT")) return address(&simple::swapBuffersWithDamageEXT);
        return nullptr;
    }
    if (is("eglCreateContext")) return address(&deferred::createContext);
    if (is("eglDestroyContext")) return address(&deferred::destroyContext);
    if (is("eglMakeCurrent")) return address(&deferred::makeCurrent);
    if (is("eglGetCurrentContext")) return address(&deferred::getCurrentContext);
    if (is("eglGetCurrentSurface")) return address(&deferred::getCurrentSurface);
    if (is("eglSwapBuffersWithDamageKHR")) return address(&deferred::swapBuffersWithDamageKHR);
    if (is("eglSwapBuffersWithDamageEXT")) return address(&deferred::swapBuffersWithDamageEXT);
    if (is("eglSwapBuffers")) return address(&deferred::swapBuffers);
    return nullptr;
}

void* getGlProcAddress(char const* name) {
    if (!hooksOnly()) return nullptr;
    return getDrawThunk(name);
}

}  // namespace velour::gles
