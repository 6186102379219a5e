#include <atomic>

#include <gmock/gmock.h>

#include "messages/LocalMessageService.h"
#include "support/threads.h"

namespace {

using connector::common::DataBuffer;
using connector::message_service::JsonMessage;
using connector::message_service::SubscribeEvent;
using connector::message_service::UnsubscribeEvent;
using Token = std::unique_ptr<connector::message_service::Subscription>;

TEST(LocalMessageServiceTest, hasHadWatchersToldWhenSubscribeReturns) {
    messages::LocalMessageService service;
    Gate telling;
    std::atomic<int> told{0};
    const Token watcher = service.watch(
        "/**",
        [&](const SubscribeEvent& event) {
            if (event.channel == "/slow") telling.pass();
            ++told;
        },
        [](const UnsubscribeEvent&) {});
    const auto session = service.openSession();
    std::thread slow([&] { session->subscribe("/slow"); });
    telling.awaitEntry();
    std::thread next([&] {
        session->subscribe("/next");
        EXPECT_EQ(told, 2);
    });
    telling.open();
    next.join();
    slow.join();
}

TEST(LocalMessageServiceTest, survivesManyThreadsThatDoEverythingAtOnce) {
    messages::LocalMessageService service;
    constexpr int rounds = 100, threadCount = 4;
    std::atomic<int> subscriptions{0}, calls{0};
    const auto watcher = service.watch(
        "/**", [&](const SubscribeEvent&) { ++subscriptions; },
        [&](const UnsubscribeEvent&) { --subscriptions; });
    onThreads(threadCount, [&](int number) {
        const std::string own = "/a/" + std::to_string(number);
        const auto slow = service.openSession({.queueBytes = 200});
        slow->subscribe("/eval/**");
        for (int round = 0; round < rounds; ++round) {
            const auto token = service.subscribe("/a/*", [&](const JsonMessage&) { ++calls; });
            const auto session = service.openSession();
            session->setWakeUp([&] { ++calls; });
            session->subscribe("/a/**");
            session->subscribe(own);
            service.publish(own, DataBuffer("1"));
            service.publish("/eval/response/output", DataBuffer("1"));
            session->publish("/a/x", "2", nullptr);
            const auto late = service.watch(
                own + "/*", [&](const SubscribeEvent&) { ++calls; }, [](const auto&) {});
            session->unsubscribe("/a/**");
            slow->take(100, std::chrono::milliseconds(0));
            if (round % 2 == 0) session->close();
            service.sweep();
        }
    });
    EXPECT_EQ(subscriptions, 0);
    EXPECT_GE(calls, threadCount * rounds * 4);
    EXPECT_EQ(service.metrics().openSessions, 0U);
    EXPECT_EQ(service.metrics().messagesPublished, threadCount * rounds * 3U);
}

}  // namespace
