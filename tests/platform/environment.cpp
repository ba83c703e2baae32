#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestSupport.h"

namespace velour::test {
namespace {

// Every property call of this program goes to a store of its own, chosen
// before the first call opens the store.
struct TestEnvironment : ::testing::Environment {
    TestEnvironment() : root(makeTempFolder("velour-platform-tests")) {
        setenv("VELOUR_PROPERTY_STORE", (root + "/properties").c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(root); }
    const std::string root;
};

TestEnvironment* const g_environment =
    static_cast<TestEnvironment*>(::testing::AddGlobalTestEnvironment(new TestEnvironment));

}  // namespace

std::string testFolder(const std::string& name) {
    std::string path = g_environment->root + "/" + name;
    mkdir(path.c_str(), 0755);
    return path;
}

}  // namespace velour::test
