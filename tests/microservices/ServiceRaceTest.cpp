#include <atomic>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Fixture.h"

namespace {

using namespace cppmicroservices;

struct Counted {
    explicit Counted(std::atomic<int>& alive) : alive(alive) { ++alive; }
    ~Counted() {
        isAlive = false;
        --alive;
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    std::atomic<int>& alive;
    std::atomic<bool> isAlive{true};
};

// A service is there, or gone in one of three ways; what is got stays alive.
void lookUpOnce(BundleContext context) {
    const auto references = context.GetServiceReferences<Counted>("(key=1)");
    if (references.empty()) return;
    try {
        const auto service = context.GetService(references.front());
        EXPECT_TRUE(!service || service->isAlive);
    } catch (const std::invalid_argument&) {
    }
}

TEST(ServiceRaceTest, lookUpsMeetWithdrawals) {
    constexpr int rounds = 1000;
    std::atomic<int> alive{0};
    {
        RunningFramework running;
        auto context = running.context();
        std::atomic<int> registering{2};
        std::latch ready(5);
        std::vector<std::jthread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&, context]() mutable {
                ready.arrive_and_wait();
                for (int round = 0; round < rounds; ++round) {
                    auto registration =
                        context.RegisterService<Counted>(std::make_shared<Counted>(alive), {{"key", 1}});
                    registration.SetProperties(ServiceProperties{{"key", 1}, {"service.ranking", round % 3}});
                    registration.Unregister();
                }
                --registering;
            });
        }
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&, context] {
                ready.arrive_and_wait();
                while (registering > 0) lookUpOnce(context);
            });
        }
        threads.clear();
        EXPECT_TRUE(running.framework.GetServicesInUse().empty());
    }
    EXPECT_EQ(alive, 0);
}

TEST(ServiceRaceTest, oneOfManyWithdrawalsSucceeds) {
    RunningFramework running;
    auto registration = running.context().RegisterService<Witness>(std::make_shared<Witness>());
    std::atomic<int> succeeded{0};
    std::latch ready(4);
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&, copy = registration]() mutable {
                ready.arrive_and_wait();
                try {
                    copy.Unregister();
                    ++succeeded;
                } catch (const std::logic_error&) {
                }
            });
        }
    }
    EXPECT_EQ(succeeded, 1);
}

TEST(ServiceRaceTest, aReferenceIsCopiedWhileItIsAssigned) {
    RunningFramework running;
    auto context = running.context();
    const auto first = context.RegisterService<Witness>(std::make_shared<Witness>()).GetReference();
    const auto second = context.RegisterService<Witness>(std::make_shared<Witness>()).GetReference();
    ServiceReference<Witness> shared = first;
    std::latch ready(2);
    std::jthread writer([&] {
        ready.arrive_and_wait();
        for (int i = 0; i < 2000; ++i) shared = i % 2 == 0 ? second : first;
    });
    ready.arrive_and_wait();
    for (int i = 0; i < 2000; ++i) {
        const auto copy = shared;
        EXPECT_TRUE(copy == first || copy == second);
    }
}

// The stop withdraws everything; a registration fails from then on or is withdrawn with the rest.
TEST(ServiceRaceTest, registrationsMeetTheStopOfTheFramework) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> alive{0};
        {
            RunningFramework running;
            std::latch ready(3);
            std::vector<std::jthread> threads;
            for (int i = 0; i < 2; ++i) {
                threads.emplace_back([&, context = running.context()]() mutable {
                    ready.arrive_and_wait();
                    try {
                        for (;;) context.RegisterService<Counted>(std::make_shared<Counted>(alive));
                    } catch (const std::runtime_error&) {
                    }
                });
            }
            ready.arrive_and_wait();
            running.framework.Stop();
            threads.clear();
        }
        EXPECT_EQ(alive, 0);
    }
}

}  // namespace
