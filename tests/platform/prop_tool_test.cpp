#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

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
    ChildResult set = runPropTool({"set", "vendor.tool.a", "from tool"});
    ASSERT_EQ(set.exitCode, 0) << set.err;
    EXPECT_EQ(get("vendor.tool.a"), "from tool");

    ASSERT_EQ(__system_property_set("vendor.tool.a", "from test"), 0);
    EXPECT_EQ(runPropTool({"get", "vendor.tool.a", "default"}).out, "from test\n");
    ASSERT_EQ(runPropTool({"set", "vendor.tool.a", ""}).exitCode, 0);
    EXPECT_EQ(get("vendor.tool.a"), "");
    EXPECT_EQ(runPropTool({"get", "vendor.tool.a", "default"}).out, "default\n");
}

TEST(PropTool, FailuresExitNonZeroAndSayWhy) {
    ChildResult tooLong = runPropTool({"set", "vendor.tool.b", std::string(PROP_VALUE_MAX, 'x')});
    EXPECT_NE(tooLong.exitCode, 0);
    EXPECT_NE(tooLong.err.find("too long"), std::string::npos) << tooLong.err;

    ASSERT_EQ(runPropTool({"set", "ro.tool.once", "1"}).exitCode, 0);
    ChildResult again = runPropTool({"set", "ro.tool.once", "2"});
    EXPECT_NE(again.exitCode, 0);
    EXPECT_NE(again.err.find("read-only"), std::string::npos) << again.err;

    ChildResult noStore = runPropTool({"--store", "/dev/null/store", "get", "vendor.x"});
    EXPECT_NE(noStore.exitCode, 0);
    EXPECT_NE(noStore.err.find("/dev/null/store"), std::string::npos) << noStore.err;

    ChildResult usage = runPropTool({"set", "vendor.x"});
    EXPECT_NE(usage.exitCode, 0);
    EXPECT_NE(usage.err.find("usage:"), std::string::npos) << usage.err;
}

// The option wins over the store variable, which wins over the sysroot; the
// sysroot's store is made with its folder, and list prints it sorted.
TEST(PropTool, StoreChoiceAndList) {
    const std::string root = testFolder("prop-tool");
    const std::string sysroot = root + "/sysroot", store = root + "/store";
    const std::string option = root + "/option";
    std::vector<std::pair<std::string, const char*>> sysrootOnly = {
        {"VELOUR_PROPERTY_STORE", nullptr}, {"VELOUR_SYSROOT", sysroot.c_str()}};
    std::vector<std::pair<std::string, const char*>> both = {
        {"VELOUR_PROPERTY_STORE", store.c_str()}, {"VELOUR_SYSROOT", sysroot.c_str()}};

    ASSERT_EQ(runPropTool({"set", "vendor.b", "sysroot"}, sysrootOnly).exitCode, 0);
    EXPECT_EQ(access((sysroot + "/dev/__properties__").c_str(), R_OK), 0);
    ASSERT_EQ(runPropTool({"set", "vendor.b", "store"}, both).exitCode, 0);
    ASSERT_EQ(runPropTool({"--store", option, "set", "vendor.b", "option"}, both).exitCode, 0);
    ASSERT_EQ(runPropTool({"--store", option, "set", "vendor.a.z", "1"}).exitCode, 0);
    ASSERT_EQ(runPropTool({"--store", option, "set", "ro.c", ""}).exitCode, 0);

    EXPECT_EQ(runPropTool({"get", "vendor.b"}, sysrootOnly).out, "sysroot\n");
    EXPECT_EQ(runPropTool({"get", "vendor.b"}, both).out, "store\n");
    EXPECT_EQ(runPropTool({"--store", option, "list"}, both).out,
              "[ro.c]: []\n[vendor.a.z]: [1]\n[vendor.b]: [option]\n");
}

}  // namespace
}  // namespace velour::test
