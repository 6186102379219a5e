#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "cppmicroservices/AnyMap.h"
#include "cppmicroservices/Bundle.h"
#include "cppmicroservices/BundleVersion.h"
#include "cppmicroservices/detail/SharedCell.h"

namespace cppmicroservices::detail {

class FrameworkCore;

/// The validity of what one start of a bundle gave to it.  Threads: any.
class ContextRecord {
public:
    explicit ContextRecord(std::weak_ptr<BundleRecord> bundle) : bundle_(std::move(bundle)) {}

    bool isValid() const { return isValid_; }
    /// For good. Under the registry's mutex, so that no service is added afterwards.
    void invalidate() { isValid_ = false; }

    /// Throws: IllegalStateException, when it is no longer valid.
    std::shared_ptr<BundleRecord> bundle() const;

private:
    const std::weak_ptr<BundleRecord> bundle_;
    std::atomic<bool> isValid_{true};
};

/// What is behind the handles of one bundle. Handles, contexts and services may hold it longer than its
/// framework lives.
///
/// Threads: any. Operations: see Bundle.
class BundleRecord : public std::enable_shared_from_this<BundleRecord> {
public:
    BundleRecord(long id, std::string location, std::string symbolicName, BundleVersion version,
                 AnyMap headers)
        : id(id),
          location(std::move(location)),
          symbolicName(std::move(symbolicName)),
          version(std::move(version)),
          headers(std::move(headers)) {}
    virtual ~BundleRecord();
    BundleRecord(const BundleRecord&) = delete;
    BundleRecord& operator=(const BundleRecord&) = delete;

    virtual void start() = 0;
    virtual void stop() = 0;
    virtual void uninstall() = 0;
    /// Throws: IllegalStateException, when it is gone.
    virtual std::shared_ptr<FrameworkCore> framework() = 0;

    Bundle::State state() const { return state_; }
    /// Null unless the bundle is starting, active or stopping.
    std::shared_ptr<ContextRecord> context() const { return context_.get(); }

    const long id;
    const std::string location;
    const std::string symbolicName;
    const BundleVersion version;
    const AnyMap headers;

protected:
    void setState(Bundle::State state) { state_ = state; }
    std::shared_ptr<ContextRecord> makeContext();
    /// Makes the context invalid and withdraws the bundle's services.
    void endContext(FrameworkCore& framework);

private:
    std::atomic<Bundle::State> state_{Bundle::STATE_INSTALLED};
    SharedCell<ContextRecord> context_;
};

}  // namespace cppmicroservices::detail
