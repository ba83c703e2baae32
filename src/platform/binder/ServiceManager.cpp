// The service manager of a host build: the proxy every process gets from
// defaultServiceManager(), and the object that velour-servicemanager serves.
// clang-format off
#include <limits>
#include <memory>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
// clang-format on

#include "platform/binder/ServiceManager.h"

#include <map>
#include <mutex>

#include "platform/binder/Runtime.h"

namespace android {

namespace {

const String16& managerDescriptor() {
    static const String16 descriptor("android.os.IServiceManager");
    return descriptor;
}

enum : uint32_t {
    GET_SERVICE = IBinder::FIRST_CALL_TRANSACTION,
    CHECK_SERVICE,
    ADD_SERVICE,
    LIST_SERVICES,
};

class BpServiceManager : public BpInterface<IServiceManager> {
  public:
    explicit BpServiceManager(const sp<IBinder>& impl) : BpInterface<IServiceManager>(impl) {}

    // The host does not wait for a service to appear: a caller that wants to
    // wait asks again.
    sp<IBinder> getService(const String16& name) const override { return checkService(name); }

    sp<IBinder> checkService(const String16& name) const override {
        Parcel data, reply;
        data.writeInterfaceToken(managerDescriptor());
        data.writeString16(name);
        if (remote()->transact(CHECK_SERVICE, data, &reply) != NO_ERROR) return nullptr;
        if (reply.readExceptionCode() != 0) return nullptr;
        sp<IBinder> binder;
        reply.readNullableStrongBinder(&binder);
        return binder;
    }

    status_t addService(const String16& name, const sp<IBinder>& service, bool allowIsolated,
                        int dumpsysFlags) override {
        Parcel data, reply;
        data.writeInterfaceToken(managerDescriptor());
        data.writeString16(name);
        data.writeStrongBinder(service);
        data.writeInt32(allowIsolated ? 1 : 0);
        data.writeInt32(dumpsysFlags);
        status_t status = remote()->transact(ADD_SERVICE, data, &reply);
        if (status != NO_ERROR) return status;
        return reply.readExceptionCode() == 0 ? NO_ERROR : UNKNOWN_ERROR;
    }

    Vector<String16> listServices(int) override { return {}; }
    sp<IBinder> waitForService(const String16& name) override { return checkService(name); }
    bool isDeclared(const String16&) override { return false; }
};

// The registry: a name is dropped when its process dies.
class ServiceRegistry : public BBinder {
  public:
    status_t onTransact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) override {
        if (code != GET_SERVICE && code != CHECK_SERVICE && code != ADD_SERVICE)
            return BBinder::onTransact(code, data, reply, flags);
        if (!data.enforceInterface(managerDescriptor())) return PERMISSION_DENIED;
        String16 name;
        if (data.readString16(&name) != NO_ERROR) return BAD_VALUE;
        if (code == ADD_SERVICE) {
            sp<IBinder> service;
            if (data.readStrongBinder(&service) != NO_ERROR) return BAD_VALUE;
            sp<Forget> forget = new Forget(this, name);
            if (service->linkToDeath(forget) != NO_ERROR) return DEAD_OBJECT;
            {
                std::lock_guard<std::mutex> lock(mutex);
                services[name] = Entry{service, forget};
            }
            return reply->writeNoException();
        }
        sp<IBinder> service;
        {
            std::lock_guard<std::mutex> lock(mutex);
            auto found = services.find(name);
            if (found != services.end()) service = found->second.binder;
        }
        reply->writeNoException();
        return reply->writeStrongBinder(service);
    }

  private:
    struct Forget : IBinder::DeathRecipient {
        Forget(ServiceRegistry* registry, const String16& name) : registry(registry), name(name) {}
        void binderDied(const wp<IBinder>& who) override {
            std::lock_guard<std::mutex> lock(registry->mutex);
            auto found = registry->services.find(name);
            if (found != registry->services.end() && found->second.binder == who.unsafe_get())
                registry->services.erase(found);
        }
        ServiceRegistry* registry;
        String16 name;
    };
    struct Entry {
        sp<IBinder> binder;
        sp<Forget> forget;
    };
    std::mutex mutex;
    std::map<String16, Entry> services;
};

}  // namespace

IServiceManager::IServiceManager() {}
IServiceManager::~IServiceManager() {}
const String16& IServiceManager::getInterfaceDescriptor() const {
    return managerDescriptor();
}

sp<IServiceManager> defaultServiceManager() {
    static sp<IServiceManager> manager =
        new BpServiceManager(velour::platform::binder::Runtime::self().proxyForHandle(0));
    return manager;
}

}  // namespace android

namespace velour::platform::binder {

void serveAsServiceManager() {
    Runtime::self().becomeServiceManager(new android::ServiceRegistry());
}

}  // namespace velour::platform::binder
