#include <atomic>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Fixture.h"
#include "cppmicroservices/Constants.h"
#include "support/threads.h"

namespace {

using namespace cppmicroservices;

struct Shape {};
struct Colour {
    std::string name = "red";
};

class ServiceTest : public testing::Test {
protected:
    ServiceRegistration<Shape> add(const std::string& name, ServiceProperties properties = {}) {
        properties["name"] = name;
        return context.RegisterService<Shape>(std::make_shared<Shape>(), properties);
    }
    static ServiceProperties ranked(int ranking) { return {{Constants::SERVICE_RANKING, ranking}}; }

    std::string found(const std::string& filter = "") {
        std::string names;
        for (const auto& reference : context.GetServiceReferences<Shape>(filter))
            names += any_cast<std::string>(reference.GetProperty("name"));
        return names;
    }

    RunningFramework running;
    BundleContext context = running.context();
};

TEST_F(ServiceTest, isFoundByRankingAndThenByAge) {
    add("a");
    add("b", ranked(5));
    auto low = add("c", ranked(-1));
    add("d", ranked(5));
    EXPECT_EQ(found(), "bdac");
    low.SetProperties(ServiceProperties{{"Name", std::string("c")}, {Constants::SERVICE_RANKING, 6}});
    EXPECT_EQ(found(), "cbda");
    EXPECT_EQ(context.GetServiceReference<Shape>(), low.GetReference());
    low.SetProperties(ServiceProperties{});
    EXPECT_TRUE(low.GetReference().GetProperty("name").Empty());
}

TEST_F(ServiceTest, isRefused) {
    EXPECT_THROW(context.RegisterService<Shape>(std::shared_ptr<Shape>()), std::invalid_argument);
    EXPECT_THROW(add("a", {{"key", 1}, {"KEY", 2}}), std::runtime_error);
    auto registration = add("a");
    EXPECT_THROW(registration.SetProperties(ServiceProperties{{Constants::SERVICE_RANKING, 1L}}),
                 std::invalid_argument);
    EXPECT_THROW(context.GetService(ServiceReference<Shape>()), std::invalid_argument);
}

TEST_F(ServiceTest, canBeWithdrawnOnce) {
    auto registration = add("a");
    const auto reference = registration.GetReference();
    registration.Unregister();
    EXPECT_EQ(any_cast<std::string>(reference.GetProperty("name")), "a");
    EXPECT_FALSE(reference || context.GetServiceReference<Shape>());
    EXPECT_THROW(context.GetService(reference), std::invalid_argument);
    EXPECT_THROW(registration.Unregister(), std::logic_error);
    EXPECT_THROW(registration.SetProperties(ServiceProperties{}), std::logic_error);
}

/// A service that calls `atEnd` when it is deleted.
std::shared_ptr<Colour> witness(std::function<void()> atEnd) {
    return {new Colour, [atEnd = std::move(atEnd)](const Colour* service) {
                delete service;
                atEnd();
            }};
}

// A lock held while foreign code runs would let each of these wait for ever.
TEST_F(ServiceTest, mayUseTheFrameworkWhileItIsReleased) {
    std::string lookUps;
    const auto lookUp = [&] {
        add("a");
        lookUps += found("(name=*)") + ".";
    };
    auto registration = context.RegisterService<Colour>(witness(lookUp), {{"key", witness(lookUp)}});
    registration.SetProperties(ServiceProperties{});
    EXPECT_EQ(lookUps, "a.");
    registration.Unregister();
    EXPECT_EQ(lookUps, "a.aa.");
}

// A service is found, or gone in one of three ways; what was got stays alive.
TEST_F(ServiceTest, isLookedUpWhileItIsWithdrawn) {
    std::atomic<int> alive{0};
    std::atomic<int> registering{2};
    const auto lookUp = [](BundleContext mine) {
        const auto references = mine.GetServiceReferences<Colour>("(key=1)");
        if (references.empty()) return;
        try {
            const auto service = mine.GetService(references.front());
            EXPECT_TRUE(!service || service->name == "red");
        } catch (const std::invalid_argument&) {
        }
    };
    onThreads(5, [&](int i) {
        auto mine = running.context();
        while (i >= 2 && registering > 0) lookUp(mine);
        for (int round = 0; i < 2 && round < 1000; ++round) {
            ++alive;
            auto registration = mine.RegisterService<Colour>(witness([&] { --alive; }), {{"key", 1}});
            registration.SetProperties(ServiceProperties{{"key", 1}, {Constants::SERVICE_RANKING, round}});
            registration.Unregister();
        }
        if (i < 2) --registering;
    });
    EXPECT_EQ(alive, 0);
}

// Every registration fails from then on.
TEST_F(ServiceTest, isRegisteredWhileItsBundleIsStopped) {
    auto bundle = running.install("test_passive");
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> refused{0};
        bundle.Start();
        onThreads(3, [&, mine = bundle.GetBundleContext()](int i) {
            if (i == 0) return bundle.Stop();
            try {
                for (auto copy = mine;;) copy.RegisterService<Colour>(std::make_shared<Colour>());
            } catch (const std::runtime_error&) {
                ++refused;
            }
        });
        EXPECT_EQ(refused, 2);
    }
}

}  // namespace
