#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bundles/BundleRecord.h"
#include "bundles/InstalledBundle.h"
#include "connector/ThreadSafety.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "services/ServiceRegistry.h"

namespace cppmicroservices::detail {

/// A framework: bundle 0, the table of the others, and the services of them all. For its states see
/// Framework.
///
/// Threads: any. A stop has a thread of its own, joined by the next stop or by the end of the last handle.
/// Locks: mutex_, a leaf; no foreign code runs under it.
class FrameworkCore final : public BundleRecord {
public:
    FrameworkCore(const FrameworkConfiguration& configuration, std::ostream* logger);
    ~FrameworkCore() override;

    void init() EXCLUDES(mutex_);
    void start() override EXCLUDES(mutex_);
    void stop() override EXCLUDES(mutex_);
    void uninstall() override;
    std::shared_ptr<FrameworkCore> framework() override;
    FrameworkEvent::Type waitForStop(std::chrono::milliseconds timeout) EXCLUDES(mutex_);

    /// Whether bundles may be installed and started.
    bool isRunning() const;

    /// What keeps the framework running; null, when the last handle is gone.
    std::shared_ptr<FrameworkLife> life() const { return life_.lock(); }
    /// Once, before the framework is shared.
    void setLife(const std::shared_ptr<FrameworkLife>& life) { life_ = life; }
    /// The last handle is gone: stops the framework and waits, unless on the thread that stops it already.
    void endLife() EXCLUDES(mutex_);

    using Records = std::vector<std::shared_ptr<BundleRecord>>;
    Records install(const std::string& location, const AnyMap& manifest) EXCLUDES(mutex_);
    void remove(const BundleRecord& bundle) EXCLUDES(mutex_);
    /// All bundles, this one first.
    Records bundles() EXCLUDES(mutex_);

    ServiceRegistry& services() { return services_; }
    int libraryLoadOptions() const { return libraryLoadOptions_; }
    /// Writes a line to the framework's stream, if it has one.
    void report(const std::string& text) EXCLUDES(reportMutex_);

private:
    void initLocked() REQUIRES(mutex_);
    void stopAll() EXCLUDES(mutex_);
    long takeId() EXCLUDES(mutex_);
    Records bundlesAtLocked(const std::string& location) const REQUIRES(mutex_);
    void checkIsFreeLocked(const BundleRecord& bundle) const REQUIRES(mutex_);

    // Fixed before the framework is shared.
    const int libraryLoadOptions_;
    std::weak_ptr<FrameworkLife> life_;

    ServiceRegistry services_;

    connector::Mutex reportMutex_;  // a leaf
    std::ostream* const logger_;

    connector::Mutex mutex_;  // states change under it
    std::condition_variable stopped_;
    std::uint64_t stopCount_ GUARDED_BY(mutex_) = 0;
    long lastId_ GUARDED_BY(mutex_) = 0;
    std::vector<std::shared_ptr<InstalledBundle>> bundles_ GUARDED_BY(mutex_);
    std::thread stopThread_ GUARDED_BY(mutex_);
};

/// Held by every handle of a framework and of its bundles, by nothing else.
class FrameworkLife {
public:
    explicit FrameworkLife(std::shared_ptr<FrameworkCore> core) : core_(std::move(core)) {}
    ~FrameworkLife() { core_->endLife(); }
    FrameworkLife(const FrameworkLife&) = delete;
    FrameworkLife& operator=(const FrameworkLife&) = delete;

private:
    const std::shared_ptr<FrameworkCore> core_;
};

}  // namespace cppmicroservices::detail
