#include "cppmicroservices/Framework.h"

#include <stdexcept>
#include <utility>

#include "bundles/FrameworkCore.h"
#include "cppmicroservices/FrameworkEvent.h"
#include "cppmicroservices/FrameworkFactory.h"
#include "cppmicroservices/detail/Handles.h"

namespace cppmicroservices {

Framework FrameworkFactory::NewFramework() { return NewFramework({}); }

Framework FrameworkFactory::NewFramework(const FrameworkConfiguration& configuration, std::ostream* logger) {
    auto core = std::make_shared<detail::FrameworkCore>(configuration, logger);
    auto life = std::make_shared<detail::FrameworkLife>(core);
    core->setLife(life);
    return Framework(detail::Handles::bundle(std::move(core), std::move(life)));
}

Framework::Framework(Bundle bundle) : Bundle(std::move(bundle)) {
    if (GetBundleId() != 0) throw std::logic_error("Bundle " + GetSymbolicName() + " is no framework.");
}

void Framework::Init() { checked()->framework()->init(); }

FrameworkEvent Framework::WaitForStop(const std::chrono::milliseconds& timeout) {
    const auto outcome = checked()->framework()->waitForStop(timeout);
    switch (outcome) {
        case FrameworkEvent::FRAMEWORK_STOPPED:
            return {outcome, *this, "The framework has stopped."};
        case FrameworkEvent::FRAMEWORK_WAIT_TIMEDOUT:
            return {outcome, *this, "The framework has not stopped in time."};
        default:
            return {outcome, *this, "The framework was never started, or waits for itself."};
    }
}

}  // namespace cppmicroservices
