#pragma once

#include <string>

namespace velour::utils {

// Run-time settings kept as system properties under "vendor.nimbo.", so they
// can be changed from a shell while the game runs. Safe from any thread.
class Configuration {
  public:
    static Configuration& global();

    // The property's text; empty when it is unset or unreadable.
    std::string gets(const std::string& key) const;
    // The text as a number; empty or unparsable text gives 0.
    double getf(const std::string& key) const;
    // True for exactly "1.0", "1", "yes" or "true".
    bool getb(const std::string& key) const;
    // Best effort: a game process may lack the rights to write vendor
    // properties, and nothing depends on the write.
    void sets(const std::string& key, const std::string& value);

    Configuration(const Configuration&) = delete;
    Configuration& operator=(const Configuration&) = delete;

  private:
    Configuration() = default;
};

}  // namespace velour::utils
