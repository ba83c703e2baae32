// glXGetProcAddress and glXGetProcAddressARB, preloaded by velour-run. A GLES
// program linked with libGL.so.1 may look extension functions up through GLX
// (piglit's GLES tests do): the answer would be a dispatch stub that goes to
// the driver's context current on the calling thread, past the layer. A
// device has no GLX; here the names get the same answer as eglGetProcAddress.
#include "platform/loader/stubs.h"

namespace {
using GlxProc = void (*)();

GlxProc resolve(const unsigned char* name) {
    return reinterpret_cast<GlxProc>(velourLoaderResolve(reinterpret_cast<const char*>(name)));
}
}  // namespace

extern "C" VELOUR_LOADER_EXPORT GlxProc glXGetProcAddress(const unsigned char* name) {
    return resolve(name);
}

extern "C" VELOUR_LOADER_EXPORT GlxProc glXGetProcAddressARB(const unsigned char* name) {
    return resolve(name);
}
