#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "Lifetime.h"
#include "Publisher.h"
#include "jupyter/Executor.h"
#include "jupyter/Interpreter.h"

namespace jupyter {

/// Tells clients what becomes of the interpreter's process, and restarts it.
///
///     alive -- a death, another life that begins --> returning -- it takes requests --> alive
///       |                                               '-- it cannot be started -----> dead
///       '-- restart (from anywhere) ---------------> asked -----'--'
///
/// Threads: on the kernel's executor.
class InterpreterLives {
public:
    /// With an HTTP status and, where it is not 200, the reason.
    using Answered = std::function<void(int status, std::string reason)>;
    struct Hooks {
        std::function<void()> abortCells;
        std::function<void()> forgetAll;  ///< the count; the history begins a session
        std::function<void()> resume;     ///< the state is another one
        std::function<void(const std::string& line)> tell;
    };

    /// `isShared`: where the process cannot be restarted, its variables are cleared.
    InterpreterLives(Executor& executor, Interpreter& interpreter, Publisher& publisher, bool isShared,
                     Hooks hooks)
        : executor_(executor),
          interpreter_(interpreter),
          publisher_(publisher),
          isShared_(isShared),
          hooks_(std::move(hooks)) {}

    /// `death` as in the completion of what ran.
    void noteDeath(std::string_view death);
    /// What has come on "/connector/interpreter".
    void noteState(std::string_view event);
    /// 501 where the process cannot be restarted and is not shared.
    void restart(Answered answered);

    /// Cells wait meanwhile.
    bool isRestarting() const { return state_ == State::Asked; }
    /// As a status; null while it is alive.
    const char* state() const;

private:
    enum class State { Alive, Returning, Asked, Dead };

    void enter(State state, const char* status);
    void noteDeath(std::uint64_t life);
    void start(int attempts);
    void goOn();
    void restarted(int status, std::string reason, const Answered& answered);
    void reset(const Answered& answered);

    Executor& executor_;
    Interpreter& interpreter_;
    Publisher& publisher_;
    const bool isShared_;
    const Hooks hooks_;
    State state_ = State::Alive;
    std::uint64_t endedLife_ = 0;
    bool isTold_ = false;  // by the error of a cell, that variables are lost
    const Lifetime lifetime_;
};

}  // namespace jupyter
