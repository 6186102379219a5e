#pragma once

#include <chrono>
#include <memory>

#include "endpoints/Endpoints.h"
#include "gateway/GatewayOptions.h"
#include "http/RequestReader.h"

namespace gateway::http {

/// How large the body of a request may be, and how long it may take, which depends on who sends it.
///
/// Threads: one at a time.
class BodyLimits {
public:
    BodyLimits(endpoints::Endpoints& endpoints, const ConnectionLimits& limits)
        : endpoints_(endpoints), limits_(limits) {}

    /// A request that Endpoints::check has allowed.
    void begin(const HttpRequest& head);
    /// The body comes from now on.
    void beginBody() { start_ = Clock::now(); }
    /// Whether more may come after what has.
    bool allowMore(const RequestReader& request);
    /// The time until more has to come.
    std::chrono::milliseconds timeLeft(const RequestReader& request) const;
    void end() {
        permit_.reset();
        desk_.reset();
    }

private:
    using Clock = std::chrono::steady_clock;

    endpoints::Endpoints& endpoints_;
    const ConnectionLimits& limits_;
    std::shared_ptr<interpreters::Desk> desk_;
    bool isAuthenticated_ = false;  ///< by the token or, so far, by a session
    endpoints::Endpoints::LargeBodyPermit permit_;
    Clock::time_point start_;
};

}  // namespace gateway::http
