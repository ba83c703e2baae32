#include <gtest/gtest.h>

#include "TestSysroot.h"

int main(int argc, char** argv) {
    // The executor reads and writes its settings as properties.
    velour::test::TestSysroot sysroot;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
