#pragma once

#include <EGL/egl.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "core/deferred_executor/FrameDataPool.h"
#include "core/deferred_executor/JobQueue.h"
#include "core/deferred_executor/RawMemoryPool.h"
#include "velour/gl_types.h"

namespace velour::core {

class RenderContext;

// Deferred execution for one EGL context: the job queue, the worker that
// replays it, the frame boundary at the swap, and the one-way switch to
// immediate mode.
class DeferredExecutor {
  public:
    // What a person reads to see how deferral behaves.
    struct Counters {
        std::uint64_t jobsRecorded;
        std::uint64_t handOvers;
        std::uint64_t drains;
        std::uint32_t frameDataHighWater;
        int frameCount;
        int deferredState;
        // Where the game's thread spends time beyond recording: bytes copied
        // into frame data, waits for a free buffer or frame, and drains.
        std::uint64_t copiedBytes;
        std::uint64_t bufferWaitNanoseconds;
        std::uint64_t drainNanoseconds;
    };

    explicit DeferredExecutor(RenderContext* renderContext);
    virtual ~DeferredExecutor();
    DeferredExecutor(const DeferredExecutor&) = delete;
    DeferredExecutor& operator=(const DeferredExecutor&) = delete;

    // Frame boundary, on the game's thread.
    EGLBoolean swapBuffers(EGLDisplay display, EGLSurface surface);
    // Called by every counted draw before it records.
    void submitEarly() {
        if (earlySubmission < 1) return;
        if (drawCount % earlySubmission == earlySubmission - 1) submitEarlySlow();
    }
    // Called after a counted draw was recorded.
    void countDraw() {
        checkAndFreeTempData();
        drawCount++;
    }
    void checkAndFreeTempData();
    void adaptiveSubmission();
    Counters counters() const;
    // The queue has been drained for good and takes no more work.
    bool isShutDown() const { return stopped; }
    // Has the calling thread finish its recorded calls when it ends or calls
    // exit(); called where a thread takes an executor.
    static void guardRecordingThread();
    bool fastFenceEnabled() const { return fastFence; }

    // Raised by any recording thread, read at the swap; a late sighting only
    // costs a frame.
    static std::atomic<bool> _fallbackImmediateMode;
    static void raiseFallback() { _fallbackImmediateMode.store(true, std::memory_order_relaxed); }
    // A recorded call's pointer data could not be had: the wrapper runs that
    // call synchronously against the game's own memory. The process stays
    // deferred: the switch to immediate mode would hand the driver the fence
    // handles the game holds, which only this layer knows. Logged once.
    __attribute__((noinline, cold)) static void onFrameDataExhausted();

    // The last copy of a pixel pack buffer made after an asynchronous
    // glReadPixels, kept for the game's map of that buffer.
    struct ReadbackCache {
        void* data = nullptr;    // a block of rawMemoryPools, kept between frames
        std::uint32_t size = 0;  // bytes of data
        GLuint buffer = 0;       // the pack buffer that was copied
        bool valid = false;      // data holds a copy that no map has consumed
        std::mutex mutex;        // the worker copies, the game's thread maps
        GLsync fence = nullptr;  // set after the copy's map

        // Flushes and waits up to a second; true once the GPU has passed
        // `fence`. The worker's copy and the game's map both wait this way.
        static bool fencePassed(GLsync fence);
    };

    // Another context shares this one's objects: their state (buffer stores,
    // link results) may change where this executor cannot see it. Set by the
    // thread that creates the sharing context.
    std::atomic<bool> objectsShared{false};

    JobQueue queue;
    FrameDataPool* frameData;
    ReadbackCache readbackCache;
    RawMemoryPoolMap rawMemoryPools;
    RenderContext* renderContext;

    // The GL_UNPACK_* pixel-store values as the game last set them; the game's
    // thread's alone, like the stream they describe.
    int unpackSkipImages = 0;   // GL_UNPACK_SKIP_IMAGES
    int unpackImageHeight = 0;  // GL_UNPACK_IMAGE_HEIGHT
    int unpackRowLength = 0;    // GL_UNPACK_ROW_LENGTH
    int unpackSkipRows = 0;     // GL_UNPACK_SKIP_ROWS
    int unpackSkipPixels = 0;   // GL_UNPACK_SKIP_PIXELS
    int unpackAlignment = 4;    // GL_UNPACK_ALIGNMENT
    // The field that keeps an unpack pname, or null for any other pname.
    int* unpackField(GLenum pname) {
        switch (pname) {
            case 0x806D:
                return &unpackSkipImages;
            case 0x806E:
                return &unpackImageHeight;
            case 0x0CF2:
                return &unpackRowLength;
            case 0x0CF3:
                return &unpackSkipRows;
            case 0x0CF4:
                return &unpackSkipPixels;
            case 0x0CF5:
                return &unpackAlignment;
            default:
                return nullptr;
        }
    }
    // What glGetIntegerv answers for an unpack pname; false for any other.
    bool unpackParameter(GLenum pname, GLint* value) {
        const int* field = unpackField(pname);
        if (!field) return false;
        *value = *field;
        return true;
    }

  protected:
    // Starts the worker in deferred mode; the most derived constructor calls
    // it once the handlers exist.
    void start();
    virtual void work();
    // Drains and ends the worker; the destructors of derived classes call it
    // before tearing down what jobs may still use.
    void shutDown();
    static void releaseWorkerThread();

  private:
    static void onDeferredFrameEnd(void* args);
    void submitEarlySlow();
    void readSettings();
    void logDrainCauses() const;
    void switchToImmediateMode(EGLDisplay display);

    std::thread thread;
    int drawCount = 0;
    int frameCount = 0;
    int earlySubmission = 20;
    int earlySubmissionCount = 0;
    int renderStall = 0;
    std::atomic<int> deferredState{0};
    bool asyncSwap = false;
    bool fastFence = false;
    bool stopped = false;
    std::string name;
    std::chrono::steady_clock::time_point intervalStart{}, intervalEnd{}, lastSubmission{};
};

}  // namespace velour::core
