#include <gtest/gtest.h>

#include "TestSysroot.h"

namespace velour::test {
// One sysroot for the whole run: the property store is bound on first use,
// and the tests write their settings and filter files into it.
TestSysroot* g_sysroot = nullptr;
}  // namespace velour::test

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    velour::test::g_sysroot = &sysroot;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
