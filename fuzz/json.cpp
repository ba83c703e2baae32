// Game data and filter configuration files: parsing, both validations, and
// the reads the hooks and the styles make of a document, as the layer reads
// it (without validation). The first byte chooses whether the rest is offered
// as an update over a shipped document.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "velour/utils/JsonParserBase.h"

using velour::utils::JsonParser;

namespace {

const char SHIPPED[] = R"({"version":"1.0.0","config":"filters",
"pixelizeConfig":{"parameters":[{"varName":"uBlock","type":"uniform1f","value":8}]},
"labelTracker":{"gamePlay":["a"],"lobby":["b"]}})";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    JsonParser parser;
    if (data[0] & 1) {
        parser.initialize(SHIPPED, true);
        parser.initialize(text, false);
    } else if (!parser.initialize(text, true)) {
        return 0;
    }
    std::string reason;
    parser.validateGameDataJson(reason);
    parser.validateFilterConfigJson(reason);
    for (const char* key : {"gamePlay", "crosshair", "lobby", "hud"}) {
        parser.getLabel("labelTracker", key);
        parser.getHash("textureTracker", key);
    }
    for (const char* section : {"pixelizeConfig", "hdrConfig", "labelTracker"}) {
        try {
            parser.getUniform1fData(section);
        } catch (const std::exception&) {
            // A wrong shape is reported this way, and the caller keeps its defaults.
        }
    }
    try {
        JsonParser::editionOf(parser.getRoot());
    } catch (const std::exception&) {
    }
    return 0;
}
