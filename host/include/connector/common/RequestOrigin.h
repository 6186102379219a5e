#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "connector/common/RequestNames.h"

namespace connector::common {

class ContextState;

/// How far the client that asked for code is behind with taking what comes of it.
///
/// Threads: every operation from any thread.
class ClientPace {
public:
    virtual ~ClientPace() = default;
    /// Whether who prints or posts for the client should wait: it keeps taking, and much is left. Cheap.
    /// Blocks: no.
    virtual bool isBehind() const = 0;
    /// Waits until it has caught up, or takes nothing any more, for `limit` at most.  Locks: none may be held
    /// that the client's messages need.
    virtual void waitUntilCaughtUp(std::chrono::milliseconds limit) = 0;
};

/// Whose request something comes from. It is in the context of each request, as a shared pointer under
/// `contextKey`, and goes with the context wherever the request goes; what is published under such a context
/// carries the name.
///
/// Threads: any; it does not change.
struct RequestOrigin {
    static constexpr const char* contextKey = "requestOrigin";
    static constexpr std::size_t longestName = 100;
    /// The context value of what a client types, or publishes as code: the number of the prompt that it is
    /// for (std::uint64_t), 0 for the base prompt. It is not there for what goes to any prompt.
    static constexpr const char* forPrompt = "forPrompt";

    /// Of letters, digits and -_.:~, so that it needs no escaping.
    std::string request;
    /// Null where nobody waits for the client.
    std::shared_ptr<ClientPace> pace = nullptr;
    /// Keeps the name from being used again; null where the server made it.
    std::shared_ptr<RequestNames::Reservation> reservation = nullptr;
    /// The number of the prompt that a message tells of; 0 for none.
    std::uint64_t prompt = 0;
    /// False for a prompt at which what is typed is not to be shown.
    bool echo = true;
    /// How the process of the interpreter has ended in which the request ran, as a JSON object; empty where
    /// it has not.
    std::string death = {};

    /// Whether it can be the name of a request.
    static bool isName(const std::string& name);
    /// A name that no other request of this process has.
    static std::string newName();

    /// Null where there is none.
    static std::shared_ptr<const RequestOrigin> of(const ContextState& context);
    /// That of the context that is current on this thread.
    static std::shared_ptr<const RequestOrigin> current();
    /// Puts it into the context, also for what the request causes.
    static void set(ContextState& context, RequestOrigin origin);
};

}  // namespace connector::common
