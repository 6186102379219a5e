#pragma once

#include "bundles/testServices.h"
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

/// Says what the activator of the directed bundle does.
inline auto direct(cppmicroservices::BundleContext context, test_services::Director director) {
    return context.RegisterService<test_services::Director>(
        std::make_shared<test_services::Director>(std::move(director)));
}
