#pragma once

// Two-process tests of the game service client: this process is the game,
// velour-hearthd the service, both under one sysroot with one service manager
// for the whole program. Requests and replies are decoded here by hand, from
// the driver's layout, not with the parcel that wrote them.
// clang-format off
#include <limits>
#include <memory>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
// clang-format on

#include <gtest/gtest.h>
#include <signal.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "TestSysroot.h"
#include "ctrl/HearthAsyncService.h"
#include "hearth/HearthProtocol.h"

namespace velour::test {

// The driver's object types.
constexpr uint32_t TYPE_BINDER = 0x73622a85;  // 's', 'b', '*', 0x85
constexpr uint32_t TYPE_HANDLE = 0x73682a85;  // 's', 'h', '*', 0x85

// Bytes as the driver lays them out, written and read word by word.
class Bytes {
  public:
    Bytes() = default;
    explicit Bytes(std::vector<uint8_t> data) : data(std::move(data)) {}

    Bytes& i32(int32_t value) {
        uint8_t word[4];
        memcpy(word, &value, 4);
        data.insert(data.end(), word, word + 4);
        return *this;
    }
    // Length in units, the units, a zero unit, padding to 4 bytes.
    Bytes& str16(const std::u16string& text) {
        i32(static_cast<int32_t>(text.size()));
        size_t bytes = (text.size() + 1) * 2;
        size_t at = data.size();
        data.resize(at + ((bytes + 3) & ~size_t(3)), 0);
        memcpy(data.data() + at, text.data(), text.size() * 2);
        return *this;
    }
    Bytes& token(const std::u16string& interface) {
        return i32(int32_t(0x80000000u)).i32(-1).i32(0x53595354).str16(interface);
    }

    int32_t readI32() {
        int32_t value = 0;
        if (at + 4 <= data.size()) memcpy(&value, data.data() + at, 4);
        at += 4;
        return value;
    }
    uint64_t readU64() {
        uint64_t value = 0;
        if (at + 8 <= data.size()) memcpy(&value, data.data() + at, 8);
        at += 8;
        return value;
    }
    std::u16string readStr16() {
        int32_t size = readI32();
        if (size < 0 || at + size_t(size) * 2 + 2 > data.size()) return u"<bad>";
        std::u16string text(reinterpret_cast<const char16_t*>(data.data() + at), size_t(size));
        bool terminated = data[at + size_t(size) * 2] == 0 && data[at + size_t(size) * 2 + 1] == 0;
        at += (size_t(size) * 2 + 2 + 3) & ~size_t(3);
        return terminated ? text : u"<unterminated>";
    }
    bool atEnd() const { return at == data.size(); }

    std::vector<uint8_t> data;
    size_t at = 0;
};

const char* const PACKAGE = "com.velour.svc";
const std::u16string SERVICE_TOKEN = u"com.nimbo.hearth.IHearthService";
const std::u16string CALLBACK_TOKEN = u"com.nimbo.hearth.ITesselCallback";

// A raw request or reply: the bytes as they are, whatever they hold.
inline void writeRaw(android::Parcel& data, const Bytes& bytes) {
    data.writeInt32(static_cast<int32_t>(bytes.data.size()));
    data.write(bytes.data.data(), bytes.data.size());
}

class ServiceTest : public ::testing::Test {
  protected:
    // Starts a fresh service for each test; the service manager lives on.
    void SetUp() override { startService(); }
    void TearDown() override { stopService(SIGTERM); }

    static void SetUpTestSuite();

    void startService(const std::vector<std::string>& args = {});
    void stopService(int signal);
    pid_t servicePid() const { return service; }

    // A control request; its reply, positioned after nothing.
    android::status_t control(uint32_t code, const std::function<void(android::Parcel&)>& write,
                              android::Parcel* reply = nullptr);
    int listeners();
    std::vector<std::pair<int64_t, std::string>> weapons();
    std::vector<uint8_t> lastRequest(uint32_t code);
    // Waits up to `seconds` for `done`.
    static bool eventually(const std::function<bool()>& done, int seconds = 5);

    static TestSysroot* sysroot;
    pid_t service = -1;
    std::string serviceLog;
};

}  // namespace velour::test
