// A layer for the loader tests that shows what the loader does with it: it
// counts its start-ups and look-ups, and wraps glClearColor so that red and
// blue trade places, which the read-back pixel shows. It prints its counts
// when the process ends.
#include <GLES2/gl2.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#define EXPORT extern "C" __attribute__((visibility("default")))

namespace {

std::atomic<int> initializations{0};
std::atomic<int> clearColorLookups{0};
PFNGLCLEARCOLORPROC nextClearColor = nullptr;

void swappedClearColor(GLfloat red, GLfloat green, GLfloat blue, GLfloat alpha) {
    nextClearColor(blue, green, red, alpha);
}

__attribute__((destructor)) void report() {
    std::fprintf(stderr, "fake layer: initializations %d\n", initializations.load());
    std::fprintf(stderr, "fake layer: glClearColor looked up %d\n", clearColorLookups.load());
}

}  // namespace

EXPORT void velourInitialize(void* layerHandle, void* (*getNextProc)(void*, char const*)) {
    // Long enough for concurrent first users to pile up behind the start.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    nextClearColor =
        reinterpret_cast<PFNGLCLEARCOLORPROC>(getNextProc(layerHandle, "glClearColor"));
    ++initializations;
}

EXPORT void* velourGetProcAddress(char const* name, void* next) {
    if (std::strcmp(name, "glClearColor") == 0) {
        ++clearColorLookups;
        return reinterpret_cast<void*>(&swappedClearColor);
    }
    return next;
}
