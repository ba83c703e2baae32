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

// Every section as [name] followed by its name=value pairs, in file order.
std::string dump(const ini_t* ini) {
    std::string out;
    for (int s = 0; s < ini_section_count(ini); ++s) {
        out += std::string(s > 0 ? "|[" : "[") + ini_section_name(ini, s) + "]";
        for (int p = 0; p < ini_property_count(ini, s); ++p) {
            out += std::string("|") + ini_property_name(ini, s, p) + "=" +
                   ini_property_value(ini, s, p);
        }
    }
    return out;
}

TEST(IniLoad, LinesAreReadAsTheSettingsFileIsWritten) {
    const char* const cases[][2] = {
        // Keys before the first header go to the unnamed section.
        {"top=1\n[com.game]\ngame=3\n", "[]|top=1|[com.game]|game=3"},
        // The name keeps its blank before "="; the value loses the blanks around it.
        {"key = value  \n\tindented=\t x y \r\nlast=end", "[]|key =value|indented=x y|last=end"},
        // Comments only start lines; a line without "=" is skipped.
        {"; a comment = not a key\n\n   ; indented\nno equals here\n[s]\n;x=1\ny=2 ; kept\n",
         "[]|[s]|y=2 ; kept"},
        // A header without "]" is dropped; what follows "]" is read as the next item.
        {"[first]\na=1\n[broken\nb=2\n[second] c=3\n", "[]|[first]|a=1|b=2|[second]|c=3"},
        // Whatever the signedness of char, UTF-8 bytes are not blanks.
        {"\xC3\xA9t\xC3\xA9=\xE2\x80\x94\xC2\xA0\n", "[]|\xC3\xA9t\xC3\xA9=\xE2\x80\x94\xC2\xA0"},
    };
    for (const auto& c : cases) EXPECT_EQ(dump(load(c[0]).get()), c[1]) << c[0];

    IniPtr none(ini_load(nullptr, nullptr), ini_destroy);
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(dump(none.get()), "[]");
}

// The layer reads the records directly: text that would fill its field with
// the terminating zero moves to the heap, whole.
TEST(IniLoad, TextMovesToTheHeapWhereItAndItsZeroFillTheField) {
    const std::string name30(30, 'a'), name31(31, 'b'), value62(62, 'x'), value63(63, 'y');
    IniPtr ini = load("[" + name30 + "]\n" + name30 + "=" + value62 + "\n[" + name31 + "]\n" +
                      name31 + "=" + value63 + "\n");
    ASSERT_EQ(ini->propertyCount, 2);
    auto heap = [](const char* large) { return large ? std::string(large) : "-"; };
    const ini_property_t &inField = ini->properties[0], &onHeap = ini->properties[1];
    EXPECT_EQ((std::vector<std::string>{inField.value, heap(ini->sections[1].nameLarge),
                                        heap(inField.nameLarge), heap(inField.valueLarge),
                                        heap(ini->sections[2].nameLarge), heap(onHeap.nameLarge),
                                        heap(onHeap.valueLarge)}),
              (std::vector<std::string>{value62, "-", "-", "-", name31, name31, value63}));
    EXPECT_EQ(ini_find_section(ini.get(), name31.c_str(), 0), 2);
}

// Names match without regard to case, the first of duplicates wins, and an
// explicit length looks at that many characters of the argument.
TEST(IniFind, CaseIsIgnoredTheFirstDuplicateWinsAndTheArraysGrow) {
    std::string text = "[A]\nkey=first\nKEY=second\n[a]\nkey=other\n";
    for (int i = 0; i < 300; ++i)
        text += "[s" + std::to_string(i) + "]\nk=" + std::to_string(i) + "\n";
    IniPtr ini = load(text);
    ASSERT_EQ(ini_section_count(ini.get()), 303);
    EXPECT_EQ(ini_find_section(ini.get(), "a", 0), 1);
    EXPECT_EQ(ini_find_property(ini.get(), 1, "Key", 0), 0);
    EXPECT_EQ(ini_find_property(ini.get(), 1, "keyboard", 3), 0);
    EXPECT_EQ(ini_find_property(ini.get(), 1, "ke", 0), INI_NOT_FOUND);
    EXPECT_EQ(ini_find_section(ini.get(), "missing", 0), INI_NOT_FOUND);
    const int s = ini_find_section(ini.get(), "S299", 0);
    ASSERT_EQ(s, 302);
    EXPECT_STREQ(ini_property_value(ini.get(), s, ini_find_property(ini.get(), s, "K", 0)), "299");
}

// Removing renumbers the later sections, setters move text between the
// record's field and the heap, and what is saved loads to the same records.
TEST(IniEdit, EditsAndTheSavedTextLoadBackToTheSameRecords) {
    IniPtr ini = load("g=0\n[one]\na=1\n[two]\nb=2\n[three]\nc=3\n");
    ini_section_remove(ini.get(), 2);
    ini_section_remove(ini.get(), 0);  // the unnamed section stays
    ini_property_remove(ini.get(), 1, 0);
    const int s = ini_section_add(ini.get(), "short", 0);
    ini_property_add(ini.get(), s, "k", 0, "v", 0);
    const std::string longValue(100, 'L'), longName(50, 'N');
    ini_property_value_set(ini.get(), s, 0, longValue.c_str(), 0);
    EXPECT_EQ(ini_property_value(ini.get(), s, 0), longValue);
    ini_property_value_set(ini.get(), s, 0, "tiny", 0);
    ini_section_name_set(ini.get(), s, longName.c_str(), 0);
    ini_property_name_set(ini.get(), s, 0, "name-with-length", 4);
    ini_property_add(ini.get(), 1, "value", 0, longValue.c_str(), 0);
    const std::string edited =
        "[]|g=0|[one]|value=" + longValue + "|[three]|c=3|[" + longName + "]|name=tiny";
    EXPECT_EQ(dump(ini.get()), edited);

    const int size = ini_save(ini.get(), nullptr, 0);
    std::string text(static_cast<std::size_t>(size), '\0');
    ASSERT_EQ(ini_save(ini.get(), &text[0], size), size);
    text.resize(static_cast<std::size_t>(size - 1));
    EXPECT_EQ(dump(load(text).get()), edited);
    char small[8];
    EXPECT_EQ(ini_save(ini.get(), small, sizeof small), size);
    EXPECT_EQ(std::string(small), text.substr(0, 7));
}

}  // namespace
