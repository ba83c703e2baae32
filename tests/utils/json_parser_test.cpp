#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "TestSysroot.h"
#include "velour/utils/JsonParserBase.h"
#include "velour/utils/base64.h"

namespace velour::test {
extern TestSysroot* g_sysroot;
}

namespace {

using velour::test::g_sysroot;
using velour::utils::JsonParser;
using velour::utils::wrapDat;
using Strings = std::vector<std::string>;

// The path of a shipped data file holding text.
std::string shippedFile(const std::string& text) {
    g_sysroot->write("/shipped.dat", text);
    return g_sysroot->root() + "/shipped.dat";
}

std::string versioned(const std::string& version, const std::string& marker) {
    // Long enough that its wrapped form passes the update size floor.
    return "{\"version\":\"" + version + "\",\"marker\":\"" + marker +
           "\",\"note\":\"a data file with enough text in it to be taken as an update\"}";
}

std::string markerOf(const JsonParser& parser) {
    const picojson::value& root = parser.getRoot();
    return root.is<picojson::object>() ? root.get("marker").to_str() : "<none>";
}

// The service's update replaces the shipped file only when it is a whole,
// wrapped document of at least 100 characters with a higher edition.
TEST(JsonEdition, UpdateWinsOnlyWhenValidAndNewer) {
    // Exactly 100 and 99 characters; the decoder takes base64 without its
    // padding, so only the length tells the two apart.
    std::string json = "{\"version\":\"9.9.9\",\"marker\":\"update\",\"p\":\"\"}";
    json.insert(json.size() - 2, 75 - json.size(), 'x');
    const std::string hundred = wrapDat(json);
    ASSERT_EQ(hundred.size(), 100u);
    json.erase(json.size() - 3, 1);
    const std::string ninetyNine = wrapDat(json).substr(1);  // without its leading "="
    ASSERT_NO_THROW(velour::utils::unwrapDat(ninetyNine));

    std::string truncated = versioned("2.0.0", "update");
    truncated.pop_back();
    const std::string pad = ",\"p\":\"" + std::string(100, 'p') + "\"}";
    const std::tuple<const char*, std::string, const char*> cases[] = {
        // shipped, update, kept
        {"1.0.3", wrapDat(versioned("1.0.3", "update")), "shipped"},
        {"1.0.3", wrapDat(versioned("1.0.2", "update")), "shipped"},
        {"1.0.3", wrapDat(versioned("1.1.0", "update")), "update"},
        // Only the first three digits count: 1.10.2 (110) loses to 1.2.0 (120).
        {"1.10.2", wrapDat(versioned("1.2.0", "update")), "update"},
        {"1.0.0", hundred, "update"},
        {"1.0.0", ninetyNine, "shipped"},
        {"1.0.0", "!" + wrapDat(versioned("2.0.0", "update")), "shipped"},
        {"1.0.0", wrapDat(truncated), "shipped"},
        {"1.0.0", wrapDat("{\"marker\":\"update\"" + pad), "shipped"},
        {"1.0.0", wrapDat("{\"version\":\"2.0\",\"marker\":\"update\"" + pad), "shipped"},
    };
    for (const auto& [shipped, update, kept] : cases) {
        const std::string path = shippedFile(wrapDat(versioned(shipped, "shipped")));
        EXPECT_EQ(markerOf(JsonParser("", path, update)), kept) << update;
    }

    // Without a readable shipped file (none, a folder in its place, or one not
    // wrapped) the root stays null, whatever the update.
    for (const std::string& path : {g_sysroot->root() + "/none.dat", g_sysroot->root() + "/odm",
                                    shippedFile(versioned("1.0.0", "plain"))}) {
        JsonParser parser("", path, wrapDat(versioned("2.0.0", "update")));
        EXPECT_TRUE(parser.getRoot().is<picojson::null>() && !parser.validateJson()) << path;
    }
}

// A number out of range is refused, in either mode, and keeps the document.
TEST(JsonEdition, ANumberOutOfRangeKeepsThePreviousDocument) {
    JsonParser parser;
    EXPECT_FALSE(parser.initialize("{\"value\":1e999}", true));
    EXPECT_TRUE(parser.getRoot().is<picojson::null>());
    EXPECT_TRUE(parser.initialize(versioned("1.0.0", "plain"), true));
    EXPECT_FALSE(parser.initialize("{\"version\":\"2.0.0\",\"value\":-1e999}", false));
    EXPECT_EQ(markerOf(parser), "plain");
}

JsonParser parsed(const std::string& json) {
    JsonParser parser;
    if (!parser.initialize(json, true)) throw std::runtime_error("bad test JSON");
    return parser;
}

// Labels are any value as text, hashes only strings, uniforms only the
// uniform1f parameters; a wrong shape gives nothing, or throws for uniforms.
TEST(JsonQueries, EachQueryTakesWhatItReadsAndRefusesWrongShapes) {
    JsonParser parser = parsed(
        R"({"labelTracker":{"hud":["UI_Main",42,1.5,true],"none":"not a list"},"flat":[1],
        "textureTracker":{"UI":[{"value":"ab12"},{"value":7},"bare",{"other":"x"},{"value":"cd34"}]},
        "pixelizeConfig":{"parameters":[{"varName":"uPixelSize","type":"uniform1f","value":8},
            {"varName":"uTint","type":"uniform3f","value":1},
            {"varName":"uScale","type":"uniform1f","value":0.25}]},
        "broken":{"parameters":[{"varName":"x","type":"uniform1f","value":"8"}]},
        "bare":{"parameters":{}}})");
    EXPECT_EQ(parser.getLabel("labelTracker", "hud"), (Strings{"UI_Main", "42", "1.5", "true"}));
    EXPECT_EQ(parser.getHash("textureTracker", "UI"), (Strings{"ab12", "cd34"}));
    for (const std::string path : {"labelTracker.none", "labelTracker.missing", "missing.hud",
                                   "flat.0", "textureTracker.BATTLE"}) {
        const size_t dot = path.find('.');
        const std::string section = path.substr(0, dot), key = path.substr(dot + 1);
        EXPECT_TRUE(parser.getLabel(section, key).empty() && parser.getHash(section, key).empty())
            << path;
    }
    EXPECT_TRUE(parsed("[1,2]").getLabel("labelTracker", "hud").empty());
    const std::map<std::string, float> expected = {{"uPixelSize", 8.0f}, {"uScale", 0.25f}};
    EXPECT_EQ(parser.getUniform1fData("pixelizeConfig"), expected);
    for (const char* section : {"broken", "bare", "missing"})
        EXPECT_THROW(parser.getUniform1fData(section), std::runtime_error) << section;
}

const char WZRY[] = R"({"version":"1.0.0","game":"wzry",
    "labelTracker":{"battle":["a"],"none":[],"hud":["b",3]},
    "labelTrackerMatch":{"3dMatch_regex":[{"value":"^3d"}],"battleMatch_regex":[],
                         "noneMatch_regex":[],"hudMatch_regex":[{"value":"hud.*"}]}})";

using Check = bool (JsonParser::*)(std::string&);

// Each case is a document and a part of the reason the check gives, or ""
// when the document passes.
void expectReasons(Check check, const std::vector<std::pair<std::string, const char*>>& cases) {
    for (const auto& [json, fault] : cases) {
        std::string reason;
        JsonParser parser = parsed(json);
        EXPECT_EQ((parser.*check)(reason), fault[0] == '\0') << json;
        EXPECT_NE(reason.find(fault), std::string::npos) << json << ": " << reason;
    }
}

TEST(JsonValidation, GameDataFollowsTheGamesTable) {
    std::string badRegex = WZRY, noHud = WZRY;
    const std::string hudRegex = R"({"value":"hud.*"})", hudLabels = R"(,"hud":["b",3])";
    badRegex.replace(badRegex.find(hudRegex), hudRegex.size(), R"({"value":5})");
    noHud.replace(noHud.find(hudLabels), hudLabels.size(), "");
    expectReasons(
        &JsonParser::validateGameDataJson,
        {{WZRY, ""},
         {badRegex, R"("hudMatch_regex"[0]."value" is not a string)"},
         {noHud, R"("labelTracker"."hud" is missing)"},
         {R"({"game":"dwrg","textureTracker":{"GAMEPLAY":[{"value":"ff"}]}})", ""},
         {R"({"game":"dwrg","textureTracker":{"GAMEPLAY":"ff"}})", "is not an array"},
         {R"({"game":"dwrg","textureTracker":[]})", R"("textureTracker" is not an object)"},
         {R"({"game":"cf","labelTracker":{"battle":[],"crosshair":[],"lobby":[],"hud":[]},
           "textureTracker":{"BATTLE":["ff"]}})",
          R"("BATTLE"[0] is not an object)"},
         // Games with another schema, or none, are not game data here.
         {R"({"game":"fortnite"})", "no game data schema"},
         {R"({"game":"pubg4DShock"})", "no game data schema"},
         {R"({"game":3})", R"("game" is not a string)"}});
}

std::string filterFile(const std::string& oldMovie) {
    std::string json = R"({"version":"1.0.0","config":"filters")";
    for (const char* section : {"pixelizeConfig", "celShadingConfig", "hdrConfig",
                                "colorInvertConfig", "nightVisionConfig"}) {
        json += std::string(",\"") + section +
                R"(":{"parameters":[{"varName":"u","type":"uniform1f","value":1}]})";
    }
    return json + ",\"oldMovieConfig\":" + oldMovie + "}";
}

TEST(JsonValidation, FilterFileNeedsAllSixSectionsWithTypedParameters) {
    const std::string good = filterFile(R"({"parameters":[]})");
    std::string notFilters = good;
    notFilters.replace(notFilters.find("\"filters\""), 9, "\"filter\"");
    expectReasons(
        &JsonParser::validateFilterConfigJson,
        {{good, ""},
         {filterFile(R"({"params":[]})"), R"("oldMovieConfig"."parameters" is missing)"},
         {filterFile(R"({"parameters":[{"varName":"u","type":"uniform1f","value":"1"}]})"),
          R"("value" is not a number)"},
         {filterFile(R"({"parameters":[{"varName":"u","value":1}]})"), R"("type" is not a string)"},
         {notFilters, R"(is "filter", not "filters")"}});
    // validateJson takes either kind.
    EXPECT_TRUE(parsed(good).validateJson());
    EXPECT_TRUE(parsed(WZRY).validateJson());
}

}  // namespace
