#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "velour/utils/JsonParserBase.h"
#include "velour/utils/base64.h"

namespace {

using velour::utils::JsonParser;
using velour::utils::wrapDat;
using Strings = std::vector<std::string>;

// A shipped data file in a folder of its own.
class DataFile {
  public:
    explicit DataFile(const std::string& json) {
        char folder[] = "/tmp/velour-json-XXXXXX";
        if (mkdtemp(folder) == nullptr) throw std::runtime_error("mkdtemp");
        this->folder = folder;
        path = this->folder + "/data.dat";
        std::ofstream(path, std::ios::binary) << wrapDat(json);
    }
    ~DataFile() {
        std::remove(path.c_str());
        rmdir(folder.c_str());
    }

    std::string folder;
    std::string path;
};

std::string versioned(const std::string& version, const std::string& marker) {
    // Long enough that its wrapped form passes the update size floor.
    return "{\"version\":\"" + version + "\",\"marker\":\"" + marker +
           "\",\"note\":\"a data file with enough text in it to be taken as an update\"}";
}

std::string markerOf(const JsonParser& parser) {
    const picojson::value& root = parser.getRoot();
    if (!root.is<picojson::object>()) return "<none>";
    return root.get("marker").to_str();
}

TEST(JsonEdition, UpdateWinsOnlyWithAHigherVersion) {
    DataFile shipped(versioned("1.0.3", "shipped"));
    JsonParser same("", shipped.path, wrapDat(versioned("1.0.3", "update")));
    EXPECT_EQ(markerOf(same), "shipped");
    JsonParser lower("", shipped.path, wrapDat(versioned("1.0.2", "update")));
    EXPECT_EQ(markerOf(lower), "shipped");
    JsonParser higher("", shipped.path, wrapDat(versioned("1.1.0", "update")));
    EXPECT_EQ(markerOf(higher), "update");
}

TEST(JsonEdition, ReadsOnlyCharactersZeroTwoAndFour) {
    picojson::value doc;
    ASSERT_TRUE(picojson::parse(doc, "{\"version\":\"1.10.2\"}").empty());
    EXPECT_EQ(JsonParser::editionOf(doc), 110);

    // So 1.10.2 loses to 1.2.0 (edition 120).
    DataFile shipped(versioned("1.10.2", "shipped"));
    JsonParser parser("", shipped.path, wrapDat(versioned("1.2.0", "update")));
    EXPECT_EQ(markerOf(parser), "update");
}

TEST(JsonEdition, UpdateShorterThan100CharactersIsIgnored) {
    DataFile shipped(versioned("1.0.0", "shipped"));
    // Exactly 100 and 99 characters; the decoder takes base64 without its
    // padding, so only the length tells the two apart.
    std::string json = "{\"version\":\"9.9.9\",\"marker\":\"update\",\"p\":\"\"}";
    json.insert(json.size() - 2, 75 - json.size(), 'x');
    const std::string hundred = wrapDat(json);
    ASSERT_EQ(hundred.size(), 100u);
    JsonParser taken("", shipped.path, hundred);
    EXPECT_EQ(markerOf(taken), "update");

    json.erase(json.size() - 3, 1);
    std::string ninetyNine = wrapDat(json);
    ASSERT_EQ(ninetyNine[0], '=');
    ninetyNine.erase(0, 1);
    ASSERT_EQ(ninetyNine.size(), 99u);
    ASSERT_NO_THROW(velour::utils::unwrapDat(ninetyNine));
    JsonParser ignored("", shipped.path, ninetyNine);
    EXPECT_EQ(markerOf(ignored), "shipped");
}

TEST(JsonEdition, BrokenUpdateKeepsTheShippedEdition) {
    DataFile shipped(versioned("1.0.0", "shipped"));
    const std::string notBase64 = "!" + wrapDat(versioned("2.0.0", "update"));
    std::string truncated = versioned("2.0.0", "update");
    truncated.pop_back();
    const std::string notJson = wrapDat(truncated);
    const std::string noVersion =
        wrapDat("{\"marker\":\"update\",\"padding\":\"" + std::string(100, 'p') + "\"}");
    const std::string shortVersion = wrapDat("{\"version\":\"2.0\",\"marker\":\"update\",\"p\":\"" +
                                             std::string(100, 'p') + "\"}");
    for (const std::string& update : {notBase64, notJson, noVersion, shortVersion}) {
        JsonParser parser("", shipped.path, update);
        EXPECT_EQ(markerOf(parser), "shipped");
    }
}

TEST(JsonEdition, NoShippedFileMeansNoUpdateEither) {
    JsonParser parser("", "/tmp/velour-no-such-folder/none.dat",
                      wrapDat(versioned("2.0.0", "update")));
    EXPECT_TRUE(parser.getRoot().is<picojson::null>());
    EXPECT_TRUE(parser.getLabel("labelTracker", "hud").empty());
    EXPECT_FALSE(parser.validateJson());
}

TEST(JsonEdition, ShippedFileThatIsNotWrappedLeavesTheRootNull) {
    DataFile shipped("");
    std::ofstream(shipped.path) << versioned("1.0.0", "plain");
    JsonParser parser("", shipped.path, "");
    EXPECT_TRUE(parser.getRoot().is<picojson::null>());
}

JsonParser parsed(const std::string& json) {
    JsonParser parser;
    if (!parser.initialize(json, true)) throw std::runtime_error("bad test JSON");
    return parser;
}

TEST(JsonQueries, GetLabelReadsAnyValueAsTextAndEmptyOnWrongShapes) {
    JsonParser parser = parsed(
        R"({"labelTracker":{"hud":["UI_Main",42,1.5,true],"none":"not a list"},"flat":[1]})");
    EXPECT_EQ(parser.getLabel("labelTracker", "hud"), (Strings{"UI_Main", "42", "1.5", "true"}));
    EXPECT_TRUE(parser.getLabel("labelTracker", "none").empty());
    EXPECT_TRUE(parser.getLabel("labelTracker", "missing").empty());
    EXPECT_TRUE(parser.getLabel("missing", "hud").empty());
    EXPECT_TRUE(parser.getLabel("flat", "0").empty());

    JsonParser arrayRoot = parsed("[1,2]");
    EXPECT_TRUE(arrayRoot.getLabel("labelTracker", "hud").empty());
}

TEST(JsonQueries, GetHashKeepsOnlyStringValues) {
    JsonParser parser = parsed(
        R"({"textureTracker":{"UI":[{"value":"ab12"},{"value":7},"bare",{"other":"x"},{"value":"cd34"}]}})");
    EXPECT_EQ(parser.getHash("textureTracker", "UI"), (Strings{"ab12", "cd34"}));
    EXPECT_TRUE(parser.getHash("textureTracker", "BATTLE").empty());
}

TEST(JsonQueries, Uniform1fDataSkipsOtherTypesAndThrowsOnWrongShape) {
    JsonParser parser = parsed(R"({"pixelizeConfig":{"parameters":[
        {"varName":"uPixelSize","type":"uniform1f","value":8},
        {"varName":"uTint","type":"uniform3f","value":1},
        {"varName":"uScale","type":"uniform1f","value":0.25}]},
        "broken":{"parameters":[{"varName":"x","type":"uniform1f","value":"8"}]},
        "flat":{"parameters":{}}})");
    const std::map<std::string, float> expected = {{"uPixelSize", 8.0f}, {"uScale", 0.25f}};
    EXPECT_EQ(parser.getUniform1fData("pixelizeConfig"), expected);
    EXPECT_THROW(parser.getUniform1fData("broken"), std::runtime_error);
    EXPECT_THROW(parser.getUniform1fData("flat"), std::runtime_error);
    EXPECT_THROW(parser.getUniform1fData("missing"), std::runtime_error);
}

const char WZRY[] = R"({"version":"1.0.0","game":"wzry",
    "labelTracker":{"battle":["a"],"none":[],"hud":["b",3]},
    "labelTrackerMatch":{"3dMatch_regex":[{"value":"^3d"}],"battleMatch_regex":[],
                         "noneMatch_regex":[],"hudMatch_regex":[{"value":"hud.*"}]}})";

TEST(JsonValidation, GameDataFollowsTheGamesTable) {
    std::string reason;
    EXPECT_TRUE(parsed(WZRY).validateGameDataJson(reason)) << reason;

    std::string badRegex = WZRY;
    const std::string hudRegex = R"({"value":"hud.*"})";
    badRegex.replace(badRegex.find(hudRegex), hudRegex.size(), R"({"value":5})");
    EXPECT_FALSE(parsed(badRegex).validateGameDataJson(reason));
    EXPECT_NE(reason.find("\"hudMatch_regex\"[0].\"value\""), std::string::npos) << reason;

    std::string noHud = WZRY;
    const std::string hudLabels = R"(,"hud":["b",3])";
    noHud.replace(noHud.find(hudLabels), hudLabels.size(), "");
    EXPECT_FALSE(parsed(noHud).validateGameDataJson(reason));
    EXPECT_NE(reason.find("\"labelTracker\".\"hud\""), std::string::npos) << reason;

    EXPECT_TRUE(parsed(R"({"game":"dwrg","textureTracker":{"GAMEPLAY":[{"value":"ff"}]}})")
                    .validateGameDataJson());
    EXPECT_FALSE(parsed(R"({"game":"cf","labelTracker":{"battle":[],"crosshair":[],"lobby":[],
        "hud":[]},"textureTracker":{"BATTLE":["ff"]}})")
                     .validateGameDataJson());
    // Games with another schema, or none, are not game data here.
    EXPECT_FALSE(parsed(R"({"game":"fortnite"})").validateGameDataJson());
    EXPECT_FALSE(parsed(R"({"game":"pubg4DShock"})").validateGameDataJson());
    EXPECT_FALSE(parsed(R"({"game":3})").validateGameDataJson());
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
    std::string reason;
    JsonParser good = parsed(filterFile(R"({"parameters":[]})"));
    EXPECT_TRUE(good.validateFilterConfigJson(reason)) << reason;
    EXPECT_TRUE(good.validateJson());

    EXPECT_FALSE(parsed(filterFile(R"({"params":[]})")).validateFilterConfigJson(reason));
    EXPECT_NE(reason.find("\"oldMovieConfig\".\"parameters\" is missing"), std::string::npos)
        << reason;
    EXPECT_FALSE(
        parsed(filterFile(R"({"parameters":[{"varName":"u","type":"uniform1f","value":"1"}]})"))
            .validateFilterConfigJson(reason));
    EXPECT_NE(reason.find("\"value\" is not a number"), std::string::npos) << reason;
    EXPECT_FALSE(parsed(filterFile(R"({"parameters":[{"varName":"u","value":1}]})"))
                     .validateFilterConfigJson());

    std::string notFilters = filterFile(R"({"parameters":[]})");
    notFilters.replace(notFilters.find("\"filters\""), 9, "\"filter\"");
    EXPECT_FALSE(parsed(notFilters).validateFilterConfigJson());

    // validateJson falls back to the game data check.
    EXPECT_TRUE(parsed(WZRY).validateJson());
}

TEST(JsonValidation, CheckNameValuePairThrowsAtTheFirstFault) {
    JsonParser parser = parsed(R"({"s":{"list":[{"n":1,"t":"x"}],"text":"x"},"flat":1})");
    EXPECT_NO_THROW(parser.checkNameValuePair("s", {"list"}));
    EXPECT_NO_THROW(parser.checkNameValuePair("s", {"list"}, {"n"}, "numeric"));
    EXPECT_NO_THROW(parser.checkNameValuePair("s", {"list"}, {"t"}, "string"));
    EXPECT_THROW(parser.checkNameValuePair("s", {"list"}, {"t"}, "numeric"), std::runtime_error);
    EXPECT_THROW(parser.checkNameValuePair("s", {"list", "text"}), std::runtime_error);
    EXPECT_THROW(parser.checkNameValuePair("flat", {}), std::runtime_error);
    EXPECT_THROW(parser.checkNameValuePair("missing", {}), std::runtime_error);
}

}  // namespace
