#pragma once

#include <string>

namespace velour::core {

enum LogSeverity {
    LOG_BANNER = 0,
    LOG_FATAL = 1,
    LOG_ERROR = 2,
    LOG_WARN = 3,
    LOG_INFO = 4,
    LOG_DEBUG = 5,
    LOG_VERBOSE = 6,
    LOG_BABBLE = 7,
};

// A message of severity s is wanted when g_enabledLogSeverity >= s; call sites
// test this before building their arguments (VELOUR_LOG does it for them).
extern int g_enabledLogSeverity;
extern bool g_printSourceLocation;

// Starts the thread that follows the log keys; called once, by the static
// initialiser that has just built the process record.
void startLogConfigWatcher();

void log(const char* file, int line, const char* function, int severity, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

[[noreturn]] void rip(const char* file, int line, const char* function, const std::string& message);

}  // namespace velour::core

#define VELOUR_LOG(severity, ...)                                                       \
    do {                                                                                \
        if (::velour::core::g_enabledLogSeverity >= (severity))                         \
            ::velour::core::log(__FILE__, __LINE__, __func__, (severity), __VA_ARGS__); \
    } while (0)

#define VELOUR_RIP(message) ::velour::core::rip(__FILE__, __LINE__, __func__, (message))
