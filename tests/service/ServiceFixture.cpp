#include "ServiceFixture.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/String8.h>

#include <chrono>
#include <thread>

extern char** environ;

namespace velour::test {

using android::Parcel;
using android::String16;

TestSysroot* ServiceTest::sysroot = nullptr;

namespace {

pid_t spawn(const std::string& program, const std::vector<std::string>& args,
            const std::string& logFile) {
    std::vector<std::string> all{program};
    all.insert(all.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& arg : all) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // Both outputs to the log: a service left behind by a crashed test must not
    // hold the test runner's pipe open.
    posix_spawn_file_actions_addopen(&actions, 2, logFile.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                     0644);
    posix_spawn_file_actions_adddup2(&actions, 2, 1);
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

android::sp<android::IBinder> findService() {
    return android::defaultServiceManager()->checkService(String16(hearth::SERVICE_NAME));
}

}  // namespace

void ServiceTest::SetUpTestSuite() {
    if (sysroot) return;
    // One sysroot for the program: this process listens in it from its first
    // sent binder on, and the service manager is started once.
    sysroot = new TestSysroot();
    sysroot->write("/odm/etc/tesselfx/velour.ini",
                   "[com.velour.svc]\ngame=0\nruntime_mode=2\nenabled=1\n");
    pid_t manager = spawn(VELOUR_SERVICEMANAGER, {}, sysroot->root() + "/servicemanager.log");
    ASSERT_GT(manager, 0);
    ASSERT_TRUE(eventually(
        [] { return access((sysroot->root() + "/dev/binder/servicemanager").c_str(), F_OK) == 0; },
        30));
    // Ended with the program: nothing else of the sysroot outlives it.
    static struct Reaper {
        pid_t pid;
        ~Reaper() {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
            delete sysroot;
        }
    } reaper{manager};
}

void ServiceTest::startService(const std::vector<std::string>& args) {
    // Each service answers from a folder of its own, so no test sees another's settings.
    static int count = 0;
    std::vector<std::string> all{"--folder", sysroot->root() + "/hearth" + std::to_string(++count)};
    all.insert(all.end(), args.begin(), args.end());
    serviceLog = sysroot->root() + "/hearthd" + std::to_string(count) + ".log";
    service = spawn(VELOUR_HEARTHD, all, serviceLog);
    ASSERT_GT(service, 0);
    // A sanitizer build on a busy machine takes its time to start.
    ASSERT_TRUE(eventually([] { return findService() != nullptr; }, 30)) << "the service registers";
}

void ServiceTest::stopService(int signal) {
    if (service <= 0) return;
    kill(service, signal);
    waitpid(service, nullptr, 0);
    service = -1;
    // A sanitizer build of the service reports into its log and goes on.
    std::string log = readFile(serviceLog);
    EXPECT_FALSE(has(log, "Sanitizer")) << log;
    // The manager forgets a dead service as soon as it notices.
    eventually([] { return findService() == nullptr; });
}

android::status_t ServiceTest::control(uint32_t code,
                                       const std::function<void(android::Parcel&)>& write,
                                       android::Parcel* reply) {
    android::sp<android::IBinder> binder = findService();
    if (binder == nullptr) return android::DEAD_OBJECT;
    Parcel data, ignored;
    data.writeInterfaceToken(String16(hearth::CONTROL_INTERFACE));
    if (write) write(data);
    return binder->transact(code, data, reply ? reply : &ignored);
}

int ServiceTest::listeners() {
    Parcel reply;
    if (control(hearth::COUNT_LISTENERS, nullptr, &reply) != android::NO_ERROR) return -1;
    return reply.readInt32();
}

std::vector<std::pair<int64_t, std::string>> ServiceTest::weapons() {
    Parcel reply;
    std::vector<std::pair<int64_t, std::string>> all;
    if (control(hearth::LIST_WEAPONS, nullptr, &reply) != android::NO_ERROR) return all;
    int32_t count = reply.readInt32();
    for (int32_t i = 0; i < count; i++) {
        int64_t at = reply.readInt64();
        android::String8 name(reply.readString16());
        all.emplace_back(at, name.string());
    }
    return all;
}

std::vector<uint8_t> ServiceTest::lastRequest(uint32_t code) {
    Parcel reply;
    control(
        hearth::LAST_REQUEST, [&](Parcel& data) { data.writeInt32(int32_t(code)); }, &reply);
    int32_t length = reply.readInt32();
    auto* bytes =
        static_cast<const uint8_t*>(length > 0 ? reply.readInplace(size_t(length)) : nullptr);
    return bytes ? std::vector<uint8_t>(bytes, bytes + length) : std::vector<uint8_t>{};
}

bool ServiceTest::eventually(const std::function<bool()>& done, int seconds) {
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (!done()) {
        if (std::chrono::steady_clock::now() > until) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

}  // namespace velour::test
