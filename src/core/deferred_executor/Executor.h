#pragma once

#include <tuple>

#include "core/deferred_executor/ClientGLHandler.h"
#include "core/deferred_executor/DeferredExecutor.h"
#include "core/deferred_executor/FenceSync.h"
#include "core/deferred_executor/Handlers.h"
#include "core/deferred_executor/ObjectHandlers.h"

namespace velour::core {

// The executor with its handlers, each reached by its fixed place in the
// tuple at no cost.
template <typename... Handlers>
class CustomDeferredExecutor : public DeferredExecutor {
    using Tracker = MemTracker<MemCategory::Executor>;

  public:
    explicit CustomDeferredExecutor(RenderContext* renderContext)
        : DeferredExecutor(renderContext),
          handlers(Tracker::unique_ptr<Handlers>(Tracker::create<Handlers>(this))...) {}

    ~CustomDeferredExecutor() override {
        // Jobs may still refer to the handlers: replay them before the
        // handlers go.
        shutDown();
        destroyHandlers();
    }

    template <typename H>
    H& handler() {
        return *std::get<Tracker::unique_ptr<H>>(handlers);
    }

  protected:
    void work() override {
        DeferredExecutor::work();
        destroyHandlers();
        // Let go of the context so that its destruction is not held up by a
        // thread that no longer exists.
        releaseWorkerThread();
    }

  private:
    void destroyHandlers() {
        std::apply([](auto&... h) { (h.reset(), ...); }, handlers);
    }

    std::tuple<Tracker::unique_ptr<Handlers>...> handlers;
};

class Executor final
    : public CustomDeferredExecutor<ErrorHandler, GLNamesHandler, ProgramAndShaderHandler,
                                    GLFenceSyncHandler, EGLSyncKHRHandler, ClientGLHandler,
                                    TextureHandler, QueryHandler, EglTimeHandler, MiscHandler> {
  public:
    // The worker starts, and ends, while the object is whole: it makes a
    // virtual call at its start.
    explicit Executor(RenderContext* renderContext) : CustomDeferredExecutor(renderContext) {
        start();
    }
    ~Executor() override { shutDown(); }
};

}  // namespace velour::core
