// velour-servicemanager: the service manager of a host sysroot. Processes of
// the sysroot find each other's services through it; it serves until killed.
#include <unistd.h>

#include <cstdio>
#include <string>

#include "platform/binder/Runtime.h"
#include "platform/binder/ServiceManager.h"

int main(int argc, char** argv) {
    if (argc > 1) {
        std::fputs(
            "usage: velour-servicemanager\n"
            "\nServes the service manager of $VELOUR_SYSROOT (its socket lies in\n"
            "$VELOUR_SYSROOT/dev/binder) until killed.\n",
            std::string(argv[1]) == "--help" ? stdout : stderr);
        return std::string(argv[1]) == "--help" ? 0 : 2;
    }
    velour::platform::binder::serveAsServiceManager();
    std::fprintf(stderr, "velour-servicemanager: serving in %s\n",
                 velour::platform::binder::socketFolder().c_str());
    for (;;) pause();
}
