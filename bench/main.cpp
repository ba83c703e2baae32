// The micro-benchmarks' main: they run in a sysroot of their own, so that
// nothing of the machine's device files reaches the layer.
#include <benchmark/benchmark.h>

#include "TestSysroot.h"

int main(int argc, char** argv) {
    velour::test::TestSysroot sysroot;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
