#pragma once

#include <memory>

#include "connector/message_service/MessageService.h"

namespace connector::interpreter {

/// Forwards events of interpreters to clients, as JSON.
///
/// A client that subscribes to "/eventmgr/<interpreter>/<tag>" gets every event that the interpreter's event
/// manager raises with that user tag, as a message on that channel. However many clients do so, there is one
/// subscription at the event manager; it ends with the last of theirs. An event is turned into JSON by the
/// service event_json_converter::EventToJsonConverter whose property "eventTag" has the tag, and dropped when
/// there is none.
///
///     made -- the message service arrives --> listening -- destroyed
///
/// What goes wrong is logged, as "connector::interpreter::v1::EventMgrBridge", and nobody else is told.
///
/// Threads: made and destroyed on any thread; notices of the message service and events from any.
/// Locks: one for the table of channels, held while the event manager is subscribed to, so that two first
/// subscriptions make one. Forwarding an event takes none, and connections end without it.
/// Owns: shares the message service.
class ConnectorEventMgrBridge {
public:
    /// Asks for the message service "eventmgr"; does not wait for it. The first one in the process that gets
    /// it starts the bundle of converters.
    /// Throws: std::runtime_error, when the factory gives no future; what the factory throws.
    explicit ConnectorEventMgrBridge(const std::shared_ptr<message_service::MessageServiceFactory>& factory);
    /// Ends all subscriptions.  Blocks: while notices are handled and events forwarded.
    ~ConnectorEventMgrBridge();
    ConnectorEventMgrBridge(const ConnectorEventMgrBridge&) = delete;
    ConnectorEventMgrBridge& operator=(const ConnectorEventMgrBridge&) = delete;

private:
    class Impl;
    const std::shared_ptr<Impl> impl_;
};

}  // namespace connector::interpreter
