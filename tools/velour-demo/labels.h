// Debug labels on the game's textures and programs, as an engine gives them
// for its tools: only when the driver offers GL_EXT_debug_label.
#pragma once

#include <GLES3/gl32.h>

namespace demo {

// GL_EXT_debug_label's object types.
constexpr GLenum kLabelTexture = 0x1702;  // GL_TEXTURE
constexpr GLenum kLabelProgram = 0x8B40;  // GL_PROGRAM_OBJECT_EXT

// Labels `name` with `label`; nothing without the extension.
void labelObject(GLenum type, GLuint name, const char* label);

}  // namespace demo
