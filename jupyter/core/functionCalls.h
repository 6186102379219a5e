#pragma once

#include <functional>
#include <string>

#include "jupyter/Interpreter.h"

namespace jupyter {

/// A function of the interpreter's with one result.
struct FunctionCall {
    std::string name;
    std::string arguments = "[]";  ///< JSON
    std::string dequeMode = "ppe";
    int timeoutMs = 0;  ///< 0: no limit
    std::string uuid{};
    bool isInTurn = false;  ///< Interpreter::callInTurn
};

struct CallResult {
    int status = 200;     ///< as of HTTP
    std::string json{};   ///< the result
    std::string problem;  ///< why there is none; else empty
};

void callFunction(Interpreter& interpreter, const FunctionCall& call,
                  std::function<void(const CallResult&)> answered);

}  // namespace jupyter
