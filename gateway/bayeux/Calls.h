#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>

#include "bayeux/Request.h"
#include "standalone/ClientSession.h"

namespace gateway {
class RequestDispatcher;
}

namespace gateway::bayeux {

/// The remote calls of one session. A call is acknowledged at once and answered later, by a message in the
/// session's queue, behind what was published for it before.
///
/// Threads: one at a time; answers come from threads of the dispatcher, also when this is gone.
class Calls {
public:
    Calls(RequestDispatcher& dispatcher, std::shared_ptr<standalone::ClientSession> session,
          std::size_t limit)
        : dispatcher_(dispatcher), session_(std::move(session)), limit_(limit) {}

    /// Starts the call that a message on "/service/<type name>" asks for. Returns the acknowledgement, which
    /// is a failed one when the call is refused.
    std::string start(const Request& request);

private:
    class Call;

    RequestDispatcher& dispatcher_;
    const std::shared_ptr<standalone::ClientSession> session_;
    const std::size_t limit_;
    const std::shared_ptr<std::atomic<std::size_t>> underWay_ = std::make_shared<std::atomic<std::size_t>>(0);
};

}  // namespace gateway::bayeux
