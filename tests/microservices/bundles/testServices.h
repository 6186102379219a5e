#pragma once

#include <functional>

#include "cppmicroservices/BundleContext.h"

namespace test_services {

/// Offered by the test: what the activator of the directed bundle does, on the activator's thread.
struct Director {
    using Action = std::function<void(cppmicroservices::BundleContext)>;
    Action start;
    Action stop = [](auto) {};
};

/// Offered by the directed bundle before it calls the director.
struct Probe {
    std::function<cppmicroservices::BundleContext()> context;  ///< GetBundleContext inside of the bundle
};

}  // namespace test_services
