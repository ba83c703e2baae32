#include "ServiceFixture.h"
#include "ctrl/PropertyConfig.h"
#include "ctrl/ctrl.h"
#include "velour/utils/JsonParserBase.h"
#include "velour/utils/base64.h"

namespace velour::test {
namespace {

using android::Parcel;
using ctrl::HearthAsyncService;

ctrl::PropertyConfig& config() {
    return ctrl::PropertyConfig::getInstance();
}

Bytes callback(int32_t type) {
    return Bytes().token(CALLBACK_TOKEN).i32(type).str16(u"cfg");
}

TEST_F(ServiceTest, RequestsHaveTheDriversLayout) {
    auto client = std::make_unique<HearthAsyncService>();
    client->getHearthVersion();
    client->registerTesselCallback();
    client->getVelourSupported(PACKAGE);
    client->getRusFile(PACKAGE);
    client->get4DRusFile(PACKAGE);
    client->get4DSupport(PACKAGE);
    client->sendWeaponToDova("AKM");
    ASSERT_TRUE(eventually([&] { return weapons().size() == 1; }));

    enum Body { NOTHING, PACKAGE_NAME, HAPTICS_NAME, WEAPON, LISTENER };
    const std::pair<uint32_t, Body> cases[] = {
        {105, NOTHING},       {2001, LISTENER},
        {2002, PACKAGE_NAME}, {2003, HAPTICS_NAME},  // the later of the two requests with this code
        {2004, PACKAGE_NAME}, {2005, WEAPON},
    };
    for (auto [code, body] : cases) {
        SCOPED_TRACE(code);
        Bytes request(lastRequest(code));
        EXPECT_EQ(request.readI32(), int32_t(0x80000000u)) << "strict mode policy";
        EXPECT_EQ(request.readI32(), -1) << "no work source";
        EXPECT_EQ(request.readI32(), 0x53595354) << "'SYST'";
        EXPECT_EQ(request.readStr16(), SERVICE_TOKEN);
        switch (body) {
            case NOTHING:
                break;
            case PACKAGE_NAME:
                EXPECT_EQ(request.readStr16(), u"com.velour.svc");
                break;
            case HAPTICS_NAME:
                EXPECT_EQ(request.readStr16(), u"com.velour.svc.4D");
                break;
            case WEAPON:
                EXPECT_EQ(request.readStr16(), u"AKM");
                break;
            case LISTENER:
                // As the service receives it: a handle of its own, then the stability word.
                EXPECT_EQ(uint32_t(request.readI32()), TYPE_HANDLE);
                EXPECT_EQ(request.readI32(), 0x113) << "priority and accepts-fds flags";
                EXPECT_LT(request.readU64(), 4096u) << "handle";
                EXPECT_EQ(request.readU64(), 0u) << "cookie";
                EXPECT_EQ(request.readI32(), 0b001100) << "system stability";
                break;
        }
        EXPECT_TRUE(request.atEnd());
    }
}

TEST_F(ServiceTest, RepliesHaveTheDriversLayout) {
    control(hearth::SET_ANSWER, [](Parcel& data) {
        data.writeString16(android::String16(PACKAGE));
        data.writeInt32(3);
    });
    control(hearth::SET_DATA, [](Parcel& data) {
        data.writeString16(android::String16(PACKAGE));
        data.writeString16(android::String16("text"));
    });
    android::sp<android::IBinder> service =
        android::defaultServiceManager()->checkService(android::String16("nimbohearth"));
    ASSERT_NE(service, nullptr);
    auto ask = [&](uint32_t code) {
        Parcel data, reply;
        Bytes request = Bytes().token(SERVICE_TOKEN).str16(u"com.velour.svc");
        data.setData(request.data.data(), request.data.size());
        EXPECT_EQ(service->transact(code, data, &reply), android::NO_ERROR);
        return Bytes(std::vector<uint8_t>(reply.data(), reply.data() + reply.dataSize()));
    };
    Bytes supported = ask(2002);
    EXPECT_EQ(supported.readI32(), 0) << "no exception";
    EXPECT_EQ(supported.readI32(), 3);
    EXPECT_TRUE(supported.atEnd());
    Bytes text = ask(2003);
    EXPECT_EQ(text.readI32(), 0);
    EXPECT_EQ(text.readStr16(), u"text");
    EXPECT_TRUE(text.atEnd());
    Bytes weapon = ask(2005);
    EXPECT_EQ(weapon.readI32(), 0);
    EXPECT_TRUE(weapon.atEnd());
}

TEST_F(ServiceTest, CallbacksSwitchTheEffectAndTheHaptics) {
    auto client = std::make_unique<HearthAsyncService>();
    client->registerTesselCallback();
    struct Case {
        int type;
        std::string effect;  // empty: a haptics switch
        bool haptics;
    };
    for (Case c : {Case{3, "hdr", false}, Case{9, "null", false}, Case{8, "edge_detection", false},
                   Case{-1, "null", false}, Case{101, "", true}, Case{100, "", false},
                   Case{250, "", false}}) {
        SCOPED_TRACE(c.type);
        config().set4DSwitchFromHearth(!c.haptics);
        Parcel reply;
        ASSERT_EQ(control(
                      hearth::SEND_CALLBACK,
                      [&](Parcel& data) {
                          data.writeInt32(1);
                          writeRaw(data, callback(c.type));
                      },
                      &reply),
                  android::NO_ERROR);
        EXPECT_EQ(reply.readInt32(), 1) << "listeners called";
        EXPECT_EQ(reply.readInt32(), android::OK);
        if (c.effect.empty()) {
            EXPECT_EQ(config().get4DSwitch(), c.haptics);
        } else {
            EXPECT_EQ(config().getEffect(), c.effect);
            EXPECT_EQ(client->getTesselFxType(), c.effect);
        }
    }
    // The control command's names reach the game the same way.
    control(hearth::SET_EFFECT,
            [](Parcel& data) { data.writeString16(android::String16("pixelize")); });
    EXPECT_EQ(config().getEffect(), "pixelize");
}

// Game data with one label, padded so that an update is long enough to count.
std::string gameData(const std::string& version, const std::string& label) {
    return utils::wrapDat(R"({"version":")" + version + R"(","game":"wzry","labelTracker":)" +
                          R"({"battle":[")" + label + R"("],"none":[],"hud":[]},)" +
                          R"("padding":"................................................"})");
}

TEST_F(ServiceTest, AnUpdateOfANewerEditionReplacesTheShippedData) {
    const std::string shipped = ctrl::getGameDataFile("wzry");
    sysroot->write(shipped, gameData("1.0.2", "shipped"));
    for (auto [version, expected] : {std::pair("1.0.3", "update"), std::pair("1.0.1", "shipped"),
                                     std::pair("1.0.2", "shipped")}) {
        SCOPED_TRACE(version);
        control(hearth::SET_DATA, [&](Parcel& data) {
            data.writeString16(android::String16(PACKAGE));
            std::string text = gameData(version, "update");
            data.writeString16(android::String16(text.c_str(), text.size()));
        });
        auto client = std::make_unique<HearthAsyncService>();
        ctrl::setGameServiceForTesting(client.get());
        config().getGameConfig(PACKAGE);
        ctrl::setGameServiceForTesting(nullptr);
        utils::JsonParser parser(ctrl::getUpdatedFilterConfig(), shipped);
        EXPECT_EQ(parser.getLabel("labelTracker", "battle"), std::vector<std::string>{expected});
    }
}

}  // namespace
}  // namespace velour::test
