#pragma once

#include <condition_variable>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bundles/BundleLibrary.h"
#include "bundles/manifest.h"
#include "connector/ThreadSafety.h"
#include "cppmicroservices/Bundle.h"
#include "services/ServiceRegistry.h"

namespace cppmicroservices::detail {

/// What stands behind the handles of one bundle, which may outlive its framework.
struct BundleRecord {
    BundleRecord(std::string bundleLocation, Manifest manifest)
        : location(std::move(bundleLocation)),
          symbolicName(std::move(manifest.symbolicName)),
          hasActivator(manifest.hasActivator),
          headers(std::move(manifest.headers)) {}

    const std::string location;
    const std::string symbolicName;
    const bool hasActivator;
    const AnyMap headers;

    BundleLibrary library;  ///< touched by the one thread that starts or stops the bundle

    // Guarded by the framework's mutex.
    Bundle::State state = Bundle::STATE_INSTALLED;
    std::thread::id worker;                  ///< the thread that starts or stops the bundle
    std::shared_ptr<ContextRecord> context;  ///< null unless starting, active or stopping
};

using BundlePtr = std::shared_ptr<BundleRecord>;

/// A framework: its bundles, the first of which is itself, and the services of them all. For what the
/// operations throw see Bundle and BundleContext.
///
/// Threads: any.  Locks: mutex_, a leaf; no foreign code runs under it.
class FrameworkCore : public std::enable_shared_from_this<FrameworkCore> {
public:
    static Bundle make();
    FrameworkCore();

    void start(const BundlePtr& bundle) CONNECTOR_EXCLUDES(mutex_);
    void stop(const BundlePtr& bundle) CONNECTOR_EXCLUDES(mutex_);
    BundlePtr install(const std::string& location) CONNECTOR_EXCLUDES(mutex_);

    Bundle::State stateOf(const BundleRecord& bundle) CONNECTOR_EXCLUDES(mutex_);
    std::shared_ptr<ContextRecord> contextOf(const BundleRecord& bundle) CONNECTOR_EXCLUDES(mutex_);
    ServiceRegistry& services() { return services_; }

    /// This framework; the pointer keeps it running, unless the last such pointer has been released.
    std::shared_ptr<FrameworkCore> running();

private:
    class Turn;
    struct Life;

    void startFramework() CONNECTOR_EXCLUDES(mutex_);
    void stopFramework() CONNECTOR_EXCLUDES(mutex_);
    void beginContextLocked(const BundlePtr& bundle) CONNECTOR_REQUIRES(mutex_);
    void endContext(BundleRecord& bundle) CONNECTOR_EXCLUDES(mutex_);

    const BundlePtr system_;
    std::weak_ptr<Life> life_;  // set once, by make()
    ServiceRegistry services_;

    connector::Mutex mutex_;
    std::condition_variable turnEnded_;
    std::vector<BundlePtr> bundles_ CONNECTOR_GUARDED_BY(mutex_);  // without the framework itself
};

}  // namespace cppmicroservices::detail
