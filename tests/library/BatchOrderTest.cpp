#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "AsyncEvalServiceFixture.h"
#include "v1/BatchOrder.h"

namespace connector::interpreter::v1 {
namespace {

using connector::common::DataBuffer;
using nmutil::io::STANDARD_OUTPUT;

class BatchOrderTest : public testing::Test {
protected:
    using Callback = CoalescingTextBuffer::Callback;

    static void deliver(const Callback& callback, const std::string& text) {
        callback(DataBuffer(text), STANDARD_OUTPUT);
    }

    std::string delivered_;  ///< by one delivery at a time
    std::function<void(const std::string&)> onDelivery_;
    BatchOrder order_{[this](DataBuffer&& batch, nmutil::io::StreamTypeEnum) {
        if (onDelivery_) onDelivery_(std::string(batch.view()));
        delivered_ += batch.view();
    }};
    const Callback kept_ = order_.callback();
};

TEST_F(BatchOrderTest, deliversInTheOrderInWhichTheCallbackWasCopied) {
    std::vector<Callback> copies(8);
    for (auto& copy : copies) copy = kept_;
    std::vector<std::thread> threads;
    for (std::size_t i = copies.size(); i-- > 0;) {
        threads.emplace_back([callback = std::move(copies.at(i)), i]() mutable {
            deliver(callback, std::to_string(i));
            callback = nullptr;
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(delivered_, "01234567");
}

TEST_F(BatchOrderTest, doesNotWaitForACopyThatIsGone) {
    auto first = std::make_unique<Callback>(kept_);
    const Callback second = kept_;
    std::thread waiting([&] { deliver(second, "2"); });
    first.reset();
    waiting.join();
    EXPECT_EQ(delivered_, "2");
}

TEST_F(BatchOrderTest, doesNotWaitForItselfInADelivery) {
    onDelivery_ = [this](const std::string& text) {
        if (text != "outer ") return;
        deliver(Callback(kept_), "inner ");
        order_.await();
    };
    const auto start = std::chrono::steady_clock::now();
    deliver(Callback(kept_), "outer ");
    order_.await();
    EXPECT_EQ(delivered_, "inner outer ");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(BatchOrderTest, awaitsWhatIsBeingDelivered) {
    std::promise<void> hasBegun;
    onDelivery_ = [&](const std::string&) { hasBegun.set_value(); };
    std::thread other([&] { deliver(Callback(kept_), "text"); });
    hasBegun.get_future().wait();
    order_.await();
    EXPECT_EQ(delivered_, "text");
    other.join();
}

TEST_F(BatchOrderTest, waitsOnceForADeliveryThatHangs) {
    std::promise<void> hasBegun, mayEnd;
    onDelivery_ = [&](const std::string& text) {
        if (text != "hangs ") return;
        hasBegun.set_value();
        mayEnd.get_future().wait();
    };
    std::thread hanging([&] { deliver(Callback(kept_), "hangs "); });
    hasBegun.get_future().wait();
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) {
        deliver(Callback(kept_), std::to_string(i));
        order_.await();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_EQ(delivered_, "0123456789");
    mayEnd.set_value();
    hanging.join();
}

// The buffer's own thread is in the middle of publishing a batch when the code ends.
class OvertakingTest : public AsyncEvalServiceFixture {};

TEST_F(OvertakingTest, letsNoCompletionOvertakeABatch) {
    buffer_ = std::make_shared<CoalescingTextBuffer>();
    service_ = create();
    std::promise<void> isPublishing;
    host_.onEvaluate = [&](const std::u16string&) {
        host_.print(u"text");
        isPublishing.get_future().wait();
    };
    messages_->onPublish = [&](const std::string& channel) {
        if (!channel.ends_with("output")) return;
        isPublishing.set_value();
        // Long enough for a completion that does not wait.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
        while (published().empty() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
    };
    run(R"("x")");
    EXPECT_EQ(published(), (Lines{R"(/eval/response/output "text")", success}));
}

}  // namespace
}  // namespace connector::interpreter::v1
