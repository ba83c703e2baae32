#include "platform/paths.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace velour::platform {
namespace {

TEST(DevicePath, OnlyDeviceFoldersMoveUnderTheSysroot) {
    setenv("VELOUR_SYSROOT", "/tmp/root/", 1);
    for (const char* path : {"/odm/etc/tesselfx/velour.ini", "/vendor/lib/libtessel.so",
                             "/system/lib", "/sdcard/a.log", "/data/local/tmp/orlo/x.txt",
                             "/sys/kernel/fpsgo/common/force_onoff", "/odm"}) {
        EXPECT_EQ(devicePath(path), std::string("/tmp/root") + path);
    }
    for (const char* path : {"/proc/self/cmdline", "/sys/class/x", "/data/data/app", "/odmx/a",
                             "/data/local/tmpx", "odm/relative"}) {
        EXPECT_EQ(devicePath(path), path);
    }
    unsetenv("VELOUR_SYSROOT");
    EXPECT_EQ(devicePath("/odm/etc/x"), "/odm/etc/x");
}

}  // namespace
}  // namespace velour::platform
