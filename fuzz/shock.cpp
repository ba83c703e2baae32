// The weapon haptics data file: the document as the shipped file, read by
// every getter in the order the hook's start-up calls them, with the weapon
// name expression compiled and tried on a label as the hook does.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <regex>
#include <string>

#include "games/WeaponNamePattern.h"
#include "velour/utils/Pubg4DShockJsonParser.h"

using velour::utils::Pubg4DShockJsonParser;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Pubg4DShockJsonParser parser("", "", "");
    if (!parser.initialize(std::string(reinterpret_cast<const char*>(data), size), true)) return 0;
    parser._parseError = parser.getRoot().is<picojson::object>() ? 0 : -1;
    try {
        const std::string pattern = parser.get4DShockWeaponRegex();
        if (parser._parseError == 0)
            std::regex_match("Weapon_M416", velour::games::compileWeaponNamePattern(pattern));
        parser.get4DShockMisjudgmentWeapons();
        parser.get4DShockDefaultAdjustment();
        velour::games::WeaponButtonFrame().init(parser);
        velour::games::WeaponPickupMsgBG().init(parser);
        velour::games::ReloadProgress().init(parser);
    } catch (const std::exception&) {
        // An invalid expression, or a member of a type picojson refuses: the
        // hook logs it and leaves the feature off.
    }
    return 0;
}
