// The one entry point of libEGL.so.1 that the loader answers itself. The
// layer sees every name asked here, through velourLoaderResolve; its own
// look-ups reach the system's eglGetProcAddress through the next-proc
// callback, so it needs no wrapper of this function.
#include <cstring>

#include "loader_types.h"
#include "platform/loader/stubs.h"

extern "C" VELOUR_LOADER_EXPORT __eglMustCastToProperFunctionPointerType EGLAPIENTRY
eglGetProcAddress(const char* procname) {
    if (procname && std::strcmp(procname, "eglGetProcAddress") == 0)
        return reinterpret_cast<__eglMustCastToProperFunctionPointerType>(&eglGetProcAddress);
    return reinterpret_cast<__eglMustCastToProperFunctionPointerType>(
        velourLoaderResolve(procname));
}
