#pragma once

#include <string>

#include <Poco/SharedLibrary.h>

#include "cppmicroservices/BundleContext.h"

namespace cppmicroservices {
struct BundleActivator;
}

namespace cppmicroservices::detail {

/// The code of a bundle, and its activator while the bundle runs. The library is never unloaded, since
/// whoever holds a service may call into it at any time.
///
/// Threads: one at a time.
class BundleLibrary {
public:
    /// Loads the library at `path` at the first call, gives the bundle its context, and starts its activator.
    /// Throws: std::exception, when it does not load or exports no activator; what the activator throws.
    void start(const std::string& path, const std::string& bundle, const BundleContext& context);
    void stopActivator(const BundleContext& context);
    /// Takes the context away and deletes the activator, if there is one.
    void end(const std::string& bundle);

private:
    template <class Function>
    Function* symbol(const std::string& name);
    void setContext(const std::string& bundle, const BundleContext* context);

    Poco::SharedLibrary library_;
    BundleActivator* activator_ = nullptr;
    void (*destroy_)(BundleActivator*) = nullptr;
};

}  // namespace cppmicroservices::detail
