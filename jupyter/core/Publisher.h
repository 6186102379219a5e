#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "connector/json/ObjectBuilder.h"
#include "jupyter/Kernel.h"
#include "jupyter/Message.h"

namespace jupyter {

struct Request;

/// What went wrong: a name, a message, and lines for people, each as JSON.
struct ErrorText {
    std::string name, value, traceback;

    static ErrorText of(std::string_view name, std::string_view value);
    connector::json::ObjectBuilder members() const;
};

/// Writes the messages of a kernel and hands them to its outlet.
///
/// Threads: on the kernel's executor.
class Publisher {
public:
    using Members = connector::json::ObjectBuilder;

    explicit Publisher(Outlet& outlet);

    Outlet& outlet() { return outlet_; }

    /// On iopub. `parent` is the header of the message that has caused it, "{}" for none.
    void publish(const std::string& parent, std::string_view type, Members content,
                 std::string metadata = "{}", std::vector<std::string> buffers = {});
    /// "busy", "idle", "starting", "restarting" or "dead".
    void status(const std::string& parent, const char* state);
    /// `text` is a JSON string; it is taken as it is.
    void stream(const std::string& parent, std::string_view name, std::string_view text);
    void error(const std::string& parent, const ErrorText& error);

    /// To who has sent the request, where that came.
    void reply(const Request& request, const Members& content, std::string metadata = "{}") {
        replyJson(request, content.text(), std::move(metadata));
    }
    void replyJson(const Request& request, std::string content, std::string metadata = "{}");
    void replyError(const Request& request, const ErrorText& error, const Members& others = {});
    /// Tells that a cell is not run.
    void abort(const Request& cell);
    /// Asks the client of a cell; returns the "msg_id".
    std::string ask(const Request& cell, Members content);

private:
    Message made(Channel channel, const std::string& parent, std::string_view type, std::string id,
                 std::string content);
    std::string newId();

    Outlet& outlet_;
    const std::string session_;
    std::uint64_t last_ = 0;
};

}  // namespace jupyter
