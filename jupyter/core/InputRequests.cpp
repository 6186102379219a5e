#include "InputRequests.h"

#include <algorithm>
#include <utility>

#include "JsonMembers.h"
#include "connector/common/RequestOrigin.h"
#include "foundation/log/diagnostic_logger.h"
#include "lenientJson.h"

namespace jupyter {

using Kind = dispatch::Member::Kind;

namespace {

constexpr dispatch::Member replyMembers[] = {{"value", Kind::String, true}};
constexpr char endOfText = 3, endOfTransmission = 4;  // keys at a terminal
const std::string endOfInput(1, endOfTransmission);
constexpr int gone = 409;

foundation::log::DiagnosticLogger log() { return foundation::log::DiagnosticLogger("jupyter::input"); }

// The "msg_id" of the parent; empty where the reply names none.
std::string parentOf(const Request& reply) {
    std::string parent = reply.message.parent;
    if (parent.empty()) return {};
    return memberOr<std::string>(*parseLeniently(parent), "msg_id", "");
}

// What is typed beyond one line would run as code when nobody reads it, and some characters are keys.
std::string oneLine(std::string text) {
    if (text == endOfInput) return text;
    std::erase_if(text, [](char unit) { return unit == endOfText || unit == endOfTransmission; });
    std::ranges::replace_if(
        text, [](char unit) { return unit == '\n' || unit == '\r'; }, ' ');
    return text + '\n';
}

}  // namespace

void InputRequests::ask(const RequestPtr& cell, bool allowsInput, std::string_view event) {
    const JsonMembers question(event);
    Open open{.route = cell->message.route, .number = question.number("number")};
    if (!allowsInput) return type(open, endOfInput, nullptr);
    open.id = publisher_.ask(*cell, Publisher::Members()
                                        .addJson("prompt", question.jsonOr("prompt", R"("")"))
                                        .add("password", question.isTrue("password")));
    open_ = std::move(open);
}

void InputRequests::answer(const Request& reply, std::function<void(const std::string&)> tell) {
    std::string value, parent;
    try {
        value = reply.content(replyMembers)->getValue<std::string>("value");
        parent = parentOf(reply);
    } catch (const std::exception& error) {
        return log().warning("An input_reply is dropped: " + std::string(error.what()));
    }
    const bool isAnswer =
        open_ && open_->route == reply.message.route && (parent.empty() || parent == open_->id);
    if (!isAnswer) return log().debug("An input_reply is dropped, which answers no question.");
    type(*std::exchange(open_, std::nullopt), oneLine(std::move(value)), std::move(tell));
}

void InputRequests::type(const Open& question, std::string text,
                         std::function<void(const std::string&)> tell) {
    const Interpreter::Code code{.request = connector::common::RequestOrigin::newName(),
                                 .text = std::move(text),
                                 .prompt = question.number};
    interpreter_.stream(code, lifetime_.guarded([this, question, tell = std::move(tell)](
                                                    int status, const std::string& reason) {
        if (status == gone) return;
        log().warning("An answer could not be typed: " + reason);
        if (!tell) return;
        tell("The answer could not be typed: " + reason);
        if (!open_) open_ = question;
    }));
}

}  // namespace jupyter
