// Loads the layer as the platform's loader does, in deferred mode over a fake
// driver, binds a context and makes N class-1 calls through the address the
// layer hands out. Run under callgrind with
//   --toggle-collect=gl_deferred_glBlendFunc
// and divide the instructions by N.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "TestSysroot.h"
#include "fake_driver.h"

int main(int argc, char** argv) {
    int calls = argc > 1 ? std::atoi(argv[1]) : 100000;
    velour::test::TestSysroot sysroot;
    // The process is known by its command line as typed.
    sysroot.write("/odm/etc/tesselfx/velour.ini",
                  "[" + std::string(argv[0]) + "]\ngame=0\nruntime_mode=0\nenabled=1\n");

    void* layer = dlopen(VELOUR_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!layer) return std::fprintf(stderr, "%s\n", dlerror()), 1;
    auto initialize = reinterpret_cast<void (*)(void*, void* (*)(void*, const char*))>(
        dlsym(layer, "velourInitialize"));
    auto lookUp =
        reinterpret_cast<void* (*)(const char*, void*)>(dlsym(layer, "velourGetProcAddress"));
    static std::uintptr_t next = 0x100;
    velour::fake::setHandler("eglCreateContext", [](const velour::fake::Call&) { return next++; });
    velour::fake::setReturn("eglMakeCurrent", 1);
    initialize(layer, velour::fake::getNextProc);

    using CreateContext = void* (*)(void*, void*, void*, const int*);
    using MakeCurrent = unsigned (*)(void*, void*, void*, void*);
    using BlendFunc = void (*)(unsigned, unsigned);
    using Finish = void (*)();
    auto createContext = reinterpret_cast<CreateContext>(lookUp("eglCreateContext", nullptr));
    auto makeCurrent = reinterpret_cast<MakeCurrent>(lookUp("eglMakeCurrent", nullptr));
    auto blendFunc = reinterpret_cast<BlendFunc>(lookUp("glBlendFunc", nullptr));
    auto finish = reinterpret_cast<Finish>(lookUp("glFinish", nullptr));
    void* display = reinterpret_cast<void*>(0x10);
    void* surface = reinterpret_cast<void*>(0x20);
    void* context = createContext(display, nullptr, nullptr, nullptr);
    if (!context || !makeCurrent(display, surface, surface, context))
        return std::fprintf(stderr, "the layer did not take the context\n"), 1;

    for (int i = 0; i < calls; ++i) blendFunc(1, 0);
    finish();
    std::printf("%d class-1 calls made, %zu replayed\n", calls,
                velour::fake::callsOf("glBlendFunc").size());
    // Unbind and destroy while the fake driver still exists: the layer's own
    // teardown at exit would replay into it after it is gone.
    auto destroyContext =
        reinterpret_cast<unsigned (*)(void*, void*)>(lookUp("eglDestroyContext", nullptr));
    makeCurrent(display, nullptr, nullptr, nullptr);
    destroyContext(display, context);
    return 0;
}
