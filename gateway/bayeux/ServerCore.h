#pragma once

#include <cstddef>
#include <string>
#include <utility>

#include "bayeux/ReadTurns.h"
#include "bayeux/ServerOptions.h"
#include "bayeux/replies.h"
#include "connector/identifiers.h"

namespace boost::asio {
class io_context;
}
namespace messages {
class LocalMessageService;
}
namespace gateway::ports {
class InterpreterPort;
}

namespace gateway::bayeux {

/// What sessions and sockets of one server share. It outlives the server as long as work of a session is
/// queued.
///
/// Threads: any.
struct ServerCore {
    ServerCore(boost::asio::io_context& ioContext, messages::LocalMessageService& messageService,
               ports::InterpreterPort& interpreterPort, ServerOptions serverOptions)
        : context(ioContext),
          messages(messageService),
          port(interpreterPort),
          options(std::move(serverOptions)),
          advice(options.timeout, options.maxInterval) {}

    boost::asio::io_context& context;
    messages::LocalMessageService& messages;
    ports::InterpreterPort& port;
    const ServerOptions options;
    const Advice advice;
    /// By which clients that come back tell whether the server was started again.
    const std::string name = connector::randomUuid();
    ReadTurns turns;
};

}  // namespace gateway::bayeux
