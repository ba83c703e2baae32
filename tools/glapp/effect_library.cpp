#include "glapp/effect_library.h"

#include <EGL/egl.h>
#include <GLES3/gl32.h>
#include <dlfcn.h>

#include <cstring>

namespace glapp {
namespace {

bool g_hideFetch = false;

const GLubyte* GL_APIENTRY hidingGetStringi(GLenum name, GLuint index) {
    const GLubyte* text = glGetStringi(name, index);
    if (g_hideFetch && name == GL_EXTENSIONS && text &&
        std::strstr(reinterpret_cast<const char*>(text), "shader_framebuffer_fetch"))
        return reinterpret_cast<const GLubyte*>("GL_VELOUR_hidden_extension");
    return text;
}

}  // namespace

void hideFramebufferFetch(bool hide) {
    g_hideFetch = hide;
}

void* lookUpDriver(void*, const char* name) {
    if (std::strcmp(name, "glGetStringi") == 0) return reinterpret_cast<void*>(hidingGetStringi);
    return reinterpret_cast<void*>(eglGetProcAddress(name));
}

void* openEffectLibrary(const std::string& path, std::string* error) {
    void* library = dlopen(path.c_str(), RTLD_NOW);
    if (!library) {
        *error = std::string("cannot load the effect library: ") + dlerror();
        return nullptr;
    }
    void* initialize = dlsym(library, "Tessel_Initialize");
    if (!initialize) *error = path + " has no Tessel_Initialize";
    return initialize;
}

}  // namespace glapp
