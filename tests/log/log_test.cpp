#include "core/log.h"

#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "TestSysroot.h"
#include "core/context.h"
#include "platform/properties.h"
#include "velour/utils/CallStack.h"
#include "velour/utils/Format.h"
#include "velour/utils/LoopTimer.h"
#include "velour/utils/Process.h"

// The log, and the diagnostics beside it. The log goes to the platform log,
// which a host's liblog writes to stderr, and to a file under the program's
// sysroot; both are read back here.

namespace velour {
namespace test {
extern TestSysroot* g_sysroot;
}

// Outside the unnamed namespace: only exported names have a symbol to find.
__attribute__((noinline)) void dumpFromHere(int indent, std::string& dump) {
    dump = utils::dumpCallStack(indent);
    asm volatile("" ::: "memory");  // keeps this a frame of its own
}
}  // namespace velour

namespace velour::core {
namespace {

// The process name may be a path: the log file is then deeper down.
const std::string& logFile() {
    static const std::string path = [] {
        std::string file = test::g_sysroot->root() + "/sdcard/nimbo.orlo.velour." +
                           utils::getProcessName() + ".log";
        std::filesystem::create_directories(std::filesystem::path(file).parent_path());
        return file;
    }();
    return path;
}

using Lines = std::vector<std::string>;
// priority letter ('V', 'D', 'I', 'W', 'E' or 'F') and text
using Entries = std::vector<std::pair<char, std::string>>;

// For each line of path, pattern's two groups and what follows the match; a
// failure for a line that does not match.
std::vector<Lines> parse(const std::string& path, const std::regex& pattern) {
    std::vector<Lines> result;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_search(line, match, pattern)) {
            result.push_back({match[1], match[2], match.suffix()});
        } else {
            ADD_FAILURE() << path << ": " << line;
        }
    }
    return result;
}

// The log file's lines, each checked to begin with the date, the time, this
// process's id and (unless 0) threadId, and returned without that stamp.
Lines logFileLines(int threadId = 0) {
    static const std::regex stamp(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d +(\d+) +(\d+) : )");
    Lines lines;
    for (const Lines& m : parse(logFile(), stamp)) {
        EXPECT_EQ(std::stoi(m[0]), getpid()) << m[2];
        EXPECT_TRUE(threadId == 0 || std::stoi(m[1]) == threadId) << m[2];
        lines.push_back(m[2]);
    }
    return lines;
}

// What the platform log prints while `body` runs.
Entries platformEntries(const std::function<void()>& body) {
    const std::string path = test::g_sysroot->root() + "/stderr";
    std::fflush(stderr);
    const int saved = dup(2), capture = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (saved < 0 || capture < 0 || dup2(capture, 2) < 0) std::abort();
    close(capture);
    body();
    std::fflush(stderr);
    dup2(saved, 2);
    close(saved);

    // liblog's host format: tag, priority letter, date, time, pid, tid, text.
    static const std::regex entry(R"(^velour ([VDIWEF]) \S+ \S+ +\d+ +\d+ (.*)$)");
    Entries result;
    for (const Lines& m : parse(path, entry)) result.emplace_back(m[0][0], m[1]);
    return result;
}

class Log : public ::testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::remove(logFile());
        // A host's liblog drops debug and verbose entries by default.
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    }
    void TearDown() override { g_printSourceLocation = true; }
};

// Every severity with the location switch on and off: the priority, the tag,
// the location, and the later lines of a message indented under the tag; the
// file gets the same lines, each stamped.
TEST_F(Log, TagsPrioritiesLocationAndLaterLines) {
    // severity, priority, tag, and whether the switch on adds the location
    const std::tuple<int, char, std::string, bool> cases[] = {
        {LOG_BANNER, 'I', "", false},         {LOG_FATAL, 'F', "[FATAL] ", true},
        {LOG_ERROR, 'E', "[ERROR] ", true},   {LOG_WARN, 'W', "[WARN ] ", true},
        {LOG_INFO, 'I', "[INFO ] ", false},   {LOG_DEBUG, 'D', "[DEBUG] ", true},
        {LOG_VERBOSE, 'V', "[VERBO] ", true}, {LOG_BABBLE, 'V', "[BABBL] ", true},
    };
    Lines fileLines;
    for (bool switchOn : {true, false}) {
        g_printSourceLocation = switchOn;
        for (const auto& [severity, priority, tag, located] : cases) {
            const std::string indent(tag.size(), ' ');
            const Entries expected = {
                {priority, tag + (switchOn && located ? "[src/x.cpp:12] work - " : "") + "first 1"},
                {priority, indent},
                {priority, indent + "last"}};
            EXPECT_EQ(platformEntries([s = severity] {
                          log("src/x.cpp", 12, "work", s, "first %d\n\nlast", 1);
                      }),
                      expected)
                << "severity " << severity << ", switch " << switchOn;
            for (const auto& entry : expected) fileLines.push_back(entry.second);
        }
    }
    EXPECT_EQ(logFileLines(static_cast<int>(syscall(SYS_gettid))), fileLines);
}

TEST_F(Log, FileThatCannotBeOpenedLeavesThePlatformLog) {
    std::filesystem::create_directory(logFile());  // where the file should be
    EXPECT_EQ(platformEntries([] { log("f", 1, "g", LOG_INFO, "still %s", "here"); }),
              (Entries{{'I', "[INFO ] still here"}}));
    std::filesystem::remove(logFile());
}

// Formatting runs in parallel, writing does not: the lines of one message
// stay together and no line is mixed with another. Messages longer than the
// formatting buffers alternate with short ones, and are written whole.
TEST_F(Log, MessagesOfManyThreadsStayWhole) {
    constexpr int THREADS = 4, MESSAGES = 100;
    auto filler = [](int thread, int message) {
        return std::string((thread + message) % 2 ? 10000 : 10, '.');
    };
    platformEntries([&filler] {
        std::vector<std::thread> threads;
        for (int t = 0; t < THREADS; ++t)
            threads.emplace_back([t, &filler] {
                for (int m = 0; m < MESSAGES; ++m)
                    log("f", 1, "g", LOG_WARN, "T%d M%d %s\nT%d M%d tail", t, m,
                        filler(t, m).c_str(), t, m);
            });
        for (auto& thread : threads) thread.join();
    });

    Lines lines = logFileLines();
    ASSERT_EQ(lines.size(), size_t{2 * THREADS * MESSAGES});
    std::vector<int> next(THREADS, 0);
    for (size_t i = 0; i < lines.size(); i += 2) {
        int t = -1, m = -1;
        ASSERT_EQ(std::sscanf(lines[i].c_str(), "[WARN ] [f:1] g - T%d M%d", &t, &m), 2);
        ASSERT_TRUE(t >= 0 && t < THREADS && m == next[t]++) << lines[i];
        const std::string id = "T" + std::to_string(t) + " M" + std::to_string(m);
        EXPECT_EQ(lines[i], "[WARN ] [f:1] g - " + id + " " + filler(t, m));
        EXPECT_EQ(lines[i + 1], "        " + id + " tail");
    }
}

using namespace std::chrono_literals;

const char LEVEL[] = "vendor.nimbo.orlo.log.level";
const char LOCATION[] = "vendor.nimbo.orlo.log.print_source_location";

// Plain words that another thread writes: read them afresh each time.
const auto severity = [] { return *static_cast<volatile int*>(&g_enabledLogSeverity); };
const auto sourceLocation = [] { return *static_cast<volatile bool*>(&g_printSourceLocation); };

// The watcher reads the keys every 500 ms, so a change shows within 1.5 s.
bool soon(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 1500ms;
    for (; !condition(); std::this_thread::sleep_for(10ms))
        if (std::chrono::steady_clock::now() > deadline) return false;
    return true;
}

void set(const char* name, const char* value) {
    ASSERT_EQ(__system_property_set(name, value), 0);
}

// What this is for: someone at a shell changes the level of a running game.
// The watcher follows the keys only while the process is enabled.
TEST(LogSettings, LevelAndLocationPropertiesFollowTheShell) {
    setInterceptionEnabled(true);
    test::RunResult tool = test::run(VELOUR_PROP_TOOL, {"set", LEVEL, "6"});
    ASSERT_EQ(tool.status, 0) << tool.err;
    EXPECT_TRUE(soon([] { return severity() == LOG_VERBOSE; }));
    set(LEVEL, "0");
    EXPECT_TRUE(soon([] { return severity() == LOG_INFO; })) << "0 means the default";
    set(LEVEL, "-1");
    ASSERT_TRUE(soon([] { return severity() == -1; }));
    EXPECT_TRUE(platformEntries([] { VELOUR_LOG(LOG_BANNER, "banner"); }).empty())
        << "a negative level silences the banner too";

    // An empty location keeps the switch where it stands.
    set(LOCATION, "0");
    ASSERT_TRUE(soon([] { return !sourceLocation(); }));
    set(LOCATION, "7");
    ASSERT_TRUE(soon([] { return sourceLocation(); }));
    set(LOCATION, "");
    // Once the level shows, the watcher has had that turn; give it one more.
    set(LEVEL, "5");
    ASSERT_TRUE(soon([] { return severity() == LOG_DEBUG; }));
    std::this_thread::sleep_for(600ms);
    EXPECT_TRUE(sourceLocation());

    setInterceptionEnabled(false);
    set(LEVEL, "7");
    std::this_thread::sleep_for(1200ms);
    EXPECT_EQ(severity(), LOG_DEBUG) << "a process not enabled ignores the keys";
    setInterceptionEnabled(true);
    EXPECT_TRUE(soon([] { return severity() == LOG_BABBLE; }));
    setInterceptionEnabled(false);
    g_enabledLogSeverity = LOG_INFO;
}

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
}  // namespace velour::core
