#include "InterpreterLives.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "JsonMembers.h"
#include "connector/wireWords.h"
#include "foundation/log/diagnostic_logger.h"
#include "functionCalls.h"

namespace jupyter {

namespace {

constexpr int cannotRestart = 501, refused = 409, tooMany = 429, unavailable = 503;
constexpr int mostAttempts = 60;
constexpr auto timeBetween = std::chrono::seconds(1);
constexpr int resetMs = 10'000;

}  // namespace

const char* InterpreterLives::state() const {
    if (state_ == State::Alive) return nullptr;
    return state_ == State::Dead ? "dead" : "restarting";
}

void InterpreterLives::enter(State state, const char* status) {
    state_ = state;
    publisher_.status("{}", status);
}

void InterpreterLives::noteDeath(std::string_view death) {
    isTold_ = true;
    noteDeath(JsonMembers(death).number("life"));
}

// Told by the completion of what ran and by the event, once for each life.
void InterpreterLives::noteDeath(std::uint64_t life) {
    if (life <= endedLife_) return;
    endedLife_ = life;
    if (state_ == State::Asked) return;
    hooks_.abortCells();
    enter(State::Returning, "restarting");
    start(mostAttempts);
}

// Any request starts the next life; front ends wait for it. One that finds no room says nothing of it;
// whether it cannot be started, events tell as well.
void InterpreterLives::start(int attempts) {
    callFunction(interpreter_, {.name = "len", .arguments = "[[]]"},
                 lifetime_.guarded([this, attempts](const CallResult& result) {
                     if (state_ != State::Returning) return;
                     if ((result.status == tooMany || result.status == unavailable) && attempts > 1) {
                         return executor_.postAfter(timeBetween, lifetime_.guarded([this, attempts] {
                             if (state_ == State::Returning) start(attempts - 1);
                         }));
                     }
                     if (result.status != 200) return enter(State::Dead, "dead");
                     goOn();
                 }));
}

void InterpreterLives::goOn() {
    enter(State::Alive, "idle");
    if (!std::exchange(isTold_, false)) {
        hooks_.tell("The interpreter was started anew; its variables are lost.");
    }
    hooks_.resume();
}

void InterpreterLives::noteState(std::string_view event) {
    const JsonMembers members(event);
    const std::string state = members.text("state");
    const std::uint64_t life = members.number("life");
    if (state == "dead") return noteDeath(life);
    if (state_ == State::Asked) return;
    if (state == "failed") {
        endedLife_ = std::max(endedLife_, life);
        if (state_ != State::Dead) enter(State::Dead, "dead");
    } else if (state == "starting" && life > 1) {
        if (state_ != State::Returning) enter(State::Returning, "restarting");
    } else if (state == "ready" && state_ != State::Alive) {
        goOn();
    }
}

void InterpreterLives::restart(Answered answered) {
    if (state_ == State::Asked) return answered(refused, "The interpreter is being restarted.");
    hooks_.abortCells();
    enter(State::Asked, "restarting");
    interpreter_.restart(
        lifetime_.guarded([this, answered = std::move(answered)](int status, const std::string& reason) {
            if (status == cannotRestart && isShared_) return reset(answered);
            restarted(status, reason, answered);
        }));
}

// The threads and modules of the interpreter stay.
void InterpreterLives::reset(const Answered& answered) {
    interpreter_.call(connector::wire::type::interrupt, "{}", [](int, const std::string&) {});
    callFunction(interpreter_,
                 {.name = "numora._notebook.reset",
                  .arguments = "[0]",
                  .dequeMode = "default",
                  .timeoutMs = resetMs,
                  .isInTurn = true},
                 lifetime_.guarded([this, answered](const CallResult& result) {
                     const int failed = result.status == 200 ? 503 : result.status;
                     restarted(result.problem.empty() ? 200 : failed, result.problem, answered);
                 }));
}

void InterpreterLives::restarted(int status, std::string reason, const Answered& answered) {
    if (status == 200) {
        isTold_ = false;
        hooks_.forgetAll();
        publisher_.status("{}", "starting");
        enter(State::Alive, "idle");
    } else if (status == cannotRestart) {
        state_ = State::Alive;  // whoever has started this process starts another one
    } else if (isShared_) {
        enter(State::Alive, "idle");
    } else {
        foundation::log::DiagnosticLogger("jupyter").error("The interpreter cannot be restarted: " + reason);
        enter(State::Dead, "dead");
    }
    answered(status, std::move(reason));
    hooks_.resume();
}

}  // namespace jupyter
