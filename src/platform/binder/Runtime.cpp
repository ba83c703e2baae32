#include "platform/binder/Runtime.h"

// clang-format off
#include <binder/BpBinder.h>
#include <binder/Parcel.h>
// clang-format on

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "platform/binder/KernelTypes.h"

namespace velour::platform::binder {

using android::BINDER_TYPE_BINDER;
using android::BINDER_TYPE_HANDLE;
using android::BpBinder;
using android::flat_binder_object;
using android::IBinder;
using android::Parcel;
using android::sp;
using android::status_t;

namespace {

enum FrameKind : uint32_t { TRANSACT = 1, REPLY = 2, WATCH = 3 };

// What precedes a parcel on a connection; the object list follows the bytes.
struct Frame {
    uint32_t kind;
    uint32_t code;
    uint32_t flags;
    int32_t status;
    uint64_t target;
    uint32_t dataSize;
    uint32_t objectCount;
};
static_assert(sizeof(Frame) == 32, "the frame is the same on every ABI");

struct WireRef {
    uint32_t offset;
    uint32_t port;
    uint64_t address;
};
static_assert(sizeof(WireRef) == 16, "the object entry is the same on every ABI");

bool writeAll(int fd, const void* data, size_t len) {
    auto* at = static_cast<const uint8_t*>(data);
    while (len > 0) {
        ssize_t n = send(fd, at, len, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        at += n;
        len -= size_t(n);
    }
    return true;
}

bool readAll(int fd, void* data, size_t len) {
    auto* at = static_cast<uint8_t*>(data);
    while (len > 0) {
        ssize_t n = recv(fd, at, len, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        at += n;
        len -= size_t(n);
    }
    return true;
}

void makeFolders(const std::string& path) {
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0755);
    mkdir(path.c_str(), 0755);
}

}  // namespace

std::string socketFolder() {
    const char* sysroot = getenv("VELOUR_SYSROOT");
    if (sysroot && *sysroot) return std::string(sysroot) + "/dev/binder";
    return "/tmp/velour-binder";
}

Runtime& Runtime::self() {
    // Never destroyed: binder threads may still run while statics are torn down.
    static Runtime* runtime = new Runtime();
    return *runtime;
}

Runtime::Runtime() : port(static_cast<uint32_t>(getpid())) {
    handles.emplace_back();
    handles.back().port = SERVICE_MANAGER_PORT;
    handles.back().address = 0;
    handleIndex[{SERVICE_MANAGER_PORT, 0}] = 0;
}

std::string Runtime::socketPath(uint32_t ofPort) const {
    std::string name = ofPort == SERVICE_MANAGER_PORT ? "servicemanager" : std::to_string(ofPort);
    return socketFolder() + "/" + name;
}

int Runtime::connectTo(uint32_t toPort) const {
    std::string path = socketPath(toPort);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) return -1;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void Runtime::becomeServiceManager(const sp<IBinder>& contextObject) {
    std::lock_guard<std::mutex> lock(mutex);
    port = SERVICE_MANAGER_PORT;
    context = contextObject;
    startServing();
}

void Runtime::startServing() {
    if (serving) return;
    std::string path = socketPath(port);
    makeFolders(socketFolder());
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof(addr.sun_path)) return;
    memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return;
    unlink(path.c_str());
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 16) != 0) {
        close(fd);
        return;
    }
    serving = true;
    // The binder threads: one accepts, and each connection gets its own, so a
    // call that calls back into its caller's process never waits on itself.
    std::thread([this, fd] {
        for (;;) {
            int client = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
            if (client < 0) {
                if (errno == EINTR || errno == ECONNABORTED) continue;
                return;
            }
            // A peer that opens connections without end gets no more threads.
            if (connections.fetch_add(1) >= MAX_CONNECTIONS) {
                connections--;
                close(client);
                continue;
            }
            std::thread([this, client] {
                serveConnection(client);
                connections--;
            }).detach();
        }
    }).detach();
}

void Runtime::serveConnection(int fd) {
    Frame frame{};
    while (readAll(fd, &frame, sizeof(frame))) {
        if (frame.kind == WATCH) {
            // The watcher only waits for this connection to end with the process.
            char byte;
            while (recv(fd, &byte, 1, 0) > 0) {
            }
            break;
        }
        if (frame.kind != TRANSACT) break;
        Parcel data;
        if (!receiveParcel(fd, frame.dataSize, frame.objectCount, &data)) break;
        sp<IBinder> target;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (frame.target == 0 && context != nullptr) {
                target = context;
            } else {
                auto found = exported.find(frame.target);
                if (found != exported.end()) target = found->second;
            }
        }
        Parcel reply;
        status_t status = target != nullptr
                              ? target->transact(frame.code, data, &reply, frame.flags)
                              : status_t(android::FAILED_TRANSACTION);
        if (frame.flags & IBinder::FLAG_ONEWAY) continue;
        if (sendParcel(fd, REPLY, 0, 0, 0, status, reply) != android::NO_ERROR) break;
    }
    close(fd);
}

int32_t Runtime::handleFor(uint32_t ofPort, uint64_t address) {
    auto found = handleIndex.find({ofPort, address});
    if (found != handleIndex.end()) return found->second;
    if (handles.size() >= MAX_HANDLES) return -1;
    handles.emplace_back();
    handles.back().port = ofPort;
    handles.back().address = address;
    auto handle = static_cast<int32_t>(handles.size() - 1);
    handleIndex[{ofPort, address}] = handle;
    return handle;
}

sp<IBinder> Runtime::proxyForHandle(int32_t handle) {
    std::lock_guard<std::mutex> lock(mutex);
    if (handle < 0 || size_t(handle) >= handles.size()) return nullptr;
    Handle& entry = handles[size_t(handle)];
    sp<IBinder> proxy = entry.proxy.promote();
    if (proxy == nullptr) {
        proxy = BpBinder::create(handle);
        entry.proxy = proxy;
    }
    return proxy;
}

status_t Runtime::sendParcel(int fd, uint32_t kind, uint64_t target, uint32_t code, uint32_t flags,
                             int32_t status, const Parcel& parcel) {
    std::vector<WireRef> refs;
    if (parcel.objectsCount() > 0) {
        // The parcel keeps its object list to itself; readObject names each entry.
        size_t saved = parcel.dataPosition();
        for (size_t offset = 0; offset + sizeof(flat_binder_object) <= parcel.dataSize() &&
                                refs.size() < parcel.objectsCount();
             offset += 4) {
            parcel.setDataPosition(offset);
            const flat_binder_object* at = parcel.readObject(false);
            if (!at) continue;
            flat_binder_object flat = android::loadFlat(at);
            if (flat.binder == 0 && flat.cookie == 0) continue;
            std::lock_guard<std::mutex> lock(mutex);
            WireRef ref{static_cast<uint32_t>(offset), 0, 0};
            if (flat.hdr.type == BINDER_TYPE_BINDER) {
                // The peer may call it from now on: keep it alive and listen.
                exported[flat.cookie] = reinterpret_cast<IBinder*>(flat.cookie);
                startServing();
                ref.port = port;
                ref.address = flat.cookie;
            } else if (flat.hdr.type == BINDER_TYPE_HANDLE && flat.handle < handles.size()) {
                ref.port = handles[flat.handle].port;
                ref.address = handles[flat.handle].address;
            } else {
                parcel.setDataPosition(saved);
                return android::BAD_TYPE;
            }
            refs.push_back(ref);
        }
        parcel.setDataPosition(saved);
    }
    if (parcel.dataSize() > MAX_PARCEL_BYTES) return android::FAILED_TRANSACTION;
    Frame frame{kind,
                code,
                flags,
                status,
                target,
                static_cast<uint32_t>(parcel.dataSize()),
                static_cast<uint32_t>(refs.size())};
    if (!writeAll(fd, &frame, sizeof(frame)) || !writeAll(fd, parcel.data(), parcel.dataSize()) ||
        !writeAll(fd, refs.data(), refs.size() * sizeof(WireRef)))
        return android::DEAD_OBJECT;
    return android::NO_ERROR;
}

bool Runtime::receiveParcel(int fd, uint32_t dataSize, uint32_t objectCount, Parcel* out) {
    // Sizes come from the peer: check them before anything is allocated.
    if (dataSize > MAX_PARCEL_BYTES || dataSize % 4 != 0 ||
        objectCount > dataSize / sizeof(flat_binder_object))
        return false;
    std::vector<uint8_t> data(dataSize);
    std::vector<WireRef> refs(objectCount);
    if (!readAll(fd, data.data(), data.size()) ||
        !readAll(fd, refs.data(), refs.size() * sizeof(WireRef)))
        return false;
    out->freeData();
    out->setDataCapacity(dataSize);
    size_t written = 0;
    for (const WireRef& ref : refs) {
        // In order, inside the data, aligned, not overlapping.
        if (ref.offset < written || ref.offset % 4 != 0 ||
            ref.offset > dataSize - sizeof(flat_binder_object))
            return false;
        flat_binder_object flat;
        memcpy(&flat, data.data() + ref.offset, sizeof(flat));
        if (flat.hdr.type != BINDER_TYPE_BINDER && flat.hdr.type != BINDER_TYPE_HANDLE)
            return false;
        flat_binder_object local{};
        local.flags = flat.flags;
        {
            std::lock_guard<std::mutex> lock(mutex);
            if (ref.port == port && serving) {
                auto found = exported.find(ref.address);
                if (found == exported.end()) return false;
                local.hdr.type = BINDER_TYPE_BINDER;
                local.binder = reinterpret_cast<uintptr_t>(found->second->getWeakRefs());
                local.cookie = ref.address;
            } else {
                int32_t handle = handleFor(ref.port, ref.address);
                if (handle < 0) return false;
                local.hdr.type = BINDER_TYPE_HANDLE;
                local.handle = static_cast<uint32_t>(handle);
            }
        }
        out->write(data.data() + written, ref.offset - written);
        out->writeObject(local, true);
        written = ref.offset + sizeof(flat_binder_object);
    }
    out->write(data.data() + written, dataSize - written);
    out->setDataPosition(0);
    return true;
}

status_t Runtime::transact(int32_t handle, uint32_t code, const Parcel& data, Parcel* reply,
                           uint32_t flags) {
    Handle* entry;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (handle < 0 || size_t(handle) >= handles.size()) return android::BAD_VALUE;
        entry = &handles[size_t(handle)];
    }
    std::lock_guard<std::mutex> call(entry->callMutex);
    if (entry->fd < 0) entry->fd = connectTo(entry->port);
    if (entry->fd < 0) return android::DEAD_OBJECT;
    auto drop = [entry](status_t status) {
        close(entry->fd);
        entry->fd = -1;
        return status;
    };
    status_t sent = sendParcel(entry->fd, TRANSACT, entry->address, code, flags, 0, data);
    if (sent == android::DEAD_OBJECT) return drop(sent);
    if (sent != android::NO_ERROR) return sent;
    if (flags & IBinder::FLAG_ONEWAY) return android::NO_ERROR;
    Frame frame{};
    if (!readAll(entry->fd, &frame, sizeof(frame))) return drop(android::DEAD_OBJECT);
    Parcel ignored;
    if (frame.kind != REPLY ||
        !receiveParcel(entry->fd, frame.dataSize, frame.objectCount, reply ? reply : &ignored))
        return drop(android::FAILED_TRANSACTION);
    return frame.status;
}

status_t Runtime::watch(int32_t handle) {
    std::lock_guard<std::mutex> lock(mutex);
    if (handle < 0 || size_t(handle) >= handles.size()) return android::BAD_VALUE;
    uint32_t owner = handles[size_t(handle)].port;
    if (watches.count(owner)) return android::NO_ERROR;
    int fd = connectTo(owner);
    if (fd < 0) return android::DEAD_OBJECT;
    Frame frame{WATCH, 0, 0, 0, 0, 0, 0};
    if (!writeAll(fd, &frame, sizeof(frame))) {
        close(fd);
        return android::DEAD_OBJECT;
    }
    watches[owner] = fd;
    if (!watching) {
        if (pipe2(wakeFd, O_CLOEXEC) != 0) return android::NO_ERROR;
        watching = true;
        std::thread([this] { watchLoop(); }).detach();
    }
    char byte = 0;
    if (::write(wakeFd[1], &byte, 1) < 0) {
        // The watcher looks at its list again at the next event all the same.
    }
    return android::NO_ERROR;
}

void Runtime::watchLoop() {
    for (;;) {
        std::vector<pollfd> fds;
        std::vector<uint32_t> ports;
        {
            std::lock_guard<std::mutex> lock(mutex);
            fds.push_back({wakeFd[0], POLLIN, 0});
            for (auto& [owner, fd] : watches) {
                fds.push_back({fd, POLLIN, 0});
                ports.push_back(owner);
            }
        }
        if (poll(fds.data(), fds.size(), -1) < 0) continue;
        if (fds[0].revents) {
            char drain[64];
            if (::read(wakeFd[0], drain, sizeof(drain)) < 0) {
            }
        }
        for (size_t i = 1; i < fds.size(); i++) {
            // The peer never writes on a watching connection: any event is its end.
            if (fds[i].revents == 0) continue;
            {
                std::lock_guard<std::mutex> lock(mutex);
                watches.erase(ports[i - 1]);
            }
            close(fds[i].fd);
            buryPort(ports[i - 1]);
        }
    }
}

void Runtime::buryPort(uint32_t owner) {
    std::vector<sp<IBinder>> dead;
    {
        std::lock_guard<std::mutex> lock(mutex);
        for (Handle& entry : handles) {
            if (entry.port != owner) continue;
            sp<IBinder> proxy = entry.proxy.promote();
            if (proxy != nullptr) dead.push_back(proxy);
        }
    }
    for (auto& proxy : dead) proxy->remoteBinder()->sendObituary();
}

}  // namespace velour::platform::binder
