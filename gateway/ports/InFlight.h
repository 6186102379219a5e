#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/RequestNames.h"
#include "ports/InterpreterPort.h"

namespace gateway::ports {

/// The requests that one process of an interpreter has been sent and has not ended, by the ids of their
/// frames.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf; nothing is answered under it.
class InFlight {
public:
    using Answered = InterpreterPort::Answered;
    using Taken = InterpreterPort::Taken;
    using Time = std::chrono::steady_clock::time_point;

    struct Request {
        std::string typeName;
        std::size_t bytes = 0;  ///< of its body
        Answered answered;
    };
    /// Streamed code.
    struct Stream {
        std::string name;
        std::size_t bytes = 0;  ///< of its code, until the process has got it
        std::string clientType;
        Taken taken;  ///< null once it was called
        Time replyUntil;
        std::shared_ptr<connector::common::RequestNames::Reservation> reservation;
        /// The client's count of what is under way.
        std::shared_ptr<connector::common::ClientRequests::Entry> ofClient;
    };

    /// The id of its frame; 0 after takeAll(): then nothing is moved from it.
    std::uint64_t add(Request&& request) CONNECTOR_EXCLUDES(mutex_);
    std::uint64_t add(Stream&& stream) CONNECTOR_EXCLUDES(mutex_);

    /// The three give back nothing for an id that is not known.
    std::optional<Request> takeRequest(std::uint64_t id) CONNECTOR_EXCLUDES(mutex_);
    /// Whom to tell that the code is taken, or is not.
    Taken takeReply(std::uint64_t id) CONNECTOR_EXCLUDES(mutex_);
    std::optional<Stream> takeStream(std::uint64_t id) CONNECTOR_EXCLUDES(mutex_);

    /// Whom nobody has told in time whether their code is taken.
    std::vector<Taken> takeOverdue(Time now) CONNECTOR_EXCLUDES(mutex_);

    struct All {
        std::vector<Request> requests;
        std::vector<Stream> streams;
    };
    /// No more are added from now on.
    All takeAll() CONNECTOR_EXCLUDES(mutex_);

    std::size_t count() const CONNECTOR_EXCLUDES(mutex_);
    /// Of the bodies of requests that are not answered, and of code that is not taken.
    std::size_t bytes() const CONNECTOR_EXCLUDES(mutex_);

private:
    mutable connector::Mutex mutex_;
    bool isClosed_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::uint64_t last_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::size_t bytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::map<std::uint64_t, Request> requests_ CONNECTOR_GUARDED_BY(mutex_);
    std::map<std::uint64_t, Stream> streams_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::ports
