#pragma once

#include <string>
#include <unordered_map>

#include "velour/utils/JsonParserBase.h"

namespace velour::utils {
class Pubg4DShockJsonParser;
}

namespace velour::games {

// How the weapon button's frame is drawn: its texture label, the vertices of
// its batch, the texture coordinate of a corner vertex and the offsets of the
// two diagonal corners from it.
struct WeaponButtonFrame {
    std::string iconName;
    int verticesNum = 0;
    int diagonalPointIdxs[2] = {0, 0};
    float texcoords[2][2] = {{0, 0}, {0, 0}};
    void init(utils::Pubg4DShockJsonParser& parser);
};

// The background of the message that slides in when a weapon is picked up.
struct WeaponPickupMsgBG {
    std::string iconName;
    int verticesNum = 0;
    float texcoords[2][2] = {{0, 0}, {0, 0}};
    void init(utils::Pubg4DShockJsonParser& parser);
};

// The reload bar: a background that says where it is, a foreground that
// says a reload is running.
struct ReloadProgress {
    std::string foreground;
    float fgTexcoord[2][2] = {{0, 0}, {0, 0}};
    std::string background;
    float bgTexcoord[2][2] = {{0, 0}, {0, 0}};
    void init(utils::Pubg4DShockJsonParser& parser);
};

}  // namespace velour::games

namespace velour::utils {

// The HUD vocabulary of the weapon haptics ("4DShock" of the game word
// "pubg4DShock"). The first fault found sets `_parseError` to its code; from
// then on every getter answers empty at once.
class VELOUR_EXPORT Pubg4DShockJsonParser : public JsonParserBase {
  public:
    // The update text comes from the game service.
    Pubg4DShockJsonParser(const std::string& updatedFile, const std::string& defaultFile);
    Pubg4DShockJsonParser(const std::string& updatedFile, const std::string& defaultFile,
                          const std::string& updateText);

    std::unordered_map<std::string, float> get4DShockMisjudgmentWeapons();
    games::WeaponButtonFrame get4DShockWeaponButtonFrame();
    games::WeaponPickupMsgBG get4DShockWeaponPickupMsgBG();
    games::ReloadProgress get4DShockReloadProgress();
    std::string get4DShockWeaponRegex();
    float get4DShockDefaultAdjustment();

    int _parseError = 0;

  private:
    // root["4DShock"], or null after setting `code` when it is no object.
    const picojson::object* section(int code);
    bool fail(int code);
};

}  // namespace velour::utils
