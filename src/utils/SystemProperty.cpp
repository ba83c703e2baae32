#include "velour/utils/SystemProperty.h"

#include <cstdint>
#include <utility>

#include "platform/properties.h"

namespace velour::utils {

SystemProperty::SystemProperty(std::string name) : name(std::move(name)) {}

bool SystemProperty::exists() {
    // A property may be created after us, so a miss is not cached.
    if (info == nullptr) info = __system_property_find(name.c_str());
    return info != nullptr;
}

std::string SystemProperty::getValue() {
    if (!exists()) return std::string();
    std::string value;
    __system_property_read_callback(
        info,
        [](void* cookie, const char*, const char* text, uint32_t) {
            *static_cast<std::string*>(cookie) = text != nullptr ? text : "";
        },
        &value);
    return value;
}

void SystemProperty::setValue(const std::string& value) {
    (void)__system_property_set(name.c_str(), value.c_str());
}

}  // namespace velour::utils
