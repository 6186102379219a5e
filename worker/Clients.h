#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "LinkPace.h"
#include "connector/ThreadSafety.h"
#include "connector/common/ClientRequests.h"
#include "link/FrameWriter.h"

namespace worker {

/// The clients of the gateway, by the numbers that it has given them, for as long as something here is
/// theirs.
///
/// Threads: any.  Locks: mutex_; that of ClientRequests and of LinkPace may be taken under it. Requests are
/// taken back without it.
class Clients {
public:
    using ClientRequests = connector::common::ClientRequests;

    explicit Clients(std::shared_ptr<links::FrameWriter> writer) : writer_(std::move(writer)) {}

    std::shared_ptr<LinkPace> paceOf(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    /// Among which a request belongs that arrived then. One that an interrupt has overtaken on its way is
    /// taken back at once.
    std::shared_ptr<ClientRequests> requestsOf(std::uint64_t number, std::uint64_t arrivedNs)
        CONNECTOR_EXCLUDES(mutex_);

    void setBehind(std::uint64_t number, bool isBehind) CONNECTOR_EXCLUDES(mutex_);
    /// Notes that the client has interrupted, at that time.
    void noteInterrupt(std::uint64_t number, std::uint64_t arrivedNs) CONNECTOR_EXCLUDES(mutex_);
    /// Takes back what has not begun.
    void withdraw(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);

private:
    struct Client {
        std::shared_ptr<LinkPace> pace;
        std::shared_ptr<ClientRequests> requests;
        std::uint64_t interruptedNs = 0;
    };

    Client& findLocked(std::uint64_t number) CONNECTOR_REQUIRES(mutex_);
    void forgetLocked() CONNECTOR_REQUIRES(mutex_);

    const std::shared_ptr<links::FrameWriter> writer_;

    connector::Mutex mutex_;
    std::map<std::uint64_t, Client> clients_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t enough_ CONNECTOR_GUARDED_BY(mutex_) =
        64;  // clients before those that have nothing here are forgotten
};

}  // namespace worker
