#include "velour/utils/Process.h"

#include <unistd.h>

#include <cstdio>

namespace velour::utils {

std::string getProcessNameByPid(int pid) {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/cmdline", pid);
    FILE* file = std::fopen(path, "r");
    if (file == nullptr) return {};
    char text[1025] = {};
    size_t length = std::fread(text, 1, 1024, file);
    std::fclose(file);
    // Some processes rewrite their command line and end it with a newline.
    if (length > 0 && text[length - 1] == '\n') text[length - 1] = '\0';
    return text;  // up to the first zero, the end of the first word
}

std::string getProcessName() {
    return getProcessNameByPid(static_cast<int>(getpid()));
}

}  // namespace velour::utils
