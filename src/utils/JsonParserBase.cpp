#include "velour/utils/JsonParserBase.h"

#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "core/log.h"
#include "ctrl/ctrl.h"
#include "platform/paths.h"
#include "velour/utils/base64.h"

namespace velour::utils {

namespace {

// An update below this size is a stub from the service, not a document.
constexpr std::string::size_type MIN_UPDATE_SIZE = 100;

std::string quoted(const std::string& name) {
    return "\"" + name + "\"";
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what);
}

struct TrackerSections {
    const char* game;
    const char* section;
    std::vector<std::string> keys;
    bool ofObjects;  // elements are objects with a string "value"
};

// The sections each game's hooks read. Games missing here (those whose data
// has another schema) fail validation.
const std::vector<TrackerSections>& trackerSections() {
    static const std::vector<TrackerSections> TABLE = {
        {"wzry", "labelTracker", {"battle", "none", "hud"}, false},
        {"wzry",
         "labelTrackerMatch",
         {"3dMatch_regex", "battleMatch_regex", "noneMatch_regex", "hudMatch_regex"},
         true},
        {"pubg", "labelTracker", {"gamePlay", "crosshair", "lobby", "hud"}, false},
        {"speedmobile", "labelTracker", {"on", "none", "unlit", "hud"}, false},
        {"cf", "labelTracker", {"battle", "crosshair", "lobby", "hud"}, false},
        {"cf", "textureTracker", {"BATTLE"}, true},
        {"onmyoji", "textureTracker", {"BATTLE", "ENDBATTLE", "NOTBATTLE", "UI"}, true},
        {"dwrg", "textureTracker", {"GAMEPLAY"}, true},
        {"lolm_international", "labelTracker", {"battle", "none", "hud", "FBO", "blurBg"}, false},
        {"lolm_international",
         "labelTrackerMatch",
         {"3dMatch_regex", "battleMatch_regex", "resultMatch_regex", "noneMatch_regex",
          "hudMatch_regex", "FBOMatch_regex", "blurBgMatch_regex"},
         true},
    };
    return TABLE;
}

const char* const FILTER_SECTIONS[] = {
    "pixelizeConfig",    "celShadingConfig",  "hdrConfig",
    "colorInvertConfig", "nightVisionConfig", "oldMovieConfig",
};

const picojson::object& rootObject(const picojson::value& root) {
    if (!root.is<picojson::object>()) fail("the document is not a JSON object");
    return root.get<picojson::object>();
}

}  // namespace

JsonParserBase::~JsonParserBase() = default;

JsonParserBase::JsonParserBase(const std::string& defaultFile, std::string updateText)
    : updateText(std::move(updateText)) {
    load(defaultFile, true);
    load(defaultFile, false);
}

int JsonParserBase::editionOf(const picojson::value& document) {
    const std::string& version = document.get("version").get<std::string>();
    std::string digits;
    for (char c : version) {
        if (c != '.') digits += c;
        if (digits.size() == 3) return std::stoi(digits);
    }
    fail("\"version\" " + quoted(version) + " is too short");
}

bool JsonParserBase::load(const std::string& path, bool fileMode) {
    std::ifstream file(platform::devicePath(path), std::ios::binary);
    if (!file.is_open()) return false;

    std::string text;
    if (fileMode) {
        // A folder opens but fails its first read, by an exception from the
        // stream that must not reach the game.
        try {
            text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
        } catch (const std::exception&) {
            return false;
        }
    } else {
        if (updateText.size() < MIN_UPDATE_SIZE) return false;
        text = updateText;
    }

    try {
        text = unwrapDat(text);
    } catch (const std::exception&) {
        return false;
    }
    return initialize(text, fileMode);
}

bool JsonParserBase::initialize(const std::string& text, bool fileMode) {
    picojson::value parsed;
    // The parser throws for a number out of double's range (1e999).
    try {
        if (!picojson::parse(parsed, text).empty()) return false;
    } catch (const std::exception&) {
        return false;
    }

    if (fileMode) {
        root = std::move(parsed);
        return true;
    }
    try {
        const int current = editionOf(root);
        const int offered = editionOf(parsed);
        if (offered > current) {
            VELOUR_LOG(velour::core::LOG_INFO, "json::Using updated data version %d", offered);
            root = std::move(parsed);
        }
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

JsonParser::JsonParser(const std::string& updatedFile, const std::string& defaultFile)
    : JsonParser(updatedFile, defaultFile, ctrl::getCurrentRusData()) {}

JsonParser::JsonParser(const std::string&, const std::string& defaultFile,
                       const std::string& updateText)
    : JsonParserBase(defaultFile, updateText) {}

std::vector<std::string> JsonParser::getLabel(const std::string& section, const std::string& key) {
    std::vector<std::string> labels;
    if (!root.is<picojson::object>()) return labels;
    picojson::value& group = root.get<picojson::object>()[section];
    if (!group.is<picojson::object>()) return labels;
    picojson::value& list = group.get<picojson::object>()[key];
    if (!list.is<picojson::array>()) return labels;
    for (const picojson::value& element : list.get<picojson::array>()) {
        labels.push_back(element.to_str());
    }
    return labels;
}

std::vector<std::string> JsonParser::getHash(const std::string& section, const std::string& key) {
    std::vector<std::string> values;
    if (!root.is<picojson::object>()) return values;
    picojson::value& group = root.get<picojson::object>()[section];
    if (!group.is<picojson::object>()) return values;
    picojson::value& list = group.get<picojson::object>()[key];
    if (!list.is<picojson::array>()) return values;
    for (const picojson::value& element : list.get<picojson::array>()) {
        if (!element.is<picojson::object>()) continue;
        const picojson::value& value = element.get("value");
        if (value.is<std::string>()) values.push_back(value.get<std::string>());
    }
    return values;
}

std::map<std::string, float> JsonParser::getUniform1fData(const std::string& section) {
    std::map<std::string, float> uniforms;
    // picojson's own type checks throw std::runtime_error on a wrong shape.
    const picojson::value& document = root;
    const picojson::array& parameters =
        document.get(section).get("parameters").get<picojson::array>();
    for (const picojson::value& parameter : parameters) {
        const picojson::value& type = parameter.get("type");
        if (!type.is<std::string>() || type.get<std::string>() != "uniform1f") continue;
        uniforms[parameter.get("varName").get<std::string>()] =
            static_cast<float>(parameter.get("value").get<double>());
    }
    return uniforms;
}

void JsonParser::checkNameValuePair(const std::string& section,
                                    const std::vector<std::string>& keys) {
    const picojson::object& document = rootObject(root);
    const auto found = document.find(section);
    if (found == document.end()) fail("section " + quoted(section) + " is missing");
    if (!found->second.is<picojson::object>()) {
        fail("section " + quoted(section) + " is not an object");
    }
    const picojson::object& members = found->second.get<picojson::object>();
    for (const std::string& key : keys) {
        const auto list = members.find(key);
        if (list == members.end()) fail(quoted(section) + "." + quoted(key) + " is missing");
        if (!list->second.is<picojson::array>()) {
            fail(quoted(section) + "." + quoted(key) + " is not an array");
        }
    }
}

void JsonParser::checkNameValuePair(const std::string& section,
                                    const std::vector<std::string>& keys,
                                    const std::vector<std::string>& fields,
                                    const std::string& typeWord) {
    const bool numeric = typeWord == "numeric";
    if (!numeric && typeWord != "string") {
        throw std::invalid_argument("unknown type word " + quoted(typeWord));
    }
    checkNameValuePair(section, keys);

    const picojson::value& group = root.get(section);
    for (const std::string& key : keys) {
        const picojson::array& list = group.get(key).get<picojson::array>();
        for (std::size_t i = 0; i < list.size(); ++i) {
            const std::string where =
                quoted(section) + "." + quoted(key) + "[" + std::to_string(i) + "]";
            if (!list[i].is<picojson::object>()) fail(where + " is not an object");
            for (const std::string& field : fields) {
                const picojson::value& member = list[i].get(field);
                const bool ok = numeric ? member.is<double>() : member.is<std::string>();
                if (!ok) {
                    fail(where + "." + quoted(field) +
                         (numeric ? " is not a number" : " is not a string"));
                }
            }
        }
    }
}

bool JsonParser::validateGameDataJson() {
    std::string reason;
    return validateGameDataJson(reason);
}

bool JsonParser::validateFilterConfigJson() {
    std::string reason;
    return validateFilterConfigJson(reason);
}

bool JsonParser::validateJson() {
    return validateFilterConfigJson() || validateGameDataJson();
}

bool JsonParser::validateGameDataJson(std::string& reason) {
    try {
        const picojson::object& document = rootObject(root);
        const auto game = document.find("game");
        if (game == document.end()) fail("member \"game\" is missing");
        if (!game->second.is<std::string>()) fail("member \"game\" is not a string");
        const std::string& word = game->second.get<std::string>();

        bool known = false;
        for (const TrackerSections& tracker : trackerSections()) {
            if (word != tracker.game) continue;
            known = true;
            if (tracker.ofObjects) {
                checkNameValuePair(tracker.section, tracker.keys, {"value"}, "string");
            } else {
                checkNameValuePair(tracker.section, tracker.keys);
            }
        }
        if (!known) fail("game " + quoted(word) + " has no game data schema to check");
        return true;
    } catch (const std::exception& e) {
        reason = e.what();
        return false;
    }
}

bool JsonParser::validateFilterConfigJson(std::string& reason) {
    try {
        const picojson::object& document = rootObject(root);
        const auto config = document.find("config");
        if (config == document.end()) fail("member \"config\" is missing");
        if (!config->second.is<std::string>()) fail("member \"config\" is not a string");
        if (config->second.get<std::string>() != "filters") {
            fail("member \"config\" is " + quoted(config->second.get<std::string>()) +
                 ", not \"filters\"");
        }
        for (const char* section : FILTER_SECTIONS) {
            checkNameValuePair(section, {"parameters"}, {"varName", "type"}, "string");
            checkNameValuePair(section, {"parameters"}, {"value"}, "numeric");
        }
        return true;
    } catch (const std::exception& e) {
        reason = e.what();
        return false;
    }
}

}  // namespace velour::utils
