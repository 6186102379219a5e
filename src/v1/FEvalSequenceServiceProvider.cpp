#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "connector/Promise.h"
#include "connector/ServiceFramework.h"
#include "connector/ServiceStopped.h"
#include "connector/WorkerPool.h"
#include "connector/common/ContextState.h"
#include "connector/common/requests.h"
#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/FEval.h"
#include "v1/log.h"
#include "v1/responseRoom.h"
#include "v1/whenToDequeue.h"

namespace connector::interpreter::v1 {

namespace {

using connector::container::SequenceContainer;
using MessagePtr = std::unique_ptr<connector::Message>;
using MessageFuture = connector::Future<MessagePtr>;

constexpr std::size_t mostThreads = 16;  // for the sequences that wait for the same state

bool hasHotlinks(const MessagePtr& message) {
    const auto* const feval = dynamic_cast<const FEval*>(message.get());
    return feval && feval->hotlinks;
}

/// What all requests of a sequence wait for, if that is the same.
cmddistributor::WhenToDequeue whenToRun(const SequenceContainer& sequence) {
    using cmddistributor::WhenToDequeue;
    const auto whenToRunOne = [](const MessagePtr& message) {
        const auto* const feval = dynamic_cast<const FEval*>(message.get());
        return feval ? whenToDequeue(feval->dequeMode) : WhenToDequeue::Default;
    };
    if (sequence.messages.empty()) return WhenToDequeue::Default;
    const WhenToDequeue first = whenToRunOne(sequence.messages.front());
    const bool areAlike =
        std::all_of(sequence.messages.begin(), sequence.messages.end(),
                    [&](const MessagePtr& message) { return whenToRunOne(message) == first; });
    return areAlike ? first : WhenToDequeue::Default;
}

// A request begins when the response before it has come. An interrupt is meant for those that have begun, so
// what comes after one is not older than it. The first one began with the sequence.
void stampAnew(common::ContextState& context) {
    if (context.has("requestStartTime")) common::stampArrival(context);
}

/// One call under way. It is held by the task or the continuation that goes on with it: when that is
/// destroyed without having run, the promise goes too and fails the call.
///
/// Threads: one at a time, each handing over to the next.
class FEvalSequence : public std::enable_shared_from_this<FEvalSequence> {
public:
    /// Takes the messages out of `request`.
    FEvalSequence(SequenceContainer& request, std::shared_ptr<WorkerPool> workers)
        : workers_(std::move(workers)), uuid_(request.uuid()), requests_(std::move(request.messages)) {
        // Clear flags go before set ones, and what is no FEval may stand anywhere: "before" is true for it in
        // both directions. No algorithm that sorts may be given such an order; dividing the list in two needs
        // none, and leaves those among the clear ones.
        std::stable_partition(requests_.begin(), requests_.end(),
                              [](const MessagePtr& message) { return !hasHotlinks(message); });
        responses_.reserve(requests_.size());
    }

    MessageFuture begin() {
        MessageFuture future = promise_.getFuture();
        goOn();
        return future;
    }

private:
    void goOn() {
        try {
            submit();
        } catch (...) {  // memory is short
            end(std::current_exception());
        }
    }

    void submit() {
        switch (workers_->submit({.run = [self = shared_from_this()] { self->run(); }})) {
            case WorkerPool::Outcome::Accepted:
                return;
            case WorkerPool::Outcome::Full:  // there is no bound but that of threads
                return end(std::make_exception_ptr(
                    std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again))));
            case WorkerPool::Outcome::Closed:
                return end(std::make_exception_ptr(ServiceStopped()));
        }
    }

    // A response that is there already is taken in this loop, so a long sequence needs no deep stack.
    void run() {
        try {
            if (awaited_.valid()) accept(std::exchange(awaited_, MessageFuture()));
            while (next_ < requests_.size()) {
                MessageFuture response = deliverNext();
                // As every operation does, isReady throws "Future state isn't valid!" for one that is not.
                if (!response.isReady()) {
                    await(std::move(response));
                    return;  // another worker may be running this already
                }
                accept(std::move(response));
            }
        } catch (...) {
            end(std::current_exception());
            return;
        }
        end(nullptr);
    }

    MessageFuture deliverNext() {
        if (workers_->isClosed()) throw ServiceStopped();
        const auto framework = delivery_.framework.lock();
        if (!framework) throw std::runtime_error("There is no service framework to deliver to.");
        if (next_ > 0) stampAnew(*context_);
        MessagePtr& request = requests_[next_++];
        const auto* const named = dynamic_cast<const connector::common::v1::Message*>(request.get());
        requestUuid_ = named ? named->uuid() : std::string();
        return framework->deliver(delivery_.address, std::move(request), context_);
    }

    // The thread that brings the response only hands over: it may be one that must not block, or the
    // interpreter's, on which a delivery to the interpreter would wait for itself.
    void await(MessageFuture response) {
        response.then([self = shared_from_this()](MessageFuture arrived) {
            self->awaited_ = std::move(arrived);
            self->goOn();
        });
    }

    void accept(MessageFuture future) {
        MessagePtr response = future.get();
        if (auto* const named = dynamic_cast<connector::common::v1::Message*>(response.get())) {
            named->setUuid(requestUuid_);
        }
        takeRoom(room_, response.get());
        responses_.push_back(std::move(response));
    }

    // Resolving runs the continuation of the caller, who alone knows what its exceptions mean.
    void end(std::exception_ptr failure) {
        try {
            if (failure) {
                promise_.setException(std::move(failure));
                return;
            }
            auto answer = std::make_unique<SequenceContainer>(uuid_);
            answer->messages = std::move(responses_);
            promise_.setValue(std::move(answer));
        } catch (const std::exception& error) {
            log().error(std::string("Handing over the end of a sequence: ") + error.what());
        } catch (...) {
            log().error("Handing over the end of a sequence: unknown exception");
        }
    }

    const std::shared_ptr<WorkerPool> workers_;
    const connector::Delivery delivery_ = connector::CurrentDelivery::get();
    const std::shared_ptr<connector::common::ContextState> context_ =
        connector::common::ContextState::current();
    const std::string uuid_;
    connector::Promise<MessagePtr> promise_;
    std::vector<MessagePtr> requests_;
    std::vector<MessagePtr> responses_;
    std::size_t next_ = 0;
    std::size_t room_ = FEvalSequenceServiceProvider::maxText;
    std::string requestUuid_;  ///< of the request whose response comes next
    MessageFuture awaited_;
};

}  // namespace

FEvalSequenceServiceProvider::FEvalSequenceServiceProvider() {
    for (auto& workers : workers_) {
        workers = std::make_shared<WorkerPool>(mostThreads, WorkerPool::unlimited);
    }
}

FEvalSequenceServiceProvider::~FEvalSequenceServiceProvider() { doStop(); }

MessageFuture FEvalSequenceServiceProvider::handle(std::unique_ptr<SequenceContainer>&& message) {
    const auto request = std::move(message);
    const auto& workers = workers_.at(static_cast<std::size_t>(whenToRun(*request)));
    return std::make_shared<FEvalSequence>(*request, workers)->begin();
}

void FEvalSequenceServiceProvider::doStart() {
    for (const auto& workers : workers_) workers->reopen();
}

void FEvalSequenceServiceProvider::doStop() {
    for (const auto& workers : workers_) workers->finish();
}

}  // namespace connector::interpreter::v1
