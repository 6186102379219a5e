#include "cppmicroservices/Bundle.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "bundles/BundleRecord.h"
#include "bundles/FrameworkCore.h"
#include "cppmicroservices/BundleContext.h"
#include "references.h"

namespace cppmicroservices {

using detail::ServiceRecordPtr;

Bundle::Bundle(std::shared_ptr<detail::BundleRecord> record, std::shared_ptr<detail::FrameworkLife> life)
    : record_(std::move(record)), life_(std::move(life)) {}

Bundle& Bundle::operator=(std::nullptr_t) { return *this = Bundle(); }

const std::shared_ptr<detail::BundleRecord>& Bundle::checked() const {
    if (!record_) throw std::invalid_argument("invalid bundle");
    return record_;
}

bool Bundle::operator<(const Bundle& other) const { return checked()->id < other.checked()->id; }

// What runs here is foreign code, which may assign to this handle: a copy keeps the framework meanwhile.
void Bundle::Start() {
    const Bundle kept = *this;
    kept.checked()->start();
}
void Bundle::Start(std::uint32_t) { Start(); }

void Bundle::Stop() {
    const Bundle kept = *this;
    kept.checked()->stop();
}
void Bundle::Stop(std::uint32_t) { Stop(); }

void Bundle::Uninstall() {
    const Bundle kept = *this;
    kept.checked()->uninstall();
}

Bundle::State Bundle::GetState() const { return checked()->state(); }
BundleContext Bundle::GetBundleContext() const { return detail::Handles::context(checked()->context()); }
long Bundle::GetBundleId() const { return checked()->id; }
std::string Bundle::GetLocation() const { return checked()->location; }
std::string Bundle::GetSymbolicName() const { return checked()->symbolicName; }
BundleVersion Bundle::GetVersion() const { return checked()->version; }
const AnyMap& Bundle::GetHeaders() const { return checked()->headers; }

std::vector<ServiceReferenceU> Bundle::GetRegisteredServices() const {
    return detail::references(checked()->framework()->services().all(),
                              [this](const ServiceRecordPtr& record) { return record->owner() == record_; });
}

std::vector<ServiceReferenceU> Bundle::GetServicesInUse() const {
    return detail::references(
        checked()->framework()->services().all(),
        [this](const ServiceRecordPtr& record) { return std::ranges::count(record->users(), record_) > 0; });
}

}  // namespace cppmicroservices
