#include "drv/GlUtils.h"

#include <cstring>
#include <fstream>
#include <string>

namespace velour::drv {

bool hasGlExtension(const char* name) {
    GLint count = 0;
    drv::glGetIntegerv(GL_NUM_EXTENSIONS, &count);
    for (GLint i = 0; i < count; ++i) {
        const auto* extension =
            reinterpret_cast<const char*>(drv::glGetStringi(GL_EXTENSIONS, static_cast<GLuint>(i)));
        if (extension && std::strcmp(extension, name) == 0) return true;
    }
    return false;
}

void dumpShaderSource(const char* path, GLsizei count, const GLchar* const* strings,
                      const GLint* lengths) {
    std::string text;
    for (GLsizei i = 0; i < count; ++i) {
        const GLchar* part = strings ? strings[i] : nullptr;
        if (part) {
            if (lengths && lengths[i] > 0)
                text.append(part, static_cast<size_t>(lengths[i]));
            else
                text.append(part);
        }
        text += '\n';
    }
    std::ofstream file(path, std::ios::binary);
    if (file) file << text;
}

}  // namespace velour::drv
