#pragma once

#include <string>

#include "cppmicroservices/Bundle.h"
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
    /// Loads the library unless it is loaded.
    /// Throws: SharedLibraryException.
    void load(const std::string& path, int flags, const Bundle& bundle);

    /// Gives the bundle its context, makes its activator and runs its Start.
    /// Throws: std::runtime_error, when the bundle exports none; what the activator throws.
    void start(const std::string& name, const BundleContext& context);
    void stopActivator(const BundleContext& context);
    /// Takes the context away and deletes the activator, when there is one.
    void end(const std::string& name);

private:
    template <class Function>
    Function* symbol(const char* prefix, const std::string& name) const;

    void* handle_ = nullptr;
    BundleActivator* activator_ = nullptr;
    void (*destroy_)(BundleActivator*) = nullptr;
};

}  // namespace cppmicroservices::detail
