#pragma once

// System properties. Bionic provides these on a device; on a host the layer
// links its own implementation over a store that several processes share.
#ifdef __ANDROID__
#include <sys/system_properties.h>
#else
#include <cstdint>

#define PROP_VALUE_MAX 92
#define PROP_NAME_MAX 32

extern "C" {
struct prop_info;
int __system_property_get(const char* name, char* value);
int __system_property_set(const char* name, const char* value);
const prop_info* __system_property_find(const char* name);
void __system_property_read_callback(const prop_info* pi,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie);
int __system_property_foreach(void (*callback)(const prop_info* pi, void* cookie), void* cookie);
}
#endif
