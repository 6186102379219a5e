#pragma once

#include <gtest/gtest.h>

#include "connector/common/ContextState.h"
#include "connector/interpreter/v1/AsyncEvalService.h"
#include "support/FakeHost.h"
#include "support/FakeMessageService.h"

namespace connector::interpreter::v1 {

/// A buffer in which no batch becomes due by time.
class TimelessBuffer : public CoalescingTextBuffer {
public:
    ~TimelessBuffer() override { stop(); }

private:
    TimePoint getCurrentTime() override { return {}; }
};

struct ManualGate : common::RequestGate {
    std::atomic<bool> open{true};
    bool isOpen() override { return open; }
};

struct ManualShadow : shadow_files::v1::ShadowService {
    std::atomic<bool> ready{true};
    bool isReady() const override { return ready; }
};

/// Keeps what it is told; its futures have failed, and nobody asks.
struct RecordingTracker : common::RequestTracker {
    using Context = std::shared_ptr<common::ContextState>;
    std::vector<std::string> calls;

    Future<void> requestStarted(const std::string& clientType, const Context&) override {
        return record("start " + clientType);
    }
    Future<void> requestEnded(const std::string& clientType, const Context&) override {
        return record("end " + clientType);
    }

private:
    Future<void> record(std::string call) {
        calls.push_back(std::move(call));
        return makeFailedFuture<void>(std::make_exception_ptr(std::runtime_error("not tracked")));
    }
};

class AsyncEvalServiceFixture : public testing::Test {
protected:
    using Lines = std::vector<std::string>;

    static constexpr const char* success = R"(/eval/response/completion "Done: success")";
    static constexpr const char* failure = R"(/eval/response/completion "Done: failure")";

    std::shared_ptr<AsyncEvalService> create() {
        return AsyncEvalService::create({host_.zvm, messages_, shadow_, gate_, tracker_}, buffer_);
    }
    void request(const std::string& body) { messages_->send("/eval/request", body, context_); }
    /// Sends a request and runs what it queues.
    void run(const std::string& body) {
        request(body);
        host_.distributor->runAll();
    }
    Lines published() const { return messages_->published(); }
    bool isListening() const { return host_.events->subscriptionCount<nmutil::io::CLCEvent>() > 0; }

    /// The handle that the next context to be kept is given.
    static std::uint64_t nextHandle() {
        const auto handle = zvm_common::pushContextState(std::make_shared<common::ContextState>());
        zvm_common::removeContextState(handle);
        return handle + 1;
    }

    fake::FakeHost host_;
    const std::shared_ptr<fake::FakeMessageService> messages_ = std::make_shared<fake::FakeMessageService>();
    std::shared_ptr<ManualShadow> shadow_;
    std::shared_ptr<ManualGate> gate_ = std::make_shared<ManualGate>();
    std::shared_ptr<RecordingTracker> tracker_ = std::make_shared<RecordingTracker>();
    std::shared_ptr<CoalescingTextBuffer> buffer_ = std::make_shared<TimelessBuffer>();
    std::shared_ptr<common::ContextState> context_ = std::make_shared<common::ContextState>();
    std::shared_ptr<AsyncEvalService> service_ = create();
};

}  // namespace connector::interpreter::v1
