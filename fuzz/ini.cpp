// The settings file: the ini reader, the look-ups the layer makes in it, and
// the writer over what was read.
#include "velour/utils/ini.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    ini_t* ini = ini_load(text.c_str(), nullptr);
    if (!ini) return 0;
    // Each walk of a section's properties is linear in the file: once per
    // section, so that an input runs in about the time the layer takes.
    for (int s = 0; s < ini_section_count(ini); ++s) {
        ini_find_section(ini, ini_section_name(ini, s), 0);
        for (const char* key : {"game", "runtime_mode", "fallback", "enabled", "effect"}) {
            int p = ini_find_property(ini, s, key, 0);
            if (p != INI_NOT_FOUND) ini_property_value(ini, s, p);
        }
        const int count = ini_property_count(ini, s);
        for (int i = 0; i < count; ++i) {
            ini_property_name(ini, s, i);
            ini_property_value(ini, s, i);
        }
    }
    // Names taken from the text itself, with explicit lengths too.
    ini_find_section(ini, text.c_str(), static_cast<int>(size % 64));
    ini_find_property(ini, INI_GLOBAL_SECTION, text.c_str(), static_cast<int>(size % 48));
    // Out-of-range indices read as absent.
    ini_section_name(ini, ini_section_count(ini));
    ini_property_value(ini, 0, ini_property_count(ini, 0));
    int needed = ini_save(ini, nullptr, 0);
    std::vector<char> saved(static_cast<size_t>(needed > 0 ? needed : 1));
    ini_save(ini, saved.data(), static_cast<int>(saved.size()));
    // What was saved reads back to the same sections.
    ini_t* again = ini_load(saved.data(), nullptr);
    if (again && ini_section_count(again) < ini_section_count(ini) - 1) __builtin_trap();
    ini_destroy(again);
    ini_destroy(ini);
    return 0;
}
