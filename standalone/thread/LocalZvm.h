#pragma once

#include <chrono>
#include <memory>
#include <utility>

#include "thread/Interrupts.h"
#include "thread/RequestQueue.h"
#include "zvm/ZVM.h"

namespace standalone {

/// The interpreter as requests see it. It may outlive the interpreter, and is unavailable then.
///
/// Threads: any.
class LocalZvm : public zvm::ZVM, public zvm::Session {
public:
    explicit LocalZvm(std::shared_ptr<RequestQueue> queue) : queue_(std::move(queue)) {}

    zvm::ZvmID id() const override { return 0; }
    bool isAvailable() const override { return !queue_->isStopped(); }
    bool isActive() const override { return isAvailable(); }
    /// Blocks: for half a second at most, until code that waits at a prompt has taken the interrupt.
    void interrupt() override {
        queue_->interrupt();
        if (!Interrupts::isSignalThread()) queue_->awaitInterrupted(std::chrono::milliseconds(500));
    }
    void interrupt(const foundation::msg_svc::exchange::IDType& request) override {
        queue_->cancel(request, true);
    }
    std::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return queue_; }

private:
    const std::shared_ptr<RequestQueue> queue_;
};

}  // namespace standalone
