#pragma once

#include "drv/gl.h"

namespace velour::drv {

// Asks the driver's extension list each time; there is no cache.
bool hasGlExtension(const char* name);

// A debugging aid with glShaderSource's signature: writes the strings, one per
// line, to `path`. Nothing is left behind if the file cannot be opened.
void dumpShaderSource(const char* path, GLsizei count, const GLchar* const* strings,
                      const GLint* lengths);

}  // namespace velour::drv
