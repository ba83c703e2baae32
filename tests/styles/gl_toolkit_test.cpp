// The GL objects on Mesa: uniform copy between programs.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "GlSupport.h"
#include "drv/Program.h"

namespace velour::test {
namespace {

// Explicit locations, so that the two programs lay out their shared uniforms
// alike, which is what the copy relies on.
std::string fragmentSource(const char* ownUniforms, const char* lastExtra) {
    return std::string(
               "#version 310 es\nprecision highp float;\n"
               "layout(location = 0) uniform vec4 tint;\n"
               "layout(location = 1) uniform float weights[3];\n"
               "layout(location = 8) uniform int level;\n") +
           ownUniforms +
           "out vec4 color;\n"
           "void main() { color = tint * weights[0] * weights[1] * weights[2] * "
           "float(count) * float(level) + vec4(" +
           lastExtra + "); }\n";
}

void build(drv::Program& program, const std::string& fragment) {
    program.link("#version 310 es\nvoid main() { gl_Position = vec4(0.0); }\n", fragment);
}

TEST(GlObjects, AssignUniformsCopiesLikeNamedUniformsOfTheSameTypeAndSize) {
    GlContext context(8, 8);
    drv::Program source, destination;
    build(source, fragmentSource("layout(location = 4) uniform int count;\n"
                                 "layout(location = 5) uniform float extra[2];\n",
                                 "extra[1]"));
    // `count` of another type, `extra` of another size (all elements used, so
    // the driver reports the declared sizes): neither is copied.
    build(destination, fragmentSource("layout(location = 4) uniform float count;\n"
                                      "layout(location = 5) uniform float extra[3];\n",
                                      "extra[2]"));
    glProgramUniform4f(source.getName(), 0, 0.25f, 0.5f, 0.75f, 1.0f);
    glProgramUniform1f(source.getName(), 1, 2.0f);
    glProgramUniform1f(source.getName(), 2, 3.0f);
    glProgramUniform1f(source.getName(), 3, 4.0f);
    glProgramUniform1i(source.getName(), 4, 7);
    glProgramUniform1f(source.getName(), 5, 9.0f);
    glProgramUniform1i(source.getName(), 8, 5);

    destination.assignUniforms(source);
    EXPECT_EQ(drv::Program::getCurrentProgram(), destination.getName());
    std::vector<float> copied(9);  // tint, the weights, count, extra[0]
    for (GLint location = 0; location < 6; ++location)
        glGetUniformfv(destination.getName(), location, &copied[location < 1 ? 0 : location + 3]);
    EXPECT_EQ(copied, (std::vector<float>{0.25f, 0.5f, 0.75f, 1.0f, 2.0f, 3.0f, 4.0f, 0.0f, 0.0f}));
    GLint level = 0;
    glGetUniformiv(destination.getName(), 8, &level);
    EXPECT_EQ(level, 5);
    EXPECT_EQ(glGetError(), static_cast<GLenum>(GL_NO_ERROR));
    glUseProgram(0);
    source.close();
    destination.close();
}

}  // namespace
}  // namespace velour::test
