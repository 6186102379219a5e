#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include <boost/optional.hpp>

#include "foundation/msg_svc/eventmgr/BaseEvent.h"
#include "zvm/identities.h"

namespace foundation::msg_svc::eventmgr {

/// One subscription.
class Connection {
public:
    virtual ~Connection() = default;
    /// Ends the subscription. Does nothing the second time.
    /// Blocks: until a handler that is running on another thread has returned; from within the handler it
    /// does not.
    virtual void disconnect() = 0;
};

/// Ends its subscription when it is destroyed. Move-only.
class ScopedConnection {
public:
    ScopedConnection() = default;
    explicit ScopedConnection(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {}
    ~ScopedConnection() { disconnect(); }
    ScopedConnection(ScopedConnection&&) = default;
    ScopedConnection& operator=(ScopedConnection&& other) noexcept {
        if (this != &other) assign(std::move(other.connection_));
        return *this;
    }

    /// Ends the subscription held so far and takes over `connection`.
    void assign(std::unique_ptr<Connection> connection) {
        disconnect();
        connection_ = std::move(connection);
    }
    void disconnect() {
        if (auto connection = std::move(connection_)) connection->disconnect();
    }

private:
    std::unique_ptr<Connection> connection_;
};

/// Delivers the interpreter's events to whoever subscribed.
///
/// Threads: every operation from any thread. Handlers run one at a time, in the order of the events.
class EventMgr {
public:
    using Handler = std::function<void(const BaseEvent&)>;

    virtual ~EventMgr() = default;

    /// Calls `handler` for every event of type `E`, until the connection is ended. Subscribing to BaseEvent
    /// with a user tag receives every event that carries the tag. An exception that the handler throws goes
    /// to processExceptionFromEventHandler and no further. Throws: std::bad_alloc.
    template <class E, class F>
    std::unique_ptr<Connection> subscribe(F handler, const std::u16string& userTag = {}) {
        return subscribeImpl(E::typeName, userTag, [handler = std::move(handler)](const BaseEvent& event) {
            handler(static_cast<const E&>(event));
        });
    }

    /// Delivers `event` and returns when its handlers have run. Does nothing when there are none. A handler
    /// may raise an event itself.
    /// Blocks: while handlers run, so the caller holds no lock that one of them takes.
    template <class E>
    void raise(E&& event) {
        if (auto shared = shareIfHeard(std::forward<E>(event))) raiseImpl(std::move(shared));
    }

    /// Whether a subscription may match events of this type. Never false when one does.
    virtual bool hasSubscriptions(const TypeInformation&) const { return true; }

    /// The calls that have led here, one a line.
    virtual std::string GetStackTrace() const;
    /// Reports an exception that a handler has thrown, together with the stack trace of the thread that
    /// called it. Called while the exception is being handled. The base writes both to the log.
    virtual void processExceptionFromEventHandler(const std::string& stackTrace);

protected:
    /// A copy of `event` that may outlive the caller's, or null when nobody listens.
    template <class E>
    std::shared_ptr<const BaseEvent> shareIfHeard(E&& event) const {
        if (!hasSubscriptions(event.getTypeInformation())) return nullptr;
        return std::make_shared<const std::remove_cvref_t<E>>(std::forward<E>(event));
    }

    virtual void raiseImpl(std::shared_ptr<const BaseEvent> event) = 0;
    virtual std::unique_ptr<Connection> subscribeImpl(std::u16string typeName, std::u16string userTag,
                                                      Handler handler) = 0;
};

}  // namespace foundation::msg_svc::eventmgr

namespace nmutil::eventmgr {

/// The event manager of the interpreter that `id` names, or of the local one.
/// Threads: any.  Throws: std::runtime_error when no environment is installed or the interpreter is unknown.
std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> createLocalEventMgr(
    const boost::optional<zvm::ZvmID>& id = boost::none);

}  // namespace nmutil::eventmgr
