// Loads libvelour.so the way the platform's graphics loader does, with a
// recording fake driver as the next layer, and prints what the layer hands
// out for the names given.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fake_driver.h"
#include "platform/properties.h"

namespace {

void nextLayerFunction() {}

const char USAGE[] =
    "usage: velour-probe [--library PATH] [--package NAME] [NAME...]\n"
    "\n"
    "Loads the layer as a graphics loader would, initialises it with a fake\n"
    "driver, and prints for each NAME what velourGetProcAddress returns:\n"
    "  wrapper  the layer's gl_deferred_ wrapper of that name\n"
    "  driver   the driver's own function\n"
    "  next     what the loader offered as the next layer\n"
    "  layer    another function of the layer (an EGL variant or a draw thunk)\n"
    "  null     nothing\n"
    "\n"
    "  --library PATH  the layer to load (default: the one built beside this tool)\n"
    "  --package NAME  run as the process NAME, as the platform names an app\n"
    "\n"
    "example: velour-probe --package com.velour.demo glClear glDrawArrays eglMakeCurrent\n";

std::string property(const char* name) {
    char value[PROP_VALUE_MAX] = {};
    __system_property_get(name, value);
    return value;
}

}  // namespace

int main(int argc, char** argv) {
    std::string library = VELOUR_LIBRARY_PATH;
    std::string package;
    std::vector<std::string> names;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::fputs(USAGE, stdout);
            return 0;
        } else if ((arg == "--library" || arg == "--package") && i + 1 < argc) {
            (arg == "--library" ? library : package) = argv[++i];
        } else if (arg.rfind("--", 0) == 0) {
            std::fprintf(stderr, "velour-probe: unknown option %s\n%s", arg.c_str(), USAGE);
            return 2;
        } else {
            names.push_back(arg);
        }
    }

    // The process name is argv[0], as /proc/<pid>/cmdline shows it: run again
    // under the package name, keeping everything else.
    if (!package.empty() && package != argv[0]) {
        std::vector<char*> args{const_cast<char*>(package.c_str())};
        args.push_back(const_cast<char*>("--library"));
        args.push_back(const_cast<char*>(library.c_str()));
        for (auto& name : names) args.push_back(const_cast<char*>(name.c_str()));
        args.push_back(nullptr);
        execv("/proc/self/exe", args.data());
        std::perror("velour-probe: exec");
        return 1;
    }

    void* layer = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!layer) {
        std::fprintf(stderr, "velour-probe: %s\n", dlerror());
        return 1;
    }
    auto initialize = reinterpret_cast<void (*)(void*, void* (*)(void*, const char*))>(
        dlsym(layer, "velourInitialize"));
    auto getProcAddress =
        reinterpret_cast<void* (*)(const char*, void*)>(dlsym(layer, "velourGetProcAddress"));
    if (!initialize || !getProcAddress) {
        std::fprintf(stderr, "velour-probe: %s lacks the layer entry points\n", library.c_str());
        return 1;
    }

    initialize(layer, velour::fake::getNextProc);
    std::printf("process: %s\n", argv[0]);
    std::printf("driver look-ups: %zu\n", velour::fake::lookupCount());
    std::printf("release tag: %s\n", property("vendor.nimbo.orlo.release.tag").c_str());

    void* next = reinterpret_cast<void*>(&nextLayerFunction);
    for (auto& name : names) {
        void* result = getProcAddress(name.c_str(), next);
        const char* kind = "layer";
        if (!result)
            kind = "null";
        else if (result == next)
            kind = "next";
        else if (result == dlsym(layer, ("gl_deferred_" + name).c_str()))
            kind = "wrapper";
        else if (result == velour::fake::address(name.c_str()))
            kind = "driver";
        std::printf("%s -> %s\n", name.c_str(), kind);
    }
    return 0;
}
