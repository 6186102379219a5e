#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "bayeux/Advice.h"
#include "bayeux/BayeuxServer.h"
#include "bayeux/ConnectionTable.h"
#include "bayeux/ReadTurns.h"
#include "bayeux/Request.h"
#include "bayeux/SessionTable.h"

namespace gateway::bayeux {

/// What the parts of one server share. It outlives the server as long as work of a session is queued.
///
/// Threads: any.
class Core {
public:
    Core(boost::asio::io_context& ioContext, messages::LocalMessageService& messageService,
         dispatch::RequestDispatcher& requestDispatcher, ServerOptions serverOptions)
        : context(ioContext),
          messages(messageService),
          dispatcher(requestDispatcher),
          options(std::move(serverOptions)),
          advice(options.timeout, options.maxInterval),
          sessions(options.handshakesPerSecond, options.sessionsPerPeer) {}

    /// Whether a session is seen in the beginning of a text.
    bool showsSession(std::string_view text) const {
        return showsClientId(text, [this](const std::string& id) { return sessions.find(id) != nullptr; });
    }
    /// How many values may be read of a text, whose sender may have shown the token or a session before.
    std::size_t mostValues(bool isTrusted, std::string_view text) const {
        return isTrusted || showsSession(text) ? options.values : options.strangerValues;
    }

    boost::asio::io_context& context;
    messages::LocalMessageService& messages;
    dispatch::RequestDispatcher& dispatcher;
    const ServerOptions options;
    const Advice advice;
    ReadTurns turns;
    SessionTable sessions;
    ConnectionTable connections;
};

}  // namespace gateway::bayeux
