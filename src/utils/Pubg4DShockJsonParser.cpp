#include "velour/utils/Pubg4DShockJsonParser.h"

#include <utility>

#include "ctrl/ctrl.h"

namespace velour::utils {

namespace {

const char SECTION[] = "4DShock";

const picojson::value& member(const picojson::object& object, const char* key) {
    static const picojson::value NONE;
    auto found = object.find(key);
    return found == object.end() ? NONE : found->second;
}

// A count stored just below a whole number still means that number.
int toVertexCount(double value) {
    return static_cast<int>(value + 0.001);
}
int toIndex(double value) {
    return static_cast<int>(value + 0.01);
}

// Copies up to two numbers of `array` into `out`; false at an element that is
// no number.
template <typename T, typename Convert>
bool readPair(const picojson::array& array, T (&out)[2], Convert convert) {
    for (std::size_t i = 0; i < array.size() && i < 2; ++i) {
        if (!array[i].is<double>()) return false;
        out[i] = convert(array[i].get<double>());
    }
    return true;
}
bool readTexcoord(const picojson::array& array, float (&out)[2][2]) {
    // The pair fills the first of the two rows: u, v.
    return readPair(array, out[0], [](double value) { return static_cast<float>(value); });
}

}  // namespace

Pubg4DShockJsonParser::Pubg4DShockJsonParser(const std::string& updatedFile,
                                             const std::string& defaultFile)
    : Pubg4DShockJsonParser(updatedFile, defaultFile, ctrl::getCurrent4DRusData()) {}

Pubg4DShockJsonParser::Pubg4DShockJsonParser(const std::string&, const std::string& defaultFile,
                                             const std::string& updateText)
    : JsonParserBase(defaultFile, updateText) {
    _parseError = root.is<picojson::object>() ? 0 : -1;
}

bool Pubg4DShockJsonParser::fail(int code) {
    _parseError = code;
    return false;
}

const picojson::object* Pubg4DShockJsonParser::section(int code) {
    const picojson::value& shock = member(root.get<picojson::object>(), SECTION);
    if (!shock.is<picojson::object>()) {
        fail(code);
        return nullptr;
    }
    return &shock.get<picojson::object>();
}

std::unordered_map<std::string, float> Pubg4DShockJsonParser::get4DShockMisjudgmentWeapons() {
    std::unordered_map<std::string, float> result;
    if (_parseError) return result;
    const picojson::object* shock = section(10001);
    if (!shock) return result;
    const picojson::value& list = member(*shock, "misjudgmentWeapons");
    if (!list.is<picojson::array>()) return fail(10002), decltype(result)();
    for (const picojson::value& element : list.get<picojson::array>()) {
        if (!element.is<picojson::object>()) return fail(10005), decltype(result)();
        const picojson::object& weapon = element.get<picojson::object>();
        const picojson::value& name = member(weapon, "weaponName");
        if (!name.is<std::string>()) return fail(10003), decltype(result)();
        const picojson::value& adjustment = member(weapon, "adjustment");
        if (!adjustment.is<double>()) return fail(10004), decltype(result)();
        result[name.get<std::string>()] = static_cast<float>(adjustment.get<double>());
    }
    return result;
}

games::WeaponButtonFrame Pubg4DShockJsonParser::get4DShockWeaponButtonFrame() {
    games::WeaponButtonFrame frame;
    if (_parseError) return {};
    const picojson::object* shock = section(10005);
    if (!shock) return {};
    const picojson::value& key = member(*shock, "weaponButtonFrame");
    if (!key.is<picojson::object>()) return fail(10006), games::WeaponButtonFrame();
    const picojson::object& record = key.get<picojson::object>();
    const picojson::value& icon = member(record, "iconName");
    if (!icon.is<std::string>()) return fail(10007), games::WeaponButtonFrame();
    const picojson::value& count = member(record, "verticesNum");
    if (!count.is<double>()) return fail(10008), games::WeaponButtonFrame();
    const picojson::value& texcoords = member(record, "texcoords");
    if (!texcoords.is<picojson::array>()) return fail(10009), games::WeaponButtonFrame();
    if (!readTexcoord(texcoords.get<picojson::array>(), frame.texcoords))
        return fail(10010), games::WeaponButtonFrame();
    const picojson::value& corners = member(record, "diagonalPointIdxs");
    if (!corners.is<picojson::array>()) return fail(10011), games::WeaponButtonFrame();
    if (!readPair(corners.get<picojson::array>(), frame.diagonalPointIdxs, toIndex))
        return fail(10012), games::WeaponButtonFrame();
    frame.iconName = icon.get<std::string>();
    frame.verticesNum = toVertexCount(count.get<double>());
    return frame;
}

games::WeaponPickupMsgBG Pubg4DShockJsonParser::get4DShockWeaponPickupMsgBG() {
    games::WeaponPickupMsgBG message;
    if (_parseError) return {};
    const picojson::object* shock = section(10020);
    if (!shock) return {};
    const picojson::value& key = member(*shock, "weaponPickupMsgBG");
    if (!key.is<picojson::object>()) return fail(10021), games::WeaponPickupMsgBG();
    const picojson::object& record = key.get<picojson::object>();
    const picojson::value& icon = member(record, "iconName");
    if (!icon.is<std::string>()) return fail(10022), games::WeaponPickupMsgBG();
    const picojson::value& count = member(record, "verticesNum");
    if (!count.is<double>()) return fail(10023), games::WeaponPickupMsgBG();
    const picojson::value& texcoords = member(record, "texcoords");
    if (!texcoords.is<picojson::array>()) return fail(10024), games::WeaponPickupMsgBG();
    if (!readTexcoord(texcoords.get<picojson::array>(), message.texcoords))
        return fail(10025), games::WeaponPickupMsgBG();
    message.iconName = icon.get<std::string>();
    message.verticesNum = toVertexCount(count.get<double>());
    return message;
}

games::ReloadProgress Pubg4DShockJsonParser::get4DShockReloadProgress() {
    games::ReloadProgress reload;
    if (_parseError) return {};
    const picojson::object* shock = section(10059);
    if (!shock) return {};
    const picojson::value& key = member(*shock, "weaponReloadProgress");
    if (!key.is<picojson::object>()) return fail(10050), games::ReloadProgress();
    const picojson::object& record = key.get<picojson::object>();
    const picojson::value& background = member(record, "background");
    if (!background.is<std::string>()) return fail(10051), games::ReloadProgress();
    const picojson::value& foreground = member(record, "foreground");
    if (!foreground.is<std::string>()) return fail(10052), games::ReloadProgress();
    const picojson::value& bgTexcoord = member(record, "bgTexcoord");
    if (!bgTexcoord.is<picojson::array>()) return fail(10053), games::ReloadProgress();
    if (!readTexcoord(bgTexcoord.get<picojson::array>(), reload.bgTexcoord))
        return fail(10054), games::ReloadProgress();
    // Another type than an array is not coded: picojson's own type test
    // throws, and the hook's constructor takes that as a fault of the file.
    if (!readTexcoord(member(record, "fgTexcoord").get<picojson::array>(), reload.fgTexcoord))
        return fail(10055), games::ReloadProgress();
    reload.background = background.get<std::string>();
    reload.foreground = foreground.get<std::string>();
    return reload;
}

std::string Pubg4DShockJsonParser::get4DShockWeaponRegex() {
    if (_parseError) return {};
    const picojson::object* shock = section(10080);
    if (!shock) return {};
    const picojson::value& pattern = member(*shock, "weaponNameRegex");
    if (!pattern.is<std::string>()) return fail(10081), std::string();
    return pattern.get<std::string>();
}

float Pubg4DShockJsonParser::get4DShockDefaultAdjustment() {
    if (_parseError) return 0;
    const picojson::object* shock = section(10180);
    if (!shock) return 0;
    const picojson::value& adjustment = member(*shock, "defaultAdjustment");
    if (!adjustment.is<double>()) return fail(10181), 0.0f;
    return static_cast<float>(adjustment.get<double>());
}

}  // namespace velour::utils

namespace velour::games {

void WeaponButtonFrame::init(utils::Pubg4DShockJsonParser& parser) {
    *this = parser.get4DShockWeaponButtonFrame();
}
void WeaponPickupMsgBG::init(utils::Pubg4DShockJsonParser& parser) {
    *this = parser.get4DShockWeaponPickupMsgBG();
}
void ReloadProgress::init(utils::Pubg4DShockJsonParser& parser) {
    *this = parser.get4DShockReloadProgress();
}

}  // namespace velour::games
