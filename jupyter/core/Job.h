#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <utility>

#include "CellOutput.h"
#include "Request.h"
#include "connector/common/RequestOrigin.h"

namespace jupyter {

/// How something has ended that has run in the interpreter.
struct JobEnd {
    bool abortsCells = false;                      ///< the cells that wait are not to run
    std::chrono::system_clock::time_point time{};  ///< from before clients are told
    bool endsKernel = false;                       ///< code has asked for that
    std::string death{};  ///< of the interpreter's process, as JSON; empty where it goes on
};

/// A request of a client that runs in the interpreter, in its turn. Its name is that of all its events: its
/// "msg_id" where it can be, which code is told for the message that it runs for.
///
/// Threads: on the kernel's executor.
class Job {
public:
    /// Called last, and never within `begin`.
    using Ended = std::function<void(JobEnd)>;

    Job(RequestPtr request, Publisher& publisher)
        : request_(std::move(request)),
          name_(nameFor(*request_)),
          output_(publisher, request_->message.header) {}
    virtual ~Job() = default;
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;

    const RequestPtr& request() const { return request_; }
    /// The header of the request.
    const std::string& parent() const { return request_->message.header; }
    const std::string& name() const { return name_; }
    CellOutput& output() { return output_; }

    virtual bool isCell() const = 0;
    virtual void begin() = 0;
    /// An event with its name.
    virtual void take(const InterpreterEvent& event) { output_.take(event); }
    virtual void noteInterrupt() {}

private:
    static std::string nameFor(const Request& request) {
        using connector::common::RequestOrigin;
        return RequestOrigin::isName(request.id) ? request.id : RequestOrigin::newName();
    }

    const RequestPtr request_;
    const std::string name_;
    CellOutput output_;
};

}  // namespace jupyter
