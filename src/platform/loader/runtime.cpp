// The host loader's runtime, shared by the three stand-in libraries: loads the
// system's EGL and GLES libraries and the layer, starts the layer once, and
// resolves every entry point through it.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/loader/stubs.h"

namespace velour::loader {

namespace {

using InitializeFn = void (*)(void* layerHandle, void* (*getNextProc)(void*, char const*));
using LayerGetProcAddressFn = void* (*)(char const* name, void* next);
using SystemGetProcAddressFn = void* (*)(char const* name);

// In the order their functions are looked up by name.
const char* const SYSTEM_LIBRARIES[] = {"libEGL.so.1", "libGLESv2.so.2", "libGLESv1_CM.so.1"};
constexpr size_t SYSTEM_LIBRARY_COUNT = sizeof(SYSTEM_LIBRARIES) / sizeof(SYSTEM_LIBRARIES[0]);

struct Loader {
    void* system[SYSTEM_LIBRARY_COUNT] = {};
    SystemGetProcAddressFn systemGetProcAddress = nullptr;
    LayerGetProcAddressFn layerGetProcAddress = nullptr;
    bool trace = false;
    std::recursive_mutex mutex;
    std::unordered_map<std::string, void*> answers;
};

// Never destroyed: other threads may still call GL while the process exits.
Loader& loader() {
    static Loader* instance = new Loader;
    return *instance;
}

std::once_flag started;

bool isSet(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && value[0] != '\0' && std::strcmp(value, "0") != 0;
}

std::string ownFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&velourLoaderResolve), &info) == 0 || !info.dli_fname)
        return {};
    std::string path = info.dli_fname;
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool sameFile(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

std::vector<std::string> searchFolders() {
    const char* chosen = std::getenv("VELOUR_GL_DRIVER_DIR");
    std::string list = chosen && chosen[0] ? chosen : VELOUR_LOADER_SYSTEM_DIRS;
    std::vector<std::string> folders;
    size_t begin = 0;
    while (begin <= list.size()) {
        size_t end = list.find(':', begin);
        if (end == std::string::npos) end = list.size();
        if (end > begin) folders.push_back(list.substr(begin, end - begin));
        begin = end + 1;
    }
    return folders;
}

// By full path, never by soname: the soname would find the stand-in itself,
// which is already loaded and first on the library path.
void* openSystemLibrary(const char* soname, const std::string& standIns, int flags) {
    for (const std::string& folder : searchFolders()) {
        std::string path = folder + "/" + soname;
        struct stat info {};
        if (stat(path.c_str(), &info) != 0 || sameFile(path, standIns + "/" + soname)) continue;
        void* handle = dlopen(path.c_str(), flags);
        if (!handle) {
            std::fprintf(stderr, "velour-loader: %s\n", dlerror());
            continue;
        }
        // A stand-in of another build: loading it would resolve names in a circle.
        if (dlsym(handle, "velourLoaderResolve")) {
            dlclose(handle);
            continue;
        }
        return handle;
    }
    return nullptr;
}

// The next layer of the chain: the system's driver.
void* systemProc(char const* name) {
    Loader& l = loader();
    for (void* library : l.system) {
        if (!library) continue;
        if (void* fn = dlsym(library, name)) return fn;
    }
    return l.systemGetProcAddress ? l.systemGetProcAddress(name) : nullptr;
}

void* nextProc(void* /*layerHandle*/, char const* name) {
    return name ? systemProc(name) : nullptr;
}

void loadLayer(Loader& l, const char* path) {
    void* layer = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!layer) {
        std::fprintf(stderr, "velour-loader: no layer: %s\n", dlerror());
        return;
    }
    auto initialize = reinterpret_cast<InitializeFn>(dlsym(layer, "velourInitialize"));
    auto getProcAddress =
        reinterpret_cast<LayerGetProcAddressFn>(dlsym(layer, "velourGetProcAddress"));
    if (!initialize || !getProcAddress) {
        std::fprintf(stderr,
                     "velour-loader: no layer: %s lacks velourInitialize or "
                     "velourGetProcAddress\n",
                     path);
        dlclose(layer);
        return;
    }
    if (l.trace) std::fprintf(stderr, "velour-loader: layer %s\n", path);
    initialize(layer, &nextProc);
    l.layerGetProcAddress = getProcAddress;
}

void start() {
    Loader& l = loader();
    l.trace = isSet("VELOUR_LOADER_TRACE");
    // Local, so that the system's symbols stay out of the global scope where
    // the stand-ins' exports of the same names live.
    int flags = RTLD_NOW | RTLD_LOCAL;
    if (isSet("VELOUR_LOADER_DEEPBIND")) flags |= RTLD_DEEPBIND;
    std::string standIns = ownFolder();
    for (size_t i = 0; i < SYSTEM_LIBRARY_COUNT; ++i)
        l.system[i] = openSystemLibrary(SYSTEM_LIBRARIES[i], standIns, flags);
    if (l.system[0]) {
        l.systemGetProcAddress =
            reinterpret_cast<SystemGetProcAddressFn>(dlsym(l.system[0], "eglGetProcAddress"));
    } else {
        std::fprintf(stderr,
                     "velour-loader: the system's libEGL.so.1 is in none of %s; "
                     "name its folder with VELOUR_GL_DRIVER_DIR\n",
                     isSet("VELOUR_GL_DRIVER_DIR") ? std::getenv("VELOUR_GL_DRIVER_DIR")
                                                   : VELOUR_LOADER_SYSTEM_DIRS);
    }
    const char* layer = std::getenv("VELOUR_LAYER");
    if (layer && layer[0]) {
        loadLayer(l, layer);
    } else if (l.trace) {
        std::fprintf(stderr, "velour-loader: no layer\n");
    }
}

void traceAnswer(char const* name, void* answer) {
    Dl_info info{};
    const char* from = "null";
    if (answer) from = dladdr(answer, &info) && info.dli_fname ? info.dli_fname : "?";
    std::fprintf(stderr, "velour-loader: %s -> %s\n", name, from);
}

}  // namespace

}  // namespace velour::loader

using namespace velour::loader;

extern "C" void* velourLoaderResolve(const char* name) {
    if (!name) return nullptr;
    std::call_once(started, start);
    Loader& l = loader();
    // Held while the layer answers, so that it is asked once for each name
    // however many threads want it first; recursive for a layer that resolves
    // a name through the loader while it answers.
    std::lock_guard<std::recursive_mutex> lock(l.mutex);
    auto found = l.answers.find(name);
    if (found != l.answers.end()) return found->second;
    void* next = systemProc(name);
    void* answer = l.layerGetProcAddress ? l.layerGetProcAddress(name, next) : next;
    l.answers.emplace(name, answer);
    if (l.trace) traceAnswer(name, answer);
    return answer;
}
