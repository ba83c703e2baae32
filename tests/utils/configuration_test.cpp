#include "velour/utils/Configuration.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "velour/utils/Strings.h"
#include "velour/utils/SystemProperty.h"

namespace {

using velour::utils::Configuration;
using velour::utils::Strings;
using velour::utils::SystemProperty;

Configuration& config() {
    return Configuration::global();
}

// Keys live under "vendor.nimbo.", and the composed name is cut at 91
// characters: any key that agrees over the kept part reads the same property.
TEST(Configuration, KeysGoUnderThePrefixCutAt91Characters) {
    config().sets("test.roundtrip", "hello");
    EXPECT_EQ(config().gets("test.roundtrip"), "hello");
    EXPECT_EQ(SystemProperty("vendor.nimbo.test.roundtrip").getValue(), "hello");
    EXPECT_EQ(config().gets("test.never_set"), "");

    const std::string key = "long." + std::string(95, 'k');  // 100 characters
    const std::string kept = key.substr(0, 91 - std::string("vendor.nimbo.").size());
    config().sets(key, "cut");
    EXPECT_EQ(SystemProperty("vendor.nimbo." + kept).getValue(), "cut");
    EXPECT_EQ(config().gets(kept + "different tail"), "cut");
}

// A number is 0 for anything that does not read as one (out of range
// included); a switch is on only for four exact words.
TEST(Configuration, NumbersAndSwitchesReadOnlyWhatTheyAccept) {
    const struct {
        const char* text;
        double number;
        bool on;
    } cases[] = {{"2.5", 2.5, false}, {"abc", 0, false}, {"1e999", 0, false}, {"1", 1, true},
                 {"1.0", 1, true},    {"yes", 0, true},  {"true", 0, true},   {"TRUE", 0, false},
                 {"Yes", 0, false},   {"0", 0, false},   {"2", 2, false},     {"1.00", 1, false},
                 {"on", 0, false}};
    for (const auto& c : cases) {
        config().sets("test.value", c.text);
        EXPECT_DOUBLE_EQ(config().getf("test.value"), c.number) << c.text;
        EXPECT_EQ(config().getb("test.value"), c.on) << c.text;
    }
    EXPECT_DOUBLE_EQ(config().getf("test.unset"), 0.0);
    EXPECT_FALSE(config().getb("test.unset"));
}

TEST(SystemProperty, FindsAPropertyCreatedAfterAFailedLookUp) {
    SystemProperty property("vendor.nimbo.test.late");
    EXPECT_EQ(std::pair(property.exists(), property.getValue()), std::pair(false, std::string()));
    property.setValue("here");
    EXPECT_EQ(std::pair(property.exists(), property.getValue()),
              std::pair(true, std::string("here")));
    property.setValue("changed");  // the cached record sees new values
    EXPECT_EQ(property.getValue(), "changed");
}

TEST(Strings, CaseOfAsciiLettersOnlyAndReplaceAll) {
    EXPECT_EQ(Strings::toLowerCase("MiXeD 123_Z\xC3\x89"), "mixed 123_z\xC3\x89");
    EXPECT_EQ(Strings::toUpperCase("mixed a-z\xC3\xA9"), "MIXED A-Z\xC3\xA9");
    EXPECT_TRUE(Strings::equalsIgnoreCase("Main_Color", "MAIN_color"));
    EXPECT_FALSE(Strings::equalsIgnoreCase("ui", "ui "));
    EXPECT_FALSE(Strings::equalsIgnoreCase("\xC3\x89", "\xC3\xA9"));
    // Replacements are not scanned again.
    EXPECT_EQ(Strings::replaceAll("aaa", "a", "aa"), "aaaaaa");
    EXPECT_EQ(Strings::replaceAll("a.b.c", ".", ""), "abc");
    EXPECT_EQ(Strings::replaceAll("abab", "aba", "x"), "xb");
    EXPECT_EQ(Strings::replaceAll("text", "", "x"), "text");
}

}  // namespace
