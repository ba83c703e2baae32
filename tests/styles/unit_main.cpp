#include <gtest/gtest.h>

#include "TestSysroot.h"

namespace velour::test {
// The filter configuration and the effect property come from here.
TestSysroot* g_sysroot = nullptr;
}  // namespace velour::test

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    velour::test::g_sysroot = &sysroot;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
