#pragma once

#include <memory>
#include <string>

#include "connector/Future.h"
#include "connector/common/ContextState.h"

namespace connector::common {

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
