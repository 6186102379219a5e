#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "output/PlacedEvents.h"
#include "output/RunningRequests.h"
#include "python/errorReport.h"

namespace standalone {

/// Tells clients of one evaluation of a client: the events `evaluation`, when it begins and when it has
/// ended, and `error`. Nothing is told of the system's own code, nor of code that no request runs.
///
/// Threads: the interpreter thread with the interpreter's lock.  Owns: borrows all that it is made with.
class EvaluationEvents {
public:
    /// Raises the event of the beginning of evaluation `number`. `innermost` is this one until it goes.
    EvaluationEvents(PlacedEvents& events, const RunningRequest* request, std::uint64_t number,
                     const std::u16string& code, const EvaluationEvents*& innermost);
    /// Ends it, if that has not happened: without a description of what went wrong.
    ~EvaluationEvents();
    EvaluationEvents(const EvaluationEvents&) = delete;
    EvaluationEvents& operator=(const EvaluationEvents&) = delete;

    std::uint64_t number() const { return number_; }
    std::chrono::steady_clock::time_point since() const { return begin_; }

    /// Raises the event of the error that ends it. `isAlone`: nothing else tells of it, so that the name
    /// which may have been meant is added.
    void fail(const CodeError& failure, bool isAlone);
    /// Raises the event of its end.
    void end(bool isError);

private:
    TaggedEvent::Members members(const char* state) const;

    PlacedEvents& events_;
    const std::uint64_t number_;
    const std::u16string& code_;
    std::string clientType_;
    bool isToldOf_;
    const EvaluationEvents*& innermost_;
    const EvaluationEvents* const outer_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace standalone
