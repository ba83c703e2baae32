#include "core/log.h"

#include <android/log.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "core/context.h"
#include "platform/paths.h"
#include "velour/utils/CallStack.h"
#include "velour/utils/Configuration.h"
#include "velour/utils/Format.h"
#include "velour/utils/Process.h"

namespace velour::core {

int g_enabledLogSeverity = LOG_INFO;
bool g_printSourceLocation = true;

namespace {

struct SeverityStyle {
    const char* prefix;
    const char* continuation;  // starts the later lines of a message
    int priority;
};

const SeverityStyle SEVERITY_STYLES[] = {
    {"", "", ANDROID_LOG_INFO},
    {"[FATAL] ", "        ", ANDROID_LOG_FATAL},
    {"[ERROR] ", "        ", ANDROID_LOG_ERROR},
    {"[WARN ] ", "        ", ANDROID_LOG_WARN},
    {"[INFO ] ", "        ", ANDROID_LOG_INFO},
    {"[DEBUG] ", "        ", ANDROID_LOG_DEBUG},
    {"[VERBO] ", "        ", ANDROID_LOG_VERBOSE},
    {"[BABBL] ", "        ", ANDROID_LOG_VERBOSE},
};

const SeverityStyle& styleOf(int severity) {
    bool known = severity >= LOG_BANNER && severity <= LOG_BABBLE;
    return SEVERITY_STYLES[known ? severity : LOG_BANNER];
}

// Formatting runs outside the lock, so each thread has its own buffers.
struct ThreadBuffers {
    std::vector<char> message = std::vector<char>(4096, '\0');
    std::vector<char> lines = std::vector<char>(4096, '\0');
    char stamp[256] = {};
};

thread_local ThreadBuffers t_buffers;

std::mutex g_outputMutex;

__attribute__((format(printf, 2, 3))) void formatInto(std::vector<char>& buffer, const char* format,
                                                      ...) {
    va_list args;
    va_start(args, format);
    utils::formatInto(buffer, format, args);
    va_end(args);
}

const std::string& logFilePath() {
    static const std::string path = platform::devicePath(
        utils::formatString("/sdcard/nimbo.orlo.velour.%s.log", utils::getProcessName().c_str()));
    return path;
}

int currentThreadId() {
    return static_cast<int>(syscall(SYS_gettid));
}

// Follows the two log keys while the game runs, so that the level and the
// location switch can be changed from a shell.
class LogConfigWatcher {
  public:
    LogConfigWatcher() : _owner(getpid()) {
        try {
            _thread = std::make_unique<std::thread>(&LogConfigWatcher::run, this);
        } catch (...) {
            // No thread, no live settings; logging itself still works.
        }
    }

    ~LogConfigWatcher() {
        if (!_thread) return;
        // A forked child has the object but not the thread, and maybe a copy
        // of the mutex as the parent's thread held it: touch neither.
        if (getpid() != _owner) {
            static_cast<void>(_thread.release());
            return;
        }
        {
            std::lock_guard<std::mutex> lock(_mutex);
            running = false;
        }
        _wake.notify_all();
        _thread->join();
    }

    LogConfigWatcher(const LogConfigWatcher&) = delete;
    LogConfigWatcher& operator=(const LogConfigWatcher&) = delete;

  private:
    void run() {
        pthread_setname_np(pthread_self(), "log");
        std::unique_lock<std::mutex> lock(_mutex);
        while (running) {
            // A condition variable rather than a sleep: exit must not wait a turn.
            if (_wake.wait_for(lock, std::chrono::milliseconds(500), [this] { return !running; }))
                break;
            lock.unlock();
            poll();
            lock.lock();
        }
    }

    void poll() {
        // A process that the layer leaves alone pays nothing.
        if (!interceptionEnabled()) return;
        try {
            const auto& config = utils::Configuration::global();
            double number = config.getf(_levelKey);
            int level = number > -1e9 && number < 1e9 ? static_cast<int>(number) : 0;
            if (level != _level) {
                _level = level;
                g_enabledLogSeverity = level != 0 ? level : LOG_INFO;
            }
            std::string location = config.gets(_locationKey);
            if (location != _location) {
                _location = location;
                // Clearing the property keeps the switch where it stands.
                if (!location.empty()) g_printSourceLocation = std::atoi(location.c_str()) != 0;
            }
        } catch (...) {
            // Try again next turn.
        }
    }

    std::atomic<bool> running{true};
    const std::string _levelKey = "orlo.log.level";
    int _level = 0;
    const std::string _locationKey = "orlo.log.print_source_location";
    std::string _location;
    std::mutex _mutex;
    std::condition_variable _wake;
    pid_t _owner;
    std::unique_ptr<std::thread> _thread;
};

}  // namespace

// A function-local static: its thread starts only when the process record
// exists, and stops before the record goes, since statics are destroyed in
// the reverse order of their construction.
void startLogConfigWatcher() {
    static LogConfigWatcher watcher;
}

void log(const char* file, int line, const char* function, int severity, const char* format, ...) {
    if (format == nullptr || format[0] == '\0') return;
    ThreadBuffers& buffers = t_buffers;

    va_list args;
    va_start(args, format);
    utils::formatInto(buffers.message, format, args);
    va_end(args);

    const SeverityStyle& style = styleOf(severity);
    bool withLocation = g_printSourceLocation && severity != LOG_BANNER && severity != LOG_INFO;
    if (withLocation) {
        formatInto(buffers.lines, "[%s:%d] %s - %s\n", file ? file : "", line,
                   function ? function : "", buffers.message.data());
    } else {
        formatInto(buffers.lines, "%s\n", buffers.message.data());
    }

    std::lock_guard<std::mutex> lock(g_outputMutex);
    // Opened per message, so that a file removed or made writable while the
    // game runs is picked up; /sdcard is often closed to games, which is fine.
    FILE* out = std::fopen(logFilePath().c_str(), "a");

    time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    size_t length = std::strftime(buffers.stamp, sizeof buffers.stamp, "%F %X", &local);
    std::snprintf(buffers.stamp + length, sizeof buffers.stamp - length,
                  " %7d %7d : ", static_cast<int>(getpid()), currentThreadId());

    const char* lead = style.prefix;
    for (char* text = buffers.lines.data(); *text != '\0';) {
        char* end = std::strchr(text, '\n');
        if (end != nullptr) *end = '\0';
        __android_log_print(style.priority, "velour", "%s%s", lead, text);
        if (out != nullptr) {
            std::fputs(buffers.stamp, out);
            std::fputs(lead, out);
            std::fputs(text, out);
            std::fputc('\n', out);
            std::fflush(out);
        }
        if (end == nullptr) break;
        text = end + 1;
        lead = style.continuation;
    }
    if (out != nullptr) std::fclose(out);
}

void rip(const char* file, int line, const char* function, const std::string& message) {
    std::string stack = utils::dumpCallStack(4);
    std::vector<char> text(4096, '\0');
    formatInto(text, "[%s:%d] critical failure: %s\n%s\n%s", file ? file : "", line,
               function ? function : "", message.c_str(), stack.c_str());
    throw std::runtime_error(text.data());
}

}  // namespace velour::core
