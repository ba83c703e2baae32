#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "platform/properties.h"

namespace velour::test {
namespace {

std::string get(const char* name) {
    char value[PROP_VALUE_MAX];
    __system_property_get(name, value);
    return value;
}

TEST(PropTool, SharesTheStoreWithThisProcess) {
    RunResult set = runPropTool({"set", "vendor.tool.a", "from tool"});
    ASSERT_EQ(set.status, 0) << set.err;
    EXPECT_EQ(get("vendor.tool.a"), "from tool");

    ASSERT_EQ(__system_property_set("vendor.tool.a", "from test"), 0);
    EXPECT_EQ(runPropTool({"get", "vendor.tool.a", "default"}).out, "from test\n");
    ASSERT_EQ(runPropTool({"set", "vendor.tool.a", ""}).status, 0);
    EXPECT_EQ(get("vendor.tool.a"), "");
    EXPECT_EQ(runPropTool({"get", "vendor.tool.a", "default"}).out, "default\n");
}

TEST(PropTool, FailuresExitNonZeroAndSayWhy) {
    ASSERT_EQ(runPropTool({"set", "ro.tool.once", "1"}).status, 0);
    const std::tuple<std::vector<std::string>, int, const char*> cases[] = {
        {{"set", "vendor.tool.b", std::string(PROP_VALUE_MAX, 'x')}, 1, "too long"},
        {{"set", "ro.tool.once", "2"}, 1, "read-only"},
        {{"--store", "/dev/null/store", "get", "vendor.x"}, 1, "/dev/null/store"},
        {{"set", "vendor.x"}, 2, "usage:"},
    };
    for (const auto& [args, status, message] : cases) {
        RunResult r = runPropTool(args);
        EXPECT_EQ(r.status, status) << message;
        EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    }
}

// The option wins over the store variable, which wins over the sysroot; the
// sysroot's store is made with its folder, and list prints it sorted.
TEST(PropTool, StoreChoiceAndList) {
    const std::string root = testFolder("prop-tool");
    const std::string sysroot = root + "/sysroot", store = root + "/store",
                      option = root + "/option";
    const std::vector<std::string> sysrootOnly = {"VELOUR_PROPERTY_STORE",
                                                  "VELOUR_SYSROOT=" + sysroot};
    const std::vector<std::string> both = {"VELOUR_PROPERTY_STORE=" + store,
                                           "VELOUR_SYSROOT=" + sysroot};

    ASSERT_EQ(runPropTool({"set", "vendor.b", "sysroot"}, sysrootOnly).status, 0);
    EXPECT_EQ(access((sysroot + "/dev/__properties__").c_str(), R_OK), 0);
    ASSERT_EQ(runPropTool({"set", "vendor.b", "store"}, both).status, 0);
    ASSERT_EQ(runPropTool({"--store", option, "set", "vendor.b", "option"}, both).status, 0);
    ASSERT_EQ(runPropTool({"--store", option, "set", "vendor.a.z", "1"}).status, 0);
    ASSERT_EQ(runPropTool({"--store", option, "set", "ro.c", ""}).status, 0);

    EXPECT_EQ(runPropTool({"get", "vendor.b"}, sysrootOnly).out, "sysroot\n");
    EXPECT_EQ(runPropTool({"get", "vendor.b"}, both).out, "store\n");
    EXPECT_EQ(runPropTool({"--store", option, "list"}, both).out,
              "[ro.c]: []\n[vendor.a.z]: [1]\n[vendor.b]: [option]\n");
}

}  // namespace
}  // namespace velour::test
