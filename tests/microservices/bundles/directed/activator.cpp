#include "bundles/testServices.h"
#include "cppmicroservices/BundleActivator.h"
#include "cppmicroservices/GetBundleContext.h"

namespace {

using cppmicroservices::BundleContext;
using test_services::Director;
using test_services::Probe;

class Activator : public cppmicroservices::BundleActivator {
public:
    void Start(BundleContext context) override {
        context.RegisterService<Probe>(std::make_shared<Probe>(Probe{cppmicroservices::GetBundleContext}));
        if (const auto director = context.GetServiceReference<Director>())
            context.GetService(director)->start(context);
    }
    void Stop(BundleContext context) override {
        if (const auto director = context.GetServiceReference<Director>())
            context.GetService(director)->stop(context);
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(Activator)
