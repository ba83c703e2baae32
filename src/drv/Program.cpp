#include "drv/Program.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <utility>

#include "drv/Shader.h"
#include "drv/UniformUtils.h"

namespace velour::drv {

void Program::open() {
    if (opened) return;
    name = drv::glCreateProgram();
    opened = true;
}

void Program::close() {
    if (!opened) return;
    drv::glDeleteProgram(name);
    name = 0xFFFFFFFFu;
    opened = false;
}

void Program::link(const std::vector<Shader*>& shaders) {
    open();
    for (Shader* shader : shaders) drv::glAttachShader(name, shader->getName());
    drv::glLinkProgram(name);
    for (Shader* shader : shaders) drv::glDetachShader(name, shader->getName());
    GLint status = 0;
    drv::glGetProgramiv(name, GL_LINK_STATUS, &status);
    if (status) return;
    char log[512] = {};
    GLsizei logLength = 0;
    drv::glGetProgramInfoLog(name, sizeof log, &logLength, log);
    throw std::invalid_argument(std::string("src/drv/Program(260): ") +
                                std::string(log, logLength > 0 ? logLength : 0));
}

void Program::link(const std::string& vertexSource, const std::string& fragmentSource) {
    Shader vertex, fragment;
    vertex.setShaderType(GL_VERTEX_SHADER);
    vertex.setSource(vertexSource);
    fragment.setShaderType(GL_FRAGMENT_SHADER);
    fragment.setSource(fragmentSource);
    try {
        vertex.compile();
        fragment.compile();
        link({&vertex, &fragment});
    } catch (...) {
        vertex.close();
        fragment.close();
        throw;
    }
    vertex.close();
    fragment.close();
}

void Program::use() {
    drv::glUseProgram(name);
}

GLint Program::getUniformLocation(const std::string& uniform) const {
    return drv::glGetUniformLocation(name, uniform.c_str());
}

GLint Program::getActiveUniforms() const {
    GLint count = 0;
    drv::glGetProgramiv(name, GL_ACTIVE_UNIFORMS, &count);
    return count;
}

GLint Program::getActiveUniformMaxLength() const {
    GLint length = 0;
    drv::glGetProgramiv(name, GL_ACTIVE_UNIFORM_MAX_LENGTH, &length);
    return length;
}

GLuint Program::getCurrentProgram() {
    GLint program = 0;
    drv::glGetIntegerv(GL_CURRENT_PROGRAM, &program);
    return static_cast<GLuint>(program);
}

void Program::assignUniforms(const Program& other) {
    use();
    const GLint bufferSize =
        std::max(getActiveUniformMaxLength(), other.getActiveUniformMaxLength()) + 1;
    std::string buffer(static_cast<size_t>(bufferSize), '\0');

    // Name to (type, array size) of this program's uniforms.
    std::unordered_map<std::string, std::pair<GLenum, GLint>> own;
    const GLint ownCount = getActiveUniforms();
    for (GLint i = 0; i < ownCount; ++i) {
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        drv::glGetActiveUniform(name, static_cast<GLuint>(i), bufferSize, &length, &size, &type,
                                &buffer[0]);
        own[std::string(buffer.data(), std::max(length, 0))] = {type, size};
    }

    const GLint otherCount = other.getActiveUniforms();
    for (GLint i = 0; i < otherCount; ++i) {
        GLsizei length = 0;
        GLint size = 0;
        GLenum type = 0;
        drv::glGetActiveUniform(other.name, static_cast<GLuint>(i), bufferSize, &length, &size,
                                &type, &buffer[0]);
        const std::string uniform(buffer.data(), std::max(length, 0));
        const auto found = own.find(uniform);
        if (found == own.end() || found->second != std::make_pair(type, size)) continue;
        const UniformUtils::AssignFunction assign = UniformUtils::getAssignFunction(type);
        auto copy = [&](const std::string& element) {
            const GLint location = getUniformLocation(element);
            assign(location, other.name, location);
        };
        if (size == 1) {
            copy(uniform);
            continue;
        }
        // "name[0]" loses "0]" and leaves the base with its bracket.
        const std::string base = uniform.substr(0, uniform.size() >= 2 ? uniform.size() - 2 : 0);
        for (GLint index = 0; index < size; ++index) copy(base + std::to_string(index) + "]");
    }
}

}  // namespace velour::drv
