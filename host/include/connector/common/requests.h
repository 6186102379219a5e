#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "connector/Future.h"
#include "connector/common/ContextState.h"

namespace connector::common {

/// The context value with the moment at which a request arrived, in nanoseconds of the steady clock
/// (std::uint64_t). It tells what came first where "requestStartTime" cannot: within one millisecond, and
/// after the system's clock has been set.
inline constexpr const char* requestArrival = "requestArrival";

/// Why a published request is not carried out. Whoever refuses it puts this into its context, before the
/// publishing returns, for the client to be told.
struct RequestRefusal {
    static constexpr const char* contextKey = "requestRefusal";

    int status = 0;      ///< as of HTTP
    std::string reason;  ///< says what must be
};

/// Now, as `requestArrival` counts.  Threads: any.
std::uint64_t arrivalNow();

/// Marks that the request with this context arrives now: sets "requestStartTime", in milliseconds of the
/// system clock, and `requestArrival`.  Threads: any.  Locks: that of the context.
void stampArrival(ContextState& context);

/// Says whether requests may be evaluated now.
class RequestGate {
public:
    virtual ~RequestGate() = default;
    /// Threads: any.  Blocks: no.
    virtual bool isOpen() = 0;
};

/// Is told when a request of a client that named its type starts and ends.
///
/// Threads: every operation from any thread.  Blocks: no; nobody waits for the futures.
class RequestTracker {
public:
    virtual ~RequestTracker() = default;
    virtual Future<void> requestStarted(const std::string& clientType,
                                        const std::shared_ptr<ContextState>& context) = 0;
    virtual Future<void> requestEnded(const std::string& clientType,
                                      const std::shared_ptr<ContextState>& context) = 0;
};

}  // namespace connector::common
