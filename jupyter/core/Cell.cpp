#include "Cell.h"

#include <chrono>
#include <utility>
#include <vector>

#include <Poco/JSON/Object.h>

#include "History.h"
#include "JsonMembers.h"
#include "connector/json/escape.h"
#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "foundation/core/utcText.h"
#include "functionCalls.h"

namespace jupyter {

using Kind = dispatch::Member::Kind;
using Members = Publisher::Members;

namespace {

constexpr dispatch::Member contentMembers[] = {
    {"code", Kind::String, true},   {"silent", Kind::Boolean},        {"store_history", Kind::Boolean},
    {"allow_stdin", Kind::Boolean}, {"stop_on_error", Kind::Boolean}, {"user_expressions", Kind::Object}};

}  // namespace

Cell::Cell(const Parts& parts, RequestPtr request, Ended ended)
    : Job(std::move(request), parts.publisher), parts_(parts), ended_(std::move(ended)) {
    const auto content = this->request()->content(contentMembers);
    code_ = content->getValue<std::string>("code");
    isSilent_ = memberOr(*content, "silent", false);
    storesHistory_ = !isSilent_ && memberOr(*content, "store_history", true);
    allowsInput_ = memberOr(*content, "allow_stdin", false);
    stopsOnError_ = !isSilent_ && memberOr(*content, "stop_on_error", true);
    const auto expressions = content->getObject("user_expressions");
    if (expressions && expressions->size() > 0) expressions_ = connector::json::written(expressions);
}

// What is not stored is shown with the next number, without using it up.
void Cell::begin() {
    started_ = foundation::core::utcText(std::chrono::system_clock::now());
    const std::uint64_t number = parts_.count.last + 1;
    if (!isSilent_) {
        output().showResults(number);
        parts_.publisher.publish(parent(), "execute_input",
                                 Members().add("code", code_).add("execution_count", number));
    }
    if (storesHistory_) parts_.count.last = number;
    if (storesHistory_) parts_.count.others = 0;
    // Tracebacks have the number; code that is not stored needs a name of its own for its lines to be found.
    const std::string cell = "cell=" + std::to_string(number) +
                             (storesHistory_ ? "" : '.' + std::to_string(++parts_.count.others));
    Interpreter::Code code{.request = name(), .text = code_, .capabilities = {"display", "notebook", cell}};
    if (allowsInput_) code.capabilities.emplace_back("stdin");
    parts_.interpreter.stream(code, lifetime_.guarded([this](int, const std::string& reason) {
        fail(ErrorText::of("Refused", reason));
    }));
    if (storesHistory_) parts_.history.add(number, code_);
}

void Cell::take(const InterpreterEvent& event) {
    if (event.channel == connector::wire::channel::completion) return complete(event);
    if (event.channel == "/eventmgr/0/input") return parts_.inputs.ask(request(), allowsInput_, event.data);
    if (event.channel == "/eventmgr/0/payload") return takePayload(event);
    // The sentence about the end of the process, which the completion tells as well.
    if (!event.death.empty()) return;
    output().take(event);
}

void Cell::takePayload(const InterpreterEvent& event) {
    auto payload = event;
    const auto source = JsonMembers(JsonMembers(event.data).jsonOr("payload", "{}")).text("source");
    if (source == "ask_exit") {
        endsKernel_ = !parts_.isShared;
        if (parts_.isShared) payload.data = R"({"payload":{"source":"ask_exit","keepkernel":true}})";
    }
    output().take(payload);
}

void Cell::complete(const InterpreterEvent& event) {
    death_ = event.death;
    if (!death_.empty()) {
        return fail(ErrorText::of("InterpreterDied", JsonMembers(death_).text("sentence")));
    }
    if (output().error()) return fail();
    if (event.data != connector::json::quoted(connector::wire::completion::success)) {
        return fail(isInterrupted_
                        ? ErrorText::of("KeyboardInterrupt", "The code was interrupted before it began.")
                        : ErrorText::of("Error", "The code has failed."));
    }
    if (expressions_.empty()) return succeed("{}");
    evaluateExpressions();
}

void Cell::evaluateExpressions() {
    const auto told = [this](const CallResult& result) {
        if (result.problem.empty()) return succeed(result.json);
        const auto names = request()->content(contentMembers)->getObject("user_expressions")->getNames();
        const Members problem =
            Members().add("status", "error").addMembers(ErrorText::of("Refused", result.problem).members());
        Members all;
        for (const auto& name : names) {
            const std::string key = connector::json::quoted(name);
            all.add(std::string_view(key).substr(1, key.size() - 2), problem);
        }
        succeed(all.take());
    };
    callFunction(parts_.interpreter,
                 {.name = "numora._notebook.expressions", .arguments = '[' + expressions_ + ']'},
                 lifetime_.guarded(told));
}

Members Cell::replyMembers(const std::string& expressions) {
    Members members;
    members.add("execution_count", parts_.count.last).addJson("user_expressions", expressions);
    return members.addJson("payload", '[' + output().payloads() + ']');
}

void Cell::succeed(const std::string& expressions) {
    parts_.publisher.reply(*request(), Members().add("status", "ok").addMembers(replyMembers(expressions)),
                           Members().add("started", started_).add("status", "ok").take());
    ended_({.endsKernel = endsKernel_});
}

void Cell::fail(ErrorText error) {
    output().fail(std::move(error));
    fail();
}

void Cell::fail() {
    const auto time = std::chrono::system_clock::now();
    const Members error = Members().add("status", "error").addMembers(output().error()->members());
    parts_.publisher.reply(*request(), Members(error).addMembers(replyMembers("{}")),
                           Members().add("started", started_).add("status", "error").take());
    ended_({.abortsCells = stopsOnError_ || !death_.empty(),
            .time = time,
            .endsKernel = endsKernel_,
            .death = death_});
}

}  // namespace jupyter
