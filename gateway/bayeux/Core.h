#pragma once

#include <utility>

#include "bayeux/Advice.h"
#include "bayeux/BayeuxServer.h"
#include "bayeux/ConnectionTable.h"
#include "bayeux/Flusher.h"
#include "bayeux/SessionTable.h"

namespace gateway::bayeux {

/// What the parts of one server share. It outlives the server as long as work of a session is queued.
///
/// Threads: any.
class Core {
public:
    Core(boost::asio::io_context& ioContext, standalone::LocalMessageService& messageService,
         RequestDispatcher& requestDispatcher, ServerOptions serverOptions)
        : context(ioContext),
          messages(messageService),
          dispatcher(requestDispatcher),
          options(std::move(serverOptions)),
          flusher(std::make_shared<Flusher>(ioContext)),
          advice(options.timeout, options.maxInterval),
          sessions(options.handshakesPerSecond, options.sessionsPerPeer) {}

    boost::asio::io_context& context;
    standalone::LocalMessageService& messages;
    RequestDispatcher& dispatcher;
    const ServerOptions options;
    const std::shared_ptr<Flusher> flusher;
    const Advice advice;
    SessionTable sessions;
    ConnectionTable connections;
};

}  // namespace gateway::bayeux
