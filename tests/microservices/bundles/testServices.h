#pragma once

#include <string>

#include "cppmicroservices/BundleContext.h"

namespace test_services {

/// Offered by the test: does what the activator of the directed bundle is to do, on the activator's thread.
class Director {
public:
    virtual ~Director() = default;
    virtual void atStart(cppmicroservices::BundleContext context) = 0;
    virtual void atStop(cppmicroservices::BundleContext context) = 0;
};

/// Offered by the directed bundle, from before it asks the director.
class Probe {
public:
    virtual ~Probe() = default;
    /// What GetBundleContext gives inside the bundle.
    virtual cppmicroservices::BundleContext context() const = 0;
};

}  // namespace test_services
