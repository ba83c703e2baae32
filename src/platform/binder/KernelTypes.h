#pragma once

// The driver's object layout, declared in namespace android as the parcel's
// header expects it. The kernel header's own includes come first, outside.
#include <linux/ioctl.h>
#include <linux/types.h>

namespace android {
#include <linux/android/binder.h>
static_assert(sizeof(flat_binder_object) == 24, "a sent binder is 24 bytes on every ABI");
}  // namespace android
