// The styles' parameters from the filter configuration: the shipped file
// names only parameters that exist, and a missing or misshapen file or
// section leaves the defaults with one line each.

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "TestSysroot.h"
#include "effects.h"

namespace tessel::test {
namespace {

using velour::test::TestSysroot;

const char SHIPPED[] = "/odm/etc/tesselfx/defaultFilterConfig.dat";

// Writes `json` as the shipped configuration, wrapped by velour-dat.
void ship(const TestSysroot& sysroot, const std::string& json) {
    sysroot.write("/odm/etc/tesselfx/filters.json", json);
    const auto result = velour::test::run(
        VELOUR_DAT,
        {"wrap", sysroot.root() + "/odm/etc/tesselfx/filters.json", sysroot.root() + SHIPPED});
    ASSERT_EQ(result.status, 0) << result.err;
}

std::string section(const char* name, const std::string& parameters) {
    return std::string("\"") + name + "\": {\"parameters\": [" + parameters + "]}";
}

TEST(FilterConfiguration, ShippedFileGivesEveryStyleWithASectionOnlyKnownParameters) {
    TestSysroot sysroot;
    sysroot.write(SHIPPED, velour::test::readFile(SHIPPED_FILTER_CONFIG));
    std::vector<std::string> problems;
    const FilterSections sections = readFilterConfiguration(problems);
    EXPECT_TRUE(problems.empty()) << problems.front();
    for (const Effect& effect : effects()) {
        if (!effect.configSection) continue;
        SCOPED_TRACE(effect.name);
        ASSERT_EQ(sections.count(effect.configSection), 1u);
        std::vector<std::string> unknown;
        resolveParameters(effect, &sections.at(effect.configSection), unknown);
        EXPECT_TRUE(unknown.empty()) << unknown.front();
    }
}

TEST(FilterConfiguration, BadFilesAndSectionsLeaveDefaultsWithOneLineEach) {
    const std::string good = section("pixelizeConfig",
                                     R"({"varName": "uBlockSize", "type": "uniform1f", "value": 12},
                                        {"varName": "uOther", "type": "uniform1f", "value": 1},
                                        {"varName": "uSkipped", "type": "uniform2f", "value": 1})");
    struct Case {
        const char* what;
        std::string json;  // empty: no file
        bool wrap;
        size_t problems;
        size_t sections;
    };
    const Case cases[] = {
        {"no file", "", true, 1, 0},
        {"plain JSON where a wrapped file belongs", "{\"config\": \"filters\"}", false, 1, 0},
        {"one good section, five missing", "{" + good + "}", true, 5, 1},
        {"sections not objects or without a parameter list",
         "{" + good + R"(, "hdrConfig": 3, "celShadingConfig": {"parameters": 1},
                         "oldMovieConfig": {}})",
         true, 5, 1},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        TestSysroot sysroot;
        if (!test.json.empty()) {
            if (test.wrap)
                ship(sysroot, test.json);
            else
                sysroot.write(SHIPPED, test.json);
        }
        std::vector<std::string> problems;
        const FilterSections sections = readFilterConfiguration(problems);
        EXPECT_EQ(problems.size(), test.problems);
        EXPECT_EQ(sections.size(), test.sections);

        // The good section's value wins, its foreign name is reported, and a
        // style whose section is absent keeps its defaults.
        std::vector<std::string> unknown;
        const auto pixelize =
            sections.count("pixelizeConfig") ? &sections.at("pixelizeConfig") : nullptr;
        const auto uniforms = resolveParameters(*findEffect("pixelize"), pixelize, unknown);
        ASSERT_EQ(uniforms.size(), 1u);
        EXPECT_EQ(uniforms[0].value, pixelize ? 12.0f : 8.0f);
        EXPECT_EQ(unknown,
                  pixelize ? std::vector<std::string>{"uOther"} : std::vector<std::string>{});
    }
}

TEST(EffectTime, FixedByTheEnvironment) {
    setenv("TESSEL_FIXED_TIME", "2.5", 1);
    EXPECT_EQ(effectTime(), 2.5f);
    EXPECT_EQ(effectTime(), 2.5f);
}

}  // namespace
}  // namespace tessel::test
