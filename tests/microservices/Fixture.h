#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "bundles/testServices.h"
#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Framework.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"

/// A framework that runs while this is in scope.
struct RunningFramework {
    RunningFramework() { framework.Start(); }
    ~RunningFramework() {
        framework.Stop();
        framework.WaitForStop(std::chrono::milliseconds::zero());
    }
    RunningFramework(const RunningFramework&) = delete;
    RunningFramework& operator=(const RunningFramework&) = delete;

    cppmicroservices::BundleContext context() { return framework.GetBundleContext(); }

    cppmicroservices::Framework framework = cppmicroservices::FrameworkFactory().NewFramework();
};

/// The path of one of the bundles that are built for the tests.
inline std::string bundlePath(const std::string& name) { return NUMORA_TEST_BUNDLES "/lib" + name + ".so"; }

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

/// A service whose destructor does something.
struct Witness {
    explicit Witness(std::function<void()> atEnd = {}) : atEnd(std::move(atEnd)) {}
    ~Witness() {
        if (atEnd) atEnd();
    }
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;

    std::function<void()> atEnd;
};
