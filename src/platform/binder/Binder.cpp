// Local objects, proxies and interfaces of a host build, as the device's
// library has them; the calls themselves go through the host runtime.
// clang-format off
#include <limits>
#include <memory>
#include <binder/Binder.h>
#include <binder/BpBinder.h>
#include <binder/IInterface.h>
#include <binder/Parcel.h>
// clang-format on

#include "platform/binder/Runtime.h"

namespace android {

using velour::platform::binder::Runtime;

// IBinder

IBinder::IBinder() : RefBase() {}
IBinder::~IBinder() {}
sp<IInterface> IBinder::queryLocalInterface(const String16&) {
    return nullptr;
}
bool IBinder::checkSubclass(const void*) const {
    return false;
}
BBinder* IBinder::localBinder() {
    return nullptr;
}
BpBinder* IBinder::remoteBinder() {
    return nullptr;
}

// BBinder

BBinder::BBinder() : mExtras(nullptr), mReserved0(nullptr) {}
BBinder::~BBinder() {}

const String16& BBinder::getInterfaceDescriptor() const {
    static const String16 empty;
    return empty;
}

bool BBinder::isBinderAlive() const {
    return true;
}
status_t BBinder::pingBinder() {
    return NO_ERROR;
}
status_t BBinder::dump(int, const Vector<String16>&) {
    return NO_ERROR;
}
BBinder* BBinder::localBinder() {
    return this;
}
bool BBinder::isRequestingSid() {
    return false;
}

status_t BBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    data.setDataPosition(0);
    status_t status =
        code == PING_TRANSACTION ? pingBinder() : onTransact(code, data, reply, flags);
    if (reply) reply->setDataPosition(0);
    return status;
}

status_t BBinder::onTransact(uint32_t code, const Parcel&, Parcel* reply, uint32_t) {
    if (code == INTERFACE_TRANSACTION) {
        if (reply) reply->writeString16(getInterfaceDescriptor());
        return NO_ERROR;
    }
    return UNKNOWN_TRANSACTION;
}

// A local object cannot die while its own process lives.
status_t BBinder::linkToDeath(const sp<DeathRecipient>&, void*, uint32_t) {
    return INVALID_OPERATION;
}

status_t BBinder::unlinkToDeath(const wp<DeathRecipient>&, void*, uint32_t, wp<DeathRecipient>*) {
    return INVALID_OPERATION;
}

// Attached objects are not offered by the host build: nothing here attaches any.
void BBinder::attachObject(const void*, void*, void*, object_cleanup_func) {}
void* BBinder::findObject(const void*) const {
    return nullptr;
}
void BBinder::detachObject(const void*) {}

// BpRefBase: holds its remote strongly until its own first strong reference.

namespace {
constexpr int32_t REMOTE_ACQUIRED = 0x1;
}

BpRefBase::BpRefBase(const sp<IBinder>& o) : mRemote(o.get()), mRefs(nullptr), mState(0) {
    extendObjectLifetime(OBJECT_LIFETIME_WEAK);
    if (mRemote) {
        mRemote->incStrong(this);
        mRefs = mRemote->createWeak(this);
    }
}

BpRefBase::~BpRefBase() {
    if (mRemote) {
        if (!(mState.load(std::memory_order_relaxed) & REMOTE_ACQUIRED)) mRemote->decStrong(this);
        mRefs->decWeak(this);
    }
}

void BpRefBase::onFirstRef() {
    mState.fetch_or(REMOTE_ACQUIRED, std::memory_order_relaxed);
}

void BpRefBase::onLastStrongRef(const void*) {
    if (mRemote) mRemote->decStrong(this);
}

bool BpRefBase::onIncStrongAttempted(uint32_t, const void*) {
    return mRemote ? mRefs->attemptIncStrong(this) : false;
}

// IInterface

IInterface::IInterface() : RefBase() {}
IInterface::~IInterface() {}

sp<IBinder> IInterface::asBinder(const IInterface* iface) {
    if (iface == nullptr) return nullptr;
    return const_cast<IInterface*>(iface)->onAsBinder();
}

sp<IBinder> IInterface::asBinder(const sp<IInterface>& iface) {
    if (iface == nullptr) return nullptr;
    return iface->onAsBinder();
}

// BpBinder

BpBinder::ObjectManager::ObjectManager() {}
BpBinder::ObjectManager::~ObjectManager() {}

BpBinder* BpBinder::create(int32_t handle) {
    return new BpBinder(handle, -1);
}

BpBinder::BpBinder(int32_t handle, int32_t trackedUid)
    : mHandle(handle),
      mAlive(1),
      mObitsSent(0),
      mObituaries(nullptr),
      mConstantData(nullptr),
      mTrackedUid(trackedUid) {
    extendObjectLifetime(OBJECT_LIFETIME_WEAK);
}

BpBinder::~BpBinder() {
    delete mObituaries;
}

int32_t BpBinder::handle() const {
    return mHandle;
}
BpBinder* BpBinder::remoteBinder() {
    return this;
}
void BpBinder::onFirstRef() {}
void BpBinder::onLastStrongRef(const void*) {}
bool BpBinder::onIncStrongAttempted(uint32_t, const void*) {
    return true;
}

const String16& BpBinder::getInterfaceDescriptor() const {
    Mutex::Autolock lock(mLock);
    if (mDescriptorCache.size() == 0) {
        Parcel data, reply;
        if (const_cast<BpBinder*>(this)->transact(INTERFACE_TRANSACTION, data, &reply) == NO_ERROR)
            mDescriptorCache = reply.readString16();
    }
    return mDescriptorCache;
}

bool BpBinder::isBinderAlive() const {
    return __atomic_load_n(&mAlive, __ATOMIC_ACQUIRE) != 0;
}

status_t BpBinder::pingBinder() {
    Parcel data, reply;
    return transact(PING_TRANSACTION, data, &reply);
}

status_t BpBinder::dump(int, const Vector<String16>&) {
    return INVALID_OPERATION;
}

status_t BpBinder::transact(uint32_t code, const Parcel& data, Parcel* reply, uint32_t flags) {
    // The flag is read by callers and cleared by the death notice's thread.
    if (!__atomic_load_n(&mAlive, __ATOMIC_ACQUIRE)) return DEAD_OBJECT;
    status_t status = Runtime::self().transact(mHandle, code, data, reply, flags);
    // The service manager (handle 0) may be restarted under the same name: only
    // other objects die with their connection.
    if (status == DEAD_OBJECT && mHandle != 0) __atomic_store_n(&mAlive, 0, __ATOMIC_RELEASE);
    return status;
}

status_t BpBinder::linkToDeath(const sp<DeathRecipient>& recipient, void* cookie, uint32_t flags) {
    {
        Mutex::Autolock lock(mLock);
        if (mObitsSent) return DEAD_OBJECT;
        if (!mObituaries) mObituaries = new Vector<Obituary>;
        Obituary obit;
        obit.recipient = recipient;
        obit.cookie = cookie;
        obit.flags = flags;
        mObituaries->add(obit);
    }
    status_t status = Runtime::self().watch(mHandle);
    // A peer already gone answers at once, as the driver does.
    if (status == DEAD_OBJECT) sendObituary();
    return status == DEAD_OBJECT ? NO_ERROR : status;
}

status_t BpBinder::unlinkToDeath(const wp<DeathRecipient>& recipient, void* cookie, uint32_t flags,
                                 wp<DeathRecipient>* outRecipient) {
    Mutex::Autolock lock(mLock);
    if (mObitsSent) return DEAD_OBJECT;
    if (mObituaries) {
        for (size_t i = 0; i < mObituaries->size(); i++) {
            const Obituary& obit = mObituaries->itemAt(i);
            if ((obit.recipient == recipient || (recipient == nullptr && obit.cookie == cookie)) &&
                obit.flags == flags) {
                if (outRecipient) *outRecipient = obit.recipient;
                mObituaries->removeAt(i);
                return NO_ERROR;
            }
        }
    }
    return NAME_NOT_FOUND;
}

void BpBinder::sendObituary() {
    Vector<Obituary>* obits;
    {
        Mutex::Autolock lock(mLock);
        __atomic_store_n(&mAlive, 0, __ATOMIC_RELEASE);
        if (mObitsSent) return;
        mObitsSent = 1;
        obits = mObituaries;
        mObituaries = nullptr;
    }
    if (!obits) return;
    for (size_t i = 0; i < obits->size(); i++) reportOneDeath(obits->itemAt(i));
    delete obits;
}

void BpBinder::reportOneDeath(const Obituary& obit) {
    sp<DeathRecipient> recipient = obit.recipient.promote();
    if (recipient != nullptr) recipient->binderDied(wp<IBinder>(this));
}

void BpBinder::attachObject(const void*, void*, void*, object_cleanup_func) {}
void* BpBinder::findObject(const void*) const {
    return nullptr;
}
void BpBinder::detachObject(const void*) {}

}  // namespace android
