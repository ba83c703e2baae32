#pragma once

#include <cstddef>
#include <fstream>
#include <mutex>
#include <string>
#include <unordered_set>

namespace velour::core {

// Writes each GL entry point name once, in the order of first use, to find
// out which entry points a game needs.
class InterfaceLogger {
  public:
    InterfaceLogger();

    // Opens the file afresh; a failure leaves the stream failed and nothing else.
    void init();
    // name must outlive the logger: a string literal or a table entry.
    void logCall(const char* name);

  private:
    struct TextHash {
        size_t operator()(const char* text) const;
    };
    struct TextEqual {
        bool operator()(const char* a, const char* b) const;
    };

    std::string path;
    std::ofstream stream;
    std::unordered_set<const char*, TextHash, TextEqual> seenCalls;
    std::mutex mutex;
};

extern InterfaceLogger g_interfaceLogger;

}  // namespace velour::core
