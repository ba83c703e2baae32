#pragma once

#include <string>

namespace velour::platform {

// The file-system path of a device path such as "/odm/etc/tesselfx/velour.ini".
// On a device it is the path itself. On a host, device folders (/odm, /vendor,
// /system, /sdcard, /data/local/tmp, /sys/kernel) lie under the folder named
// by VELOUR_SYSROOT; with that variable unset, or for any other path, the path
// stands as it is.
std::string devicePath(const std::string& path);

}  // namespace velour::platform
