#pragma once

/// The words that clients see and that more than one folder writes or reads: names of message types and
/// channels, and the few bodies and members with fixed texts.

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace connector::wire {

/// Type names of messages. Over HTTP the path of a request is its type name after a slash.
namespace type {
inline constexpr const char* eval = "connector/v1/Eval";
inline constexpr const char* evalResponse = "connector/v1/EvalResponse";
inline constexpr const char* feval = "connector/v1/FEval";
inline constexpr const char* fevalResponse = "connector/v1/FEvalResponse";
inline constexpr const char* interrupt = "connector/v1/Interrupt";
inline constexpr const char* interruptResponse = "connector/v1/InterruptResponse";
inline constexpr const char* sequence = "connector/v1/Sequence";
}  // namespace type

namespace channel {
/// Code to run, or characters to type; the rest is what comes of it.
inline constexpr const char* evalRequest = "/eval/request";
inline constexpr const char* evalResponse = "/eval/response";
inline constexpr const char* allEvalResponses = "/eval/response/**";
inline constexpr const char* output = "/eval/response/output";
inline constexpr const char* error = "/eval/response/error";
inline constexpr const char* completion = "/eval/response/completion";
inline constexpr const char* clear = "/eval/response/commandwindow/clear";
inline constexpr const char* home = "/eval/response/commandwindow/home";
inline constexpr const char* suggestion = "/eval/response/suggest";
inline constexpr const char* prompt = "/eval/response/iqminput";

/// An event is on the channel with the interpreter's number and the event's tag below this.
inline constexpr const char* events = "/eventmgr";
inline constexpr const char* allEvents = "/eventmgr/**";

/// What the message service itself tells a client.
inline constexpr const char* notices = "/connector";
inline constexpr const char* gap = "/connector/gap";
inline constexpr const char* dropped = "/connector/dropped";
/// What becomes of the interpreter's process.
inline constexpr const char* interpreter = "/connector/interpreter";
}  // namespace channel

/// The texts on `channel::completion`.
namespace completion {
inline constexpr const char* success = "Done: success";
inline constexpr const char* failure = "Done: failure";
}  // namespace completion

namespace faultCode {
/// Whatever went wrong but for a time limit.
inline constexpr const char* code = "NUMORA.CodeError";
inline constexpr const char* timeout = "Request.Timeout";
}  // namespace faultCode

/// The words for the "dequeMode" of a call, each at the number of the state of the interpreter that it
/// stands for.
inline constexpr std::array<std::string_view, 7> dequeModes = {
    "default", "ppe", "pause", "prompt", "non_debug_prompt", "debug_prompt", "idle"};

/// The number of the word, 0 for an unknown one.
constexpr std::size_t dequeModeNumber(std::string_view word) {
    const auto* const found = std::ranges::find(dequeModes, word);
    return found == dequeModes.end() ? 0 : static_cast<std::size_t>(found - dequeModes.begin());
}

}  // namespace connector::wire
