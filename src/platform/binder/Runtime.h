#pragma once

// The host's stand-in for the binder driver: each process that offers objects
// listens on a Unix-domain socket named by its port under the sysroot's
// "/dev/binder" folder, the service manager on port 0. A call is one request
// frame and one reply frame on a connection to the owner. Objects in a parcel
// travel as a list beside the bytes, and the receiver rewrites each
// flat_binder_object as the driver would: its own objects as local pointers,
// anyone else's as a handle of its own table.
// clang-format off
#include <limits>
#include <memory>
#include <binder/IBinder.h>
// clang-format on

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace velour::platform::binder {

// The most one parcel carries, as the driver's transaction buffer.
constexpr size_t MAX_PARCEL_BYTES = 1 << 20;
// The most handles a process keeps: a peer naming ever new objects is refused.
constexpr size_t MAX_HANDLES = 4096;
constexpr uint32_t SERVICE_MANAGER_PORT = 0;
// The most connections a process serves at once, each on a thread of its own.
constexpr int MAX_CONNECTIONS = 64;

// The folder of the sockets: "$VELOUR_SYSROOT/dev/binder", else "/tmp/velour-binder".
std::string socketFolder();

class Runtime {
  public:
    static Runtime& self();

    // This process serves port 0 with `context` at address 0. Call once, before
    // any other use of the runtime.
    void becomeServiceManager(const android::sp<android::IBinder>& context);

    // The proxy of a handle, one object per handle while it lives; null for a
    // handle this process never received.
    android::sp<android::IBinder> proxyForHandle(int32_t handle);

    android::status_t transact(int32_t handle, uint32_t code, const android::Parcel& data,
                               android::Parcel* reply, uint32_t flags);
    // Watches the owner of `handle`; its death calls sendObituary on the proxies
    // of every handle it owned. DEAD_OBJECT if it is gone already.
    android::status_t watch(int32_t handle);

  private:
    struct Handle {
        uint32_t port;
        uint64_t address;
        std::mutex callMutex;  // one call at a time on the connection
        int fd = -1;
        android::wp<android::IBinder> proxy;
    };
    struct ObjectRef {
        uint32_t offset;
        uint32_t port;
        uint64_t address;
    };

    Runtime();
    std::string socketPath(uint32_t port) const;
    int connectTo(uint32_t port) const;
    void startServing();
    void serveConnection(int fd);
    void watchLoop();
    void buryPort(uint32_t port);
    int32_t handleFor(uint32_t port, uint64_t address);

    android::status_t sendParcel(int fd, uint32_t kind, uint64_t target, uint32_t code,
                                 uint32_t flags, int32_t status, const android::Parcel& parcel);
    // Reads one frame's parcel. false when the peer broke the protocol or left.
    bool receiveParcel(int fd, uint32_t dataSize, uint32_t objectCount, android::Parcel* out);

    std::mutex mutex;  // guards everything below
    uint32_t port;
    bool serving = false;
    android::sp<android::IBinder> context;
    std::map<uint64_t, android::sp<android::IBinder>> exported;
    std::deque<Handle> handles;
    std::map<std::pair<uint32_t, uint64_t>, int32_t> handleIndex;
    std::map<uint32_t, int> watches;  // port to watching connection
    int wakeFd[2] = {-1, -1};
    std::atomic<int> connections{0};
    bool watching = false;
};

}  // namespace velour::platform::binder
