#pragma once

#include "velour/export.h"

// The two functions the platform's graphics loader calls.
extern "C" {
VELOUR_EXPORT void velourInitialize(void* layerHandle,
                                    void* (*getNextProc)(void* layerHandle, char const* name));
VELOUR_EXPORT void* velourGetProcAddress(char const* name, void* next);
}
