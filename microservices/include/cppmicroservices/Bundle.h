#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "cppmicroservices/AnyMap.h"

namespace cppmicroservices {

class BundleContext;

namespace detail {
struct BundleRecord;
struct ContextRecord;
class FrameworkCore;
}  // namespace detail

/// A handle of an installed bundle; a framework is a bundle too. It keeps the bundle's framework alive; when
/// the last handle of a running framework is released, the framework is stopped first.
///
///     INSTALLED -> STARTING -> ACTIVE -> STOPPING -> RESOLVED -> STARTING -> ...
///
/// Threads: every operation from any thread; one handle must not be assigned and used at once.
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
    Bundle(std::shared_ptr<detail::FrameworkCore> framework, std::shared_ptr<detail::BundleRecord> record)
        : record_(std::move(record)), framework_(std::move(framework)) {}

    explicit operator bool() const { return record_ != nullptr; }
    bool operator==(const Bundle& other) const { return record_ == other.record_; }

    /// Loads the library, at the first start, and runs the activator's Start on this thread. Does nothing
    /// when the bundle is active. A framework is started without bundles.
    ///
    /// Blocks: while another thread starts or stops the same bundle.
    /// Throws: std::runtime_error with the bundle's name, location and the cause, when the library does not
    /// load, or the activator throws or is missing, in which case its services are withdrawn; also when the
    /// framework does not run, or when called by this bundle's own activator.
    void Start();

    /// Runs the activator's Stop on this thread and withdraws the bundle's services. Does nothing when the
    /// bundle is not active. A framework stops its bundles, the last one installed first, and forgets them;
    /// it can be started again.
    ///
    /// Blocks: as Start.
    /// Throws: std::runtime_error, when the activator throws, and the bundle is stopped even so; when called
    /// by this bundle's own activator, or for a framework by the activator of one of its bundles.
    void Stop();

    State GetState() const;
    /// False unless the bundle is starting, active or stopping.
    BundleContext GetBundleContext() const;
    std::string GetLocation() const;
    std::string GetSymbolicName() const;
    /// The manifest. Valid as long as a handle of the bundle.
    const AnyMap& GetHeaders() const;

private:
    const Bundle& checked() const;

    std::shared_ptr<detail::BundleRecord> record_;
    std::shared_ptr<detail::FrameworkCore> framework_;
};

}  // namespace cppmicroservices
