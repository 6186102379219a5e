#include <thread>

#include <gtest/gtest.h>

#include "thread/RequestQueue.h"
#include "zvm/detail.h"

namespace {

using cmddistributor::WhenToDequeue;
using standalone::RequestQueue;
using namespace nmutil::prompt;  // the prompt values

class RequestQueueTest : public testing::Test {
protected:
    using ID = foundation::msg_svc::exchange::IDType;

    ID add(WhenToDequeue when, bool isReady = true,
           std::shared_ptr<cmddistributor::CmdRequest> request =
               std::make_shared<cmddistributor::PackagedTaskCmdRequest>([] {})) {
        const ID id = zvm::detail::createID();
        queue_.enqueue(id, std::move(request), cmddistributor::RunOptions(when), nullptr);
        if (isReady) queue_.setReadyToExecute(id);
        return id;
    }

    bool isLooking_ = false;
    RequestQueue queue_{{[this] { isLooking_ = true; }, [this] { isLooking_ = false; }}, 3};
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
        std::string taken;
        for (const InputRequester prompt : prompts) {
            const ID id = add(when);
            taken += queue_.tryTake(prompt) ? 'x' : '.';
            queue_.cancel(id, false);
        }
        EXPECT_EQ(taken, allowed) << static_cast<int>(when);
    }
}

TEST_F(RequestQueueTest, takesTheSystemsOwnTasksFirstThenWhatCameFirstAndWorkForIdleTimesLast) {
    const ID idle = add(WhenToDequeue::Idle);
    const ID code = add(WhenToDequeue::Default, true,
                        std::make_shared<cmddistributor::EvalCmdRequest>(
                            false, cmddistributor::IqmStreamID::User, nullptr, nullptr, u"", "plug-in"));
    const ID task = add(WhenToDequeue::Default);
    EXPECT_THROW(add(WhenToDequeue::Default), cmddistributor::RuntimeException) << "the queue is full";
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, task);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, code);
    const ID waiting = add(WhenToDequeue::Default, false);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT), nullptr);
    queue_.setReadyToExecute(waiting);
    const ID last = add(WhenToDequeue::Default);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, waiting);
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, last);
    add(WhenToDequeue::DebugPrompt);  // cannot run here, and so keeps nothing from it
    EXPECT_EQ(queue_.tryTake(BASE_PROMPT)->id, idle);
}

TEST_F(RequestQueueTest, keepsAnInterruptUntilTheCodeThatIsMeantTakesItOrEnds) {
    queue_.interrupt();
    const ID outer = add(WhenToDequeue::Default);
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

    const ID inner = add(WhenToDequeue::Prompt);
    const auto takenInner = queue_.tryTake(INPUT_PROMPT);
    queue_.beginCode(inner);
    queue_.openCode();
    queue_.cancel(inner, false);
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
    add(WhenToDequeue::Prompt);
    EXPECT_FALSE(isLooking_);
    const ID within = add(WhenToDequeue::Ppe);
    EXPECT_TRUE(isLooking_) << "it may run within this code";
    queue_.cancel(within, false);
    EXPECT_FALSE(isLooking_);
    queue_.interrupt();
    queue_.endCode();
    EXPECT_FALSE(isLooking_);
}

TEST_F(RequestQueueTest, endsWhatWaitsAndRefusesWhatComesWhenItStops) {
    bool hasEnded = false;
    queue_.addContinuation(add(WhenToDequeue::DebugPrompt), [&] { hasEnded = true; });
    std::jthread interpreter([&] { EXPECT_EQ(queue_.take(BASE_PROMPT), nullptr); });
    queue_.stop();
    EXPECT_TRUE(hasEnded);
    EXPECT_THROW(add(WhenToDequeue::Default), cmddistributor::RuntimeException);
}

}  // namespace
