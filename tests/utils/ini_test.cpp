#include "velour/utils/ini.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using IniPtr = std::unique_ptr<ini_t, decltype(&ini_destroy)>;

IniPtr load(const std::string& text) {
    return IniPtr(ini_load(text.c_str(), nullptr), ini_destroy);
}

// name=value pairs of one section, in file order.
std::vector<std::string> pairs(const ini_t* ini, int section) {
    std::vector<std::string> out;
    for (int p = 0; p < ini_property_count(ini, section); ++p) {
        out.push_back(std::string(ini_property_name(ini, section, p)) + "=" +
                      ini_property_value(ini, section, p));
    }
    return out;
}

using Pairs = std::vector<std::string>;

TEST(IniLoad, KeysBeforeTheFirstHeaderGoToTheUnnamedSection) {
    IniPtr ini = load("top=1\n[com.game]\ngame=3\n");
    ASSERT_EQ(ini_section_count(ini.get()), 2);
    EXPECT_STREQ(ini_section_name(ini.get(), 0), "");
    EXPECT_EQ(pairs(ini.get(), 0), Pairs{"top=1"});
    EXPECT_STREQ(ini_section_name(ini.get(), 1), "com.game");
    EXPECT_EQ(pairs(ini.get(), 1), Pairs{"game=3"});
}

TEST(IniLoad, BlanksAroundTheEqualsSign) {
    // The name keeps its blank before "="; the value loses the blanks around it.
    IniPtr ini = load("key = value  \n\tindented=\t x y \r\nlast=end");
    EXPECT_EQ(pairs(ini.get(), 0), (Pairs{"key =value", "indented=x y", "last=end"}));
}

TEST(IniLoad, CommentsBlankLinesAndLinesWithoutEquals) {
    IniPtr ini = load(
        "; a comment = not a key\n\n   ; indented comment\nno equals here\n"
        "[s]\n;x=1\ny=2 ; kept, comments only start lines\n");
    EXPECT_EQ(pairs(ini.get(), 0), Pairs{});
    EXPECT_EQ(pairs(ini.get(), 1), Pairs{"y=2 ; kept, comments only start lines"});
}

TEST(IniLoad, HeaderWithoutClosingBracketIsDropped) {
    IniPtr ini = load("[first]\na=1\n[broken\nb=2\n[second] c=3\n");
    ASSERT_EQ(ini_section_count(ini.get()), 3);
    EXPECT_STREQ(ini_section_name(ini.get(), 1), "first");
    EXPECT_EQ(pairs(ini.get(), 1), (Pairs{"a=1", "b=2"}));
    // What follows "]" on the header's line is read as the next item.
    EXPECT_STREQ(ini_section_name(ini.get(), 2), "second");
    EXPECT_EQ(pairs(ini.get(), 2), Pairs{"c=3"});
}

TEST(IniLoad, LongNamesAndValuesMoveToTheHeapWhole) {
    const std::string name40(40, 'n');
    const std::string value200(200, 'v');
    IniPtr ini = load("[" + name40 + "]\n" + name40 + "=" + value200 + "\n");
    ASSERT_EQ(ini_section_count(ini.get()), 2);
    EXPECT_EQ(ini_find_section(ini.get(), name40.c_str(), 0), 1);
    EXPECT_EQ(ini_section_text(ini->sections[1]), name40);
    EXPECT_NE(ini->sections[1].nameLarge, nullptr);
    const ini_property_t& p = ini->properties[0];
    EXPECT_EQ(ini_property_name_text(p), name40);
    EXPECT_EQ(ini_property_value_text(p), value200);
    EXPECT_NE(p.valueLarge, nullptr);
}

TEST(IniLoad, HeapFormStartsWhereTheTextAndItsZeroFillTheField) {
    IniPtr ini = load("[" + std::string(30, 's') + "]\n[" + std::string(31, 't') + "]\n" +
                      std::string(30, 'a') + "=" + std::string(62, 'x') + "\n" +
                      std::string(31, 'b') + "=" + std::string(63, 'y') + "\n");
    EXPECT_EQ(ini->sections[1].nameLarge, nullptr);
    EXPECT_NE(ini->sections[2].nameLarge, nullptr);
    ASSERT_EQ(ini->propertyCount, 2);
    EXPECT_EQ(ini->properties[0].nameLarge, nullptr);
    EXPECT_EQ(ini->properties[0].valueLarge, nullptr);
    EXPECT_EQ(std::string(ini->properties[0].value), std::string(62, 'x'));
    EXPECT_NE(ini->properties[1].nameLarge, nullptr);
    EXPECT_NE(ini->properties[1].valueLarge, nullptr);
}

TEST(IniLoad, BytesAboveAsciiAreNotBlanks) {
    // Whatever the signedness of char, UTF-8 bytes stay part of names and values.
    IniPtr ini = load("\xC3\xA9t\xC3\xA9=\xE2\x80\x94\xC2\xA0\n");
    EXPECT_EQ(pairs(ini.get(), 0), Pairs{"\xC3\xA9t\xC3\xA9=\xE2\x80\x94\xC2\xA0"});
}

TEST(IniLoad, ManySectionsAndPropertiesGrowTheArrays) {
    std::string text;
    for (int i = 0; i < 300; ++i)
        text += "[s" + std::to_string(i) + "]\nk=" + std::to_string(i) + "\n";
    IniPtr ini = load(text);
    ASSERT_EQ(ini_section_count(ini.get()), 301);
    EXPECT_GE(ini->sectionCapacity, 301);
    const int s = ini_find_section(ini.get(), "S299", 0);
    ASSERT_EQ(s, 300);
    EXPECT_STREQ(ini_property_value(ini.get(), s, ini_find_property(ini.get(), s, "K", 0)), "299");
}

TEST(IniLoad, NullTextGivesOnlyTheUnnamedSection) {
    IniPtr ini(ini_load(nullptr, nullptr), ini_destroy);
    ASSERT_NE(ini, nullptr);
    EXPECT_EQ(ini_section_count(ini.get()), 1);
    EXPECT_EQ(ini->propertyCount, 0);
}

TEST(IniFind, FirstOfDuplicatesWinsAndCaseIsIgnored) {
    IniPtr ini = load("[A]\nkey=first\nKEY=second\n[a]\nkey=other\n");
    EXPECT_EQ(ini_find_section(ini.get(), "a", 0), 1);
    EXPECT_EQ(ini_find_property(ini.get(), 1, "Key", 0), 0);
    // An explicit length looks at that many characters of the argument.
    EXPECT_EQ(ini_find_property(ini.get(), 1, "keyboard", 3), 0);
    EXPECT_EQ(ini_find_property(ini.get(), 1, "ke", 0), INI_NOT_FOUND);
    EXPECT_EQ(ini_find_section(ini.get(), "missing", 0), INI_NOT_FOUND);
}

TEST(IniEdit, RemovingASectionRenumbersTheLaterOnes) {
    IniPtr ini = load("g=0\n[one]\na=1\n[two]\nb=2\n[three]\nc=3\n");
    ini_section_remove(ini.get(), 2);
    ASSERT_EQ(ini_section_count(ini.get()), 3);
    EXPECT_STREQ(ini_section_name(ini.get(), 2), "three");
    EXPECT_EQ(pairs(ini.get(), 2), Pairs{"c=3"});
    EXPECT_EQ(pairs(ini.get(), 1), Pairs{"a=1"});
    ini_section_remove(ini.get(), 0);  // the unnamed section stays
    EXPECT_EQ(pairs(ini.get(), 0), Pairs{"g=0"});

    ini_property_remove(ini.get(), 1, 0);
    EXPECT_EQ(ini_property_count(ini.get(), 1), 0);
}

TEST(IniEdit, SettersMoveTextBetweenFieldAndHeap) {
    IniPtr ini(ini_create(nullptr), ini_destroy);
    const int s = ini_section_add(ini.get(), "short", 0);
    ini_property_add(ini.get(), s, "k", 0, "v", 0);

    const std::string longValue(100, 'L');
    ini_property_value_set(ini.get(), s, 0, longValue.c_str(), 0);
    EXPECT_EQ(ini_property_value(ini.get(), s, 0), longValue);
    ini_property_value_set(ini.get(), s, 0, "tiny", 0);
    EXPECT_STREQ(ini_property_value(ini.get(), s, 0), "tiny");
    EXPECT_EQ(ini->properties[0].valueLarge, nullptr);

    const std::string longName(50, 'N');
    ini_section_name_set(ini.get(), s, longName.c_str(), 0);
    ini_property_name_set(ini.get(), s, 0, "name-with-length", 4);
    EXPECT_EQ(ini_section_name(ini.get(), s), longName);
    EXPECT_STREQ(ini_property_name(ini.get(), s, 0), "name");
}

TEST(IniSave, WhatIsSavedLoadsToTheSameRecords) {
    const std::string longValue(120, 'x');
    IniPtr ini = load("top=1\n[com.game]\ngame=3\nvalue=" + longValue + "\n[other]\nk=v\n");

    const int size = ini_save(ini.get(), nullptr, 0);
    std::string text(static_cast<std::size_t>(size), '\0');
    ASSERT_EQ(ini_save(ini.get(), &text[0], size), size);
    text.resize(static_cast<std::size_t>(size - 1));

    IniPtr again = load(text);
    ASSERT_EQ(ini_section_count(again.get()), 3);
    for (int s = 0; s < 3; ++s) {
        EXPECT_STREQ(ini_section_name(again.get(), s), ini_section_name(ini.get(), s));
        EXPECT_EQ(pairs(again.get(), s), pairs(ini.get(), s));
    }

    char small[8];
    EXPECT_EQ(ini_save(ini.get(), small, sizeof small), size);
    EXPECT_EQ(std::string(small), text.substr(0, 7));
}

}  // namespace
