#pragma once

#include <memory>
#include <utility>

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

}  // namespace foundation::msg_svc::eventmgr
