#pragma once

#include <chrono>

#include "cppmicroservices/Bundle.h"

namespace cppmicroservices {

class FrameworkEvent;

/// A handle of a framework, which is itself bundle 0, "system_bundle". See Bundle.
///
///     INSTALLED -- Init --> STARTING -- Start --> ACTIVE -- Stop --> STOPPING --> RESOLVED -- Init --> ...
///
/// A stop forgets all bundles, and every context that was given out stays invalid.
class Framework : public Bundle {
public:
    /// Throws: std::logic_error, when `bundle` is not that of a framework.
    explicit Framework(Bundle bundle);

    /// Makes the framework's context valid, without a start. Does nothing when it is.
    /// Throws: std::runtime_error, while the framework is stopping.
    void Init();

    /// Waits until the framework has stopped, for at most `timeout`; zero: without a limit. The event tells
    /// the outcome: FRAMEWORK_STOPPED, FRAMEWORK_WAIT_TIMEDOUT, or FRAMEWORK_ERROR when it was never started
    /// or when called by an activator that the framework is stopping.
    FrameworkEvent WaitForStop(const std::chrono::milliseconds& timeout);
};

}  // namespace cppmicroservices
