// Device paths, the property store, and the property tool that shares it.
// The program's sysroot (VELOUR_SYSROOT, VELOUR_PROPERTY_STORE) is bound
// before the first property call opens the store.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "TestSysroot.h"
#include "platform/PropertyStore.h"
#include "platform/paths.h"
#include "platform/properties.h"

namespace velour::test {
extern TestSysroot* g_sysroot;
}

namespace velour::platform {
namespace {

using test::g_sysroot;

test::RunResult propTool(const std::vector<std::string>& args,
                         const std::vector<std::string>& environment = {}) {
    return test::run(VELOUR_PROP_TOOL, args, environment);
}

std::string get(const char* name) {
    char value[PROP_VALUE_MAX];
    std::memset(value, 'z', sizeof value);  // a missing property must still clear it
    int length = __system_property_get(name, value);
    EXPECT_EQ(length, static_cast<int>(strnlen(value, sizeof value)));
    return value;
}

TEST(DevicePath, OnlyDeviceFoldersMoveUnderTheSysroot) {
    setenv("VELOUR_SYSROOT", "/tmp/root/", 1);
    for (const char* path : {"/odm/etc/tesselfx/velour.ini", "/vendor/lib/libtessel.so",
                             "/system/lib", "/sdcard/a.log", "/data/local/tmp/orlo/x.txt",
                             "/sys/kernel/fpsgo/common/force_onoff", "/odm"}) {
        EXPECT_EQ(devicePath(path), std::string("/tmp/root") + path);
    }
    for (const char* path : {"/proc/self/cmdline", "/sys/class/x", "/data/data/app", "/odmx/a",
                             "/data/local/tmpx", "odm/relative"}) {
        EXPECT_EQ(devicePath(path), path);
    }
    unsetenv("VELOUR_SYSROOT");
    EXPECT_EQ(devicePath("/odm/etc/x"), "/odm/etc/x");
    setenv("VELOUR_SYSROOT", g_sysroot->root().c_str(), 1);
}

TEST(Properties, ValuesNamesAndReadOnlyLimits) {
    EXPECT_EQ(get("vendor.test.a"), "");
    ASSERT_EQ(__system_property_set("vendor.test.a", "hello"), 0);
    ASSERT_EQ(__system_property_set("vendor.test.a", "hi"), 0);
    EXPECT_EQ(get("vendor.test.a"), "hi") << "nothing left of the longer value";

    const std::string longest(PROP_VALUE_MAX - 1, 'v'), tooLong(PROP_VALUE_MAX, 'w');
    ASSERT_EQ(__system_property_set("vendor.test.a", longest.c_str()), 0);
    EXPECT_EQ(__system_property_set("vendor.test.a", tooLong.c_str()), -1);
    EXPECT_EQ(__system_property_set("ro.test.long", tooLong.c_str()), -1);
    EXPECT_EQ(get("vendor.test.a"), longest);

    const std::string longName = "vendor." + std::string(PROPERTY_NAME_LIMIT - 7, 'n');
    EXPECT_EQ(__system_property_set(longName.c_str(), "1"), 0);
    EXPECT_EQ(__system_property_set((longName + "n").c_str(), "1"), -1);
    for (const char* bad :
         {"", ".vendor.x", "vendor.x.", "vendor..x", "vendor x", static_cast<const char*>(nullptr)})
        EXPECT_EQ(__system_property_set(bad, "1"), -1) << (bad ? bad : "null");
    EXPECT_EQ(__system_property_set("vendor.test.null", nullptr), -1);

    ASSERT_EQ(__system_property_set("ro.test.once", "1"), 0);
    EXPECT_EQ(__system_property_set("ro.test.once", "2"), -1);
    EXPECT_EQ(__system_property_set("ro.test.once", "1"), -1);
    EXPECT_EQ(get("ro.test.once"), "1");
}

TEST(Properties, ReadCallbackSerialFollowsChanges) {
    EXPECT_EQ(__system_property_find("vendor.test.serial"), nullptr);
    ASSERT_EQ(__system_property_set("vendor.test.serial", "one"), 0);
    const prop_info* pi = __system_property_find("vendor.test.serial");
    ASSERT_NE(pi, nullptr);
    // "name=value" and the serial, as the callback reports them.
    auto read = [pi] {
        std::pair<std::string, uint32_t> seen;
        __system_property_read_callback(
            pi,
            [](void* cookie, const char* name, const char* value, uint32_t serial) {
                *static_cast<std::pair<std::string, uint32_t>*>(cookie) = {
                    std::string(name) + "=" + value, serial};
            },
            &seen);
        return seen;
    };
    const auto first = read();
    EXPECT_EQ(first.first, "vendor.test.serial=one");
    EXPECT_EQ(read().second, first.second);

    ASSERT_EQ(__system_property_set("vendor.test.serial", "two"), 0);
    EXPECT_EQ(__system_property_find("vendor.test.serial"), pi) << "records do not move";
    const auto second = read();
    EXPECT_EQ(second.first, "vendor.test.serial=two");
    EXPECT_NE(second.second, first.second);
}

TEST(PropertyStore, ForeignFileIsLeftAloneAndFailsQuietly) {
    g_sysroot->write("/foreign", "not a store\n");
    PropertyStore store(g_sysroot->root() + "/foreign");
    EXPECT_FALSE(store.valid());
    char value[PROP_VALUE_MAX] = "stale";
    EXPECT_EQ(store.get("vendor.x", value), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(store.set("vendor.x", "1"), -1);
    EXPECT_EQ(g_sysroot->read("/foreign"), "not a store\n");
}

// Another process creates properties while a thread of this one does, then
// rewrites one value while this process reads it through its own mapping.
TEST(PropertyStore, ConcurrentWritersNeitherTearValuesNorLoseProperties) {
    const std::string path = g_sysroot->root() + "/concurrent";
    constexpr int CREATED_EACH = 400;
    const std::string as(PROP_VALUE_MAX - 1, 'a'), bs(PROP_VALUE_MAX - 1, 'b');
    PropertyStore store(path);
    ASSERT_EQ(store.set("vendor.race.value", as.c_str()), 0);
    int go[2];
    ASSERT_EQ(pipe(go), 0);

    pid_t writer = fork();
    if (writer == 0) {
        char start;
        bool ok = read(go[0], &start, 1) == 1;
        PropertyStore own(path);
        for (int i = 0; i < CREATED_EACH; ++i) {
            ok = own.set(("vendor.race.child." + std::to_string(i)).c_str(), "c") == 0 && ok;
        }
        for (int i = 0; i < 5000; ++i) {
            ok = own.set("vendor.race.value", (i % 2 ? as : bs).c_str()) == 0 && ok;
        }
        _exit(ok ? 0 : 1);
    }
    ASSERT_GT(writer, 0);
    ASSERT_EQ(write(go[1], "g", 1), 1);
    std::thread creator([&store] {
        for (int i = 0; i < CREATED_EACH; ++i) {
            store.set(("vendor.race.thread." + std::to_string(i)).c_str(), "t");
        }
    });
    int torn = 0, status = 0;
    while (waitpid(writer, &status, WNOHANG) == 0) {
        char value[PROP_VALUE_MAX];
        store.get("vendor.race.value", value);
        torn += value != as && value != bs;
    }
    creator.join();
    close(go[0]);
    close(go[1]);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(torn, 0);

    int total = 0;
    store.forEach([](const prop_info*, void* cookie) { ++*static_cast<int*>(cookie); }, &total);
    EXPECT_EQ(total, 1 + 2 * CREATED_EACH);
}

// The tool and this process share the store. For the tool, the option wins
// over the store variable, which wins over the sysroot; the sysroot's store
// is made with its folder, and list prints the store sorted.
TEST(PropTool, SharesTheStoreAndChoosesItAsDocumented) {
    ASSERT_EQ(propTool({"set", "vendor.tool.a", "from tool"}).status, 0);
    EXPECT_EQ(get("vendor.tool.a"), "from tool");
    ASSERT_EQ(__system_property_set("vendor.tool.a", "from test"), 0);
    EXPECT_EQ(propTool({"get", "vendor.tool.a", "default"}).out, "from test\n");
    ASSERT_EQ(propTool({"set", "vendor.tool.a", ""}).status, 0);
    EXPECT_EQ(get("vendor.tool.a"), "");
    EXPECT_EQ(propTool({"get", "vendor.tool.a", "default"}).out, "default\n");

    const std::string root = g_sysroot->root(), sysroot = root + "/other-sysroot",
                      store = root + "/store", option = root + "/option";
    const std::vector<std::string> sysrootOnly = {"VELOUR_PROPERTY_STORE",
                                                  "VELOUR_SYSROOT=" + sysroot};
    const std::vector<std::string> both = {"VELOUR_PROPERTY_STORE=" + store,
                                           "VELOUR_SYSROOT=" + sysroot};
    ASSERT_EQ(propTool({"set", "vendor.b", "sysroot"}, sysrootOnly).status, 0);
    EXPECT_EQ(access((sysroot + "/dev/__properties__").c_str(), R_OK), 0);
    ASSERT_EQ(propTool({"set", "vendor.b", "store"}, both).status, 0);
    ASSERT_EQ(propTool({"--store", option, "set", "vendor.b", "option"}, both).status, 0);
    ASSERT_EQ(propTool({"--store", option, "set", "vendor.a.z", "1"}).status, 0);
    ASSERT_EQ(propTool({"--store", option, "set", "ro.c", ""}).status, 0);
    EXPECT_EQ(propTool({"get", "vendor.b"}, sysrootOnly).out, "sysroot\n");
    EXPECT_EQ(propTool({"get", "vendor.b"}, both).out, "store\n");
    EXPECT_EQ(propTool({"--store", option, "list"}, both).out,
              "[ro.c]: []\n[vendor.a.z]: [1]\n[vendor.b]: [option]\n");
}

TEST(PropTool, FailuresExitNonZeroAndSayWhy) {
    ASSERT_EQ(propTool({"set", "ro.tool.once", "1"}).status, 0);
    const std::tuple<std::vector<std::string>, int, const char*> cases[] = {
        {{"set", "vendor.tool.b", std::string(PROP_VALUE_MAX, 'x')}, 1, "too long"},
        {{"set", "ro.tool.once", "2"}, 1, "read-only"},
        {{"--store", "/dev/null/store", "get", "vendor.x"}, 1, "/dev/null/store"},
        {{"set", "vendor.x"}, 2, "usage:"},
    };
    for (const auto& [args, status, message] : cases) {
        test::RunResult r = propTool(args);
        EXPECT_EQ(r.status, status) << message;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    }
}

}  // namespace
}  // namespace velour::platform
