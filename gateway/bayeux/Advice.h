#pragma once

#include <chrono>
#include <string>

namespace gateway::bayeux {

/// What the server advises clients to do next, as the member `,"advice":{...}` of a reply. It is always
/// complete, because clients may take it in place of all that they were advised before.
///
/// Threads: any.
class Advice {
public:
    using Milliseconds = std::chrono::milliseconds;

    Advice(Milliseconds timeout, Milliseconds maxInterval)
        : rest_(",\"timeout\":" + std::to_string(timeout.count()) +
                ",\"maxInterval\":" + std::to_string(maxInterval.count()) + "}") {}

    /// Go on, after `interval`.
    std::string retry(Milliseconds interval = {}) const { return with("retry", interval); }
    /// Begin anew. Not for a successful reply.
    std::string handshake() const { return with("handshake", {}); }
    /// Give up.
    std::string none() const { return with("none", {}); }

private:
    std::string with(const char* reconnect, Milliseconds interval) const {
        return std::string(R"(,"advice":{"reconnect":")") + reconnect + R"(","interval":)" +
               std::to_string(interval.count()) + rest_;
    }

    const std::string rest_;
};

}  // namespace gateway::bayeux
