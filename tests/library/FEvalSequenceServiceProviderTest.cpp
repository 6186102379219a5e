#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <typeindex>

#include <gtest/gtest.h>

#include "connector/Promise.h"
#include "connector/ServiceFramework.h"
#include "connector/container/SequenceContainer.h"
#include "connector/interpreter/v1/FEval.h"
#include "connector/interpreter/v1/FEvalResponse.h"
#include "connector/interpreter/v1/FEvalSequenceServiceProvider.h"
#include "connector/interpreter/v1/Interrupt.h"
#include "support/threads.h"
#include "support/thrownText.h"

namespace connector::interpreter::v1 {
namespace {

using connector::container::SequenceContainer;
using MessagePtr = std::unique_ptr<connector::Message>;
using MessageFuture = connector::Future<MessagePtr>;
using MessagePromise = connector::Promise<MessagePtr>;

constexpr std::chrono::seconds failSafe{60};

/// Whether this is a thread that brings responses. Such a thread may not be used for deliveries.
thread_local bool isResolver = false;

std::string uuidOf(const MessagePtr& message) {
    const auto* const named = dynamic_cast<const connector::common::v1::Message*>(message.get());
    return named ? named->uuid() : "none";
}

/// Delivers to a function, one message at a time, and keeps what was delivered.
class ScriptedFramework : public connector::ServiceFramework {
public:
    std::function<MessageFuture(MessagePtr)> onDeliver = [](MessagePtr) { return answered(""); };
    std::string delivered;  ///< the uuids
    connector::Address address;
    std::shared_ptr<connector::common::ContextState> context;

    static MessageFuture answered(std::string uuid) {
        return connector::makeReadyFuture<MessagePtr>(std::make_unique<FEvalResponse>(std::move(uuid)));
    }
    void registerService(const connector::Address&, std::vector<std::type_index>,
                         std::shared_ptr<connector::ServiceProvider>) override {}
    void unregisterService(const std::shared_ptr<connector::ServiceProvider>&) override {}
    MessageFuture deliver(const connector::Address& to, MessagePtr message,
                          std::shared_ptr<connector::common::ContextState> with) override {
        delivered += uuidOf(message);
        address = to;
        context = std::move(with);
        return onDeliver(std::move(message));
    }
};

class FEvalSequenceServiceProviderTest : public testing::Test {
protected:
    FEvalSequenceServiceProviderTest() { provider_->start(); }
    ~FEvalSequenceServiceProviderTest() override {
        for (std::thread& thread : resolvers_) thread.join();
    }

    /// One message a letter: upper case for FEvals, followed by "*" with hotlinks; else others.
    static std::unique_ptr<SequenceContainer> sequence(const std::string& letters) {
        auto result = std::make_unique<SequenceContainer>("sequence");
        for (const char letter : letters) {
            if (letter == '*') {
                dynamic_cast<FEval&>(*result->messages.back()).hotlinks = true;
            } else if (letter < 'a') {
                result->messages.push_back(std::make_unique<FEval>(std::string(1, letter)));
            } else {
                result->messages.push_back(std::make_unique<Interrupt>(std::string(1, letter)));
            }
        }
        return result;
    }

    MessageFuture handle(MessagePtr request) {
        const connector::common::CurrentContext context(context_);
        const connector::CurrentDelivery delivery({framework_, {"here"}});
        connector::ServiceProvider& service = *provider_;
        return service.handle(std::move(request));
    }
    static std::unique_ptr<SequenceContainer> responses(MessageFuture future) {
        EXPECT_TRUE(future.waitFor(failSafe));
        auto message = future.get();
        return std::unique_ptr<SequenceContainer>(&dynamic_cast<SequenceContainer&>(*message.release()));
    }
    static std::string failureOf(MessageFuture future) {
        EXPECT_TRUE(future.waitFor(failSafe));
        return thrownText([&] { future.get(); });
    }
    static std::string uuidsOf(const SequenceContainer& container) {
        std::string all;
        for (const MessagePtr& message : container.messages) all += uuidOf(message);
        return all;
    }

    /// A future that another thread resolves, sooner or later.
    MessageFuture later(std::function<void(MessagePromise&)> resolve) {
        MessagePromise promise;
        MessageFuture future = promise.getFuture();
        resolvers_.emplace_back([resolve = std::move(resolve), promise = std::move(promise)]() mutable {
            isResolver = true;
            resolve(promise);
        });
        return future;
    }

    const std::shared_ptr<connector::common::ContextState> context_ =
        std::make_shared<connector::common::ContextState>();
    std::shared_ptr<ScriptedFramework> framework_ = std::make_shared<ScriptedFramework>();
    std::shared_ptr<FEvalSequenceServiceProvider> provider_ =
        std::make_shared<FEvalSequenceServiceProvider>();
    std::vector<std::thread> resolvers_;
};

TEST_F(FEvalSequenceServiceProviderTest, runsClearFlagsFirstAndAnswersInThatOrder) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""}, {"A*BC*D", "BDAC"}, {"A*xBy", "xByA"}, {"xA*yB*z", "xyzAB"}};
    for (const auto& [given, expected] : cases) {
        framework_->delivered.clear();
        const auto answer = responses(handle(sequence(given)));
        EXPECT_EQ(framework_->delivered, expected) << given;
        EXPECT_EQ(uuidsOf(*answer), expected) << given;
        EXPECT_EQ(answer->uuid(), "sequence");
    }
    EXPECT_EQ(framework_->address, connector::Address{"here"});
    EXPECT_EQ(framework_->context, context_);
}

TEST_F(FEvalSequenceServiceProviderTest, runsEveryRequestAndLeavesOutTheResultsThatDoNotFit) {
    constexpr std::size_t size = FEvalSequenceServiceProvider::maxText / 4;
    framework_->onDeliver = [](MessagePtr request) {
        auto response = std::make_unique<FEvalResponse>("not set");
        if (uuidOf(request) == "E") response->faults.emplace_back(std::string(size, 'x'));
        response->results.assign(uuidOf(request) == "F" ? 10 : size - 10, u'1');
        return connector::makeReadyFuture<MessagePtr>(std::move(response));
    };
    std::string kept;
    const auto answer = responses(handle(sequence("ABCDEF")));
    for (const auto& message : answer->messages) {
        const auto& response = dynamic_cast<const FEvalResponse&>(*message);
        EXPECT_EQ(response.isError, response.results == u"[]" && response.faults.size() == 1)
            << uuidOf(message);
        if (!response.isError) kept += uuidOf(message);
    }
    EXPECT_EQ(framework_->delivered, "ABCDEF");
    EXPECT_EQ(kept, "ABCDF");
}

TEST_F(FEvalSequenceServiceProviderTest, beginsEachRequestAfterTheFirstAnew) {
    constexpr const char* key = "requestStartTime";
    std::vector<bool> isOld;
    framework_->onDeliver = [&](MessagePtr) {
        isOld.push_back(context_->getOr<std::uint64_t>(key, 0) == 1);
        context_->set(key, std::uint64_t{1});
        return connector::makeReadyFuture<MessagePtr>(nullptr);
    };
    context_->set(key, std::uint64_t{1});
    responses(handle(sequence("ABC")));
    EXPECT_EQ(isOld, (std::vector{true, false, false}));
}

TEST_F(FEvalSequenceServiceProviderTest, isNotHeldUpBySequencesThatWaitForSomethingElse) {
    std::promise<void> release;
    std::vector<MessageFuture> waiting;
    std::vector<std::shared_ptr<ScriptedFramework>> frameworks;  // each keeps what it delivers by itself
    const auto waits = [released = release.get_future().share()](MessagePtr) {
        EXPECT_EQ(released.wait_for(failSafe), std::future_status::ready);
        return ScriptedFramework::answered("");
    };
    for (int i = 0; i < 16; ++i) {
        framework_->onDeliver = waits;
        waiting.push_back(handle(sequence("A")));
        frameworks.push_back(std::exchange(framework_, std::make_shared<ScriptedFramework>()));
    }
    auto aside = sequence("B");
    dynamic_cast<FEval&>(*aside->messages.front()).dequeMode = "ppe";
    EXPECT_EQ(responses(handle(std::move(aside)))->messages.size(), 1U);
    release.set_value();
    for (auto& future : waiting) EXPECT_TRUE(future.waitFor(failSafe));
}

TEST_F(FEvalSequenceServiceProviderTest, runsThousandsWithoutOverlapOrDeepStack) {
    constexpr std::size_t count = 10'000;
    std::atomic<int> underWay{0};
    std::size_t number = 0;
    std::uintptr_t first = 0;
    framework_->onDeliver = [&](MessagePtr) {
        EXPECT_EQ(underWay++, 0);
        EXPECT_FALSE(isResolver);
        if (++number > count / 2 && number % 50 == 0) {
            return later([&](MessagePromise& promise) {
                --underWay;
                promise.setValue(std::make_unique<FEvalResponse>(""));
            });
        }
        const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
        if (number == 1) first = here;
        if (number == count / 2) {  // one worker has run all of these
            EXPECT_LT(std::max(here, first) - std::min(here, first), 16U * 1024U);
        }
        --underWay;
        return ScriptedFramework::answered("");
    };
    auto request = std::make_unique<SequenceContainer>();
    for (std::size_t i = 0; i < count; ++i) {
        request->messages.push_back(std::make_unique<FEval>(std::to_string(i) + ","));
    }
    const std::string expected = uuidsOf(*request);
    EXPECT_EQ(uuidsOf(*responses(handle(std::move(request)))), expected);
}

TEST_F(FEvalSequenceServiceProviderTest, survivesAContinuationThatThrows) {
    std::promise<void> attached, called;
    framework_->onDeliver = [&](MessagePtr) {
        attached.get_future().wait();
        return ScriptedFramework::answered("");
    };
    handle(sequence("A")).then([&](MessageFuture) {
        called.set_value();
        throw std::runtime_error("continuation failed");
    });
    attached.set_value();
    called.get_future().wait();
    framework_ = std::make_shared<ScriptedFramework>();
    EXPECT_EQ(uuidsOf(*responses(handle(sequence("B")))), "B");
}

TEST_F(FEvalSequenceServiceProviderTest, failsTheCallWithWhatFailsADelivery) {
    const auto cancelled = [] {
        MessagePromise promise;
        MessageFuture future = promise.getFuture();
        future.cancel();
        return future;
    };
    const std::pair<std::function<MessageFuture()>, std::string> cases[] = {
        {[] { return MessageFuture(); }, "Future state isn't valid!"},
        {[]() -> MessageFuture { throw std::runtime_error("failed"); }, "failed"},
        {[&] { return later([](auto& promise) { MessagePromise gone(std::move(promise)); }); },
         "Promise destroyed before it provided a value."},
        {cancelled, "Future has been cancelled."}};
    for (const auto& [delivery, failure] : cases) {
        framework_->delivered.clear();
        framework_->onDeliver = [&act = delivery](MessagePtr request) {
            return uuidOf(request) == "B" ? act() : ScriptedFramework::answered("");
        };
        EXPECT_EQ(failureOf(handle(sequence("ABC"))), failure);
        EXPECT_EQ(framework_->delivered, "AB") << failure;
    }
}

TEST_F(FEvalSequenceServiceProviderTest, endsCallsUnderWayWhenProviderOrFrameworkGo) {
    const std::string stopped = "Service exists but is not running.";
    const std::pair<std::function<void()>, std::string> cases[] = {
        {[this] { framework_ = std::make_shared<ScriptedFramework>(); },
         "There is no service framework to deliver to."},
        {[this] { provider_->stop(); }, stopped},
        {[this] { provider_ = std::make_shared<FEvalSequenceServiceProvider>(); }, stopped}};
    for (const bool byDelivery : {true, false}) {
        for (const auto& [act, failure] : cases) {
            provider_->start();
            std::atomic<int> deliveries{0};
            std::promise<void> isHandled;
            MessagePromise promise;
            framework_->onDeliver = [&, &act = act](MessagePtr) {
                // Either the worker itself does it, or this thread does while nobody waits for the response.
                ++deliveries;
                if (!byDelivery) return promise.getFuture();
                isHandled.get_future().wait();
                act();
                return ScriptedFramework::answered("");
            };
            MessageFuture call = handle(sequence("AB"));
            isHandled.set_value();
            if (!byDelivery) {
                EXPECT_TRUE(eventually([&] { return deliveries > 0; }));
                act();
                promise.setValue(nullptr);
            }
            EXPECT_EQ(failureOf(std::move(call)), failure);
            EXPECT_EQ(deliveries, 1) << failure;
        }
    }
    provider_->stop();
    EXPECT_EQ(failureOf(handle(sequence("A"))), stopped);
    framework_ = std::make_shared<ScriptedFramework>();
    provider_->start();
    EXPECT_EQ(uuidsOf(*responses(handle(sequence("A")))), "A");
}

}  // namespace
}  // namespace connector::interpreter::v1
