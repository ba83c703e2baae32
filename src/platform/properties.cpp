// System properties for a host build. On a device bionic provides them.
#ifndef __ANDROID__

#include "platform/properties.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "platform/PropertyStore.h"

// One property. Slots are never freed and a slot's name never changes once it
// is published, so only the value needs the seqlock.
struct prop_info {
    std::atomic<uint32_t> serial;  // odd while a writer changes the value
    char value[PROP_VALUE_MAX];
    char name[velour::platform::PROPERTY_NAME_LIMIT + 1];
};

namespace velour::platform {

static_assert(std::atomic<uint32_t>::is_always_lock_free,
              "the serials are shared between processes");
static_assert(sizeof(prop_info) == 4 + PROP_VALUE_MAX + PROPERTY_NAME_LIMIT + 1,
              "the slot layout must not depend on the ABI");

namespace {

constexpr uint32_t STORE_MAGIC = 0x504c4556;  // "VELP" read as little-endian
constexpr uint32_t STORE_VERSION = 1;
constexpr uint32_t SLOT_COUNT = 1024;

// A read that keeps meeting a writer first yields, then sleeps; past the last
// attempt it takes what it sees, so that a writer that died mid-change cannot
// hang its readers.
constexpr int READ_YIELDS = 100;
constexpr int READ_ATTEMPTS = 200;

int lockExclusive(int fd) {
    int result;
    do {
        result = flock(fd, LOCK_EX);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Byte copies through relaxed atomics: a reader may run beside a writer, and
// the serial tells it afterwards whether what it copied holds together.
void loadBytes(char* to, const char* from, size_t count) {
    for (size_t i = 0; i < count; ++i) to[i] = __atomic_load_n(&from[i], __ATOMIC_RELAXED);
}

void storeBytes(char* to, const char* from, size_t count) {
    for (size_t i = 0; i < count; ++i) __atomic_store_n(&to[i], from[i], __ATOMIC_RELAXED);
}

void makeParentFolders(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        ::mkdir(path.substr(0, slash).c_str(), 0755);
    }
}

constexpr size_t HEADER_SIZE = 64;

size_t storeSize() {
    return HEADER_SIZE + size_t{SLOT_COUNT} * sizeof(prop_info);
}

}  // namespace

struct PropertyStore::Header {
    uint32_t magic;
    uint32_t version;
    uint32_t slotSize;
    uint32_t slotCount;
    std::atomic<uint32_t> used;  // slots [0, used) hold properties
    uint32_t reserved[11];
};

bool isValidPropertyName(const char* name) {
    if (name == nullptr) return false;
    size_t length = strnlen(name, PROPERTY_NAME_LIMIT + 1);
    if (length == 0 || length > PROPERTY_NAME_LIMIT) return false;
    if (name[0] == '.' || name[length - 1] == '.') return false;
    for (size_t i = 0; i < length; ++i) {
        char c = name[i];
        bool letterOrDigit =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!letterOrDigit && !std::strchr("_-.@:", c)) return false;
        if (c == '.' && name[i + 1] == '.') return false;
    }
    return true;
}

std::string propertyStorePath() {
    const char* store = std::getenv("VELOUR_PROPERTY_STORE");
    if (store != nullptr && store[0] != '\0') return store;
    const char* sysroot = std::getenv("VELOUR_SYSROOT");
    if (sysroot != nullptr && sysroot[0] != '\0') {
        std::string root = sysroot;
        while (root.size() > 1 && root.back() == '/') root.pop_back();
        return root + "/dev/__properties__";
    }
    return "/tmp/velour-properties-" + std::to_string(getuid());
}

PropertyStore::PropertyStore(std::string path) : _path(std::move(path)) {
    if (!open() && _header != nullptr) {
        munmap(_header, _mappedSize);
        _header = nullptr;
    }
}

PropertyStore::~PropertyStore() {
    if (_header != nullptr) munmap(_header, _mappedSize);
}

PropertyStore& PropertyStore::global() {
    // Never destroyed: static destructors of other objects and threads still
    // running at exit may read properties after this one would be gone.
    static PropertyStore* store = new PropertyStore(propertyStorePath());
    return *store;
}

bool PropertyStore::open() {
    static_assert(sizeof(Header) == HEADER_SIZE, "the header layout is fixed");
    if (_path.empty()) return false;
    makeParentFolders(_path);
    int fd = ::open(_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    _writable = fd >= 0;
    if (fd < 0) fd = ::open(_path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;

    // Whoever finds the file empty lays it out, under the lock so that two
    // first users do not both do it.
    if (_writable && lockExclusive(fd) != 0) {
        ::close(fd);
        return false;
    }
    struct stat info {};
    bool ok = fstat(fd, &info) == 0;
    bool fresh = ok && info.st_size == 0;
    if (fresh) ok = _writable && ftruncate(fd, static_cast<off_t>(storeSize())) == 0;
    // A file of another size is not a store of this layout: leave it alone.
    if (ok && !fresh) ok = static_cast<uint64_t>(info.st_size) == storeSize();
    void* mapped = MAP_FAILED;
    if (ok) {
        int protection = PROT_READ | (_writable ? PROT_WRITE : 0);
        mapped = mmap(nullptr, storeSize(), protection, MAP_SHARED, fd, 0);
    }
    if (mapped != MAP_FAILED) {
        _header = static_cast<Header*>(mapped);
        _mappedSize = storeSize();
        _device = static_cast<uint64_t>(info.st_dev);
        _inode = static_cast<uint64_t>(info.st_ino);
        // A creator may have died between sizing the file and writing this.
        if (_writable && _header->magic == 0 && _header->used.load() == 0) {
            _header->version = STORE_VERSION;
            _header->slotSize = sizeof(prop_info);
            _header->slotCount = SLOT_COUNT;
            _header->magic = STORE_MAGIC;
        }
    }
    // Unlock explicitly: the mapping keeps the open file description, and
    // with it the lock, alive after close.
    if (_writable) flock(fd, LOCK_UN);
    ::close(fd);
    return _header != nullptr && _header->magic == STORE_MAGIC &&
           _header->version == STORE_VERSION && _header->slotSize == sizeof(prop_info) &&
           _header->slotCount == SLOT_COUNT;
}

prop_info* PropertyStore::slots() const {
    // The slots follow the header, which keeps them aligned.
    return reinterpret_cast<prop_info*>(_header + 1);
}

uint32_t PropertyStore::usedSlots() const {
    uint32_t used = _header->used.load(std::memory_order_acquire);
    return used < SLOT_COUNT ? used : SLOT_COUNT;
}

prop_info* PropertyStore::findSlot(const char* name) const {
    if (_header == nullptr || name == nullptr) return nullptr;
    if (strnlen(name, PROPERTY_NAME_LIMIT + 1) > PROPERTY_NAME_LIMIT) return nullptr;
    prop_info* all = slots();
    for (uint32_t i = 0, used = usedSlots(); i < used; ++i) {
        if (std::strncmp(all[i].name, name, PROPERTY_NAME_LIMIT + 1) == 0) return &all[i];
    }
    return nullptr;
}

uint32_t PropertyStore::readValue(const prop_info* pi, char* value) const {
    for (int attempt = 1;; ++attempt) {
        uint32_t before = pi->serial.load(std::memory_order_acquire);
        bool lastAttempt = attempt >= READ_ATTEMPTS;
        if ((before & 1) != 0 && !lastAttempt) {
            if (attempt < READ_YIELDS) {
                sched_yield();
            } else {
                timespec pause{0, 1000000};
                nanosleep(&pause, nullptr);
            }
            continue;
        }
        loadBytes(value, pi->value, PROP_VALUE_MAX);
        std::atomic_thread_fence(std::memory_order_acquire);
        uint32_t after = pi->serial.load(std::memory_order_relaxed);
        if (before == after || lastAttempt) {
            value[PROP_VALUE_MAX - 1] = '\0';
            return after;
        }
    }
}

const prop_info* PropertyStore::find(const char* name) const {
    return findSlot(name);
}

int PropertyStore::get(const char* name, char* value) const {
    if (value == nullptr) return 0;
    const prop_info* pi = findSlot(name);
    if (pi == nullptr) {
        value[0] = '\0';
        return 0;
    }
    readValue(pi, value);
    return static_cast<int>(std::strlen(value));
}

int PropertyStore::set(const char* name, const char* value) {
    if (_header == nullptr || !_writable || value == nullptr || !isValidPropertyName(name)) {
        return -1;
    }
    size_t length = strnlen(value, PROP_VALUE_MAX);
    if (length >= PROP_VALUE_MAX) return -1;
    char padded[PROP_VALUE_MAX] = {};
    std::memcpy(padded, value, length);

    // A descriptor of our own: flock excludes other open file descriptions
    // only, and this process's threads or forked children share ours.
    int fd = ::open(_path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return -1;
    int result = -1;
    struct stat info {};
    if (lockExclusive(fd) == 0 && fstat(fd, &info) == 0 &&
        static_cast<uint64_t>(info.st_dev) == _device &&
        static_cast<uint64_t>(info.st_ino) == _inode) {
        prop_info* pi = findSlot(name);
        if (pi != nullptr) {
            if (std::strncmp(name, "ro.", 3) != 0) {
                uint32_t writing = pi->serial.load(std::memory_order_relaxed) | 1;
                pi->serial.store(writing, std::memory_order_relaxed);
                std::atomic_thread_fence(std::memory_order_release);
                storeBytes(pi->value, padded, PROP_VALUE_MAX);
                pi->serial.store(writing + 1, std::memory_order_release);
                result = 0;
            }
        } else {
            uint32_t used = usedSlots();
            if (used < SLOT_COUNT) {
                pi = &slots()[used];
                pi->serial.store(0, std::memory_order_relaxed);
                storeBytes(pi->value, padded, PROP_VALUE_MAX);
                std::memset(pi->name, 0, sizeof pi->name);
                std::memcpy(pi->name, name, std::strlen(name));
                _header->used.store(used + 1, std::memory_order_release);
                result = 0;
            }
        }
    }
    ::close(fd);
    return result;
}

void PropertyStore::read(const prop_info* pi,
                         void (*callback)(void* cookie, const char* name, const char* value,
                                          uint32_t serial),
                         void* cookie) const {
    if (pi == nullptr || callback == nullptr) return;
    char name[PROPERTY_NAME_LIMIT + 1];
    std::memcpy(name, pi->name, sizeof name);
    name[PROPERTY_NAME_LIMIT] = '\0';
    char value[PROP_VALUE_MAX];
    uint32_t serial = readValue(pi, value);
    callback(cookie, name, value, serial);
}

void PropertyStore::forEach(void (*callback)(const prop_info* pi, void* cookie),
                            void* cookie) const {
    if (_header == nullptr || callback == nullptr) return;
    prop_info* all = slots();
    for (uint32_t i = 0, used = usedSlots(); i < used; ++i) callback(&all[i], cookie);
}

}  // namespace velour::platform

namespace {

// Null when the store could not even be built; the C entry points let no
// exception out, and a failure reads as a missing or refused property.
velour::platform::PropertyStore* globalStore() noexcept {
    try {
        return &velour::platform::PropertyStore::global();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

extern "C" {

int __system_property_get(const char* name, char* value) {
    auto* store = globalStore();
    if (store != nullptr) return store->get(name, value);
    if (value != nullptr) value[0] = '\0';
    return 0;
}

int __system_property_set(const char* name, const char* value) {
    auto* store = globalStore();
    return store != nullptr ? store->set(name, value) : -1;
}

const prop_info* __system_property_find(const char* name) {
    auto* store = globalStore();
    return store != nullptr ? store->find(name) : nullptr;
}

void __system_property_read_callback(const prop_info* pi,
                                     void (*callback)(void* cookie, const char* name,
                                                      const char* value, uint32_t serial),
                                     void* cookie) {
    if (auto* store = globalStore()) store->read(pi, callback, cookie);
}

int __system_property_foreach(void (*callback)(const prop_info* pi, void* cookie), void* cookie) {
    auto* store = globalStore();
    if (store == nullptr || !store->valid()) return -1;
    store->forEach(callback, cookie);
    return 0;
}

}  // extern "C"

#endif  // __ANDROID__
