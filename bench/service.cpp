// The weapon message path of the game service client, against velour-hearthd
// in its own process: what sendWeaponToDova costs the calling (render)
// thread, and how long a message takes from the call to the service's record.
// clang-format off
#include <limits>
#include <memory>
#include <binder/IServiceManager.h>
#include <binder/Parcel.h>
// clang-format on

#include <benchmark/benchmark.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utils/String8.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "TestSysroot.h"
#include "ctrl/HearthAsyncService.h"
#include "hearth/HearthProtocol.h"

extern char** environ;

namespace {

using android::Parcel;
using android::String16;

pid_t spawn(const char* program, std::vector<std::string> args) {
    args.insert(args.begin(), program);
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    posix_spawn(&pid, program, nullptr, nullptr, argv.data(), environ);
    return pid;
}

android::sp<android::IBinder> service() {
    return android::defaultServiceManager()->checkService(String16(velour::hearth::SERVICE_NAME));
}

int64_t wallNs() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// name to the service's record time (wall clock, as the call's).
std::vector<std::pair<std::string, int64_t>> records() {
    Parcel data, reply;
    data.writeInterfaceToken(String16(velour::hearth::CONTROL_INTERFACE));
    std::vector<std::pair<std::string, int64_t>> all;
    if (service()->transact(velour::hearth::LIST_WEAPONS, data, &reply) != android::NO_ERROR)
        return all;
    int32_t count = reply.readInt32();
    for (int32_t i = 0; i < count; i++) {
        int64_t at = reply.readInt64();
        all.emplace_back(android::String8(reply.readString16()).string(), at);
    }
    return all;
}

void waitForRecords(size_t count) {
    while (records().size() < count) std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

velour::ctrl::HearthAsyncService* g_client;
size_t g_sent = 0;

// From the call to the service's record, one message at a time, 2 ms apart so
// that none waits behind another.
void BM_CallToRecord(benchmark::State& state) {
    std::vector<double> latenciesUs;
    for (auto _ : state) {
        std::vector<std::pair<std::string, int64_t>> calls;
        for (int i = 0; i < 200; i++) {
            std::string name = "L" + std::to_string(g_sent + size_t(i));
            calls.emplace_back(name, wallNs());
            g_client->sendWeaponToDova(name.c_str());
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        g_sent += calls.size();
        waitForRecords(g_sent);
        auto all = records();
        for (auto& [name, calledAt] : calls)
            for (auto& [recorded, at] : all)
                if (recorded == name) latenciesUs.push_back(double(at - calledAt) / 1000.0);
    }
    std::sort(latenciesUs.begin(), latenciesUs.end());
    if (latenciesUs.empty()) return;
    state.counters["median_us"] = latenciesUs[latenciesUs.size() / 2];
    state.counters["p99_us"] = latenciesUs[latenciesUs.size() * 99 / 100];
    state.counters["max_us"] = latenciesUs.back();
}
BENCHMARK(BM_CallToRecord)->Iterations(1)->Unit(benchmark::kMillisecond);

// The calling thread's share: the submission to the pool, never the call.
void BM_SendWeaponToDova(benchmark::State& state) {
    for (auto _ : state) g_client->sendWeaponToDova("AKM");
    // Outside the timed loop: the next run starts with an idle pool.
    g_sent += state.iterations();
    waitForRecords(g_sent);
}
BENCHMARK(BM_SendWeaponToDova)->Iterations(20000)->Repetitions(3)->Unit(benchmark::kNanosecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    velour::test::TestSysroot sysroot;
    pid_t manager = spawn(VELOUR_SERVICEMANAGER, {});
    while (access((sysroot.root() + "/dev/binder/servicemanager").c_str(), F_OK) != 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    pid_t hearth = spawn(VELOUR_HEARTHD, {"--folder", sysroot.root() + "/hearth"});
    while (service() == nullptr) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    g_client = new velour::ctrl::HearthAsyncService();
    benchmark::RunSpecifiedBenchmarks();
    delete g_client;
    for (pid_t pid : {hearth, manager}) {
        kill(pid, SIGTERM);
        waitpid(pid, nullptr, 0);
    }
    return 0;
}
