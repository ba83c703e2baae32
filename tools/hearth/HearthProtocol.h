#pragma once

// What the reference game service and its control command share: the
// service's name and interfaces, and the control transactions, which travel
// on the same binder under an interface token of their own.
#include <cstdint>

namespace velour::hearth {

constexpr const char* SERVICE_NAME = "nimbohearth";
constexpr const char* SERVICE_INTERFACE = "com.nimbo.hearth.IHearthService";
constexpr const char* CALLBACK_INTERFACE = "com.nimbo.hearth.ITesselCallback";
constexpr const char* CONTROL_INTERFACE = "com.velour.hearth.IHearthControl";

// Control codes, each request after the control token.
enum Control : uint32_t {
    SET_EFFECT = 1,       // String16 effect name; reply int32 listeners called
    SET_HAPTICS = 2,      // bool; reply int32 listeners called
    LIST_WEAPONS = 3,     // nothing; reply int32 count, then per message int64 ns, String16 name
    SET_ANSWER = 4,       // String16 package, int32 answer of getVelourSupported
    SEND_CALLBACK = 5,    // int32 code, then raw bytes (int32 length, bytes) sent as they are
                          // to every listener; reply int32 listeners, int32 last status
    LAST_REQUEST = 6,     // int32 service code; reply int32 length and the request's bytes
    HANG = 7,             // int32 milliseconds the next service request waits before its answer
    COUNT_LISTENERS = 8,  // reply int32
    SET_DATA = 9,         // String16 package (".4D" for haptics data), String16 text
    SET_NEXT_REPLY = 10,  // int32 length, bytes: the next service request gets them as its reply
};

}  // namespace velour::hearth
