#pragma once

namespace velour::gles {

// The EGL entry points that the layer answers itself for the current runtime
// mode, or null.
void* getEglProcAddress(char const* name);

// In hooks-only mode the draw thunks, else null.
void* getGlProcAddress(char const* name);

}  // namespace velour::gles
