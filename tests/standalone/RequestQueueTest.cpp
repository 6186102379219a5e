#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "thread/RequestQueue.h"
#include "zvm/detail.h"

namespace {

using cmddistributor::WhenToDequeue;
using standalone::RequestQueue;
using zvm::TaskReference;
using namespace nmutil::prompt;  // the prompt values

class RecordingDelegate : public cmddistributor::PromiseDelegate {
public:
    void complete(const cmddistributor::IIPResult& result) noexcept override {
        status = result.getExecutionStatus();
    }
    void waitTillReady() override {}
    bool isPromiseDone() const override { return status >= 0; }
    int status = -1;
};

class RequestQueueTest : public testing::Test {
protected:
    foundation::msg_svc::exchange::IDType add(WhenToDequeue when, bool isReady = true,
                                              std::shared_ptr<RecordingDelegate> delegate = nullptr) {
        const auto id = zvm::detail::createID();
        queue_.enqueue(id, std::make_shared<cmddistributor::PackagedTaskCmdRequest>([] {}),
                       cmddistributor::RunOptions(when), std::move(delegate));
        if (isReady) queue_.setReadyToExecute(id);
        return id;
    }

    int looks_ = 0;
    bool isLooking_ = false;
    RequestQueue queue_{{[this] {
                             ++looks_;
                             isLooking_ = true;
                         },
                         [this] { isLooking_ = false; }},
                        3};
};

TEST_F(RequestQueueTest, takesARequestWhereItsWhenToDequeueAllowsIt) {
    const std::vector<InputRequester> prompts = {NO_PROMPT,    BASE_PROMPT,     DEBUG_PROMPT,
                                                 INPUT_PROMPT, KEYBOARD_PROMPT, PAUSE_PROMPT};
    const std::vector<std::pair<WhenToDequeue, std::string>> rows = {
        {WhenToDequeue::Default, ".x...."},        {WhenToDequeue::Ppe, "xxxxxx"},
        {WhenToDequeue::Pause, ".x...x"},          {WhenToDequeue::Prompt, ".xxxxx"},
        {WhenToDequeue::NonDebugPrompt, ".x.xxx"}, {WhenToDequeue::DebugPrompt, "..x..."},
        {WhenToDequeue::Idle, ".x...."},
    };
    for (const auto& [when, allowed] : rows) {
        for (std::size_t i = 0; i < prompts.size(); ++i) {
            const auto id = add(when);
            const auto taken = queue_.tryTake(prompts[i]);
            EXPECT_EQ(taken != nullptr, allowed[i] == 'x') << static_cast<int>(when) << " at prompt " << i;
            if (taken) {
                queue_.finish(*taken, cmddistributor::IIPResult(id, boost::none));
            } else {
                queue_.cancel(id, false);
            }
        }
    }
}

TEST_F(RequestQueueTest, keepsTheOrderOfArrivalAndPutsIdleWorkLast) {
    const auto idle = add(WhenToDequeue::Idle);
    const auto first = add(WhenToDequeue::Default);
    const auto waiting = add(WhenToDequeue::Default, false);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, first);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT), nullptr);
    queue_.setReadyToExecute(waiting);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, waiting);
    add(WhenToDequeue::DebugPrompt);  // cannot run here, and so keeps nothing from it
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, idle);
}

TEST_F(RequestQueueTest, refusesMoreThanItsCapacity) {
    for (int i = 0; i < 3; ++i) add(WhenToDequeue::Default);
    EXPECT_THROW(add(WhenToDequeue::Default), cmddistributor::RuntimeException);
    queue_.tryTake(BASE_PROMPT);
    EXPECT_NO_THROW(add(WhenToDequeue::Default));
}

TEST_F(RequestQueueTest, cancelsWhatWaitsAndInterruptsWhatRuns) {
    const auto delegate = std::make_shared<RecordingDelegate>();
    const auto waiting = add(WhenToDequeue::Default, true, delegate);
    int continued = 0;
    queue_.addContinuation(waiting, [&] { ++continued; });
    EXPECT_EQ(queue_.cancel(waiting, true), TaskReference::CancelStatus::Cancelled);
    EXPECT_EQ(delegate->status, nmutil::cmddistributor::EXECUTION_CANCELLED);
    EXPECT_EQ(continued, 1);

    const auto running = add(WhenToDequeue::Default);
    const auto taken = queue_.tryTake(BASE_PROMPT);
    queue_.beginCode(running);
    queue_.openCode();
    EXPECT_EQ(queue_.cancel(running, false), TaskReference::CancelStatus::AlreadyStarted);
    EXPECT_FALSE(queue_.takeInterrupt());
    EXPECT_EQ(queue_.cancel(running, true), TaskReference::CancelStatus::AlreadyStarted);
    EXPECT_TRUE(queue_.takeInterrupt());
    queue_.endCode();
    queue_.addContinuation(running, [&] { ++continued; });
    queue_.finish(*taken, cmddistributor::IIPResult(running, boost::none));
    EXPECT_EQ(continued, 2);
    EXPECT_EQ(queue_.cancel(running, true), TaskReference::CancelStatus::NotFound);
    queue_.addContinuation(running, [&] { ++continued; });
    EXPECT_EQ(continued, 3);
}

TEST_F(RequestQueueTest, keepsAnInterruptUntilTheCodeThatIsMeantTakesItOrEnds) {
    queue_.interrupt();
    const auto outer = add(WhenToDequeue::Default);
    const auto takenOuter = queue_.tryTake(BASE_PROMPT);
    queue_.interrupt();
    queue_.beginCode(outer);
    EXPECT_TRUE(isLooking_) << "signals go on until it has been taken";
    EXPECT_FALSE(queue_.takeInterrupt()) << "its code does not run yet";
    queue_.openCode();
    EXPECT_TRUE(queue_.takeInterrupt()) << "it was interrupted before its code began";
    EXPECT_FALSE(queue_.takeInterrupt() || isLooking_);
    queue_.returnInterrupt();
    EXPECT_TRUE(queue_.takeInterrupt()) << "Python dropped it";

    const auto inner = add(WhenToDequeue::Prompt);
    const auto takenInner = queue_.tryTake(INPUT_PROMPT);
    queue_.beginCode(inner);
    queue_.openCode();
    queue_.cancel(outer, true);
    EXPECT_FALSE(queue_.takeInterrupt()) << "it is meant for the code around this";
    queue_.cancel(inner, true);
    queue_.closeCode();
    EXPECT_FALSE(queue_.takeInterrupt()) << "its code has ended";
    queue_.endCode();
    EXPECT_FALSE(queue_.setInterruptEnabled(false) && queue_.takeInterrupt());
    queue_.setInterruptEnabled(true);
    EXPECT_TRUE(queue_.takeInterrupt());
    queue_.interrupt();
    EXPECT_TRUE(queue_.clearInterrupts());
    EXPECT_FALSE(queue_.takeInterrupt() || queue_.clearInterrupts() || isLooking_);
    queue_.interrupt();
    queue_.endCode();
    EXPECT_FALSE(isLooking_);
}

TEST_F(RequestQueueTest, reachesRunningCodeForRequestsThatMayRunWithinIt) {
    const auto early = add(WhenToDequeue::Ppe);
    EXPECT_EQ(looks_, 0);
    queue_.beginCode({});
    EXPECT_EQ(looks_, 1);
    add(WhenToDequeue::Prompt);
    EXPECT_EQ(looks_, 1);
    const auto second = add(WhenToDequeue::Ppe);
    EXPECT_EQ(looks_, 2);
    EXPECT_EQ(queue_.tryTake(NO_PROMPT)->id, early);
    EXPECT_TRUE(isLooking_);
    queue_.cancel(second, false);
    EXPECT_FALSE(isLooking_);
}

TEST_F(RequestQueueTest, takesTheSystemsOwnTasksFirst) {
    const auto user = zvm::detail::createID();
    queue_.enqueue(user,
                   std::make_shared<cmddistributor::EvalCmdRequest>(false, cmddistributor::IqmStreamID::User,
                                                                    nullptr, nullptr, u"", "plug-in"),
                   {}, nullptr);
    queue_.setReadyToExecute(user);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, user);
    const auto waiting = zvm::detail::createID();
    queue_.enqueue(waiting,
                   std::make_shared<cmddistributor::EvalCmdRequest>(false, cmddistributor::IqmStreamID::User,
                                                                    nullptr, nullptr, u"", "plug-in"),
                   {}, nullptr);
    queue_.setReadyToExecute(waiting);
    const auto task = add(WhenToDequeue::Default);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, task);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, waiting);
}

TEST_F(RequestQueueTest, wakesTheWaitingThreadForARequestAndTheEnd) {
    std::vector<std::string> seen;
    std::thread interpreter([&] {
        for (;;) {
            if (const auto request = queue_.take(BASE_PROMPT)) {
                seen.emplace_back("request");
                queue_.finish(*request, cmddistributor::IIPResult(request->id, boost::none));
            } else {
                seen.emplace_back(queue_.isStopped() ? "stopped" : "nothing");
                return;
            }
        }
    });
    const auto delegate = std::make_shared<RecordingDelegate>();
    std::atomic<bool> ended{false};
    queue_.addContinuation(add(WhenToDequeue::Default), [&] { ended = true; });
    while (!ended) std::this_thread::yield();
    add(WhenToDequeue::DebugPrompt, true, delegate);
    queue_.stop();
    interpreter.join();
    EXPECT_EQ(seen.front(), "request");
    EXPECT_EQ(seen.back(), "stopped");
    EXPECT_EQ(delegate->status, nmutil::cmddistributor::EXECUTION_CANCELLED);
    EXPECT_THROW(add(WhenToDequeue::Default), cmddistributor::RuntimeException);
}

}  // namespace
