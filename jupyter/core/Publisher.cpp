#include "Publisher.h"

#include <chrono>
#include <utility>

#include "Request.h"
#include "connector/identifiers.h"
#include "connector/json/escape.h"
#include "foundation/core/utcText.h"
#include "lenientJson.h"

namespace jupyter {

using connector::json::quoted;

namespace {

constexpr std::string_view ending = "_request";

// Of "execute_request": "execute_reply".
std::string replyTo(std::string_view type) {
    if (type.ends_with(ending)) type.remove_suffix(ending.size());
    return std::string(type) + "_reply";
}

}  // namespace

ErrorText ErrorText::of(std::string_view name, std::string_view value) {
    return {quoted(name), quoted(value), '[' + quoted(std::string(name) + ": " + std::string(value)) + ']'};
}

connector::json::ObjectBuilder ErrorText::members() const {
    return Publisher::Members()
        .addJson("ename", name)
        .addJson("evalue", value)
        .addJson("traceback", traceback);
}

Publisher::Publisher(Outlet& outlet) : outlet_(outlet), session_(connector::randomUuid()) {}

std::string Publisher::newId() { return session_ + '_' + std::to_string(++last_); }

Message Publisher::made(Channel channel, const std::string& parent, std::string_view type, std::string id,
                        std::string content) {
    // Notebooks with halves of surrogate pairs could not be saved.
    if (content.find("\\ud") != std::string::npos) content = repaired(content);
    Message message{.channel = channel, .parent = parent, .content = std::move(content)};
    message.header = Members()
                         .add("msg_id", id)
                         .add("msg_type", type)
                         .add("session", session_)
                         .add("username", "numora")
                         .add("date", foundation::core::utcText(std::chrono::system_clock::now()))
                         .add("version", "5.5")
                         .take();
    return message;
}

void Publisher::publish(const std::string& parent, std::string_view type, Members content,
                        std::string metadata, std::vector<std::string> buffers) {
    Message message = made(Channel::Iopub, parent, type, newId(), content.take());
    message.metadata = std::move(metadata);
    message.buffers = std::move(buffers);
    outlet_.send(std::move(message));
}

void Publisher::status(const std::string& parent, const char* state) {
    publish(parent, "status", Members().add("execution_state", state));
}

void Publisher::stream(const std::string& parent, std::string_view name, std::string_view text) {
    publish(parent, "stream", Members().add("name", name).addJson("text", text));
}

void Publisher::error(const std::string& parent, const ErrorText& error) {
    publish(parent, "error", error.members());
}

void Publisher::replyJson(const Request& request, std::string content, std::string metadata) {
    const auto& to = request.message;
    Message message = made(to.channel, to.header, replyTo(request.type), newId(), std::move(content));
    message.route = to.route;
    message.metadata = std::move(metadata);
    outlet_.send(std::move(message));
}

void Publisher::replyError(const Request& request, const ErrorText& error, const Members& others) {
    reply(request, Members().add("status", "error").addMembers(error.members()).addMembers(others));
}

void Publisher::abort(const Request& cell) {
    status(cell.message.header, "busy");
    reply(cell, Members().add("status", "aborted"), R"({"status":"aborted"})");
    status(cell.message.header, "idle");
}

std::string Publisher::ask(const Request& cell, Members content) {
    std::string id = newId();
    Message message = made(Channel::Stdin, cell.message.header, "input_request", id, content.take());
    message.route = cell.message.route;
    outlet_.send(std::move(message));
    return id;
}

}  // namespace jupyter
