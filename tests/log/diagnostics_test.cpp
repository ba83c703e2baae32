#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "core/log.h"
#include "velour/utils/CallStack.h"
#include "velour/utils/Format.h"
#include "velour/utils/LoopTimer.h"
#include "velour/utils/Process.h"

namespace velour {

// Outside the unnamed namespace: only exported names have a symbol to find.
__attribute__((noinline)) void dumpFromHere(int indent, std::string& dump) {
    dump = utils::dumpCallStack(indent);
    asm volatile("" ::: "memory");  // keeps this a frame of its own
}

namespace {

// The unit follows the size, and a timer reports only its recent samples.
TEST(Timing, UnitsFollowTheSizeAndTheTimerKeepsTheRecentSamples) {
    for (const auto& [ns, text] :
         {std::pair(999ull, "  999ns"), std::pair(1000ull, "  1.0us"),
          std::pair(16700000ull, " 16.7ms"), std::pair(1000000000ull, "  1.0s ")})
        EXPECT_EQ(utils::ns2string(ns), text);
    utils::LoopTimer timer("frame");
    EXPECT_EQ(timer.print(8), "frame    :     0ns, min =     0ns, max =     0ns, count = 0");
    for (int i = 0; i < 100; ++i) timer.add(5);  // pushed out of the ring below
    for (size_t i = 0; i < utils::LoopTimer::RING_SIZE; ++i) timer.add(i % 2 ? 3000000 : 1000000);
    EXPECT_EQ(timer.print(3), "frame :   2.0ms, min =   1.0ms, max =   3.0ms, count = " +
                                  std::to_string(utils::LoopTimer::RING_SIZE));
}

TEST(FormatString, GrowsAndKeepsOneResultPerThread) {
    const std::string longText(6000, 'y');
    const char* mine = utils::formatString("%s-%d", longText.c_str(), 7);
    std::string other;
    std::thread([&other] { other = utils::formatString("%s", "other thread"); }).join();
    EXPECT_EQ(other, "other thread");
    EXPECT_EQ(std::string(mine), longText + "-7");
    EXPECT_EQ(std::filesystem::path(utils::getProcessName()).filename(), "velour_log_tests");
    EXPECT_EQ(utils::getProcessNameByPid(INT_MAX), "");
}

TEST(Rip, ThrowsWithLocationMessageAndDemangledStack) {
    std::string dump;
    dumpFromHere(2, dump);
    EXPECT_EQ(dump.rfind("  android stack dump\n  000: 0x", 0), 0u) << dump;
    EXPECT_NE(dump.find(" velour::dumpFromHere(int, std::"), std::string::npos) << dump;
    EXPECT_NE(dump.find("\n  android stack dump done\n"), std::string::npos) << dump;

    try {
        core::rip("src/x.cpp", 12, "doWork", "out of names");
        FAIL() << "rip returned";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(std::string(error.what())
                      .rfind("[src/x.cpp:12] critical failure: doWork\nout of names\n"
                             "    android stack dump\n",
                             0),
                  0u)
            << error.what();
    }
}

}  // namespace
}  // namespace velour
