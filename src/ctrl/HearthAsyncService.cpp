// The callback interface is written by hand, not generated, so the binder
// headers' list of allowed hand-written interfaces must not apply to it.
#define DO_NOT_CHECK_MANUAL_BINDER_INTERFACES
#include "ctrl/HearthAsyncService.h"

#include <android/log.h>
#include <binder/IServiceManager.h>
#include <utils/String8.h>

#include <future>

#include "ctrl/PropertyConfig.h"

namespace velour::ctrl {

namespace {

// The service client logs to the platform log directly, with no tag.
template <typename... Args>
void serviceLog(const char* format, Args... args) {
    // A message without arguments is printed as it stands.
    if constexpr (sizeof...(args) == 0)
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s", format);
    else
        __android_log_print(ANDROID_LOG_ERROR, nullptr, format, args...);
}

const android::String16& serviceDescriptor() {
    static const android::String16 descriptor("com.nimbo.hearth.IHearthService");
    return descriptor;
}

std::string toUtf8(const android::String16& text) {
    android::String8 utf8(text);
    return std::string(utf8.string(), utf8.size());
}

const char* const EFFECT_NAMES[] = {"null",     "color_invert",     "cel_shading",
                                    "hdr",      "old_movie",        "night_vision",
                                    "pixelize", "gamma_correction", "edge_detection"};

GameService* g_testService = nullptr;

}  // namespace

// The proxy side of the callback interface; the service holds the only use of it.
class BpHearthStatusListener : public android::BpInterface<IHearthStatusListener> {
  public:
    explicit BpHearthStatusListener(const android::sp<android::IBinder>& impl)
        : android::BpInterface<IHearthStatusListener>(impl) {}
};

IMPLEMENT_META_INTERFACE(HearthStatusListener, "com.nimbo.hearth.ITesselCallback")

android::status_t HearthStatusListener::onTransact(uint32_t code, const android::Parcel& data,
                                                   android::Parcel* reply, uint32_t flags) {
    if (!data.checkInterface(this)) return android::PERMISSION_DENIED;
    if (code != transactionCode) return BBinder::onTransact(code, data, reply, flags);
    // A callback that does not hold both values changes nothing.
    int32_t type = 0;
    android::String16 config;
    if (data.readInt32(&type) != android::OK || data.readString16(&config) != android::OK)
        return android::BAD_VALUE;
    serviceLog("HearthAsyncService: I got the callback type = %d, config = %s", type,
               toUtf8(config).c_str());
    if (type < 100)
        owner->setTesselFxType(type);
    else
        owner->set4DShockType(type);
    reply->writeBool(true);
    return android::OK;
}

class HearthAsyncService::DeathRecipient : public android::IBinder::DeathRecipient {
  public:
    explicit DeathRecipient(HearthAsyncService* owner) : owner(owner) {}
    void binderDied(const android::wp<android::IBinder>& who) override {
        __android_log_print(ANDROID_LOG_WARN, nullptr,
                            "HearthAsyncService remote (hearth) died [%p]",
                            static_cast<void*>(who.unsafe_get()));
        owner->handleHrthBinderDied();
    }

  private:
    HearthAsyncService* owner;
};

WorkerPool::WorkerPool(size_t count) {
    for (size_t i = 0; i < count; i++)
        threads.emplace_back([this] {
            for (;;) {
                std::function<void()> next;
                {
                    std::unique_lock<std::mutex> lock(mutex);
                    wake.wait(lock, [this] { return !work.empty() || !running; });
                    if (work.empty()) return;
                    next = std::move(work.front());
                    work.pop_front();
                }
                next();
            }
        });
}

WorkerPool::~WorkerPool() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        running = false;
    }
    wake.notify_all();
    for (auto& thread : threads) thread.join();
}

void WorkerPool::submit(std::function<void()> task) {
    auto packaged = std::make_shared<std::packaged_task<void()>>(std::move(task));
    std::future<void> done = packaged->get_future();
    {
        std::lock_guard<std::mutex> lock(mutex);
        work.emplace_back([packaged] { (*packaged)(); });
    }
    wake.notify_one();
}

HearthAsyncService::HearthAsyncService() {
    serviceLog("New HearthAsyncService");
    pthread_mutex_init(&mutex, nullptr);
    pthread_mutex_lock(&mutex);
    listener = new HearthStatusListener(this);
    getHrthService();
    pthread_mutex_unlock(&mutex);
}

// The singleton lives until the process ends; a test's own instance stops here.
HearthAsyncService::~HearthAsyncService() {
    workerPool.reset();
    if (service != nullptr && deathRecipient != nullptr) service->unlinkToDeath(deathRecipient);
    pthread_mutex_destroy(&mutex);
}

int HearthAsyncService::getHrthService() {
    if (service != nullptr) return 0;
    android::sp<android::IServiceManager> manager = android::defaultServiceManager();
    if (manager != nullptr) service = manager->getService(android::String16("nimbohearth"));
    if (service == nullptr) {
        serviceLog("HearthAsyncService: could not get hearth service!");
        return -1;
    }
    deathRecipient = new DeathRecipient(this);
    service->linkToDeath(deathRecipient, nullptr, 0);
    return 0;
}

void HearthAsyncService::handleHrthBinderDied() {
    pthread_mutex_lock(&mutex);
    service.clear();
    deathRecipient.clear();
    pthread_mutex_unlock(&mutex);
}

bool HearthAsyncService::call(uint32_t code, const std::function<void(android::Parcel&)>& write,
                              android::Parcel& reply, const char* noService, const char* failed) {
    if (getHrthService() != 0) {
        serviceLog(noService);
        return false;
    }
    android::Parcel data;
    data.writeInterfaceToken(serviceDescriptor());
    if (write) write(data);
    // The status of the call is not looked at: the reply's exception code decides.
    service->transact(code, data, &reply, 0);
    int32_t exception = reply.readExceptionCode();
    if (exception != 0) {
        serviceLog(failed, exception);
        return false;
    }
    return true;
}

void HearthAsyncService::getHearthVersion() {
    pthread_mutex_lock(&mutex);
    android::Parcel reply;
    if (call(GET_HEARTH_VERSION, nullptr, reply, "HearthAsyncService getHrthService fail",
             "HearthAsyncService notify frame stats failed: ret(%d)"))
        serviceLog("HearthAsyncService getHearthVersion Version=: %s",
                   toUtf8(reply.readString16()).c_str());
    pthread_mutex_unlock(&mutex);
}

void HearthAsyncService::registerTesselCallback() {
    pthread_mutex_lock(&mutex);
    if (callbackRegistered) {
        serviceLog("HearthAsyncService registerTesselCallback Already called, return!!!");
    } else {
        android::Parcel reply;
        android::sp<android::IBinder> binder = android::IInterface::asBinder(listener);
        callbackRegistered = call(
            REGISTER_TESSEL_CALLBACK,
            [&](android::Parcel& data) { data.writeStrongBinder(binder); }, reply,
            "HearthAsyncService registerTesselCallback fail",
            "HearthAsyncService  registerTesselCallback failed: ret(%d)");
    }
    pthread_mutex_unlock(&mutex);
}

int HearthAsyncService::getVelourSupported(const char* package) {
    android::String16 name(package);
    int supported = 1;
    pthread_mutex_lock(&mutex);
    android::Parcel reply;
    if (call(
            GET_VELOUR_SUPPORTED, [&](android::Parcel& data) { data.writeString16(name); }, reply,
            "HearthAsyncService getHrthService fail",
            "getVelourSupported getVelourSupported failed: ret(%d)")) {
        supported = reply.readInt32();
        serviceLog("HearthAsyncService getVelourSupported %d", supported);
    }
    pthread_mutex_unlock(&mutex);
    return supported;
}

std::string HearthAsyncService::fetchText(const android::String16& package, const char* noService,
                                          const char* failed) {
    std::string text;
    pthread_mutex_lock(&mutex);
    android::Parcel reply;
    if (call(
            GET_RUS_FILE, [&](android::Parcel& data) { data.writeString16(package); }, reply,
            noService, failed))
        text = toUtf8(reply.readString16());
    pthread_mutex_unlock(&mutex);
    return text;
}

std::string HearthAsyncService::getRusFile(const char* package) {
    return fetchText(android::String16(package), "getRusFile getHrthService fail",
                     "getRusFile notify frame stats failed: ret(%d)");
}

std::string HearthAsyncService::get4DRusFile(const char* package) {
    android::String16 name(package);
    name.append(android::String16(".4D"));
    return fetchText(name, "get4DRusFile getHrthService fail",
                     "get4DRusFile notify frame stats failed: ret(%d)");
}

bool HearthAsyncService::get4DSupport(const char* package) {
    android::String16 name(package);
    bool supported = false;
    pthread_mutex_lock(&mutex);
    android::Parcel reply;
    if (call(
            GET_4D_SUPPORT, [&](android::Parcel& data) { data.writeString16(name); }, reply,
            "get4DSupport getHrthService fail",
            "HearthAsyncService get4DSupport failed: ret(%d)")) {
        int32_t answer = reply.readInt32();
        serviceLog("HearthAsyncService get4DSupport %d", answer);
        supported = answer == 1;
        if (supported) serviceLog("HearthAsyncService support 4D");
    }
    pthread_mutex_unlock(&mutex);
    return supported;
}

void HearthAsyncService::sendWeaponToDova(const char* weapon) {
    // The caller is on the render path: hand the call to the pool's one thread,
    // which keeps the order of submission, and never wait for it.
    std::call_once(workerPoolBuilt, [this] { workerPool = std::make_shared<WorkerPool>(1); });
    auto name = std::make_shared<android::String16>(weapon);
    workerPool->submit([this, name] {
        pthread_mutex_lock(&mutex);
        android::Parcel reply;
        call(
            SEND_WEAPON_TO_DOVA, [&](android::Parcel& data) { data.writeString16(*name); }, reply,
            "sendWeaponToDova getHrthService fail",
            "sendWeaponToDova notify frame stats failed: ret(%d)");
        pthread_mutex_unlock(&mutex);
    });
}

void HearthAsyncService::setTesselFxType(int type) {
    bool known = type >= 0 && size_t(type) < sizeof(EFFECT_NAMES) / sizeof(EFFECT_NAMES[0]);
    std::string name = known ? EFFECT_NAMES[type] : "null";
    currentEffect.set(name);
    PropertyConfig::getInstance().setEffectFromHearth(name);
}

void HearthAsyncService::set4DShockType(int type) {
    bool flag = type == 101;
    serviceLog("HearthAsyncService switch4Dflag is %d", flag ? 1 : 0);
    PropertyConfig::getInstance().set4DSwitchFromHearth(flag);
}

GameService& gameService() {
    if (g_testService) return *g_testService;
    return HearthAsyncService::getInstance();
}

void setGameServiceForTesting(GameService* service) {
    g_testService = service;
}

}  // namespace velour::ctrl

ANDROID_SINGLETON_STATIC_INSTANCE(velour::ctrl::HearthAsyncService)
