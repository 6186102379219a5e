#pragma once

#include <memory>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistration.h"

namespace cppmicroservices {

/// What a bundle sees of the framework while it is starting, active or stopping. A handle, which keeps
/// nothing running.
///
/// Threads: every operation from any thread; one handle must not be assigned and used at once.
/// Locks: those of the framework, which are leaves; no foreign code runs under them.
/// Throws: std::runtime_error, each member, when the handle is false or its bundle was stopped.
class BundleContext {
public:
    BundleContext() = default;
    explicit BundleContext(std::shared_ptr<detail::ContextRecord> record) : record_(std::move(record)) {}

    explicit operator bool() const;
    Bundle GetBundle() const;

    /// Installs the library at `location`, which is used as it stands, and starts nothing. Its manifest is
    /// the file `location` + ".manifest.json". The same location again gives the same bundle.
    ///
    /// Throws: std::runtime_error, when there is no such file or no valid manifest, or when a bundle from
    /// another location has its name.
    std::vector<Bundle> InstallBundles(const std::string& location);

    /// Offers `service` as an `S`.
    /// Throws: std::invalid_argument, when it is null or `service.ranking` is not an int; std::runtime_error,
    /// when two keys differ only in case.
    template <class S, class Impl>
    ServiceRegistration<S> RegisterService(const std::shared_ptr<Impl>& service,
                                           const ServiceProperties& properties = {}) {
        return ServiceRegistration<S>(add(typeid(S), std::static_pointer_cast<S>(service), properties));
    }

    /// The services offered as an `S` that match `filter`, the highest ranking first, then the one registered
    /// first. A filter has the text form of RFC 1960, as in `(&(kind=a*)(size>=3))`, where `\` makes the next
    /// character literal; an empty one matches every service.
    /// Throws: std::invalid_argument, when the filter is malformed.
    template <class S>
    std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = "") {
        std::vector<ServiceReference<S>> references;
        for (auto& service : find(typeid(S), filter)) {
            references.push_back(ServiceReference<S>(std::move(service)));
        }
        return references;
    }
    /// The first of them, or a false reference.
    template <class S>
    ServiceReference<S> GetServiceReference() {
        const auto references = GetServiceReferences<S>();
        return references.empty() ? ServiceReference<S>() : references.front();
    }

    /// The service. It stays alive and callable as long as it is held, also after it is withdrawn.
    /// Throws: std::invalid_argument, when the reference is false.
    template <class S>
    std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
        return std::static_pointer_cast<S>(get(reference.record_));
    }

private:
    detail::ServicePtr add(const std::type_info& type, std::shared_ptr<void> object,
                           const ServiceProperties& properties) const;
    std::vector<detail::ServicePtr> find(const std::type_info& type, const std::string& filter) const;
    std::shared_ptr<void> get(const detail::ServicePtr& service) const;

    std::shared_ptr<detail::ContextRecord> record_;
};

}  // namespace cppmicroservices
