#include "labels.h"

#include <EGL/egl.h>

#include <cstring>

namespace demo {

namespace {

using LabelObject = void (*)(GLenum type, GLuint object, GLsizei length, const GLchar* label);

LabelObject resolve() {
    const auto* extensions = reinterpret_cast<const char*>(glGetString(GL_EXTENSIONS));
    if (!extensions || !std::strstr(extensions, "GL_EXT_debug_label")) return nullptr;
    return reinterpret_cast<LabelObject>(eglGetProcAddress("glLabelObjectEXT"));
}

}  // namespace

void labelObject(GLenum type, GLuint name, const char* label) {
    static const LabelObject label_ = resolve();
    if (label_) label_(type, name, 0, label);
}

}  // namespace demo
