#include "drv/Shader.h"

#include <cstdio>
#include <stdexcept>

namespace velour::drv {

namespace {

// "(  1) : " before each line, so that the compiler's line numbers can be read
// against the text.
std::string numberLines(const std::string& source) {
    std::string numbered = "(  1) : ";
    int line = 1;
    for (char c : source) {
        if (c != '\n') {
            numbered += c;
            continue;
        }
        char prefix[32];
        std::snprintf(prefix, sizeof prefix, "\n(%3d) : ", ++line);
        numbered += prefix;
    }
    return numbered;
}

}  // namespace

void Shader::open() {
    if (opened) return;
    name = drv::glCreateShader(shaderType);
    opened = true;
}

void Shader::close() {
    if (!opened) return;
    drv::glDeleteShader(name);
    name = 0xFFFFFFFFu;
    opened = false;
}

void Shader::compile() {
    open();
    const GLchar* text = source.data();
    const GLint length = static_cast<GLint>(source.size());
    drv::glShaderSource(name, 1, &text, &length);
    drv::glCompileShader(name);
    GLint status = 0;
    drv::glGetShaderiv(name, GL_COMPILE_STATUS, &status);
    if (status) return;
    char log[512] = {};
    GLsizei logLength = 0;
    drv::glGetShaderInfoLog(name, sizeof log, &logLength, log);
    throw std::invalid_argument(std::string("src/drv/Shader: ") +
                                std::string(log, logLength > 0 ? logLength : 0) + "\n" +
                                numberLines(source) + "\n");
}

}  // namespace velour::drv
