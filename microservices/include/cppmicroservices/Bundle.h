#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/BundleVersion.h"

namespace cppmicroservices {

class BundleContext;
class Framework;
template <class S>
class ServiceReference;
using ServiceReferenceU = ServiceReference<void>;

namespace detail {
class BundleRecord;
class FrameworkLife;
struct Handles;
}  // namespace detail

/// A handle of an installed bundle. It keeps the bundle's framework alive; when the last handle of a running
/// framework goes, the framework is stopped and waited for.
///
///     INSTALLED -> RESOLVED -> STARTING -> ACTIVE -> STOPPING -> RESOLVED;  UNINSTALLED after Uninstall
///
/// Threads: every operation from any thread; one handle is not assigned and used at once.
/// Throws: std::invalid_argument ("invalid bundle"), each member, when the handle is false.
class Bundle {
public:
    enum State : std::uint32_t {
        STATE_UNINSTALLED = 1,
        STATE_INSTALLED = 2,
        STATE_RESOLVED = 4,
        STATE_STARTING = 8,
        STATE_STOPPING = 16,
        STATE_ACTIVE = 32,
    };

    Bundle() = default;
    Bundle& operator=(std::nullptr_t);
    explicit operator bool() const { return record_ != nullptr; }
    bool operator==(const Bundle& other) const { return record_ == other.record_; }
    bool operator<(const Bundle& other) const;

    /// Loads the library, at the first start, and runs the activator's Start on this thread. Does nothing
    /// when active already. The framework itself is started without its bundles.
    ///
    /// Blocks: while another thread starts or stops the same bundle.
    /// Throws: SharedLibraryException, when the library does not load; std::runtime_error with the bundle's
    /// name, location and the cause, when the activator throws or is not there, in which case its services
    /// are withdrawn; std::logic_error, when uninstalled; std::runtime_error, when the framework does not run
    /// or when called by this bundle's own activator.
    void Start();
    /// The same; there are no options.
    void Start(std::uint32_t options);

    /// Runs the activator's Stop on this thread and withdraws the bundle's services. Does nothing when not
    /// active. For the framework: returns at once; a thread of its own stops the bundles.
    /// Blocks and throws: as Start; the bundle is stopped even so when its activator throws.
    void Stop();
    void Stop(std::uint32_t options);

    /// Stops the bundle and takes it out of the framework.
    /// Throws: std::logic_error, when it is out already; std::runtime_error, for the framework itself.
    void Uninstall();

    State GetState() const;
    /// False unless the bundle is active, starting or stopping.
    BundleContext GetBundleContext() const;
    long GetBundleId() const;
    std::string GetLocation() const;
    std::string GetSymbolicName() const;
    BundleVersion GetVersion() const;
    /// The manifest. Valid as long as a handle of the bundle.
    const AnyMap& GetHeaders() const;
    /// What the bundle offers, and what it uses, at this moment.
    std::vector<ServiceReferenceU> GetRegisteredServices() const;
    std::vector<ServiceReferenceU> GetServicesInUse() const;

private:
    friend class Framework;
    friend struct detail::Handles;

    Bundle(std::shared_ptr<detail::BundleRecord> record, std::shared_ptr<detail::FrameworkLife> life);
    const std::shared_ptr<detail::BundleRecord>& checked() const;

    // The life last, so that its end, which stops the framework, still finds the record.
    std::shared_ptr<detail::BundleRecord> record_;
    std::shared_ptr<detail::FrameworkLife> life_;
};

}  // namespace cppmicroservices
