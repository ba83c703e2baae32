#include "velour/utils/Configuration.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "velour/utils/Strings.h"
#include "velour/utils/SystemProperty.h"

// The tests get a property store of their own. This runs before any static
// initialiser of the library, some of which may already read properties.
__attribute__((constructor(101))) static void useFreshPropertyStore() {
    char path[] = "/tmp/velour-utils-props-XXXXXX";
    const int fd = mkstemp(path);
    if (fd >= 0) close(fd);
    setenv("VELOUR_PROPERTY_STORE", path, 1);
}

namespace {

using velour::utils::Configuration;
using velour::utils::Strings;
using velour::utils::SystemProperty;

Configuration& config() {
    return Configuration::global();
}

TEST(Configuration, ReadsBackWhatItWritesUnderThePrefix) {
    config().sets("test.roundtrip", "hello");
    EXPECT_EQ(config().gets("test.roundtrip"), "hello");
    EXPECT_EQ(SystemProperty("vendor.nimbo.test.roundtrip").getValue(), "hello");
    EXPECT_EQ(config().gets("test.never_set"), "");
}

TEST(Configuration, GetfTakesZeroForAnythingThatIsNotANumber) {
    config().sets("test.f", "2.5");
    EXPECT_DOUBLE_EQ(config().getf("test.f"), 2.5);
    config().sets("test.f", "abc");
    EXPECT_DOUBLE_EQ(config().getf("test.f"), 0.0);
    config().sets("test.f", "1e999");  // out of range is an exception too
    EXPECT_DOUBLE_EQ(config().getf("test.f"), 0.0);
    EXPECT_DOUBLE_EQ(config().getf("test.f_unset"), 0.0);
}

TEST(Configuration, GetbAcceptsOnlyTheFourExactWords) {
    for (const char* yes : {"1", "1.0", "yes", "true"}) {
        config().sets("test.b", yes);
        EXPECT_TRUE(config().getb("test.b")) << yes;
    }
    for (const char* no : {"TRUE", "Yes", "0", "2", "1.00", "on"}) {
        config().sets("test.b", no);
        EXPECT_FALSE(config().getb("test.b")) << no;
    }
    EXPECT_FALSE(config().getb("test.b_unset"));
}

TEST(Configuration, CutsTheComposedNameAt91Characters) {
    const std::string prefix = "vendor.nimbo.";
    const std::string key = "long." + std::string(95, 'k');  // 100 characters
    const std::string kept = key.substr(0, 91 - prefix.size());

    config().sets(key, "cut");
    EXPECT_EQ(SystemProperty(prefix + kept).getValue(), "cut");
    // Any key that agrees over the kept part reads the same property.
    EXPECT_EQ(config().gets(kept + "different tail"), "cut");
}

TEST(SystemProperty, FindsAPropertyCreatedAfterAFailedLookUp) {
    SystemProperty property("vendor.nimbo.test.late");
    EXPECT_EQ(property.getName(), "vendor.nimbo.test.late");
    EXPECT_FALSE(property.exists());
    EXPECT_EQ(property.getValue(), "");

    property.setValue("here");
    EXPECT_TRUE(property.exists());
    EXPECT_EQ(property.getValue(), "here");
    property.setValue("changed");  // the cached record sees new values
    EXPECT_EQ(property.getValue(), "changed");
}

TEST(Strings, ChangeCaseOfAsciiLettersOnly) {
    EXPECT_EQ(Strings::toLowerCase("MiXeD 123_Z\xC3\x89"), "mixed 123_z\xC3\x89");
    EXPECT_EQ(Strings::toUpperCase("mixed a-z\xC3\xA9"), "MIXED A-Z\xC3\xA9");
    EXPECT_TRUE(Strings::equalsIgnoreCase("Main_Color", "MAIN_color"));
    EXPECT_FALSE(Strings::equalsIgnoreCase("ui", "ui "));
    EXPECT_FALSE(Strings::equalsIgnoreCase("\xC3\x89", "\xC3\xA9"));
}

TEST(Strings, ReplaceAllDoesNotRescanReplacements) {
    EXPECT_EQ(Strings::replaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(Strings::replaceAll("a.b.c", ".", ""), "abc");
    EXPECT_EQ(Strings::replaceAll("abab", "aba", "x"), "xb");
    EXPECT_EQ(Strings::replaceAll("text", "", "x"), "text");
}

}  // namespace
