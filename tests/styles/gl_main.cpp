#include <gtest/gtest.h>

#include "TestSysroot.h"

int main(int argc, char** argv) {
    // The filter configuration and the effect property come from here.
    velour::test::TestSysroot sysroot;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
