#include "bundles/BundleRecord.h"

#include "bundles/FrameworkCore.h"
#include "cppmicroservices/IllegalStateException.h"

namespace cppmicroservices::detail {

std::shared_ptr<BundleRecord> ContextRecord::bundle() const {
    auto bundle = bundle_.lock();
    if (!bundle || !isValid()) throw IllegalStateException("The bundle's context is no longer valid.");
    return bundle;
}

BundleRecord::~BundleRecord() = default;

std::shared_ptr<ContextRecord> BundleRecord::makeContext() {
    auto context = std::make_shared<ContextRecord>(weak_from_this());
    context_.exchange(context);
    return context;
}

void BundleRecord::endContext(FrameworkCore& framework) {
    if (const auto context = context_.get()) framework.services().end(*context, *this);
    context_.exchange(nullptr);
}

}  // namespace cppmicroservices::detail
