#include "services/processFramework.h"

#include <cstdlib>
#include <exception>
#include <memory>
#include <stdexcept>

#include "cppmicroservices/BundleContext.h"
#include "cppmicroservices/Constants.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "foundation/log/diagnostic_logger.h"
#include "host/libraryFolder.h"

namespace standalone {

namespace fs = std::filesystem;
using cppmicroservices::Bundle;
using cppmicroservices::Framework;

namespace {

std::string lastComponent(const std::string& path) { return path.substr(path.find_last_of("/\\") + 1); }

/// Calls `action`; what it throws is logged with the name of the bundle.
template <class Action>
bool succeeds(const std::string& name, const Action& action) {
    static const foundation::log::DiagnosticLogger log("foundation::cppmicroservices");
    std::string cause = "an exception of an unknown type";
    try {
        action();
        return true;
    } catch (const std::exception& error) {
        cause = error.what();
    } catch (...) {
    }
    log.error("Bundle " + name + " is not available: " + cause);
    return false;
}

void startWithActivator(Bundle& bundle) {
    const auto& headers = bundle.GetHeaders();
    const auto header = headers.find(cppmicroservices::Constants::BUNDLE_ACTIVATOR);
    const bool* hasActivator =
        header == headers.end() ? nullptr : cppmicroservices::any_cast<bool>(&header->second);
    if (hasActivator == nullptr || !*hasActivator) {
        throw std::runtime_error("\"" + cppmicroservices::Constants::BUNDLE_ACTIVATOR +
                                 "\" must be true in the manifest of " + bundle.GetLocation());
    }
    bundle.Start();
}

}  // namespace

Framework processFramework() {
    static Framework& framework = *[] {
        auto made = std::make_unique<Framework>(cppmicroservices::FrameworkFactory().NewFramework());
        made->Start();
        return made.release();
    }();
    return framework;
}

fs::path bundleLibrary(const std::string& path) {
    const std::string file = "lib" + lastComponent(path) + ".so";
    std::error_code error;
    if (const char* folder = std::getenv("NUMORA_BUNDLES"); folder != nullptr && *folder != '\0') {
        const auto library = fs::weakly_canonical(fs::absolute(folder, error) / file, error);
        if (fs::exists(library, error)) return library;
    }
    return fs::weakly_canonical(host::libraryFolder() / NUMORA_BUNDLES_FROM_LIBRARY / file, error);
}

std::vector<Bundle> installAndStartBundles(const std::string& path) {
    std::vector<Bundle> bundles;
    const auto install = [&] {
        bundles = processFramework().GetBundleContext().InstallBundles(bundleLibrary(path).string());
    };
    if (!succeeds(lastComponent(path), install)) return {};
    std::erase_if(bundles, [](Bundle& bundle) {
        return !succeeds(bundle.GetSymbolicName(), [&] { startWithActivator(bundle); });
    });
    return bundles;
}

}  // namespace standalone
