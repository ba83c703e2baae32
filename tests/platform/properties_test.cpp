#include "platform/properties.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "TestSupport.h"
#include "platform/PropertyStore.h"

namespace velour::platform {
namespace {

std::string get(const char* name) {
    char value[PROP_VALUE_MAX];
    std::memset(value, 'z', sizeof value);  // a missing property must still clear it
    int length = __system_property_get(name, value);
    EXPECT_EQ(length, static_cast<int>(strnlen(value, sizeof value)));
    return value;
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

    struct Seen {
        std::string name, value;
        uint32_t serial;
    };
    auto read = [pi] {
        Seen seen{};
        __system_property_read_callback(
            pi,
            [](void* cookie, const char* name, const char* value, uint32_t serial) {
                *static_cast<Seen*>(cookie) = {name, value, serial};
            },
            &seen);
        return seen;
    };
    Seen first = read();
    EXPECT_EQ(first.name + "=" + first.value, "vendor.test.serial=one");
    EXPECT_EQ(read().serial, first.serial);

    ASSERT_EQ(__system_property_set("vendor.test.serial", "two"), 0);
    EXPECT_EQ(__system_property_find("vendor.test.serial"), pi) << "records do not move";
    Seen second = read();
    EXPECT_EQ(second.value, "two");
    EXPECT_NE(second.serial, first.serial);
}

TEST(PropertyStore, ForeignFileIsLeftAloneAndFailsQuietly) {
    const std::string path = test::testFolder("foreign") + "/store";
    std::ofstream(path) << "not a store\n";
    PropertyStore store(path);
    EXPECT_FALSE(store.valid());
    char value[PROP_VALUE_MAX] = "stale";
    EXPECT_EQ(store.get("vendor.x", value), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(store.set("vendor.x", "1"), -1);
    std::string kept;
    std::getline(std::ifstream(path), kept);
    EXPECT_EQ(kept, "not a store");
}

// Another process creates properties while a thread of this one does, then
// rewrites one value while this process reads it through its own mapping.
TEST(PropertyStore, ConcurrentWritersNeitherTearValuesNorLoseProperties) {
    const std::string path = test::testFolder("concurrent") + "/store";
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

}  // namespace
}  // namespace velour::platform
