// The game goes on whatever the service does: absent, killed and restarted,
// hanging, or sending what no parcel writer would.
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "ServiceFixture.h"
#include "ctrl/PropertyConfig.h"

namespace velour::test {
namespace {

using android::Parcel;
using ctrl::HearthAsyncService;
using Clock = std::chrono::steady_clock;

double millisSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

TEST_F(ServiceTest, WithoutTheServiceEveryOperationGivesItsFailureValue) {
    stopService(SIGTERM);
    auto client = std::make_unique<HearthAsyncService>();
    testing::internal::CaptureStderr();
    EXPECT_EQ(client->getVelourSupported(PACKAGE), 1);
    EXPECT_EQ(client->getRusFile(PACKAGE), "");
    EXPECT_EQ(client->get4DRusFile(PACKAGE), "");
    EXPECT_FALSE(client->get4DSupport(PACKAGE));
    client->registerTesselCallback();
    auto start = Clock::now();
    for (int i = 0; i < 5; i++) client->sendWeaponToDova("AKM");
    EXPECT_LT(millisSince(start), 50.0) << "the caller does not wait";
    client.reset();  // drains the pool
    std::string log = testing::internal::GetCapturedStderr();
    for (const char* line :
         {"HearthAsyncService: could not get hearth service!",
          "HearthAsyncService getHrthService fail", "getRusFile getHrthService fail",
          "get4DRusFile getHrthService fail", "get4DSupport getHrthService fail",
          "HearthAsyncService registerTesselCallback fail"})
        EXPECT_TRUE(has(log, line)) << line;
    // Each lost weapon message has its own line.
    size_t lost = 0;
    for (size_t at = log.find("sendWeaponToDova getHrthService fail"); at != std::string::npos;
         at = log.find("sendWeaponToDova getHrthService fail", at + 1))
        lost++;
    EXPECT_EQ(lost, 5u);
}

// A registration that fails is tried again, and the service's starting
// effect arrives with it; a second one only logs. A killed service is looked
// up anew, but the callback stays with the dead one.
TEST_F(ServiceTest, RegistrationAndLookUpAcrossAServiceThatComesAndGoes) {
    stopService(SIGTERM);
    auto client = std::make_unique<HearthAsyncService>();
    client->registerTesselCallback();
    startService({"--effect", "night_vision"});
    client->registerTesselCallback();
    EXPECT_EQ(listeners(), 1);
    EXPECT_EQ(ctrl::PropertyConfig::getInstance().getEffect(), "night_vision");
    testing::internal::CaptureStderr();
    client->registerTesselCallback();
    EXPECT_EQ(listeners(), 1);
    EXPECT_EQ(client->getVelourSupported(PACKAGE), 1);
    stopService(SIGKILL);
    // The death notice arrives at once, before any call fails.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(has(log, "HearthAsyncService registerTesselCallback Already called, return!!!"));
    EXPECT_TRUE(has(log, "HearthAsyncService remote (hearth) died")) << log;

    startService();
    control(hearth::SET_ANSWER, [](Parcel& data) {
        data.writeString16(android::String16(PACKAGE));
        data.writeInt32(3);
    });
    EXPECT_EQ(client->getVelourSupported(PACKAGE), 3) << "looked up anew";
    client->registerTesselCallback();
    EXPECT_EQ(listeners(), 0) << "the registration stays with the dead service";
}

// Weapon messages never wait for a hanging service, and all arrive in order.
TEST_F(ServiceTest, WeaponMessagesNeverBlockTheSenderAndArriveAllInOrder) {
    auto client = std::make_unique<HearthAsyncService>();
    control(hearth::HANG, [](Parcel& data) { data.writeInt32(1000); });
    auto start = Clock::now();
    for (const char* weapon : {"w0", "w1", "w2"}) client->sendWeaponToDova(weapon);
    EXPECT_LT(millisSince(start), 50.0);
    for (int i = 3; i < 200; i++) client->sendWeaponToDova(("w" + std::to_string(i)).c_str());
    ASSERT_TRUE(eventually([&] { return weapons().size() == 200; }));
    EXPECT_GE(millisSince(start), 900.0) << "the first message waited for the service";
    auto all = weapons();
    for (int i = 0; i < 200; i++) {
        EXPECT_EQ(all[size_t(i)].second, "w" + std::to_string(i));
        if (i > 0) {
            EXPECT_GE(all[size_t(i)].first, all[size_t(i) - 1].first);
        }
    }
}

TEST_F(ServiceTest, HostileCallbacksChangeNothing) {
    auto client = std::make_unique<HearthAsyncService>();
    client->registerTesselCallback();
    control(hearth::SET_EFFECT, [](Parcel& data) { data.writeString16(android::String16("hdr")); });
    struct Case {
        const char* what;
        uint32_t code;
        Bytes request;
    };
    Case cases[] = {
        {"wrong token", 1, Bytes().token(u"com.example.IOther").i32(1).str16(u"c")},
        {"unknown code", 7, Bytes().token(CALLBACK_TOKEN).i32(1).str16(u"c")},
        {"truncated", 1, Bytes().token(CALLBACK_TOKEN)},
        {"negative string length", 1, Bytes().token(CALLBACK_TOKEN).i32(1).i32(-5).i32(0)},
        {"huge string length", 1, Bytes().token(CALLBACK_TOKEN).i32(1).i32(0x7ffffffe).i32(0)},
        {"empty", 1, Bytes()},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        Parcel reply;
        ASSERT_EQ(control(
                      hearth::SEND_CALLBACK,
                      [&](Parcel& data) {
                          data.writeInt32(int32_t(c.code));
                          writeRaw(data, c.request);
                      },
                      &reply),
                  android::NO_ERROR);
        EXPECT_EQ(reply.readInt32(), 1);
        EXPECT_NE(reply.readInt32(), android::OK) << "refused with an error status";
        EXPECT_EQ(ctrl::PropertyConfig::getInstance().getEffect(), "hdr");
    }
}

TEST_F(ServiceTest, HostileRepliesGiveTheFailureValues) {
    auto client = std::make_unique<HearthAsyncService>();
    auto next = [&](const Bytes& reply) {
        control(hearth::SET_NEXT_REPLY, [&](Parcel& data) { writeRaw(data, reply); });
    };
    next(Bytes().i32(-3));  // an exception
    EXPECT_EQ(client->getVelourSupported(PACKAGE), 1);
    next(Bytes().i32(0).i32(-7));  // a negative string length
    EXPECT_EQ(client->getRusFile(PACKAGE), "");
    next(Bytes().i32(0).i32(0x7ffffff0));  // more text than the reply holds
    EXPECT_EQ(client->getRusFile(PACKAGE), "");
    next(Bytes().i32(0).i32(2).i32(0x00410041));  // no closing zero
    EXPECT_EQ(client->get4DRusFile(PACKAGE), "");
    next(Bytes().i32(-1));
    EXPECT_FALSE(client->get4DSupport(PACKAGE));
    // A reply header of a size that is no whole number of words, followed by
    // what reads as the text "A" one byte on.
    next(Bytes().i32(-128).i32(5).i32(0x100).i32(0x4100).i32(0));
    EXPECT_EQ(client->getRusFile(PACKAGE), "");
    EXPECT_EQ(client->getVelourSupported(PACKAGE), 1) << "a sound reply after all that";
}

TEST_F(ServiceTest, HostileRequestsLeaveTheServiceServing) {
    android::sp<android::IBinder> service =
        android::defaultServiceManager()->checkService(android::String16("nimbohearth"));
    ASSERT_NE(service, nullptr);
    struct Case {
        const char* what;
        uint32_t code;
        Bytes request;
    };
    // An object the bytes describe but the parcel never listed: a forged reference.
    Bytes forged = Bytes().token(SERVICE_TOKEN).i32(int32_t(TYPE_BINDER)).i32(0x113);
    forged.i32(0x1000).i32(0).i32(0x2000).i32(0).i32(12);
    Case cases[] = {
        {"forged object reference", 2001, forged},
        {"truncated", 2002, Bytes().token(SERVICE_TOKEN)},
        {"negative string length", 2002, Bytes().token(SERVICE_TOKEN).i32(-2)},
        {"huge string length", 2003, Bytes().token(SERVICE_TOKEN).i32(0x7fffffff)},
    };
    for (auto& c : cases) {
        SCOPED_TRACE(c.what);
        Parcel data, reply;
        data.setData(c.request.data.data(), c.request.data.size());
        service->transact(c.code, data, &reply);
        EXPECT_NE(reply.readExceptionCode(), 0);
    }
    for (auto [what, token, code] : {std::tuple("wrong token", u"x.IOther", 2002u),
                                     std::tuple("unknown code", SERVICE_TOKEN.c_str(), 4242u)}) {
        SCOPED_TRACE(what);
        Parcel data, reply;
        Bytes request = Bytes().token(token).str16(u"p");
        data.setData(request.data.data(), request.data.size());
        EXPECT_EQ(service->transact(code, data, &reply), android::UNKNOWN_TRANSACTION);
    }
    EXPECT_EQ(listeners(), 0);

    // Below the parcels: frames whose sizes and object entries lie.
    std::string path = sysroot->root() + "/dev/binder/" + std::to_string(servicePid());
    struct Frame {
        uint32_t kind, code, flags;
        int32_t status;
        uint64_t target;
        uint32_t dataSize, objectCount;
    };
    const Frame frames[] = {
        {1, 2002, 0, 0, 0, 0xfffffff0u, 0},   // more than a transaction may carry
        {1, 2002, 0, 0, 0, 48, 0x40000000u},  // more objects than bytes
        {1, 2002, 0, 0, 0, 48, 1},            // an object entry pointing past the data
        {1, 2002, 0, 0, 0, 64, 0},            // data cut short by the end of the connection
        {9, 0, 0, 0, 0, 0, 0},                // no such frame
    };
    for (const Frame& frame : frames) {
        int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        ASSERT_LT(path.size(), sizeof(addr.sun_path));
        memcpy(addr.sun_path, path.c_str(), path.size() + 1);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
        ASSERT_EQ(send(fd, &frame, sizeof(frame), MSG_NOSIGNAL), ssize_t(sizeof(frame)));
        uint8_t junk[48] = {};
        uint32_t ref[4] = {40, 1, 0, 0};
        send(fd, junk, sizeof(junk), MSG_NOSIGNAL);
        send(fd, ref, sizeof(ref), MSG_NOSIGNAL);
        close(fd);
    }
    auto client = std::make_unique<HearthAsyncService>();
    EXPECT_EQ(client->getVelourSupported(PACKAGE), 1) << "still serving";
}

}  // namespace
}  // namespace velour::test
