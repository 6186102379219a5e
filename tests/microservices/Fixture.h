#pragma once

#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bundles/testServices.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkFactory.h"

/// A framework that runs as long as a handle is left of it or of its bundles.
struct RunningFramework {
    RunningFramework() { framework.Start(); }
    cppmicroservices::BundleContext context() { return framework.GetBundleContext(); }
    cppmicroservices::Bundle install(const std::string& name) {
        return context().InstallBundles(NUMORA_TEST_BUNDLES "/lib" + name + ".so").at(0);
    }

    cppmicroservices::Framework framework = cppmicroservices::FrameworkFactory().NewFramework();
};

/// Directs the directed bundle by functions.
struct FunctionDirector : test_services::Director {
    using Function = std::function<void(cppmicroservices::BundleContext)>;
    FunctionDirector(Function start, Function stop) : start(std::move(start)), stop(std::move(stop)) {}

    void atStart(cppmicroservices::BundleContext context) override {
        if (start) start(context);
    }
    void atStop(cppmicroservices::BundleContext context) override {
        if (stop) stop(context);
    }
    Function start, stop;
};

inline auto direct(cppmicroservices::BundleContext context, FunctionDirector::Function start,
                   FunctionDirector::Function stop = {}) {
    return context.RegisterService<test_services::Director>(
        std::make_shared<FunctionDirector>(std::move(start), std::move(stop)));
}

/// Runs `action` with 0, 1, ... on as many threads, which begin at once, and waits for them.
template <class Action>
void atOnce(int count, const Action& action) {
    std::latch ready(count);
    std::vector<std::jthread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            ready.arrive_and_wait();
            action(i);
        });
    }
}

/// A service whose destructor does something.
struct Witness {
    explicit Witness(std::function<void()> atEnd) : atEnd(std::move(atEnd)) {}
    ~Witness() { atEnd(); }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    const std::function<void()> atEnd;
};
