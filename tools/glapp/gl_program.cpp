#include "glapp/gl_program.h"

#include <vector>

namespace glapp {

const char* glErrorName(GLenum error) {
    switch (error) {
        case GL_INVALID_ENUM:
            return "GL_INVALID_ENUM";
        case GL_INVALID_VALUE:
            return "GL_INVALID_VALUE";
        case GL_INVALID_OPERATION:
            return "GL_INVALID_OPERATION";
        case GL_INVALID_FRAMEBUFFER_OPERATION:
            return "GL_INVALID_FRAMEBUFFER_OPERATION";
        case GL_OUT_OF_MEMORY:
            return "GL_OUT_OF_MEMORY";
        default:
            return "unknown GL error";
    }
}

void checkGl(const char* where) {
    std::string errors;
    // A bounded loop: a lost context may report errors forever.
    for (int i = 0; i < 16; ++i) {
        const GLenum e = glGetError();
        if (e == GL_NO_ERROR) break;
        if (!errors.empty()) errors += ", ";
        errors += glErrorName(e);
    }
    if (!errors.empty()) throw Failure(std::string(where) + ": " + errors);
}

namespace {

// The info log of a shader or a program, read with the matching pair of
// query functions.
std::string infoLog(GLuint object, void (*getiv)(GLuint, GLenum, GLint*),
                    void (*getLog)(GLuint, GLsizei, GLsizei*, GLchar*)) {
    GLint length = 0;
    getiv(object, GL_INFO_LOG_LENGTH, &length);
    std::vector<char> log(static_cast<std::size_t>(length > 1 ? length : 1), '\0');
    getLog(object, static_cast<GLsizei>(log.size()), nullptr, log.data());
    return log.data();
}

GLuint compile(const char* name, GLenum type, const char* source) {
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &source, nullptr);
    glCompileShader(shader);
    GLint ok = GL_FALSE;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (ok != GL_TRUE) {
        const std::string log = infoLog(shader, glGetShaderiv, glGetShaderInfoLog);
        glDeleteShader(shader);
        throw Failure(std::string(name) + (type == GL_VERTEX_SHADER ? " vertex" : " fragment") +
                      " shader does not compile: " + log);
    }
    return shader;
}

}  // namespace

GLuint buildProgram(const char* name, const char* vertexSource, const char* fragmentSource) {
    const GLuint vs = compile(name, GL_VERTEX_SHADER, vertexSource);
    const GLuint fs = compile(name, GL_FRAGMENT_SHADER, fragmentSource);
    const GLuint program = glCreateProgram();
    glAttachShader(program, vs);
    glAttachShader(program, fs);
    glLinkProgram(program);
    glDeleteShader(vs);
    glDeleteShader(fs);
    GLint ok = GL_FALSE;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    if (ok != GL_TRUE) {
        const std::string log = infoLog(program, glGetProgramiv, glGetProgramInfoLog);
        glDeleteProgram(program);
        throw Failure(std::string(name) + " program does not link: " + log);
    }
    return program;
}

GLint uniformLocation(GLuint program, const char* name) {
    const GLint location = glGetUniformLocation(program, name);
    if (location < 0) throw Failure(std::string("shader has no uniform ") + name);
    return location;
}

}  // namespace glapp
