#pragma once

// The device's binder headers leave out two standard headers they use.
// clang-format off
#include <limits>
#include <memory>
#include <binder/IBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
#include <utils/Singleton.h>
#include <utils/String16.h>
// clang-format on

#include <pthread.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "ctrl/EffectWord.h"

namespace velour::ctrl {

// The game service daemon's operations, as the layer uses them. Each answers
// its documented failure value when the service cannot be reached.
class GameService {
  public:
    virtual ~GameService() = default;
    virtual void getHearthVersion() = 0;
    virtual void registerTesselCallback() = 0;
    // 0 run without the deferred path, 1 and 3 as configured, 2 or above 3 not at all.
    virtual int getVelourSupported(const char* package) = 0;
    virtual std::string getRusFile(const char* package) = 0;
    virtual std::string get4DRusFile(const char* package) = 0;
    virtual bool get4DSupport(const char* package) = 0;
    virtual void sendWeaponToDova(const char* weapon) = 0;
};

// The callback interface the service calls to switch the effect and haptics.
class IHearthStatusListener : public android::IInterface {
  public:
    DECLARE_META_INTERFACE(HearthStatusListener)
};

class HearthAsyncService;

class HearthStatusListener : public android::BnInterface<IHearthStatusListener> {
  public:
    explicit HearthStatusListener(HearthAsyncService* owner) : owner(owner) {}
    android::status_t onTransact(uint32_t code, const android::Parcel& data, android::Parcel* reply,
                                 uint32_t flags) override;

  private:
    HearthAsyncService* owner;
    const uint32_t transactionCode = 1;
};

// A plain fixed pool; with one thread, work runs in the order it was submitted.
class WorkerPool {
  public:
    explicit WorkerPool(size_t threads);
    ~WorkerPool();
    void submit(std::function<void()> work);

  private:
    std::vector<std::thread> threads;
    std::deque<std::function<void()>> work;
    std::mutex mutex;
    std::condition_variable wake;
    bool running = true;
};

// The client of the device's game service "nimbohearth".
class HearthAsyncService : public android::Singleton<HearthAsyncService>, public GameService {
  public:
    // Transaction codes of the service.
    enum : uint32_t {
        GET_HEARTH_VERSION = 105,
        REGISTER_TESSEL_CALLBACK = 2001,
        GET_VELOUR_SUPPORTED = 2002,
        GET_RUS_FILE = 2003,
        GET_4D_SUPPORT = 2004,
        SEND_WEAPON_TO_DOVA = 2005,
    };

    HearthAsyncService();
    ~HearthAsyncService() override;

    void getHearthVersion() override;
    void registerTesselCallback() override;
    int getVelourSupported(const char* package) override;
    std::string getRusFile(const char* package) override;
    std::string get4DRusFile(const char* package) override;
    bool get4DSupport(const char* package) override;
    void sendWeaponToDova(const char* weapon) override;

    // What the callback changes.
    void setTesselFxType(int type);
    std::string getTesselFxType() const { return currentEffect.get(); }
    void set4DShockType(int type);

    // From the death recipient: forget the service, so the next call looks it up.
    void handleHrthBinderDied();

  private:
    class DeathRecipient;

    // 0 when the service is at hand, -1 when it cannot be found; mutex held.
    int getHrthService();
    // One request with the mutex held: the token, what `write` adds, the call,
    // then the reply's exception code. false, having logged, on any failure.
    bool call(uint32_t code, const std::function<void(android::Parcel&)>& write,
              android::Parcel& reply, const char* noService, const char* failed);
    std::string fetchText(const android::String16& package, const char* noService,
                          const char* failed);

    android::sp<android::IBinder> service;
    android::sp<android::IBinder::DeathRecipient> deathRecipient;
    pthread_mutex_t mutex;
    android::sp<HearthStatusListener> listener;
    EffectWord currentEffect;
    bool callbackRegistered = false;
    std::shared_ptr<WorkerPool> workerPool;
    std::once_flag workerPoolBuilt;
};

// The service the layer talks to: the process-wide client unless a test has
// put another in its place.
GameService& gameService();
void setGameServiceForTesting(GameService* service);

}  // namespace velour::ctrl
