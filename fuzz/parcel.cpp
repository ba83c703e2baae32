// Parcels from the other side of the game service, read through the host
// Parcel as each side reads them. The first byte chooses the reading: a reply
// to one of the client's calls, the listener callback the client receives, or
// a request as the reference service reads it.
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
// clang-format off
#include <binder/IBinder.h>
#include <binder/Parcel.h>
#include <utils/String16.h>
#include <utils/String8.h>
// clang-format on

#include <string>

namespace {

const android::String16& serviceInterface() {
    static const android::String16 name("com.nimbo.hearth.IHearthService");
    return name;
}

std::string utf8(const android::String16& text) {
    android::String8 converted(text);
    return std::string(converted.string(), converted.size());
}

void readReply(const android::Parcel& reply, int call) {
    if (reply.readExceptionCode() != 0) return;
    if (call % 2) {
        utf8(reply.readString16());  // version, data files
    } else {
        reply.readInt32();  // supported, 4D support
    }
}

void readCallback(const android::Parcel& data) {
    if (!data.enforceInterface(android::String16("com.nimbo.hearth.ITesselCallback")))
        data.setDataPosition(0);
    int32_t type = 0;
    android::String16 config;
    if (data.readInt32(&type) == android::OK && data.readString16(&config) == android::OK)
        utf8(config);
}

void readRequest(const android::Parcel& data) {
    if (!data.enforceInterface(serviceInterface())) data.setDataPosition(0);
    const size_t start = data.dataPosition();
    android::String16 package;
    if (data.readString16(&package) == android::NO_ERROR) utf8(package);
    data.setDataPosition(start);
    android::sp<android::IBinder> listener;
    data.readStrongBinder(&listener);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
    if (size == 0) return 0;
    android::Parcel parcel;
    if (parcel.setData(bytes + 1, size - 1) != android::NO_ERROR) return 0;
    switch (bytes[0] % 3) {
        case 0:
            readReply(parcel, bytes[0] / 3);
            break;
        case 1:
            readCallback(parcel);
            break;
        default:
            readRequest(parcel);
            break;
    }
    return 0;
}
