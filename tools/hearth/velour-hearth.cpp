// velour-hearth: changes what the running reference service answers and makes
// it call back the games that registered with it.
// clang-format off
#include <limits>
#include <memory>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
#include <utils/String8.h>
// clang-format on

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "hearth/HearthProtocol.h"

using android::Parcel;
using android::String16;

namespace {

const char USAGE[] =
    "usage: velour-hearth COMMAND [ARGS]\n"
    "\n"
    "Talks to the velour-hearthd of $VELOUR_SYSROOT.\n"
    "  effect NAME            switch every registered game to effect NAME: null,\n"
    "                         color_invert, cel_shading, hdr, old_movie, night_vision,\n"
    "                         pixelize, gamma_correction, edge_detection\n"
    "  haptics on|off         switch the weapon haptics of every registered game\n"
    "  weapons                print the weapon messages received, \"NANOSECONDS NAME\"\n"
    "  answer PACKAGE N       answer N to getVelourSupported(PACKAGE) from now on\n"
    "  data PACKAGE FILE      hand FILE's text to getRusFile(PACKAGE); PACKAGE.4D for\n"
    "                         get4DRusFile\n"
    "  hang MS                make the next request of a game wait MS milliseconds\n"
    "  listeners              print how many games registered a callback\n";

int fail(const char* message) {
    std::fprintf(stderr, "velour-hearth: %s\n", message);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace velour::hearth;
    if (argc < 2 || std::string(argv[1]) == "--help") {
        std::fputs(USAGE, argc < 2 ? stderr : stdout);
        return argc < 2 ? 2 : 0;
    }
    std::string command = argv[1];
    android::sp<android::IBinder> service =
        android::defaultServiceManager()->checkService(String16(SERVICE_NAME));
    if (service == nullptr) return fail("the service is not running");

    Parcel data, reply;
    data.writeInterfaceToken(String16(CONTROL_INTERFACE));
    uint32_t code;
    if (command == "effect" && argc == 3) {
        code = SET_EFFECT;
        data.writeString16(String16(argv[2]));
    } else if (command == "haptics" && argc == 3 &&
               (std::string(argv[2]) == "on" || std::string(argv[2]) == "off")) {
        code = SET_HAPTICS;
        data.writeBool(std::string(argv[2]) == "on");
    } else if (command == "weapons" && argc == 2) {
        code = LIST_WEAPONS;
    } else if (command == "answer" && argc == 4) {
        code = SET_ANSWER;
        data.writeString16(String16(argv[2]));
        data.writeInt32(std::atoi(argv[3]));
    } else if (command == "data" && argc == 4) {
        std::ifstream in(argv[3], std::ios::binary);
        if (!in) return fail("cannot read the data file");
        std::stringstream text;
        text << in.rdbuf();
        code = SET_DATA;
        data.writeString16(String16(argv[2]));
        std::string body = text.str();
        data.writeString16(String16(body.c_str(), body.size()));
    } else if (command == "hang" && argc == 3) {
        code = HANG;
        data.writeInt32(std::atoi(argv[2]));
    } else if (command == "listeners" && argc == 2) {
        code = COUNT_LISTENERS;
    } else {
        std::fputs(USAGE, stderr);
        return 2;
    }
    android::status_t status = service->transact(code, data, &reply);
    if (status != android::NO_ERROR) {
        std::fprintf(stderr, "velour-hearth: %s failed: status %d\n", command.c_str(), status);
        return 1;
    }
    if (code == SET_EFFECT || code == SET_HAPTICS) {
        std::printf("%s sent to %d game(s)\n", command.c_str(), reply.readInt32());
    } else if (code == LIST_WEAPONS) {
        int32_t count = reply.readInt32();
        for (int32_t i = 0; i < count; i++) {
            int64_t at = reply.readInt64();
            android::String8 name(reply.readString16());
            std::printf("%lld %s\n", static_cast<long long>(at), name.string());
        }
    } else if (code == COUNT_LISTENERS) {
        std::printf("%d\n", reply.readInt32());
    }
    return 0;
}
