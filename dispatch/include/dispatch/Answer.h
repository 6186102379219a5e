#pragma once

#include <string>
#include <string_view>

namespace dispatch {

/// How a request was answered, in the terms of HTTP: 200, or what went wrong.
struct Answer {
    int status = 200;
    std::string json;       ///< the response's JSON object; for an error `{"error": "..."}`
    std::string type{};     ///< the response's type name; empty for an error
    std::string problem{};  ///< what went wrong; empty for a response
    int retrySeconds = 0;   ///< when trying again makes sense; 0 when it does not
    std::string death{};    ///< how the interpreter's process has ended that ran it, as JSON; or empty
    /// The request, or one of its sequence, was not run because an interrupt came after it.
    bool isDropped = false;
    /// As DispatcherMetrics counts it; empty where it does not, for a type that is not known.
    std::string outcome{};
};

/// The body of an answer that tells of an error: `{"error": "..."}`.
std::string errorJson(std::string_view text);

Answer errorAnswer(int status, std::string_view text, int retrySeconds = 0);

}  // namespace dispatch
