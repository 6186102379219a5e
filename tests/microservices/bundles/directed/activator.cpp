#include <memory>

#include "bundles/testServices.h"
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/GetBundleContext.h"

namespace {

using cppmicroservices::BundleContext;
using test_services::Director;
using test_services::Probe;

class LocalProbe : public Probe {
public:
    BundleContext context() const override { return cppmicroservices::GetBundleContext(); }
};

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(BundleContext context) override {
        context.RegisterService<Probe>(std::make_shared<LocalProbe>());
        if (const auto director = directorIn(context)) director->atStart(context);
    }
    void Stop(BundleContext context) override {
        if (const auto director = directorIn(context)) director->atStop(context);
    }

private:
    static std::shared_ptr<Director> directorIn(BundleContext context) {
        const auto reference = context.GetServiceReference<Director>();
        return reference ? context.GetService(reference) : nullptr;
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
