#include "velour/utils/ini.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr int INITIAL_CAPACITY = 256;

// Compared as unsigned so that bytes above 127 are never taken for blanks,
// whatever the signedness of char on the target.
inline unsigned byteOf(char c) {
    return static_cast<unsigned char>(c);
}
inline bool isBlank(char c) {
    return byteOf(c) >= 1 && byteOf(c) <= 32;
}

inline int measured(const char* text, int length) {
    if (text == nullptr) return 0;
    return length > 0 ? length : static_cast<int>(std::strlen(text));
}

inline char lower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameName(const char* stored, const char* name, int length) {
    if (std::strlen(stored) != static_cast<std::size_t>(length)) return false;
    for (int i = 0; i < length; ++i) {
        if (lower(stored[i]) != lower(name[i])) return false;
    }
    return true;
}

// Puts `length` bytes of `text` in the record's own field when they fit with
// their terminator, else in a heap block. Returns false when memory ran out,
// leaving the previous text in place.
bool storeText(char* field, int fieldSize, char** large, const char* text, int length) {
    char* block = nullptr;
    if (length + 1 >= fieldSize) {
        block = static_cast<char*>(std::malloc(static_cast<std::size_t>(length) + 1));
        if (block == nullptr) return false;
        std::memcpy(block, text, static_cast<std::size_t>(length));
        block[length] = '\0';
    }
    // Freed only now: the new text may have come from the old block.
    std::free(*large);
    *large = block;
    if (block == nullptr) {
        std::memmove(field, text, static_cast<std::size_t>(length));
        field[length] = '\0';
    }
    return true;
}

template <typename T>
bool reserveOne(T** records, int* capacity, int count) {
    if (count < *capacity) return true;
    const int grown = *capacity * 2;
    void* moved = std::realloc(*records, sizeof(T) * static_cast<std::size_t>(grown));
    if (moved == nullptr) return false;
    *records = static_cast<T*>(moved);
    *capacity = grown;
    return true;
}

bool validSection(const ini_t* ini, int section) {
    return ini != nullptr && section >= 0 && section < ini->sectionCount;
}

// The index in the property array of the property-th property of a section.
int propertyIndex(const ini_t* ini, int section, int property) {
    if (!validSection(ini, section) || property < 0) return INI_NOT_FOUND;
    int seen = 0;
    for (int i = 0; i < ini->propertyCount; ++i) {
        if (ini->properties[i].section != section) continue;
        if (seen == property) return i;
        ++seen;
    }
    return INI_NOT_FOUND;
}

bool addProperty(ini_t* ini, int section, const char* name, int nameLength, const char* value,
                 int valueLength) {
    if (!validSection(ini, section)) return true;
    if (!reserveOne(&ini->properties, &ini->propertyCapacity, ini->propertyCount)) return false;
    ini_property_t& p = ini->properties[ini->propertyCount];
    p.section = section;
    p.nameLarge = nullptr;
    p.valueLarge = nullptr;
    if (!storeText(p.name, sizeof p.name, &p.nameLarge, name != nullptr ? name : "",
                   measured(name, nameLength)) ||
        !storeText(p.value, sizeof p.value, &p.valueLarge, value != nullptr ? value : "",
                   measured(value, valueLength))) {
        std::free(p.nameLarge);
        return false;
    }
    ++ini->propertyCount;
    return true;
}

void freeProperty(ini_property_t& p) {
    std::free(p.nameLarge);
    std::free(p.valueLarge);
}

// Appends to the output if there is room, and counts the size either way.
struct Writer {
    char* data;
    int size;
    int used = 0;

    void put(const char* text) {
        for (; *text != '\0'; ++text) {
            if (data != nullptr && used < size) data[used] = *text;
            ++used;
        }
    }
};

void writeProperties(const ini_t* ini, int section, Writer& out) {
    for (int i = 0; i < ini->propertyCount; ++i) {
        const ini_property_t& p = ini->properties[i];
        if (p.section != section) continue;
        out.put(ini_property_name_text(p));
        out.put("=");
        out.put(ini_property_value_text(p));
        out.put("\n");
    }
}

}  // namespace

ini_t* ini_create(void* memctx) {
    ini_t* ini = static_cast<ini_t*>(std::malloc(sizeof(ini_t)));
    if (ini == nullptr) return nullptr;
    ini->memctx = memctx;
    ini->sections =
        static_cast<ini_section_t*>(std::malloc(sizeof(ini_section_t) * INITIAL_CAPACITY));
    ini->properties =
        static_cast<ini_property_t*>(std::malloc(sizeof(ini_property_t) * INITIAL_CAPACITY));
    if (ini->sections == nullptr || ini->properties == nullptr) {
        std::free(ini->sections);
        std::free(ini->properties);
        std::free(ini);
        return nullptr;
    }
    ini->sectionCapacity = INITIAL_CAPACITY;
    ini->propertyCapacity = INITIAL_CAPACITY;
    ini->propertyCount = 0;
    ini->sectionCount = 1;
    ini->sections[0].name[0] = '\0';
    ini->sections[0].nameLarge = nullptr;
    return ini;
}

ini_t* ini_load(const char* text, void* memctx) {
    ini_t* ini = ini_create(memctx);
    if (ini == nullptr || text == nullptr) return ini;

    const char* p = text;
    int section = INI_GLOBAL_SECTION;
    for (;;) {
        while (isBlank(*p)) ++p;
        if (*p == '\0') break;

        if (*p == ';') {
            while (*p != '\0' && *p != '\n') ++p;
            continue;
        }

        if (*p == '[') {
            const char* name = ++p;
            while (*p != '\0' && *p != ']' && *p != '\n') ++p;
            // Without a closing bracket on its line the header is dropped.
            if (*p == ']') {
                const int added = ini_section_add(ini, name, static_cast<int>(p - name));
                if (added == INI_NOT_FOUND) break;
                section = added;
                ++p;  // the rest of the line is read as the next item
            }
            continue;
        }

        const char* name = p;
        while (*p != '\0' && *p != '=' && *p != '\n') ++p;
        if (*p != '=') continue;  // not a property: the line is ignored
        const int nameLength = static_cast<int>(p - name);
        ++p;
        while (isBlank(*p) && *p != '\n') ++p;
        const char* value = p;
        while (*p != '\0' && *p != '\n') ++p;
        const char* end = p;
        while (end > value && byteOf(end[-1]) < 33) --end;
        // An empty value is passed as length 0 and so measured to the end of
        // the text; the shipped files never have one.
        if (!addProperty(ini, section, name, nameLength, value, static_cast<int>(end - value))) {
            break;
        }
    }
    return ini;
}

int ini_save(const ini_t* ini, char* data, int size) {
    if (ini == nullptr) return 0;
    Writer out{data, size};
    writeProperties(ini, INI_GLOBAL_SECTION, out);
    for (int s = 1; s < ini->sectionCount; ++s) {
        if (out.used > 0) out.put("\n");
        out.put("[");
        out.put(ini_section_text(ini->sections[s]));
        out.put("]\n");
        writeProperties(ini, s, out);
    }
    if (data != nullptr && size > 0) data[out.used < size ? out.used : size - 1] = '\0';
    return out.used + 1;
}

void ini_destroy(ini_t* ini) {
    if (ini == nullptr) return;
    for (int i = 0; i < ini->propertyCount; ++i) freeProperty(ini->properties[i]);
    for (int s = 0; s < ini->sectionCount; ++s) std::free(ini->sections[s].nameLarge);
    std::free(ini->properties);
    std::free(ini->sections);
    std::free(ini);
}

int ini_section_count(const ini_t* ini) {
    return ini != nullptr ? ini->sectionCount : 0;
}

const char* ini_section_name(const ini_t* ini, int section) {
    return validSection(ini, section) ? ini_section_text(ini->sections[section]) : nullptr;
}

int ini_property_count(const ini_t* ini, int section) {
    if (!validSection(ini, section)) return 0;
    int count = 0;
    for (int i = 0; i < ini->propertyCount; ++i) {
        if (ini->properties[i].section == section) ++count;
    }
    return count;
}

const char* ini_property_name(const ini_t* ini, int section, int property) {
    const int i = propertyIndex(ini, section, property);
    return i != INI_NOT_FOUND ? ini_property_name_text(ini->properties[i]) : nullptr;
}

const char* ini_property_value(const ini_t* ini, int section, int property) {
    const int i = propertyIndex(ini, section, property);
    return i != INI_NOT_FOUND ? ini_property_value_text(ini->properties[i]) : nullptr;
}

int ini_find_section(const ini_t* ini, const char* name, int length) {
    if (ini == nullptr || name == nullptr) return INI_NOT_FOUND;
    length = measured(name, length);
    for (int s = 0; s < ini->sectionCount; ++s) {
        if (sameName(ini_section_text(ini->sections[s]), name, length)) return s;
    }
    return INI_NOT_FOUND;
}

int ini_find_property(const ini_t* ini, int section, const char* name, int length) {
    if (!validSection(ini, section) || name == nullptr) return INI_NOT_FOUND;
    length = measured(name, length);
    int index = 0;
    for (int i = 0; i < ini->propertyCount; ++i) {
        const ini_property_t& p = ini->properties[i];
        if (p.section != section) continue;
        if (sameName(ini_property_name_text(p), name, length)) return index;
        ++index;
    }
    return INI_NOT_FOUND;
}

int ini_section_add(ini_t* ini, const char* name, int length) {
    if (ini == nullptr) return INI_NOT_FOUND;
    if (!reserveOne(&ini->sections, &ini->sectionCapacity, ini->sectionCount)) {
        return INI_NOT_FOUND;
    }
    ini_section_t& s = ini->sections[ini->sectionCount];
    s.nameLarge = nullptr;
    if (!storeText(s.name, sizeof s.name, &s.nameLarge, name != nullptr ? name : "",
                   measured(name, length))) {
        return INI_NOT_FOUND;
    }
    return ini->sectionCount++;
}

void ini_property_add(ini_t* ini, int section, const char* name, int nameLength, const char* value,
                      int valueLength) {
    (void)addProperty(ini, section, name, nameLength, value, valueLength);
}

void ini_section_remove(ini_t* ini, int section) {
    if (!validSection(ini, section) || section == INI_GLOBAL_SECTION) return;
    int kept = 0;
    for (int i = 0; i < ini->propertyCount; ++i) {
        ini_property_t& p = ini->properties[i];
        if (p.section == section) {
            freeProperty(p);
            continue;
        }
        if (p.section > section) --p.section;
        ini->properties[kept++] = p;
    }
    ini->propertyCount = kept;
    std::free(ini->sections[section].nameLarge);
    std::memmove(&ini->sections[section], &ini->sections[section + 1],
                 sizeof(ini_section_t) * static_cast<std::size_t>(ini->sectionCount - section - 1));
    --ini->sectionCount;
}

void ini_property_remove(ini_t* ini, int section, int property) {
    const int i = propertyIndex(ini, section, property);
    if (i == INI_NOT_FOUND) return;
    freeProperty(ini->properties[i]);
    std::memmove(&ini->properties[i], &ini->properties[i + 1],
                 sizeof(ini_property_t) * static_cast<std::size_t>(ini->propertyCount - i - 1));
    --ini->propertyCount;
}

void ini_section_name_set(ini_t* ini, int section, const char* name, int length) {
    if (!validSection(ini, section) || name == nullptr) return;
    ini_section_t& s = ini->sections[section];
    (void)storeText(s.name, sizeof s.name, &s.nameLarge, name, measured(name, length));
}

void ini_property_name_set(ini_t* ini, int section, int property, const char* name, int length) {
    const int i = propertyIndex(ini, section, property);
    if (i == INI_NOT_FOUND || name == nullptr) return;
    ini_property_t& p = ini->properties[i];
    (void)storeText(p.name, sizeof p.name, &p.nameLarge, name, measured(name, length));
}

void ini_property_value_set(ini_t* ini, int section, int property, const char* value, int length) {
    const int i = propertyIndex(ini, section, property);
    if (i == INI_NOT_FOUND || value == nullptr) return;
    ini_property_t& p = ini->properties[i];
    (void)storeText(p.value, sizeof p.value, &p.valueLarge, value, measured(value, length));
}
