#include "bundles/FrameworkCore.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <stdexcept>

#include "cppmicroservices/BundleContext.h"

namespace cppmicroservices::detail {

using connector::MutexLock;

namespace {

std::string currentExceptionText() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "an exception of an unknown type";
    }
}

/// An error of this bundle, with its name and location.
std::runtime_error failure(const BundleRecord& bundle, const std::string& what) {
    return std::runtime_error("Bundle " + bundle.symbolicName + " at " + bundle.location + " " + what);
}

}  // namespace

/// While in scope, this thread alone starts or stops the bundle. It is not a lock: the activator runs
/// meanwhile.
class FrameworkCore::Turn {
public:
    /// Throws: std::runtime_error, when this thread does so already: it could only wait for itself.
    Turn(FrameworkCore& framework, BundleRecord& bundle) : framework_(framework), bundle_(bundle) {
        const auto self = std::this_thread::get_id();
        MutexLock lock(framework_.mutex_);
        if (bundle_.worker == self) {
            throw failure(bundle, "must not be started or stopped by its own activator.");
        }
        while (bundle_.worker != std::thread::id()) framework_.turnEnded_.wait(lock.native());
        bundle_.worker = self;
    }
    ~Turn() {
        MutexLock lock(framework_.mutex_);
        bundle_.worker = std::thread::id();
        framework_.turnEnded_.notify_all();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    FrameworkCore& framework_;
    BundleRecord& bundle_;
};

/// Held by every handle of a framework and of its bundles, by nothing else.
struct FrameworkCore::Life {
    const std::shared_ptr<FrameworkCore> core;
    ~Life() { core->stopFramework(); }
};

FrameworkCore::FrameworkCore()
    : system_(std::make_shared<BundleRecord>("System Bundle", Manifest{"system_bundle"})) {}

Bundle FrameworkCore::make() {
    const auto core = std::make_shared<FrameworkCore>();
    const std::shared_ptr<Life> life(new Life{core});
    core->life_ = life;
    return {core->running(), core->system_};
}

std::shared_ptr<FrameworkCore> FrameworkCore::running() {
    if (auto life = life_.lock()) return {std::move(life), this};
    return shared_from_this();
}

void FrameworkCore::start(const BundlePtr& bundle) {
    if (bundle == system_) return startFramework();
    const Turn turn(*this, *bundle);
    {
        MutexLock lock(mutex_);
        if (std::ranges::count(bundles_, bundle) == 0) {
            throw failure(*bundle, "is not in a running framework.");
        }
        if (bundle->state == Bundle::STATE_ACTIVE) return;
        bundle->state = Bundle::STATE_STARTING;
        beginContextLocked(bundle);
    }
    try {
        if (bundle->hasActivator) {
            bundle->library.start(bundle->location, bundle->symbolicName, BundleContext(contextOf(*bundle)));
        }
    } catch (...) {
        const std::string cause = currentExceptionText();
        endContext(*bundle);
        throw failure(*bundle, "failed to start: " + cause);
    }
    MutexLock lock(mutex_);
    bundle->state = Bundle::STATE_ACTIVE;
}

void FrameworkCore::stop(const BundlePtr& bundle) {
    if (bundle == system_) return stopFramework();
    const Turn turn(*this, *bundle);
    {
        MutexLock lock(mutex_);
        if (bundle->state != Bundle::STATE_ACTIVE) return;
        bundle->state = Bundle::STATE_STOPPING;
    }
    std::optional<std::string> cause;
    try {
        bundle->library.stopActivator(BundleContext(contextOf(*bundle)));
    } catch (...) {
        cause = currentExceptionText();
    }
    endContext(*bundle);
    if (cause) throw failure(*bundle, "failed to stop: " + *cause);
}

void FrameworkCore::startFramework() {
    MutexLock lock(mutex_);
    if (system_->state == Bundle::STATE_ACTIVE) return;
    if (system_->state == Bundle::STATE_STOPPING) throw std::runtime_error("The framework is stopping.");
    beginContextLocked(system_);
    system_->state = Bundle::STATE_ACTIVE;
}

void FrameworkCore::stopFramework() {
    std::vector<BundlePtr> bundles;
    {
        MutexLock lock(mutex_);
        if (system_->state != Bundle::STATE_ACTIVE) return;
        for (const auto& bundle : bundles_) {
            if (bundle->worker == std::this_thread::get_id()) {
                throw std::runtime_error("A framework must not be stopped by an activator of its bundles.");
            }
        }
        system_->state = Bundle::STATE_STOPPING;
        bundles.swap(bundles_);  // none can be started any more
    }
    for (auto bundle = bundles.rbegin(); bundle != bundles.rend(); ++bundle) {
        try {
            stop(*bundle);
        } catch (const std::exception&) {  // it is stopped even so, and nobody waits for the cause
        }
    }
    endContext(*system_);
}

void FrameworkCore::beginContextLocked(const BundlePtr& bundle) {
    bundle->context.reset(new ContextRecord{shared_from_this(), bundle});
}

void FrameworkCore::endContext(BundleRecord& bundle) {
    // The services first: no look-up finds one whose activator is deleted.
    services_.end(*contextOf(bundle));
    bundle.library.end(bundle.symbolicName);
    MutexLock lock(mutex_);
    bundle.context.reset();
    bundle.state = Bundle::STATE_RESOLVED;
}

BundlePtr FrameworkCore::install(const std::string& location) {
    const auto bundle = std::make_shared<BundleRecord>(location, readManifest(location));
    MutexLock lock(mutex_);
    if (system_->state != Bundle::STATE_ACTIVE) throw std::runtime_error("The framework is stopping.");
    for (const auto& other : bundles_) {
        if (other->location == location) return other;
        if (other->symbolicName == bundle->symbolicName) throw failure(*other, "is installed already.");
    }
    bundles_.push_back(bundle);
    return bundle;
}

Bundle::State FrameworkCore::stateOf(const BundleRecord& bundle) {
    MutexLock lock(mutex_);
    return bundle.state;
}

std::shared_ptr<ContextRecord> FrameworkCore::contextOf(const BundleRecord& bundle) {
    MutexLock lock(mutex_);
    return bundle.context;
}

}  // namespace cppmicroservices::detail
