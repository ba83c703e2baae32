// velour-dat: wraps, unwraps and checks the files that the layer reads from
// /odm/etc/tesselfx: the .dat data files and the settings velour.ini/.dat.
// JSON validation goes through libvelour.so itself, so the tool accepts
// exactly what the layer's checks accept.

#include <picojson.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

#include "velour/utils/JsonParserBase.h"
#include "velour/utils/base64.h"
#include "velour/utils/ini.h"

namespace {

const char USAGE[] =
    "usage: velour-dat wrap IN OUT\n"
    "       velour-dat unwrap IN OUT\n"
    "       velour-dat validate --kind game|filter FILE\n"
    "       velour-dat check-ini FILE\n"
    "       velour-dat --help\n"
    "\n"
    "  wrap       turn plain text (JSON data or ini settings) into the .dat form that\n"
    "             the layer reads: base64, written backwards, with no line break.\n"
    "             example: velour-dat wrap pubg.json defaultEncryptedData/pubg.dat\n"
    "\n"
    "  unwrap     turn a .dat file back into plain text.\n"
    "             example: velour-dat unwrap defaultFilterConfig.dat - | less\n"
    "\n"
    "  validate   check a game data file (--kind game) or the filter configuration\n"
    "             (--kind filter) with the layer's own checks. FILE may be a .dat or\n"
    "             plain JSON; a file named *.dat must be wrapped.\n"
    "             example: velour-dat validate --kind game defaultEncryptedData/wzry.dat\n"
    "             example: velour-dat validate --kind filter filters.json\n"
    "\n"
    "  check-ini  check the settings, velour.ini (plain) or velour.dat (wrapped): each\n"
    "             section needs the keys game, runtime_mode and enabled, and every value\n"
    "             that the layer reads must be a decimal integer.\n"
    "             example: velour-dat check-ini velour.ini\n"
    "\n"
    "IN or OUT may be \"-\" for standard input or output.\n"
    "Exit status: 0 when the file is good, 1 when it is not, 2 on bad usage.\n";

int usageError(const std::string& message) {
    std::cerr << "velour-dat: " << message << "\n\n" << USAGE;
    return 2;
}

void report(const std::string& file, const std::string& message) {
    std::cerr << file << ": " << message << "\n";
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

bool readInput(const std::string& path, std::string& text) {
    if (path == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        return true;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        report(path, std::string("cannot open: ") + std::strerror(errno));
        return false;
    }
    text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

bool writeOutput(const std::string& path, const std::string& text) {
    if (path == "-") {
        std::cout << text;
        std::cout.flush();
        return static_cast<bool>(std::cout);
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        report(path, std::string("cannot write: ") + std::strerror(errno));
        return false;
    }
    out << text;
    out.close();
    if (!out) {
        report(path, "write failed");
        return false;
    }
    return true;
}

bool isBase64Character(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
}

std::string describeByte(char c) {
    const unsigned byte = static_cast<unsigned char>(c);
    char hex[8];
    std::snprintf(hex, sizeof hex, "0x%02x", byte);
    if (c == '\n' || c == '\r') return std::string(hex) + ", a line break";
    if (c == ' ' || c == '\t') return std::string(hex) + ", a blank";
    if (byte >= 33 && byte < 127) return std::string(hex) + ", '" + c + "'";
    return hex;
}

bool looksLikeJson(const std::string& text) {
    const std::string::size_type first = text.find_first_not_of(" \t\r\n");
    return first != std::string::npos && (text[first] == '{' || text[first] == '[');
}

// The layer reverses a .dat file and decodes it as it stands, so any stray
// byte (an editor's final newline, most often) makes it ignore the file.
// Positions are reported as they are in the file, not in the reversed text.
bool unwrapFile(const std::string& file, const std::string& wrapped, std::string& plain) {
    if (wrapped.empty()) {
        report(file, "the file is empty; the layer treats it as absent");
        return false;
    }
    if (looksLikeJson(wrapped)) {
        report(file,
               "this is plain JSON, but the layer reads .dat files only in wrapped form; "
               "make it with: velour-dat wrap IN OUT");
        return false;
    }
    // Padding, being at the end of the base64 text, leads the file.
    std::string::size_type padding = 0;
    while (padding < wrapped.size() && padding < 2 && wrapped[padding] == '=') ++padding;
    for (std::string::size_type i = padding; i < wrapped.size(); ++i) {
        if (isBase64Character(wrapped[i])) continue;
        report(file, "not a .dat file: byte " + std::to_string(i) + " (" +
                         describeByte(wrapped[i]) +
                         ") is not base64; a .dat file is one base64 text, written backwards, "
                         "with nothing else in it, not even a final newline");
        return false;
    }
    try {
        plain = velour::utils::unwrapDat(wrapped);
    } catch (const std::exception& e) {
        report(file, std::string("not a .dat file: ") + e.what());
        return false;
    }
    return true;
}

int wrap(const std::string& in, const std::string& out) {
    std::string text;
    if (!readInput(in, text)) return 1;
    if (text.empty()) {
        report(in, "the input is empty; an empty .dat file is treated as absent");
        return 1;
    }
    return writeOutput(out, velour::utils::wrapDat(text)) ? 0 : 1;
}

int unwrap(const std::string& in, const std::string& out) {
    std::string wrapped;
    std::string plain;
    if (!readInput(in, wrapped) || !unwrapFile(in, wrapped, plain)) return 1;
    return writeOutput(out, plain) ? 0 : 1;
}

// Only the first three characters of "version" other than dots count, so
// "1.10.2" is edition 110; authors are told when the text is not of the form
// D.D.D, where that reading holds no surprise.
void warnAboutVersion(const std::string& file, const picojson::value& root) {
    const picojson::value& version = root.get("version");
    if (!version.is<std::string>()) {
        report(file,
               "warning: no string \"version\"; an update from the service can never "
               "replace this edition");
        return;
    }
    const std::string& text = version.get<std::string>();
    int edition = 0;
    try {
        edition = velour::utils::JsonParserBase::editionOf(root);
    } catch (const std::exception&) {
        report(file, "warning: \"version\" \"" + text +
                         "\" has no edition (form D.D.D); an update can never replace it");
        return;
    }
    const bool oneDigitForm = text.size() == 5 && text[1] == '.' && text[3] == '.' &&
                              std::isdigit(static_cast<unsigned char>(text[0])) &&
                              std::isdigit(static_cast<unsigned char>(text[2])) &&
                              std::isdigit(static_cast<unsigned char>(text[4]));
    if (!oneDigitForm) {
        report(file, "warning: \"version\" \"" + text + "\" is read as edition " +
                         std::to_string(edition) + " (only its first three digits count)");
    }
}

int validate(const std::string& kind, const std::string& file) {
    std::string raw;
    if (!readInput(file, raw)) return 1;

    std::string json = raw;
    const bool wrapped = endsWith(file, ".dat") || !looksLikeJson(raw);
    if (wrapped && !unwrapFile(file, raw, json)) return 1;

    picojson::value parsed;
    std::string parseError;
    const auto end = picojson::parse(parsed, json.begin(), json.end(), &parseError);
    if (!parseError.empty()) {
        report(file,
               std::string(wrapped ? "not JSON after unwrapping: " : "not JSON: ") + parseError);
        return 1;
    }
    // The layer's parser stops after the document and takes it; what follows
    // is most likely a paste gone wrong.
    const auto rest =
        json.find_first_not_of(" \t\r\n", static_cast<std::string::size_type>(end - json.begin()));
    if (rest != std::string::npos) {
        report(file, "warning: text after the JSON document (from character " +
                         std::to_string(rest) + ") is ignored");
    }

    velour::utils::JsonParser parser;
    if (!parser.initialize(json, true)) {
        report(file, "the layer could not load this document");
        return 1;
    }
    std::string reason;
    const bool valid = kind == "game" ? parser.validateGameDataJson(reason)
                                      : parser.validateFilterConfigJson(reason);
    if (!valid) {
        report(file, "invalid " +
                         std::string(kind == "game" ? "game data" : "filter configuration") + ": " +
                         reason);
        return 1;
    }
    warnAboutVersion(file, parser.getRoot());
    std::cout << file << ": valid " << (kind == "game" ? "game data" : "filter configuration")
              << "\n";
    return 0;
}

char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool startsWithIgnoreCase(const char* text, const char* prefix) {
    for (; *prefix != '\0'; ++text, ++prefix) {
        if (*text == '\0' || lower(*text) != lower(*prefix)) return false;
    }
    return true;
}

// The layer finds a key as the first property whose name begins with it,
// ignoring case (a name keeps any blanks before "=").
int findAsLayer(const ini_t* ini, int section, const char* key) {
    const int count = ini_property_count(ini, section);
    for (int p = 0; p < count; ++p) {
        if (startsWithIgnoreCase(ini_property_name(ini, section, p), key)) return p;
    }
    return INI_NOT_FOUND;
}

bool isDecimalInteger(const std::string& text) {
    std::string::size_type i = (!text.empty() && (text[0] == '-' || text[0] == '+')) ? 1 : 0;
    if (i == text.size()) return false;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9') return false;
    }
    try {
        (void)std::stoi(text);
    } catch (const std::exception&) {
        return false;  // out of range
    }
    return true;
}

std::string trimmed(const std::string& text) {
    const std::string::size_type end = text.find_last_not_of(" \t");
    return end == std::string::npos ? std::string() : text.substr(0, end + 1);
}

struct SettingKey {
    const char* name;
    bool required;
};

// Every key the layer reads, in the order it reads them.
const SettingKey SETTING_KEYS[] = {
    {"game", true},
    {"runtime_mode", true},
    {"fallback", false},
    {"enabled", true},
    {"disable_any_samples_passed", false},
    {"disable_egl_time_stamps", false},
};

int checkSection(const std::string& file, const ini_t* ini, int section) {
    const std::string where = file + ": [" + ini_section_name(ini, section) + "]";
    int problems = 0;
    std::string missing;
    for (const SettingKey& key : SETTING_KEYS) {
        const int p = findAsLayer(ini, section, key.name);
        if (p == INI_NOT_FOUND) {
            if (key.required) missing += std::string(missing.empty() ? "" : ", ") + key.name;
            continue;
        }
        const std::string name = ini_property_name(ini, section, p);
        const std::string value = ini_property_value(ini, section, p);
        if (trimmed(name).size() != std::strlen(key.name)) {
            std::cerr << where << ": warning: key \"" << trimmed(name) << "\" is read as \""
                      << key.name << "\" (the layer matches key names by prefix)\n";
        }
        if (value.empty() || value[0] == '\n' || value[0] == '\r') {
            std::cerr << where << ": key \"" << key.name
                      << "\" has no value (the layer would read the rest of the file as its "
                         "value)\n";
            ++problems;
        } else if (!isDecimalInteger(value)) {
            std::string effect;
            try {
                effect = "the layer would read it as " + std::to_string(std::stoi(value));
            } catch (const std::exception&) {
                effect = "the layer would end the game's process at start-up";
            }
            std::cerr << where << ": key \"" << key.name << "\": value \"" << value
                      << "\" is not a decimal integer (" << effect << ")\n";
            ++problems;
        }
    }
    if (!missing.empty()) {
        std::cerr << where << ": missing " << missing
                  << " (the layer stays off for this process)\n";
        ++problems;
    }
    return problems;
}

int checkIni(const std::string& file) {
    std::string raw;
    if (!readInput(file, raw)) return 1;
    std::string text = raw;
    if (endsWith(file, ".dat") && !unwrapFile(file, raw, text)) {
        report(file, "the layer would ignore this file and read velour.ini instead");
        return 1;
    }

    ini_t* ini = ini_load(text.c_str(), nullptr);
    if (ini == nullptr) {
        report(file, "out of memory");
        return 1;
    }
    int problems = 0;
    const int sections = ini_section_count(ini);
    if (sections <= 1) {
        report(file, "no [section]: the layer is enabled for no process");
        ++problems;
    }
    if (ini_property_count(ini, INI_GLOBAL_SECTION) > 0) {
        report(file, "warning: " + std::to_string(ini_property_count(ini, INI_GLOBAL_SECTION)) +
                         " key(s) before the first [section] are never read");
    }
    for (int s = 1; s < sections; ++s) {
        // A process name is matched as a prefix of the section names in file
        // order, so an earlier, longer name can catch a later section's process.
        const char* name = ini_section_name(ini, s);
        for (int earlier = 1; earlier < s; ++earlier) {
            if (startsWithIgnoreCase(ini_section_name(ini, earlier), name)) {
                std::cerr << file << ": [" << name << "]: warning: never used for process \""
                          << name << "\", which [" << ini_section_name(ini, earlier)
                          << "] above matches first\n";
                break;
            }
        }
        problems += checkSection(file, ini, s);
    }
    ini_destroy(ini);
    if (problems > 0) return 1;
    std::cout << file << ": " << sections - 1 << " section(s), no problems\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) return usageError("no command given");
    const std::string command = args[0];
    if (command == "--help" || command == "-h" || command == "help") {
        std::cout << USAGE;
        return 0;
    }
    if (command == "wrap" || command == "unwrap") {
        if (args.size() != 3) return usageError(command + " takes IN and OUT");
        return command == "wrap" ? wrap(args[1], args[2]) : unwrap(args[1], args[2]);
    }
    if (command == "validate") {
        std::string kind;
        std::string file;
        for (std::size_t i = 1; i < args.size(); ++i) {
            if (args[i] == "--kind" && i + 1 < args.size()) {
                kind = args[++i];
            } else if (args[i].compare(0, 7, "--kind=") == 0) {
                kind = args[i].substr(7);
            } else if (file.empty() && (args[i] == "-" || args[i][0] != '-')) {
                file = args[i];
            } else {
                return usageError("validate: unexpected argument \"" + args[i] + "\"");
            }
        }
        if (kind != "game" && kind != "filter") {
            return usageError("validate needs --kind game or --kind filter");
        }
        if (file.empty()) return usageError("validate needs a FILE");
        return validate(kind, file);
    }
    if (command == "check-ini") {
        if (args.size() != 2) return usageError("check-ini takes one FILE");
        return checkIni(args[1]);
    }
    return usageError("unknown command \"" + command + "\"");
}
