#pragma once

#include <string>

struct prop_info;

namespace velour::utils {

// One system property by its full name. The platform's record of it is
// looked up on demand and kept once found, so repeated reads skip the search.
class SystemProperty {
  public:
    explicit SystemProperty(std::string name);

    bool exists();
    const std::string& getName() const { return name; }
    // Empty when the property does not exist.
    std::string getValue();
    void setValue(const std::string& value);

  private:
    std::string name;
    const prop_info* info = nullptr;
};

}  // namespace velour::utils
