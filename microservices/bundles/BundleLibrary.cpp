// The name of a bundle is needed by the header of its code only.
#define US_BUNDLE_NAME none

#include "bundles/BundleLibrary.h"

#include <cerrno>
#include <stdexcept>

#include <dlfcn.h>

#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/SharedLibraryException.h"

namespace cppmicroservices::detail {

void BundleLibrary::load(const std::string& path, int flags, const Bundle& bundle) {
    if (handle_ != nullptr) return;
    handle_ = ::dlopen(path.c_str(), flags);
    if (handle_ != nullptr) return;
    const char* error = ::dlerror();
    throw SharedLibraryException(std::error_code(ELIBACC, std::generic_category()),
                                 "The library of bundle " + bundle.GetSymbolicName() +
                                     " does not load: " + (error != nullptr ? error : path),
                                 bundle);
}

template <class Function>
Function* BundleLibrary::symbol(const char* prefix, const std::string& name) const {
    return reinterpret_cast<Function*>(::dlsym(handle_, (prefix + name).c_str()));
}

void BundleLibrary::start(const std::string& name, const BundleContext& context) {
    const auto create = symbol<BundleActivator*()>("_us_create_activator_", name);
    destroy_ = symbol<void(BundleActivator*)>("_us_destroy_activator_", name);
    if (create == nullptr || destroy_ == nullptr) {
        throw std::runtime_error("the library exports no activator of that name");
    }
    // Absent from a bundle whose code never asks for its context.
    if (const auto set = symbol<void(const BundleContext*)>("_us_set_bundle_context_instance_", name)) {
        set(&context);
    }
    activator_ = create();
    activator_->Start(context);
}

void BundleLibrary::stopActivator(const BundleContext& context) {
    if (activator_ != nullptr) activator_->Stop(context);
}

void BundleLibrary::end(const std::string& name) {
    if (handle_ == nullptr) return;
    if (const auto set = symbol<void(const BundleContext*)>("_us_set_bundle_context_instance_", name)) {
        set(nullptr);
    }
    if (activator_ != nullptr) destroy_(activator_);
    activator_ = nullptr;
}

}  // namespace cppmicroservices::detail
