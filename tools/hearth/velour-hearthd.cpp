// velour-hearthd: a reference game service for a host. It registers
// "nimbohearth" with the sysroot's service manager, answers every transaction
// of the layer's client from a folder of per-package settings, records each
// weapon message with its time, and calls back the registered listeners when
// velour-hearth tells it to.
// clang-format off
#include <limits>
#include <memory>
#include <binder/Binder.h>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <utils/String8.h>
// clang-format on

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "hearth/HearthProtocol.h"
#include "platform/paths.h"

namespace fs = std::filesystem;
using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;
using android::String16;

namespace velour::hearth {
namespace {

const char USAGE[] =
    "usage: velour-hearthd [--folder DIR] [--effect NAME]\n"
    "\n"
    "Registers \"nimbohearth\" with the service manager of $VELOUR_SYSROOT and serves\n"
    "it until killed. DIR (default: the device path /data/local/tmp/hearth) holds one\n"
    "folder per package:\n"
    "  DIR/PACKAGE/supported   the answer of getVelourSupported (default 1)\n"
    "  DIR/PACKAGE/data        the game data update text (default empty)\n"
    "  DIR/PACKAGE/data4D      the haptics data text (default empty)\n"
    "  DIR/PACKAGE/support4D   1 when haptics are supported (default 0)\n"
    "Weapon messages are appended to DIR/weapons.log, one \"NANOSECONDS NAME\" a line.\n"
    "--effect NAME is sent to each listener as it registers. velour-hearth changes\n"
    "answers and sends callbacks while the service runs.\n";

const char* const EFFECTS[] = {"null",     "color_invert",     "cel_shading",
                               "hdr",      "old_movie",        "night_vision",
                               "pixelize", "gamma_correction", "edge_detection"};

std::string utf8(const String16& text) {
    android::String8 out(text);
    return std::string(out.string(), out.size());
}

int effectType(const std::string& name) {
    for (size_t i = 0; i < sizeof(EFFECTS) / sizeof(EFFECTS[0]); i++)
        if (name == EFFECTS[i]) return static_cast<int>(i);
    return -1;
}

int64_t nowNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

class HearthService : public android::BBinder {
  public:
    HearthService(fs::path folder, int startEffect)
        : folder(std::move(folder)), effect(startEffect) {}

    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        size_t start = data.dataPosition();
        if (data.enforceInterface(String16(CONTROL_INTERFACE))) return control(code, data, reply);
        data.setDataPosition(start);
        {
            std::lock_guard<std::mutex> lock(mutex);
            lastRequests[code].assign(data.data(), data.data() + data.dataSize());
        }
        if (!data.enforceInterface(String16(SERVICE_INTERFACE)))
            return android::BBinder::onTransact(code, data, reply, flags);
        int hang = hangMs.exchange(0);
        if (hang > 0) std::this_thread::sleep_for(std::chrono::milliseconds(hang));
        std::vector<uint8_t> scripted;
        {
            std::lock_guard<std::mutex> lock(mutex);
            scripted.swap(nextReply);
        }
        if (!scripted.empty()) return reply->setData(scripted.data(), scripted.size());
        return serve(code, data, reply);
    }

  private:
    // A package names a folder under ours and nothing else.
    std::string setting(const std::string& package, const char* name) const {
        if (package.empty() || package[0] == '.' || package.find('/') != std::string::npos)
            return {};
        std::ifstream in(folder / package / name, std::ios::binary);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    void store(const std::string& package, const char* name, const std::string& text) {
        if (package.empty() || package[0] == '.' || package.find('/') != std::string::npos) return;
        fs::create_directories(folder / package);
        std::ofstream(folder / package / name, std::ios::binary) << text;
    }

    static int number(const std::string& text, int fallback) {
        try {
            return text.empty() ? fallback : std::stoi(text);
        } catch (const std::exception&) {
            return fallback;
        }
    }

    status_t serve(uint32_t code, const Parcel& data, Parcel* reply) {
        switch (code) {
            case 105:
                reply->writeNoException();
                return reply->writeString16(String16("velour-hearthd 1.0"));
            case 2001: {
                sp<IBinder> listener;
                if (data.readStrongBinder(&listener) != android::NO_ERROR) {
                    std::fprintf(stderr, "velour-hearthd: a registration without a listener\n");
                    return reply->writeInt32(-3);  // an illegal-argument exception
                }
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    listeners.push_back(listener);
                }
                std::fprintf(stderr, "velour-hearthd: listener registered\n");
                reply->writeNoException();
                callOne(listener, effect.load(), "registered");
                return android::NO_ERROR;
            }
            case 2002: {
                String16 package;
                if (data.readString16(&package) != android::NO_ERROR) return reply->writeInt32(-3);
                reply->writeNoException();
                return reply->writeInt32(number(setting(utf8(package), "supported"), 1));
            }
            case 2003: {
                String16 package;
                if (data.readString16(&package) != android::NO_ERROR) return reply->writeInt32(-3);
                std::string name = utf8(package);
                const char* file = "data";
                if (name.size() > 3 && name.compare(name.size() - 3, 3, ".4D") == 0) {
                    name.resize(name.size() - 3);
                    file = "data4D";
                }
                reply->writeNoException();
                std::string text = setting(name, file);
                return reply->writeString16(String16(text.c_str(), text.size()));
            }
            case 2004: {
                String16 package;
                if (data.readString16(&package) != android::NO_ERROR) return reply->writeInt32(-3);
                reply->writeNoException();
                return reply->writeInt32(number(setting(utf8(package), "support4D"), 0));
            }
            case 2005: {
                String16 weapon;
                if (data.readString16(&weapon) != android::NO_ERROR) return reply->writeInt32(-3);
                int64_t at = nowNs();
                std::string name = utf8(weapon);
                {
                    std::lock_guard<std::mutex> lock(mutex);
                    weapons.emplace_back(at, name);
                    std::ofstream(folder / "weapons.log", std::ios::app)
                        << at << ' ' << name << '\n';
                }
                return reply->writeNoException();
            }
            default:
                return android::UNKNOWN_TRANSACTION;
        }
    }

    // Calls every listener with `type`; those whose process has gone are dropped.
    std::pair<int, status_t> callListeners(uint32_t code, const Parcel& request) {
        std::vector<sp<IBinder>> all;
        {
            std::lock_guard<std::mutex> lock(mutex);
            all = listeners;
        }
        int called = 0;
        status_t last = android::NO_ERROR;
        for (auto& listener : all) {
            Parcel reply;
            last = listener->transact(code, request, &reply);
            if (last == android::DEAD_OBJECT) {
                std::lock_guard<std::mutex> lock(mutex);
                listeners.erase(std::remove(listeners.begin(), listeners.end(), listener),
                                listeners.end());
                continue;
            }
            called++;
        }
        return {called, last};
    }

    static void writeCallback(Parcel& request, int type, const char* config) {
        request.writeInterfaceToken(String16(CALLBACK_INTERFACE));
        request.writeInt32(type);
        request.writeString16(String16(config));
    }

    void callOne(const sp<IBinder>& listener, int type, const char* config) {
        Parcel request, reply;
        writeCallback(request, type, config);
        listener->transact(1, request, &reply);
    }

    int callAll(int type, const char* config) {
        Parcel request;
        writeCallback(request, type, config);
        return callListeners(1, request).first;
    }

    status_t control(uint32_t code, const Parcel& data, Parcel* reply) {
        switch (code) {
            case SET_EFFECT: {
                std::string name = utf8(data.readString16());
                int type = effectType(name);
                if (type < 0) return android::BAD_VALUE;
                effect = type;
                int called = callAll(type, "effect");
                std::fprintf(stderr, "velour-hearthd: effect %s sent to %d listener(s)\n",
                             name.c_str(), called);
                return reply->writeInt32(called);
            }
            case SET_HAPTICS: {
                bool on = data.readBool();
                int called = callAll(on ? 101 : 100, "haptics");
                std::fprintf(stderr, "velour-hearthd: haptics %s sent to %d listener(s)\n",
                             on ? "on" : "off", called);
                return reply->writeInt32(called);
            }
            case LIST_WEAPONS: {
                std::lock_guard<std::mutex> lock(mutex);
                reply->writeInt32(static_cast<int32_t>(weapons.size()));
                for (auto& [at, name] : weapons) {
                    reply->writeInt64(at);
                    reply->writeString16(String16(name.c_str(), name.size()));
                }
                return android::NO_ERROR;
            }
            case SET_ANSWER: {
                std::string package = utf8(data.readString16());
                store(package, "supported", std::to_string(data.readInt32()));
                return android::NO_ERROR;
            }
            case SET_DATA: {
                std::string package = utf8(data.readString16());
                std::string text = utf8(data.readString16());
                bool haptics =
                    package.size() > 3 && package.compare(package.size() - 3, 3, ".4D") == 0;
                if (haptics) package.resize(package.size() - 3);
                store(package, haptics ? "data4D" : "data", text);
                return android::NO_ERROR;
            }
            case SEND_CALLBACK: {
                uint32_t callbackCode = static_cast<uint32_t>(data.readInt32());
                int32_t length = data.readInt32();
                const void* bytes = length >= 0 ? data.readInplace(size_t(length)) : nullptr;
                if (!bytes) return android::BAD_VALUE;
                Parcel request;
                request.setData(static_cast<const uint8_t*>(bytes), size_t(length));
                auto [called, last] = callListeners(callbackCode, request);
                reply->writeInt32(called);
                return reply->writeInt32(last);
            }
            case LAST_REQUEST: {
                std::lock_guard<std::mutex> lock(mutex);
                const std::vector<uint8_t>& bytes = lastRequests[uint32_t(data.readInt32())];
                reply->writeInt32(static_cast<int32_t>(bytes.size()));
                return reply->write(bytes.data(), bytes.size());
            }
            case SET_NEXT_REPLY: {
                int32_t length = data.readInt32();
                const void* bytes = length > 0 ? data.readInplace(size_t(length)) : nullptr;
                if (!bytes) return android::BAD_VALUE;
                std::lock_guard<std::mutex> lock(mutex);
                auto* at = static_cast<const uint8_t*>(bytes);
                nextReply.assign(at, at + length);
                return android::NO_ERROR;
            }
            case HANG:
                hangMs = data.readInt32();
                return android::NO_ERROR;
            case COUNT_LISTENERS: {
                std::lock_guard<std::mutex> lock(mutex);
                return reply->writeInt32(static_cast<int32_t>(listeners.size()));
            }
            default:
                return android::UNKNOWN_TRANSACTION;
        }
    }

    const fs::path folder;
    std::atomic<int> effect;
    std::atomic<int> hangMs{0};
    std::mutex mutex;
    std::vector<sp<IBinder>> listeners;
    std::vector<std::pair<int64_t, std::string>> weapons;
    std::map<uint32_t, std::vector<uint8_t>> lastRequests;
    std::vector<uint8_t> nextReply;
};

}  // namespace
}  // namespace velour::hearth

int main(int argc, char** argv) {
    using namespace velour::hearth;
    std::string folder = velour::platform::devicePath("/data/local/tmp/hearth");
    int effect = 0;
    for (int i = 1; i < argc; i++) {
        std::string arg = argv[i];
        if (arg == "--help") {
            std::fputs(USAGE, stdout);
            return 0;
        } else if (arg == "--folder" && i + 1 < argc) {
            folder = argv[++i];
        } else if (arg == "--effect" && i + 1 < argc) {
            effect = effectType(argv[++i]);
            if (effect < 0) {
                std::fprintf(stderr, "velour-hearthd: no effect named %s\n", argv[i]);
                return 2;
            }
        } else {
            std::fputs(USAGE, stderr);
            return 2;
        }
    }
    fs::create_directories(folder);
    sp<IBinder> service = new HearthService(folder, effect);
    // The service manager may still be starting: give it a few seconds.
    for (int attempt = 0;; attempt++) {
        if (android::defaultServiceManager()->addService(String16(SERVICE_NAME), service) ==
            android::NO_ERROR)
            break;
        if (attempt == 50) {
            std::fprintf(stderr, "velour-hearthd: no service manager answers\n");
            return 1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::fprintf(stderr, "velour-hearthd: serving %s from %s\n", SERVICE_NAME, folder.c_str());
    for (;;) pause();
}
