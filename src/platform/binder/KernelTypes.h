#pragma once

// The driver's object layout, declared in namespace android as the parcel's
// header expects it. The kernel header's own includes come first, outside.
#include <linux/ioctl.h>
#include <linux/types.h>

#include <cstring>

namespace android {
#include <linux/android/binder.h>
static_assert(sizeof(flat_binder_object) == 24, "a sent binder is 24 bytes on every ABI");

// A copy of the object at `at`: parcel words are 4-byte aligned, the object's
// 64-bit fields want 8.
inline flat_binder_object loadFlat(const void* at) {
    flat_binder_object flat;
    std::memcpy(&flat, at, sizeof(flat));
    return flat;
}
}  // namespace android
