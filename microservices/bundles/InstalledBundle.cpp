#include "bundles/InstalledBundle.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include "bundles/FrameworkCore.h"
#include "bundles/describeException.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/IllegalStateException.h"
#include "cppmicroservices/SharedLibraryException.h"
#include "cppmicroservices/detail/Handles.h"

namespace cppmicroservices::detail {

namespace {

std::string symbolicNameIn(const AnyMap& headers) {
    const auto found = headers.find(Constants::BUNDLE_SYMBOLICNAME);
    const auto* name = found == headers.end() ? nullptr : any_cast<std::string>(&found->second);
    if (name == nullptr || name->empty()) {
        throw std::runtime_error("The manifest has no " + Constants::BUNDLE_SYMBOLICNAME + ".");
    }
    return *name;
}

BundleVersion versionIn(const AnyMap& headers) {
    const auto found = headers.find(Constants::BUNDLE_VERSION);
    if (found == headers.end()) return BundleVersion(0);
    const auto* text = any_cast<std::string>(&found->second);
    try {
        return BundleVersion(text != nullptr ? *text : "");
    } catch (const std::invalid_argument& error) {
        throw std::runtime_error(Constants::BUNDLE_VERSION + ": " + error.what());
    }
}

bool asksForActivator(const AnyMap& headers) {
    const auto found = headers.find(Constants::BUNDLE_ACTIVATOR);
    const bool* asks = found == headers.end() ? nullptr : any_cast<bool>(&found->second);
    return asks != nullptr && *asks;
}

}  // namespace

InstalledBundle::InstalledBundle(std::weak_ptr<FrameworkCore> framework, long id, std::string location,
                                 AnyMap headers)
    : BundleRecord(id, std::move(location), symbolicNameIn(headers), versionIn(headers), headers),
      framework_(std::move(framework)),
      hasActivator_(asksForActivator(headers)) {}

std::shared_ptr<FrameworkCore> InstalledBundle::framework() {
    auto framework = framework_.lock();
    if (!framework) throw IllegalStateException("The bundle's framework is gone.");
    return framework;
}

void InstalledBundle::start() {
    const auto core = framework();
    const OperationGate::Entry entry(gate_);
    if (!core->isRunning())
        throw std::runtime_error("The framework of bundle " + symbolicName + " is stopped.");
    if (state() == Bundle::STATE_UNINSTALLED) {
        throw std::logic_error("Bundle " + symbolicName + " is uninstalled.");
    }
    if (state() != Bundle::STATE_ACTIVE) startInside(*core);
}

void InstalledBundle::startInside(FrameworkCore& framework) {
    setState(Bundle::STATE_STARTING);
    try {
        const BundleContext context = Handles::context(makeContext());
        if (hasActivator_) {
            library_.load(location, framework.libraryLoadOptions(), Handles::bundle(shared_from_this()));
            library_.start(symbolicName, context);
        }
    } catch (const SharedLibraryException&) {
        endStart(framework);
        throw;
    } catch (...) {
        const std::string cause = describeCurrentException();
        endStart(framework);
        throw std::runtime_error("Bundle " + symbolicName + " at " + location + " failed to start: " + cause);
    }
    setState(Bundle::STATE_ACTIVE);
}

void InstalledBundle::stop() {
    const auto core = framework();
    const OperationGate::Entry entry(gate_);
    if (state() == Bundle::STATE_ACTIVE) stopInside(*core);
}

void InstalledBundle::stopInside(FrameworkCore& framework) {
    setState(Bundle::STATE_STOPPING);
    std::optional<std::string> failure;
    try {
        library_.stopActivator(Handles::context(context()));
    } catch (...) {
        failure = describeCurrentException();
    }
    endStart(framework);
    if (failure) {
        throw std::runtime_error("Bundle " + symbolicName + " at " + location +
                                 " failed to stop: " + *failure);
    }
}

void InstalledBundle::endStart(FrameworkCore& framework) {
    // The services first: no look-up finds one whose activator is gone.
    endContext(framework);
    library_.end(symbolicName);
    setState(Bundle::STATE_RESOLVED);
}

void InstalledBundle::uninstall() {
    const auto core = framework();
    const OperationGate::Entry entry(gate_);
    if (state() == Bundle::STATE_UNINSTALLED) {
        throw std::logic_error("Bundle " + symbolicName + " is uninstalled already.");
    }
    try {
        if (state() == Bundle::STATE_ACTIVE) stopInside(*core);
    } catch (const std::runtime_error& error) {
        core->report(error.what());
    }
    core->remove(*this);
    setState(Bundle::STATE_UNINSTALLED);
}

}  // namespace cppmicroservices::detail
