// The parcel of a host build, byte for byte as the device's: 4-byte aligned
// little-endian words, strings as a length, the UTF-16 units and a closing
// zero, strong binders as a flat_binder_object followed by a stability word.
// clang-format off
#include <limits>
#include <memory>
#include <binder/BpBinder.h>
#include <binder/Parcel.h>
// clang-format on

#include <cstdlib>
#include <cstring>

#include "platform/binder/KernelTypes.h"
#include "platform/binder/Runtime.h"

namespace android {

namespace {

constexpr size_t pad4(size_t n) {
    return (n + 3) & ~size_t(3);
}

// What the request header carries before the interface name.
constexpr int32_t STRICT_MODE_PENALTY_GATHER = int32_t(1u << 31);
constexpr int32_t UNSET_WORK_SOURCE = -1;
constexpr int32_t SYSTEM_HEADER = B_PACK_CHARS('S', 'Y', 'S', 'T');
// The stability a process of the system gives the binders it sends.
constexpr int32_t SYSTEM_STABILITY = 0b001100;
// flags of a sent binder: lowest scheduling priority, file descriptors accepted.
constexpr uint32_t BINDER_OBJECT_FLAGS = 0x13 | FLAT_BINDER_FLAG_ACCEPTS_FDS;
// The exception code that announces a reply header to skip.
constexpr int32_t EX_HAS_REPLY_HEADER = -128;

// A parcel never grows past what one transaction may carry.
constexpr size_t PARCEL_LIMIT = velour::platform::binder::MAX_PARCEL_BYTES;

}  // namespace

Parcel::Parcel() {
    initState();
}

Parcel::~Parcel() {
    freeDataNoInit();
}

void Parcel::initState() {
    mError = NO_ERROR;
    mData = nullptr;
    mDataSize = 0;
    mDataCapacity = 0;
    mDataPos = 0;
    mObjects = nullptr;
    mObjectsSize = 0;
    mObjectsCapacity = 0;
    mNextObjectHint = 0;
    mObjectsSorted = true;
    mRequestHeaderPresent = false;
    mWorkSourceRequestHeaderPosition = 0;
    mFdsKnown = true;
    mHasFds = false;
    mAllowFds = true;
    mOwner = nullptr;
    mOwnerCookie = nullptr;
    mOpenAshmemSize = 0;
}

void Parcel::releaseObjects() {
    for (size_t i = 0; i < mObjectsSize; i++) {
        flat_binder_object flat = loadFlat(mData + mObjects[i]);
        if (flat.hdr.type == BINDER_TYPE_BINDER && flat.cookie != 0)
            reinterpret_cast<IBinder*>(flat.cookie)->decStrong(this);
    }
}

void Parcel::freeDataNoInit() {
    releaseObjects();
    free(mData);
    free(mObjects);
}

void Parcel::freeData() {
    freeDataNoInit();
    initState();
}

const uint8_t* Parcel::data() const {
    return mData;
}
size_t Parcel::dataSize() const {
    return mDataSize > mDataPos ? mDataSize : mDataPos;
}
size_t Parcel::dataAvail() const {
    return dataSize() - mDataPos;
}
size_t Parcel::dataPosition() const {
    return mDataPos;
}
size_t Parcel::dataCapacity() const {
    return mDataCapacity;
}
size_t Parcel::objectsCount() const {
    return mObjectsSize;
}
status_t Parcel::errorCheck() const {
    return mError;
}

void Parcel::setDataPosition(size_t pos) const {
    mDataPos = pos > mDataSize ? mDataSize : pos;
    mNextObjectHint = 0;
}

status_t Parcel::growData(size_t len) {
    size_t wanted = mDataPos + len;
    if (len > PARCEL_LIMIT || wanted > PARCEL_LIMIT) return NO_MEMORY;
    if (wanted <= mDataCapacity) return NO_ERROR;
    size_t capacity = wanted * 3 / 2 + 16;
    if (capacity > PARCEL_LIMIT) capacity = PARCEL_LIMIT;
    auto* data = static_cast<uint8_t*>(realloc(mData, capacity));
    if (!data) return NO_MEMORY;
    mData = data;
    mDataCapacity = capacity;
    return NO_ERROR;
}

status_t Parcel::setDataCapacity(size_t size) {
    if (size <= mDataCapacity) return NO_ERROR;
    size_t pos = mDataPos;
    mDataPos = 0;
    status_t status = growData(size);
    mDataPos = pos;
    return status;
}

status_t Parcel::setData(const uint8_t* buffer, size_t len) {
    if (len > PARCEL_LIMIT) return BAD_VALUE;
    freeData();
    status_t status = growData(len);
    if (status != NO_ERROR) return status;
    if (len) memcpy(mData, buffer, len);
    mDataSize = len;
    return NO_ERROR;
}

status_t Parcel::finishWrite(size_t len) {
    mDataPos += len;
    if (mDataPos > mDataSize) mDataSize = mDataPos;
    return NO_ERROR;
}

void* Parcel::writeInplace(size_t len) {
    if (len > PARCEL_LIMIT) return nullptr;
    size_t padded = pad4(len);
    if (growData(padded) != NO_ERROR) return nullptr;
    uint8_t* out = mData + mDataPos;
    // The padding is zeroed so that the bytes sent never depend on old memory.
    if (padded > len) memset(out + len, 0, padded - len);
    finishWrite(padded);
    return out;
}

status_t Parcel::write(const void* data, size_t len) {
    void* out = writeInplace(len);
    if (!out) return NO_MEMORY;
    if (len) memcpy(out, data, len);
    return NO_ERROR;
}

template <class T>
status_t Parcel::writeAligned(T val) {
    static_assert(sizeof(T) % 4 == 0, "parcel words are 4-byte aligned");
    return write(&val, sizeof(T));
}

status_t Parcel::writeInt32(int32_t val) {
    return writeAligned(val);
}
status_t Parcel::writeInt64(int64_t val) {
    return writeAligned(val);
}
status_t Parcel::writeBool(bool val) {
    return writeInt32(val ? 1 : 0);
}
status_t Parcel::writeNoException() {
    return writeInt32(0);
}

status_t Parcel::writeString16(const String16& str) {
    return writeString16(str.string(), str.size());
}

status_t Parcel::writeString16(const char16_t* str, size_t len) {
    if (str == nullptr) return writeInt32(-1);
    if (len >= size_t(std::numeric_limits<int32_t>::max()) / sizeof(char16_t)) return BAD_VALUE;
    status_t status = writeInt32(static_cast<int32_t>(len));
    if (status != NO_ERROR) return status;
    size_t bytes = len * sizeof(char16_t);
    auto* out = static_cast<uint8_t*>(writeInplace(bytes + sizeof(char16_t)));
    if (!out) return NO_MEMORY;
    memcpy(out, str, bytes);
    memset(out + bytes, 0, sizeof(char16_t));
    return NO_ERROR;
}

status_t Parcel::writeInterfaceToken(const String16& interface) {
    writeInt32(STRICT_MODE_PENALTY_GATHER);
    mWorkSourceRequestHeaderPosition = mDataPos;
    mRequestHeaderPresent = true;
    writeInt32(UNSET_WORK_SOURCE);
    writeInt32(SYSTEM_HEADER);
    return writeString16(interface);
}

status_t Parcel::writeObject(const flat_binder_object& val, bool nullMetaData) {
    size_t at = mDataPos;
    status_t status = write(&val, sizeof(val));
    if (status != NO_ERROR) return status;
    if (!nullMetaData && val.binder == 0 && val.cookie == 0) return NO_ERROR;
    if (mObjectsSize == mObjectsCapacity) {
        size_t capacity = mObjectsCapacity * 2 + 2;
        auto* objects =
            static_cast<binder_size_t*>(realloc(mObjects, capacity * sizeof(binder_size_t)));
        if (!objects) return NO_MEMORY;
        mObjects = objects;
        mObjectsCapacity = capacity;
    }
    if (mObjectsSize && mObjects[mObjectsSize - 1] > at) mObjectsSorted = false;
    mObjects[mObjectsSize++] = at;
    if (val.hdr.type == BINDER_TYPE_BINDER && val.cookie != 0)
        reinterpret_cast<IBinder*>(val.cookie)->incStrong(this);
    return NO_ERROR;
}

status_t Parcel::flattenBinder(const sp<IBinder>& binder) {
    flat_binder_object obj{};
    obj.flags = BINDER_OBJECT_FLAGS;
    obj.hdr.type = BINDER_TYPE_BINDER;
    if (binder != nullptr) {
        if (BBinder* local = binder->localBinder()) {
            obj.binder = reinterpret_cast<uintptr_t>(local->getWeakRefs());
            obj.cookie = reinterpret_cast<uintptr_t>(local);
        } else {
            BpBinder* proxy = binder->remoteBinder();
            obj.hdr.type = BINDER_TYPE_HANDLE;
            obj.handle = proxy ? static_cast<uint32_t>(proxy->handle()) : 0;
        }
    }
    return finishFlattenBinder(binder, obj);
}

status_t Parcel::finishFlattenBinder(const sp<IBinder>&, const flat_binder_object& flat) {
    status_t status = writeObject(flat, false);
    if (status != NO_ERROR) return status;
    return writeInt32(SYSTEM_STABILITY);
}

status_t Parcel::writeStrongBinder(const sp<IBinder>& val) {
    return flattenBinder(val);
}

const void* Parcel::readInplace(size_t len) const {
    size_t padded = pad4(len);
    if (len > mDataSize || padded < len || mDataPos > mDataSize - padded) return nullptr;
    const uint8_t* at = mData + mDataPos;
    mDataPos += padded;
    return at;
}

status_t Parcel::read(void* outData, size_t len) const {
    const void* at = readInplace(len);
    if (!at) return NOT_ENOUGH_DATA;
    memcpy(outData, at, len);
    return NO_ERROR;
}

template <class T>
status_t Parcel::readAligned(T* pArg) const {
    return read(pArg, sizeof(T));
}

status_t Parcel::readInt32(int32_t* pArg) const {
    return readAligned(pArg);
}

int32_t Parcel::readInt32() const {
    int32_t value = 0;
    readInt32(&value);
    return value;
}

status_t Parcel::readInt64(int64_t* pArg) const {
    return readAligned(pArg);
}

int64_t Parcel::readInt64() const {
    int64_t value = 0;
    readInt64(&value);
    return value;
}

status_t Parcel::readBool(bool* pArg) const {
    int32_t value = 0;
    status_t status = readInt32(&value);
    *pArg = value != 0;
    return status;
}

bool Parcel::readBool() const {
    return readInt32() != 0;
}

const char16_t* Parcel::readString16Inplace(size_t* outLen) const {
    int32_t size = readInt32();
    // A length the data cannot hold fails here, before anything is allocated.
    if (size >= 0 && size_t(size) < dataAvail() / sizeof(char16_t)) {
        auto* str =
            static_cast<const char16_t*>(readInplace((size_t(size) + 1) * sizeof(char16_t)));
        if (str && str[size] == u'\0') {
            *outLen = size_t(size);
            return str;
        }
    }
    *outLen = 0;
    return nullptr;
}

status_t Parcel::readString16(String16* pArg) const {
    size_t len = 0;
    const char16_t* str = readString16Inplace(&len);
    if (!str) {
        *pArg = String16();
        return UNEXPECTED_NULL;
    }
    pArg->setTo(str, len);
    return NO_ERROR;
}

String16 Parcel::readString16() const {
    String16 str;
    readString16(&str);
    return str;
}

bool Parcel::enforceInterface(const String16& interface, IPCThreadState*) const {
    int32_t policy = 0, workSource = 0, header = 0;
    if (readInt32(&policy) != NO_ERROR || readInt32(&workSource) != NO_ERROR ||
        readInt32(&header) != NO_ERROR || header != SYSTEM_HEADER)
        return false;
    size_t len = 0;
    const char16_t* str = readString16Inplace(&len);
    return str && len == interface.size() &&
           memcmp(str, interface.string(), len * sizeof(char16_t)) == 0;
}

bool Parcel::checkInterface(IBinder* binder) const {
    return enforceInterface(binder->getInterfaceDescriptor());
}

const flat_binder_object* Parcel::readObject(bool nullMetaData) const {
    size_t at = mDataPos;
    if (mDataSize < sizeof(flat_binder_object) || at > mDataSize - sizeof(flat_binder_object))
        return nullptr;
    auto* obj = reinterpret_cast<const flat_binder_object*>(mData + at);
    mDataPos = at + sizeof(flat_binder_object);
    // A null binder is written without an entry in the object list.
    flat_binder_object copy = loadFlat(obj);
    if (!nullMetaData && copy.cookie == 0 && copy.binder == 0) return obj;
    // Anything else must be an object the parcel recorded: bytes that only look
    // like one are refused.
    for (size_t i = 0; i < mObjectsSize; i++)
        if (mObjects[i] == at) return obj;
    return nullptr;
}

status_t Parcel::unflattenBinder(sp<IBinder>* out) const {
    const flat_binder_object* at = readObject(false);
    if (!at) return BAD_TYPE;
    flat_binder_object flat = loadFlat(at);
    sp<IBinder> binder;
    switch (flat.hdr.type) {
        case BINDER_TYPE_BINDER:
            binder = reinterpret_cast<IBinder*>(flat.cookie);
            break;
        case BINDER_TYPE_HANDLE:
            binder = velour::platform::binder::Runtime::self().proxyForHandle(
                static_cast<int32_t>(flat.handle));
            if (binder == nullptr) return BAD_TYPE;
            break;
        default:
            return BAD_TYPE;
    }
    return finishUnflattenBinder(binder, out);
}

status_t Parcel::finishUnflattenBinder(const sp<IBinder>& binder, sp<IBinder>* out) const {
    int32_t stability = 0;
    status_t status = readInt32(&stability);
    if (status != NO_ERROR) return status;
    *out = binder;
    return NO_ERROR;
}

status_t Parcel::readNullableStrongBinder(sp<IBinder>* val) const {
    return unflattenBinder(val);
}

status_t Parcel::readStrongBinder(sp<IBinder>* val) const {
    status_t status = readNullableStrongBinder(val);
    if (status == NO_ERROR && *val == nullptr) status = UNEXPECTED_NULL;
    return status;
}

sp<IBinder> Parcel::readStrongBinder() const {
    sp<IBinder> val;
    readNullableStrongBinder(&val);
    return val;
}

int32_t Parcel::readExceptionCode() const {
    int32_t code = 0;
    if (readInt32(&code) != NO_ERROR) return UNKNOWN_ERROR;
    if (code == EX_HAS_REPLY_HEADER) {
        // A header of its own length precedes the result: skip it.
        size_t start = mDataPos;
        int32_t headerSize = readInt32();
        // Parcel data is read in 4-byte words: a header of another size
        // would leave every later read misaligned.
        if (headerSize < 0 || headerSize % 4 != 0 || size_t(headerSize) > mDataSize - start)
            return UNKNOWN_ERROR;
        setDataPosition(start + size_t(headerSize));
        return 0;
    }
    return code;
}

}  // namespace android
