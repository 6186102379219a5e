#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <Poco/JSON/Object.h>

#include "nmutil/prompt/InputRequester.h"

namespace app {

/// A message that no service takes, or that cannot be read.
class BadMessage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The interpreter has died under a request; what() is the sentence that says how. The session can go on: the
/// next request starts another life.
class InterpreterDied : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// What was to be typed is not wanted any more: its prompt is gone. Nothing was typed.
class PromptGone : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The program's own standard input, output and error, as file descriptors.
struct StandardStreams {
    int input;
    int output;
    int error;
};

/// One message that the streaming service has published, or a notice of what is lost.
struct StreamMessage {
    std::string channel;
    std::string request;       ///< the name of the request that it comes from; empty for none
    std::uint64_t prompt = 0;  ///< the number of the prompt that it tells of; 0 for none
    bool isEchoed = true;      ///< what is typed there may be shown
    std::string death;         ///< when it tells that the interpreter has died, the sentence that says how
    std::string text;          ///< the data: its text when it is one, else its JSON
    std::string line;          ///< the whole message as JSON
};

/// Code for the streaming service, or text to type.
struct StreamRequest {
    std::string name;  ///< stands in what comes of it
    std::string text;
    /// The number of the prompt to type at; 0 for code, which is typed at none. Without one it is typed where
    /// code waits for input, and else is code.
    std::optional<std::uint64_t> prompt;
};

/// The streaming service, as one of its clients sees it: everything that it publishes comes, in order.
/// Threads: one.
class ResponseStream {
public:
    struct Taken {
        std::vector<StreamMessage> messages;
        std::string failure;  ///< why nothing more will come; empty while more may come
    };

    virtual ~ResponseStream() = default;

    /// Throws: InterpreterDied; PromptGone; std::runtime_error, when the request is refused; others as the
    /// session says.
    virtual void send(const StreamRequest& request) = 0;
    /// Blocks: until a message is there, for `limit` at most.
    virtual Taken take(std::chrono::milliseconds limit) = 0;
};

/// An interpreter, reached by messages in their JSON form. Ctrl-C interrupts the code that it runs.
class Session {
public:
    virtual ~Session() = default;

    /// Valid as long as the session is.
    virtual StandardStreams streams() const = 0;

    /// Whether other clients use the interpreter, too.
    virtual bool isShared() const { return false; }
    /// What the interpreter does, if others may use it: "busy", "idle" or "input"; empty when that is not
    /// known.
    virtual std::string activity() { return {}; }

    /// How often Ctrl-C was pressed to interrupt code.
    virtual std::uint64_t interrupts() const = 0;

    /// Delivers the message of class `type` and returns the response. A missing uuid is made up.
    /// Blocks: until the response is there.  Throws: BadMessage, InterpreterDied; the session can go on.
    /// Others as the session says.
    virtual Poco::JSON::Object::Ptr request(const std::string& type,
                                            const Poco::JSON::Object::Ptr& message) = 0;

    /// The next request makes sense only with what the last one has left, as what is typed does. If the
    /// interpreter was started anew between them, it is not run and throws InterpreterDied.
    virtual void goOn() {}

    /// Whether the last request was not run because somebody's interrupt came after it, which its response
    /// does not say.
    virtual bool wasDropped() const { return false; }

    /// The prompt at which an evaluation of `code`, empty when it was typed, has ended with prompt type 4,
    /// which stands for several. To be called before the next request.  Throws: as `request`.
    virtual nmutil::prompt::InputRequester promptAfter(const std::string& code) = 0;

    /// From now on code that asks for input is interrupted, when nobody could type it.
    virtual void refuseInput() = 0;

    /// Owns: borrows the session.
    virtual std::unique_ptr<ResponseStream> openStream() = 0;
};

}  // namespace app
