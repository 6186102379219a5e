#include "bundles/FrameworkCore.h"

#include <algorithm>
#include <iterator>
#include <ostream>
#include <stdexcept>

#include <dlfcn.h>

#include "bundles/describeException.h"
#include "bundles/manifest.h"
#include "cppmicroservices/Constants.h"

namespace cppmicroservices::detail {

using connector::MutexLock;

namespace {

int loadOptionsIn(const FrameworkConfiguration& configuration) {
    const auto found = configuration.find(Constants::LIBRARY_LOAD_OPTIONS);
    return found == configuration.end() ? RTLD_LAZY | RTLD_LOCAL : any_cast<int>(found->second);
}

/// Joins `thread`. On that thread itself, which happens when the code of a bundle that it stops lets the last
/// handle go, nobody is left who could; it touches nothing but the core, which it holds, and ends.
void finish(std::thread& thread) {
    if (!thread.joinable()) return;
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

}  // namespace

FrameworkCore::FrameworkCore(const FrameworkConfiguration& configuration, std::ostream* logger)
    : BundleRecord(0, Constants::SYSTEM_BUNDLE_LOCATION, Constants::SYSTEM_BUNDLE_SYMBOLICNAME,
                   BundleVersion(0), AnyMap(AnyMap::UNORDERED_MAP_CASEINSENSITIVE_KEYS)),
      libraryLoadOptions_(loadOptionsIn(configuration)),
      logger_(logger) {}

FrameworkCore::~FrameworkCore() = default;

std::shared_ptr<FrameworkCore> FrameworkCore::framework() {
    return std::static_pointer_cast<FrameworkCore>(shared_from_this());
}

bool FrameworkCore::isRunning() const {
    return state() == Bundle::STATE_STARTING || state() == Bundle::STATE_ACTIVE;
}

void FrameworkCore::init() {
    MutexLock lock(mutex_);
    initLocked();
}

void FrameworkCore::initLocked() {
    if (isRunning()) return;
    if (state() == Bundle::STATE_STOPPING) throw std::runtime_error("The framework is stopping.");
    makeContext();
    setState(Bundle::STATE_STARTING);
}

void FrameworkCore::start() {
    MutexLock lock(mutex_);
    initLocked();
    setState(Bundle::STATE_ACTIVE);
}

void FrameworkCore::uninstall() { throw std::runtime_error("The framework itself cannot be uninstalled."); }

void FrameworkCore::stop() {
    std::thread thread;
    {
        MutexLock lock(mutex_);
        if (!isRunning()) return;
        thread =
            std::thread([core = framework()] { core->stopAll(); });  // it begins by waiting for the mutex
        setState(Bundle::STATE_STOPPING);
        thread.swap(stopThread_);
    }
    finish(thread);  // that of an earlier stop, which has done its work
}

void FrameworkCore::stopAll() {
    std::vector<std::shared_ptr<InstalledBundle>> bundles;
    {
        MutexLock lock(mutex_);
        bundles = bundles_;
    }
    for (auto bundle = bundles.rbegin(); bundle != bundles.rend(); ++bundle) {
        try {
            (*bundle)->stop();
        } catch (...) {
            report(describeCurrentException());
        }
    }
    endContext(*this);
    for (const auto& bundle : bundles) bundle->forget();
    MutexLock lock(mutex_);
    bundles_.clear();
    setState(Bundle::STATE_RESOLVED);
    ++stopCount_;
    stopped_.notify_all();
}

FrameworkEvent::Type FrameworkCore::waitForStop(std::chrono::milliseconds timeout) {
    using std::chrono::steady_clock;
    // Far enough, and not beyond what the clock can count.
    const auto deadline =
        steady_clock::now() + std::min<std::chrono::milliseconds>(timeout, std::chrono::years(1));
    MutexLock lock(mutex_);
    const auto isStopThread = stopThread_.get_id() == std::this_thread::get_id();
    if (state() == Bundle::STATE_INSTALLED || isStopThread) return FrameworkEvent::FRAMEWORK_ERROR;
    const auto before = stopCount_;
    while (stopCount_ == before && state() != Bundle::STATE_RESOLVED) {
        if (timeout == std::chrono::milliseconds::zero()) {
            stopped_.wait(lock.native());
        } else if (stopped_.wait_until(lock.native(), deadline) == std::cv_status::timeout) {
            return FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT;
        }
    }
    return FrameworkEvent::FRAMEWORK_STOPPED;
}

void FrameworkCore::endLife() {
    stop();
    std::thread thread;
    {
        MutexLock lock(mutex_);
        thread.swap(stopThread_);
    }
    finish(thread);
}

FrameworkCore::Records FrameworkCore::install(const std::string& location, const AnyMap& manifest) {
    {
        MutexLock lock(mutex_);
        if (auto installed = bundlesAtLocked(location); !installed.empty()) return installed;
    }
    std::vector<std::shared_ptr<InstalledBundle>> added;
    for (AnyMap& headers : readManifests(location, manifest)) {
        added.push_back(
            std::make_shared<InstalledBundle>(framework(), takeId(), location, std::move(headers)));
    }
    MutexLock lock(mutex_);
    if (!isRunning()) throw std::runtime_error("The framework is stopping.");
    // Another thread may have installed the same meanwhile.
    if (auto installed = bundlesAtLocked(location); !installed.empty()) return installed;
    for (const auto& bundle : added) checkIsFreeLocked(*bundle);
    bundles_.insert(bundles_.end(), added.begin(), added.end());
    return {added.begin(), added.end()};
}

long FrameworkCore::takeId() {
    MutexLock lock(mutex_);
    return ++lastId_;
}

void FrameworkCore::checkIsFreeLocked(const BundleRecord& bundle) const {
    for (const auto& other : bundles_) {
        if (other->symbolicName == bundle.symbolicName && other->version == bundle.version) {
            throw std::runtime_error("Bundle " + bundle.symbolicName + " " + bundle.version.ToString() +
                                     " is installed already, from " + other->location + ".");
        }
    }
}

FrameworkCore::Records FrameworkCore::bundlesAtLocked(const std::string& location) const {
    Records found;
    std::ranges::copy_if(bundles_, std::back_inserter(found),
                         [&](const auto& bundle) { return bundle->location == location; });
    return found;
}

void FrameworkCore::remove(const BundleRecord& bundle) {
    MutexLock lock(mutex_);
    std::erase_if(bundles_, [&](const auto& other) { return other.get() == &bundle; });
}

FrameworkCore::Records FrameworkCore::bundles() {
    Records all{shared_from_this()};
    MutexLock lock(mutex_);
    all.insert(all.end(), bundles_.begin(), bundles_.end());
    return all;
}

void FrameworkCore::report(const std::string& text) {
    if (logger_ == nullptr) return;
    MutexLock lock(reportMutex_);
    *logger_ << text << std::endl;
}

}  // namespace cppmicroservices::detail
