#include "platform/paths.h"

#include <cstdlib>
#include <cstring>

namespace velour::platform {

#ifdef __ANDROID__

std::string devicePath(const std::string& path) {
    return path;
}

#else

namespace {

// The device folders that a host keeps under its sysroot. /proc, /dev and the
// rest of /sys are the host's own.
const char* const DEVICE_FOLDERS[] = {"/odm",    "/vendor",         "/system",
                                      "/sdcard", "/data/local/tmp", "/sys/kernel"};

bool isUnder(const std::string& path, const char* folder) {
    size_t length = std::strlen(folder);
    return path.compare(0, length, folder) == 0 && (path.size() == length || path[length] == '/');
}

}  // namespace

std::string devicePath(const std::string& path) {
    const char* sysroot = std::getenv("VELOUR_SYSROOT");
    if (sysroot == nullptr || sysroot[0] == '\0') return path;
    for (const char* folder : DEVICE_FOLDERS) {
        if (isUnder(path, folder)) {
            std::string root = sysroot;
            while (!root.empty() && root.back() == '/') root.pop_back();
            return root + path;
        }
    }
    return path;
}

#endif

}  // namespace velour::platform
