#include "StartingInterpreter.h"

#include <utility>

namespace app {

void StartingInterpreter::become(std::unique_ptr<jupyter::Interpreter> interpreter) {
    interpreter_ = std::move(interpreter);
    for (const auto& request : std::exchange(waiting_, {})) request(*interpreter_);
}

void StartingInterpreter::ask(Request request) {
    if (interpreter_) return request(*interpreter_);
    waiting_.push_back(std::move(request));
}

void StartingInterpreter::stream(const Code& code, Refused refused) {
    ask([code, refused = std::move(refused)](auto& interpreter) { interpreter.stream(code, refused); });
}

void StartingInterpreter::call(const std::string& type, std::string json, Answered answered) {
    ask([type, json = std::move(json), answered = std::move(answered)](auto& interpreter) {
        interpreter.call(type, json, answered);
    });
}

void StartingInterpreter::callInTurn(const std::string& type, std::string json, Answered answered) {
    ask([type, json = std::move(json), answered = std::move(answered)](auto& interpreter) {
        interpreter.callInTurn(type, json, answered);
    });
}

void StartingInterpreter::restart(Answered answered) {
    ask([answered = std::move(answered)](auto& interpreter) { interpreter.restart(answered); });
}

void StartingInterpreter::listen(std::function<void(const jupyter::InterpreterEvent&)> received,
                                 std::function<bool()> hasRoom) {
    ask([received = std::move(received), hasRoom = std::move(hasRoom)](auto& interpreter) {
        interpreter.listen(received, hasRoom);
    });
}

void StartingInterpreter::resume() {
    if (interpreter_) interpreter_->resume();
}

}  // namespace app
