#pragma once

// The host's property store: one file of fixed slots, mapped by every process
// that uses it. Readers take no lock; each slot's serial works as a seqlock.
// Writers serialise with flock on a descriptor of their own, so that threads
// and forked children exclude each other as well.

#ifndef __ANDROID__

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/properties.h"

namespace velour::platform {

// Longest property name, without its zero.
constexpr size_t PROPERTY_NAME_LIMIT = 127;

// Letters, digits and "_-.@:", no empty part between dots.
bool isValidPropertyName(const char* name);

// VELOUR_PROPERTY_STORE, else $VELOUR_SYSROOT/dev/__properties__, else
// /tmp/velour-properties-<uid>.
std::string propertyStorePath();

class PropertyStore {
  public:
    // Opens the store at path, creating it if needed. A store that cannot be
    // opened is not valid, and all its operations fail quietly.
    explicit PropertyStore(std::string path);
    ~PropertyStore();
    PropertyStore(const PropertyStore&) = delete;
    PropertyStore& operator=(const PropertyStore&) = delete;

    // The store of the environment's path, opened on first use.
    static PropertyStore& global();

    bool valid() const { return _header != nullptr; }
    bool writable() const { return _writable; }
    const std::string& path() const { return _path; }

    const prop_info* find(const char* name) const;
    // Copies the value (at most PROP_VALUE_MAX - 1 characters and a zero) and
    // returns its length; a missing property gives 0 and "".
    int get(const char* name, char* value) const;
    int set(const char* name, const char* value);
    void read(const prop_info* pi,
              void (*callback)(void* cookie, const char* name, const char* value, uint32_t serial),
              void* cookie) const;
    void forEach(void (*callback)(const prop_info* pi, void* cookie), void* cookie) const;

  private:
    struct Header;

    bool open();
    prop_info* slots() const;
    uint32_t usedSlots() const;
    prop_info* findSlot(const char* name) const;
    // Copies a consistent value out of the slot; returns the serial it belongs to.
    uint32_t readValue(const prop_info* pi, char* value) const;

    std::string _path;
    Header* _header = nullptr;
    size_t _mappedSize = 0;
    bool _writable = false;
    uint64_t _device = 0;
    uint64_t _inode = 0;
};

}  // namespace velour::platform

#endif  // __ANDROID__
