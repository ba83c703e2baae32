#include "core/deferred_executor/DeferredExecutor.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <new>

#include "core/context.h"
#include "core/deferred_executor/Executor.h"
#include "core/log.h"
#include "core/render-context.h"
#include "velour/entry_points.h"
#include "velour/utils/Configuration.h"

namespace velour::core {

std::atomic<bool> DeferredExecutor::_fallbackImmediateMode{false};

namespace {

constexpr std::uint32_t FRAME_POOLS = 6;
constexpr std::uint32_t FRAME_POOL_MIN = 0x10000;
constexpr std::uint32_t FRAME_POOL_MAX = 0x400000;
constexpr std::uint32_t OVERFLOW_LIMIT = 0x20000000;
constexpr std::uint32_t PRODUCTION_CAPACITY = 16384;
constexpr int SETTINGS_INTERVAL = 100;
constexpr int WARM_UP_FRAMES = 100;
constexpr int WARM_UP_DRAWS = 50;

std::atomic<int> g_executorNumber{0};

std::string threadId() {
    return std::to_string(syscall(SYS_gettid));
}

int settingInt(const char* key) {
    return static_cast<int>(utils::Configuration::global().getf(key));
}

void flushJob(void*) {
    hijack::glFlush();
}

struct MakeCurrentArgs {
    EGLDisplay display;
    EGLSurface draw;
    EGLSurface read;
    EGLContext context;
};

void releaseContextJob(void* args) {
    auto* a = static_cast<MakeCurrentArgs*>(args);
    hijack::eglMakeCurrent(a->display, a->draw, a->read, a->context);
}

struct SwapArgs {
    DeferredExecutor* executor;
    EGLDisplay display;
    EGLSurface surface;
};

}  // namespace

void DeferredExecutor::onFrameDataExhausted() {
    static std::atomic<bool> logged{false};
    if (!logged.exchange(true) && g_enabledLogSeverity >= LOG_ERROR)
        log("src/core/deferred_executor", __LINE__, "onFrameDataExhausted", LOG_ERROR,
            "Frame data exhausted: calls whose pointer data does not fit now run synchronously");
}

DeferredExecutor::DeferredExecutor(RenderContext* renderContext)
    : frameData(MemTracker<MemCategory::FrameData>::create<FrameDataPool>(
          FRAME_POOLS, FRAME_POOL_MIN, FRAME_POOL_MAX)),
      renderContext(renderContext) {
    if (!frameData) throw std::bad_alloc();
    // Test-only: a ceiling on the bytes of frame data, to play a device that
    // runs out of memory.
    if (double limit = utils::Configuration::global().getf("de.test.frame_data_limit"); limit >= 1)
        MemTracker<MemCategory::FrameData>::limit = static_cast<std::uint64_t>(limit);
    queue.resize(1, 128);
    char text[32];
    std::snprintf(text, sizeof(text), "DE #%d", g_executorNumber++);
    name = text;
    if (runtimeMode() != MODE_DEFERRED) queue.setInlineDrain(true);
}

void DeferredExecutor::start() {
    if (runtimeMode() != MODE_DEFERRED) return;
    thread = std::thread([this] { work(); });
}

namespace {

// exit() first runs the thread-local destructors of the thread that calls it,
// and only then the exit handlers, among them whatever the driver registered
// at any time, lazily on the worker too. A recording thread's calls still
// queued then would run on the worker while those handlers tear the driver
// down, or, replayed inline, on this thread after them; so the recording thread
// finishes them as it leaves, whether by exit() or by ending.
struct RecordingThreadGuard {
    bool armed = false;
    ~RecordingThreadGuard() {
        RenderContext* bound = tlglobals.renderContext;
        if (!armed || !bound) return;
        // Another thread may have destroyed the context meanwhile: only one
        // still in the map has an executor to finish. The lock keeps it there.
        std::lock_guard<std::mutex> lock(context.renderContextMutex);
        for (auto& entry : context.renderContexts) {
            RenderContext* renderContext = entry.second.renderContext.get();
            DeferredExecutor* executor = renderContext->executor.get();
            if (renderContext != bound || executor != tlglobals.executor) continue;
            if (executor && !executor->isShutDown()) executor->queue.flushAndWait();
            return;
        }
    }
};
thread_local RecordingThreadGuard recordingThreadGuard;

}  // namespace

void DeferredExecutor::guardRecordingThread() {
    recordingThreadGuard.armed = true;
}

DeferredExecutor::~DeferredExecutor() {
    shutDown();
    MemTracker<MemCategory::FrameData>::destroy(frameData);
}

void DeferredExecutor::shutDown() {
    if (stopped) return;
    stopped = true;
    // Everything recorded is replayed before the worker ends: jobs are never
    // dropped on a normal shutdown.
    queue.flushAndWait();
    queue.requestStop();
    if (thread.joinable()) thread.join();
}

void DeferredExecutor::work() {
    tlglobals.renderContext = renderContext;
    while (queue.processNext()) {
    }
}

void DeferredExecutor::releaseWorkerThread() {
    hijack::eglReleaseThread();
}

void DeferredExecutor::onDeferredFrameEnd(void* args) {
    auto* self = *static_cast<DeferredExecutor**>(args);
    self->frameData->releaseReadFrame();
    int expected = 1;
    if (self->deferredState.compare_exchange_strong(expected, 2))
        utils::Configuration::global().sets("orlo.thread.deferred.id", threadId());
}

void DeferredExecutor::submitEarlySlow() {
    if (earlySubmissionCount == 0 && renderStall >= 1)
        std::this_thread::sleep_for(std::chrono::milliseconds(renderStall));
    queue.record(&flushJob, nullptr);
    queue.submit(false, nullptr, nullptr);
    earlySubmissionCount++;
}

void DeferredExecutor::checkAndFreeTempData() {
    if (frameData->writeOverflowBytes() < OVERFLOW_LIMIT) return;
    frameData->nextWriteFrame();
    DeferredExecutor* self = this;
    queue.record(&onDeferredFrameEnd, self);
}

void DeferredExecutor::readSettings() {
    auto& settings = utils::Configuration::global();
    asyncSwap = settingInt("de.sync_after_swap") == 0;
    renderStall = settingInt("de.render_stall");
    earlySubmission = settingInt("de.early_submission");
    if (earlySubmission < 1) earlySubmission = 20;
    fastFence = settings.getb("de.fast_fence");
    if (settings.getb("de.fallback") && !_fallbackImmediateMode.load(std::memory_order_relaxed)) {
        raiseFallback();
        settings.sets("de.fallback", "");
    }
    if (deferredState != 0) {
        std::size_t wanted =
            static_cast<std::size_t>(std::max(settingInt("de.job_queue_count"), 1));
        if (wanted != queue.bufferCount()) {
            queue.flushAndWait();
            queue.resize(wanted, PRODUCTION_CAPACITY);
        }
    }
    if (g_enabledLogSeverity >= LOG_DEBUG) {
        Counters c = counters();
        VELOUR_LOG(LOG_DEBUG,
                   "%s: frame %d, jobs %llu, hand-overs %llu, drains %llu, frame data high-water "
                   "%u bytes, copied %llu bytes, buffer waits %llu us, drain time %llu us",
                   name.c_str(), c.frameCount, static_cast<unsigned long long>(c.jobsRecorded),
                   static_cast<unsigned long long>(c.handOvers),
                   static_cast<unsigned long long>(c.drains), c.frameDataHighWater,
                   static_cast<unsigned long long>(c.copiedBytes),
                   static_cast<unsigned long long>(c.bufferWaitNanoseconds / 1000),
                   static_cast<unsigned long long>(c.drainNanoseconds / 1000));
        logDrainCauses();
    }
}

void DeferredExecutor::logDrainCauses() const {
    // Every entry point that has drained so far, with its count: what to
    // look at first when a game runs slower deferred than direct.
    char text[1024];
    std::size_t used = 0;
    const JobQueue::Statistics& s = queue.stats();
    for (std::uint32_t i = 0; i <= JobQueue::DRAIN_BY_LAYER && used < sizeof(text); ++i) {
        if (s.drainsBy[i] == 0) continue;
        const char* cause = i == JobQueue::DRAIN_BY_LAYER ? "(layer)" : gles::entryPoints[i].name;
        int n = std::snprintf(text + used, sizeof(text) - used, "%s%s %u", used ? ", " : "", cause,
                              s.drainsBy[i]);
        if (n < 0) break;
        used += static_cast<std::size_t>(n);
    }
    if (used == 0) return;
    VELOUR_LOG(LOG_DEBUG, "%s: drains by entry point: %s", name.c_str(), text);
}

void DeferredExecutor::switchToImmediateMode(EGLDisplay display) {
    if (g_enabledLogSeverity >= LOG_BANNER)
        log("src/core/deferred_executor", 112, "swapBuffers", LOG_BANNER,
            "=======================================\n      Switching to Immediate mode\n"
            "=======================================");
    queue.record(&releaseContextJob,
                 MakeCurrentArgs{display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT});
    queue.flushAndWait();
    hijack::eglMakeCurrent(display, renderContext->drawSurface, renderContext->readSurface,
                           renderContext->context);
    setRuntimeMode(MODE_IMMEDIATE);
    utils::Configuration::global().sets("orlo.release.tag", "1");
}

EGLBoolean DeferredExecutor::swapBuffers(EGLDisplay display, EGLSurface surface) {
    if (deferredState == 0 && frameCount >= WARM_UP_FRAMES && drawCount >= WARM_UP_DRAWS) {
        deferredState = 1;
        utils::Configuration::global().sets("orlo.thread.render.id", threadId());
        queue.flushAndWait();
        queue.resize(std::max(settingInt("orlo.de.job_queue_count"), 1), PRODUCTION_CAPACITY);
    }
    frameCount++;
    drawCount = 0;
    earlySubmissionCount = 0;
    if (frameCount % SETTINGS_INTERVAL == 0) readSettings();

    if (runtimeMode() == MODE_DEFERRED && _fallbackImmediateMode.load(std::memory_order_relaxed))
        switchToImmediateMode(display);
    if (runtimeMode() == MODE_IMMEDIATE) return hijack::eglSwapBuffers(display, surface);

    frameData->nextWriteFrame();
    DeferredExecutor* self = this;
    bool waited;
    if (asyncSwap) {
        queue.record(&onDeferredFrameEnd, self);
        waited = queue.submit(true, display, surface);
    } else {
        queue.record(
            +[](void* args) {
                auto* a = static_cast<SwapArgs*>(args);
                onDeferredFrameEnd(&a->executor);
                hijack::eglSwapBuffers(a->display, a->surface);
            },
            SwapArgs{self, display, surface});
        waited = queue.submit(true, nullptr, nullptr);
    }
    // A game that has outrun the worker is pulled back to the present frame.
    if (waited && queue.bufferCount() >= 3) queue.flushAndWait();
    return EGL_TRUE;
}

void DeferredExecutor::adaptiveSubmission() {
    auto now = std::chrono::steady_clock::now();
    if (now - lastSubmission <= std::chrono::nanoseconds(19999999)) {
        double interval =
            std::chrono::duration<double, std::nano>(intervalEnd - intervalStart).count();
        long long wait = static_cast<long long>(interval * 1e-6 - 1.5);
        wait = std::min<long long>(wait, renderStall);
        if (wait > 0) std::this_thread::sleep_for(std::chrono::milliseconds(wait));
    }
    lastSubmission = std::chrono::steady_clock::now();
}

DeferredExecutor::Counters DeferredExecutor::counters() const {
    const JobQueue::Statistics& s = queue.stats();
    return Counters{s.jobsRecorded,
                    s.handOvers,
                    s.drains,
                    frameData->highWaterMark(),
                    frameCount,
                    deferredState.load(),
                    frameData->totalBytesWritten(),
                    s.bufferWaitNanoseconds + frameData->totalWaitNanoseconds(),
                    s.drainNanoseconds};
}

}  // namespace velour::core
