#pragma once

#include "drv/gl.h"

namespace velour::drv {

// Copies one uniform value from a source program into the current program:
// each function reads the value at the source location and writes it to the
// destination location with the matching glUniform call.
struct UniformUtils {
    using AssignFunction = void (*)(GLint destination, GLuint source, GLint sourceLocation);

    // The function for a type that glGetActiveUniform reports; assignNone, with
    // a line on the standard error stream, for a type it does not know.
    static AssignFunction getAssignFunction(GLenum type);

    static void assignFloat(GLint, GLuint, GLint);
    static void assignFloatVec2(GLint, GLuint, GLint);
    static void assignFloatVec3(GLint, GLuint, GLint);
    static void assignFloatVec4(GLint, GLuint, GLint);
    static void assignInt(GLint, GLuint, GLint);
    static void assignIntVec2(GLint, GLuint, GLint);
    static void assignIntVec3(GLint, GLuint, GLint);
    static void assignIntVec4(GLint, GLuint, GLint);
    static void assignUnsignedInt(GLint, GLuint, GLint);
    static void assignUnsignedIntVec2(GLint, GLuint, GLint);
    static void assignUnsignedIntVec3(GLint, GLuint, GLint);
    static void assignUnsignedIntVec4(GLint, GLuint, GLint);
    static void assignMatrix2fv(GLint, GLuint, GLint);
    static void assignMatrix3fv(GLint, GLuint, GLint);
    static void assignMatrix4fv(GLint, GLuint, GLint);
    static void assignMatrix2x3fv(GLint, GLuint, GLint);
    static void assignMatrix3x2fv(GLint, GLuint, GLint);
    static void assignMatrix2x4fv(GLint, GLuint, GLint);
    static void assignMatrix4x2fv(GLint, GLuint, GLint);
    static void assignMatrix3x4fv(GLint, GLuint, GLint);
    static void assignMatrix4x3fv(GLint, GLuint, GLint);
    static void assignNone(GLint, GLuint, GLint);
};

}  // namespace velour::drv
