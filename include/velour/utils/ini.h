#pragma once

// A small ini reader and writer over plain records. The layer itself only
// loads and destroys, and reads the records directly, so their layout is fixed.
//
// Section 0 always exists with an empty name: it holds what comes before the
// first header. A length argument below 1 means "measure with strlen".

struct ini_section_t {
    char name[32];
    char* nameLarge;  // holds the name instead when it does not fit
};

struct ini_property_t {
    int section;
    char name[32];
    char* nameLarge;
    char value[64];
    char* valueLarge;
};

struct ini_t {
    ini_section_t* sections;
    int sectionCapacity;
    int sectionCount;
    ini_property_t* properties;
    int propertyCapacity;
    int propertyCount;
    void* memctx;
};

enum { INI_GLOBAL_SECTION = 0, INI_NOT_FOUND = -1 };

ini_t* ini_create(void* memctx);
// Null text or a failed allocation gives what was built so far (possibly null).
ini_t* ini_load(const char* text, void* memctx);
// Writes as much of the text as fits in `size` bytes, always terminated, and
// returns the size the whole text needs, terminator included. A null `data`
// only measures.
int ini_save(const ini_t* ini, char* data, int size);
void ini_destroy(ini_t* ini);

int ini_section_count(const ini_t* ini);
const char* ini_section_name(const ini_t* ini, int section);

// Properties are counted and indexed within their section.
int ini_property_count(const ini_t* ini, int section);
const char* ini_property_name(const ini_t* ini, int section, int property);
const char* ini_property_value(const ini_t* ini, int section, int property);

// Names compare without regard to ASCII case; the first match wins.
int ini_find_section(const ini_t* ini, const char* name, int length);
int ini_find_property(const ini_t* ini, int section, const char* name, int length);

// Returns the new section's index, or INI_NOT_FOUND if memory ran out.
int ini_section_add(ini_t* ini, const char* name, int length);
void ini_property_add(ini_t* ini, int section, const char* name, int nameLength, const char* value,
                      int valueLength);
// Removes a section with its properties; later sections move down by one.
// Section 0 cannot be removed.
void ini_section_remove(ini_t* ini, int section);
void ini_property_remove(ini_t* ini, int section, int property);

void ini_section_name_set(ini_t* ini, int section, const char* name, int length);
void ini_property_name_set(ini_t* ini, int section, int property, const char* name, int length);
void ini_property_value_set(ini_t* ini, int section, int property, const char* value, int length);

inline const char* ini_section_text(const ini_section_t& s) {
    return s.nameLarge != nullptr ? s.nameLarge : s.name;
}

inline const char* ini_property_name_text(const ini_property_t& p) {
    return p.nameLarge != nullptr ? p.nameLarge : p.name;
}

inline const char* ini_property_value_text(const ini_property_t& p) {
    return p.valueLarge != nullptr ? p.valueLarge : p.value;
}
