#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jupyter/Interpreter.h"

namespace app {

/// Stands for an interpreter that is not there yet: what it is asked for waits until it is.
///
/// Threads: as Interpreter.
class StartingInterpreter : public jupyter::Interpreter {
public:
    /// Hands everything to `interpreter`, in its order.
    void become(std::unique_ptr<jupyter::Interpreter> interpreter);

    void stream(const Code& code, Refused refused) override;
    void call(const std::string& type, std::string json, Answered answered) override;
    void callInTurn(const std::string& type, std::string json, Answered answered) override;
    void restart(Answered answered) override;
    void listen(std::function<void(const jupyter::InterpreterEvent&)> received,
                std::function<bool()> hasRoom) override;
    void resume() override;

private:
    using Request = std::function<void(jupyter::Interpreter&)>;

    void ask(Request request);

    std::unique_ptr<jupyter::Interpreter> interpreter_;
    std::vector<Request> waiting_;
};

}  // namespace app
