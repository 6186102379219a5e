#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bayeux/ClientMessage.h"
#include "messages/ClientSession.h"

namespace gateway::ports {
class InterpreterPort;
}

namespace gateway::bayeux {

/// What one client is subscribed to. The names of a message are taken all or none.
///
/// Threads: one at a time.  Blocks: while watchers in the process are told.
class Subscriptions {
public:
    Subscriptions(const ports::InterpreterPort& port, std::shared_ptr<messages::ClientSession> session,
                  std::size_t limit)
        : port_(port), session_(std::move(session)), limit_(limit) {}

    /// Both return the reply. With `ext.connector.after` a subscription begins with what is kept of the
    /// messages after that number.
    std::string subscribe(const ClientMessage& message);
    std::string unsubscribe(const ClientMessage& message);

private:
    const ports::InterpreterPort& port_;
    const std::shared_ptr<messages::ClientSession> session_;
    const std::size_t limit_;
    std::set<std::string> patterns_;
};

}  // namespace gateway::bayeux
