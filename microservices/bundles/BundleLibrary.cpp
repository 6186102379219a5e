// Only the code of a bundle has a name, which the header of activators requires.
#define US_BUNDLE_NAME none

#include "bundles/BundleLibrary.h"

#include <stdexcept>
#include <utility>

#include <Poco/Exception.h>

#include "cppmicroservices/BundleActivator.h"

namespace cppmicroservices::detail {

using SetContext = void(const BundleContext*);

template <class Function>
Function* BundleLibrary::symbol(const std::string& name) {
    if (!library_.hasSymbol(name)) throw std::runtime_error("the library does not export " + name);
    return reinterpret_cast<Function*>(library_.getSymbol(name));
}

void BundleLibrary::start(const std::string& path, const std::string& bundle, const BundleContext& context) {
    try {
        if (!library_.isLoaded()) library_.load(path, Poco::SharedLibrary::SHLIB_LOCAL);
    } catch (const Poco::LibraryLoadException& error) {
        throw std::runtime_error(error.message());  // what() has no more than the kind of the error
    }
    const auto create = symbol<BundleActivator*()>("_us_create_activator_" + bundle);
    destroy_ = symbol<void(BundleActivator*)>("_us_destroy_activator_" + bundle);
    setContext(bundle, &context);
    activator_ = create();
    activator_->Start(context);
}

void BundleLibrary::stopActivator(const BundleContext& context) {
    if (activator_ != nullptr) activator_->Stop(context);
}

void BundleLibrary::end(const std::string& bundle) {
    if (!library_.isLoaded()) return;
    setContext(bundle, nullptr);  // also of one whose activator could not be made
    if (activator_ != nullptr) destroy_(std::exchange(activator_, nullptr));
}

// A bundle that does not ask for its context need not have the symbol.
void BundleLibrary::setContext(const std::string& bundle, const BundleContext* context) {
    const std::string name = "_us_set_bundle_context_instance_" + bundle;
    if (library_.hasSymbol(name)) symbol<SetContext>(name)(context);
}

}  // namespace cppmicroservices::detail
