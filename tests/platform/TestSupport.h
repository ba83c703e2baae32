#pragma once

// What the platform and log tests share: scratch folders, and running the
// property tool as a separate process to collect what it prints.

#include <cstdlib>
#include <string>
#include <vector>

#include "../support/TestSysroot.h"

namespace velour::test {

inline RunResult runPropTool(const std::vector<std::string>& args,
                             const std::vector<std::string>& environment = {}) {
    return run(VELOUR_PROP_TOOL, args, environment);
}

inline std::string makeTempFolder(const char* stem) {
    const char* tmp = std::getenv("TMPDIR");
    std::string path =
        std::string(tmp != nullptr && tmp[0] != '\0' ? tmp : "/tmp") + "/" + stem + ".XXXXXX";
    if (mkdtemp(path.data()) == nullptr) std::abort();
    return path;
}

// A new folder under the program's scratch folder, which goes at the end.
std::string testFolder(const std::string& name);

}  // namespace velour::test
