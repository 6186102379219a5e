#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "connector/common/ContextState.h"
#include "connector/common/RequestNames.h"
#include "connector/common/requests.h"
#include "dispatch/Answer.h"
#include "dispatch/RequestDispatcher.h"
#include "messages/ClientSession.h"
#include "messages/RequestCounter.h"
#include "ports/InterpreterState.h"

namespace gateway::ports {

/// What an interpreter has been asked for.
struct PortMetrics {
    dispatch::DispatcherMetrics requests;
    std::map<std::string, messages::RequestCounter::Counts> streaming;  ///< by the type of the client
};

/// The way of the gateway to one interpreter, wherever that runs.
///
/// Threads: every operation from any thread.
class InterpreterPort {
public:
    using Json = std::shared_ptr<const std::string>;
    using Context = std::shared_ptr<connector::common::ContextState>;
    using Answered = std::function<void(dispatch::Answer)>;
    /// The context value with the process that a request is for: its number (std::uint64_t), as life() tells.
    /// Where another one runs, the request is refused with 409.
    static constexpr const char* wantedLife = "interpreterLife";
    using Taken = std::function<void(connector::common::RequestRefusal)>;

    virtual ~InterpreterPort() = default;

    /// Asks for the answer to a message of type `typeName`: dispatch::RequestDispatcher::submit says which
    /// there are. Of the context go with it: the type of the client, its capabilities, and the requests that
    /// an interrupt takes back (connector::common::ClientRequests).
    /// `answered` is called once, on any thread, perhaps before this returns; it must be quick and throw
    /// nothing.  Blocks: never.
    virtual void submit(const std::string& typeName, Json json, Context context, Answered answered) = 0;

    /// Publishes, for the client of `session`, a request for code whose output is streamed. `taken` is called
    /// once, on any thread, perhaps before this returns: with the refusal, whose status is 0 when there is
    /// none. The origin in the context names the request.
    /// Throws: as ClientSession::publish.
    virtual void stream(messages::ClientSession& session, const std::string& channel, const std::string& json,
                        const Context& context, const Taken& taken) = 0;

    /// The names of the requests that have not ended.
    virtual const std::shared_ptr<connector::common::RequestNames>& names() const = 0;
    /// Whether requests would be served now.
    virtual bool isReady() const = 0;
    virtual PortMetrics metrics() const = 0;

    /// Which process of the interpreter it is: they are counted from 1. 0: there was none yet, or it is this.
    virtual std::uint64_t life() const = 0;
    virtual InterpreterState state() const = 0;
    /// How processes of the interpreter ended, the last ten at most, the newest first.
    virtual std::vector<supervisor::DeathRecord> deaths() const = 0;
    /// Starts its process, if there is none. `answered` is called as for `restart`.
    virtual void start(Answered answered) = 0;
    /// Ends the process of the interpreter, whatever it does, and starts another one. `force`: without
    /// asking it to end first. `life`: which process is meant; 409 when it is another one. `answered` is
    /// called once, on any thread, with an answer whose text is empty when the new process takes requests.
    virtual void restart(bool force, std::optional<std::uint64_t> life, Answered answered) = 0;

    /// How many clients there are, for an interpreter that is not to be ended while somebody watches: called
    /// on a thread of the io_context. To be set before the first request.
    virtual void setWatchers(std::function<std::size_t()> watchers) = 0;

    /// Answers what is queued, and what comes later, with 503; interrupts what runs.
    /// Blocks: until that has ended; for code that is streamed, only a moment.
    virtual void stop() = 0;
    /// The same for an interpreter that a client has deleted.
    virtual void stopDeleted() { stop(); }
    /// Whether nothing of it is left that could use the message service, once it has stopped.
    virtual bool isUnused() const { return true; }
};

}  // namespace gateway::ports
