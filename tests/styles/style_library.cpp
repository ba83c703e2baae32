// An effect library as a third party would build it: the public header and
// libvelour.so, nothing else.

#include "TestStyle.h"

extern "C" __attribute__((visibility("default"))) void Tessel_Initialize(
    velour::styles::StyleManager* manager) {
    // Lives as long as the process, as a loaded library's styles do.
    static velour::test::TestStyle invert(manager, "library_invert", 1.0f);
    manager->addStyle(&invert);
}
