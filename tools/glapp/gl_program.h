// Error reporting and shader building for the project's GLES programs (the
// demo game and the frame benchmark).
#pragma once

#include <GLES3/gl32.h>

#include <stdexcept>
#include <string>

namespace glapp {

// Any EGL or GL failure. main() reports it and exits non-zero.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const char* glErrorName(GLenum error);

// Throws a Failure naming `where` and every pending GL error, if there is one.
void checkGl(const char* where);

// Compiles and links a vertex and fragment shader pair; throws with the info
// log on failure.
GLuint buildProgram(const char* name, const char* vertexSource, const char* fragmentSource);

// A uniform the program must have: a missing one means the shader and the
// code drifted apart, which would otherwise draw silently wrong.
GLint uniformLocation(GLuint program, const char* name);

}  // namespace glapp
