#include <chrono>
#include <future>

#include <gtest/gtest.h>

#include "AsyncEvalServiceFixture.h"
#include "support/threads.h"
#include "v1/BatchOrder.h"

namespace connector::interpreter::v1 {
namespace {

class BatchOrderTest : public testing::Test {
protected:
    void deliver(BatchOrder::Place place, const std::string& text) {
        order_.deliver(std::move(place), [&] { delivered_ += text; });
    }

    BatchOrder order_;
    std::string delivered_;  ///< by one delivery at a time
};

TEST_F(BatchOrderTest, deliversInTheOrderInWhichTheBatchesWereMade) {
    std::vector<BatchOrder::Place> places(8);
    for (auto& place : places) place = order_.next();
    onThreads(8,
              [&](int i) { deliver(std::move(places.at(static_cast<std::size_t>(i))), std::to_string(i)); });
    EXPECT_EQ(delivered_, "01234567");
}

TEST_F(BatchOrderTest, doesNotWaitForABatchThatIsDropped) {
    auto first = std::make_unique<BatchOrder::Place>(order_.next());
    std::thread waiting([&, second = order_.next()]() mutable { deliver(std::move(second), "2"); });
    first.reset();
    waiting.join();
    EXPECT_EQ(delivered_, "2");
}

TEST_F(BatchOrderTest, doesNotWaitForItselfInADelivery) {
    const auto start = std::chrono::steady_clock::now();
    order_.deliver(order_.next(), [&] {
        deliver(order_.next(), "inner ");
        order_.await();
        delivered_ += "outer";
    });
    order_.await();
    EXPECT_EQ(delivered_, "inner outer");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
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
