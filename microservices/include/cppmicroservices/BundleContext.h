#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/ServiceInterface.h"
#include "cppmicroservices/ServiceReference.h"
#include "cppmicroservices/ServiceRegistration.h"
#include "cppmicroservices/detail/Handles.h"

namespace cppmicroservices {

/// What a bundle sees of the framework while it is starting, active or stopping. A handle, which keeps
/// nothing alive.
///
/// Threads: every operation from any thread; one handle is not assigned and used at once.
/// Locks: those of the registry and of the framework, all of them leaves; no foreign code runs under them.
/// Throws: IllegalStateException, each member, when the handle is false or its bundle was stopped.
class BundleContext {
public:
    BundleContext() = default;
    BundleContext& operator=(std::nullptr_t);
    explicit operator bool() const;
    bool operator==(const BundleContext& other) const { return record_ == other.record_; }

    Bundle GetBundle() const;
    /// The bundle with that id, or false.
    Bundle GetBundle(long id) const;
    std::vector<Bundle> GetBundles() const;
    std::vector<Bundle> GetBundles(const std::string& location) const;

    /// Installs the library at `location`, which is used as it stands, and starts nothing. The manifest is
    /// the file beside the library, named as it with ".manifest.json" behind, or `bundleManifest`: a map of
    /// headers for each symbolic name. The same location again gives the same bundles.
    ///
    /// Throws: std::runtime_error, when there is no such file or no good manifest, when the name and version
    /// are taken, or when the framework is stopping.
    std::vector<Bundle> InstallBundles(
        const std::string& location,
        const AnyMap& bundleManifest = AnyMap(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS));

    /// Offers `service` by the names of the interfaces `I1` and `More`.
    /// Throws: std::invalid_argument, when it is null; std::runtime_error, when two keys differ only in case.
    template <class I1, class... More, class Impl>
    ServiceRegistration<I1, More...> RegisterService(const std::shared_ptr<Impl>& service,
                                                     const ServiceProperties& properties = {}) {
        auto interfaces = std::make_shared<InterfaceMap>();
        (*interfaces)[detail::interfaceId<I1>()] = std::static_pointer_cast<I1>(service);
        (((*interfaces)[detail::interfaceId<More>()] = std::static_pointer_cast<More>(service)), ...);
        ServiceRegistration<I1, More...> registration;
        detail::Handles::setRecord(registration, registerRecord(interfaces, properties));
        return registration;
    }
    [[nodiscard]] ServiceRegistrationU RegisterService(const InterfaceMapConstPtr& interfaces,
                                                       const ServiceProperties& properties = {});

    /// The services with the interface `S` that `filter`, a text as LDAPFilter takes it, matches: the highest
    /// ranking first, then the one registered first. An empty filter matches every service.
    /// Throws: std::invalid_argument, for a bad filter, unless no service has the interface.
    template <class S>
    std::vector<ServiceReference<S>> GetServiceReferences(const std::string& filter = "") {
        std::vector<ServiceReference<S>> references;
        for (auto& target : find(detail::interfaceId<S>(), filter)) {
            references.push_back(detail::Handles::reference<S>(std::move(target)));
        }
        return references;
    }
    /// The same by name. With an empty name, of any interface; then, unless the filter asks for an
    /// `objectclass`, in the order of registration.
    std::vector<ServiceReferenceU> GetServiceReferences(const std::string& clazz,
                                                        const std::string& filter = "");

    /// The first of them, or a false reference.
    template <class S>
    ServiceReference<S> GetServiceReference() {
        const auto references = GetServiceReferences<S>();
        return references.empty() ? ServiceReference<S>() : references.front();
    }
    ServiceReferenceU GetServiceReference(const std::string& clazz);

    /// The service, in use until the last copy of the pointer goes; or null, when it is withdrawn during the
    /// call. It stays alive and callable after a withdrawal.
    /// Throws: std::invalid_argument, when the reference is false.
    template <class S>
    std::shared_ptr<S> GetService(const ServiceReference<S>& reference) {
        return std::static_pointer_cast<S>(use(reference));
    }

private:
    friend struct detail::Handles;

    std::shared_ptr<detail::ServiceRecord> registerRecord(const InterfaceMapConstPtr& interfaces,
                                                          const ServiceProperties& properties);
    std::vector<std::shared_ptr<const detail::ReferenceTarget>> find(const std::string& interfaceId,
                                                                     const std::string& filter) const;
    std::shared_ptr<void> use(const ServiceReferenceBase& reference) const;

    std::shared_ptr<detail::ContextRecord> record_;
};

}  // namespace cppmicroservices
