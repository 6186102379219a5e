#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "connector/ServiceFramework.h"
#include "connector/json/JsonSerializer.h"
#include "link/messages.h"
#include "worker/LinkMessageService.h"

namespace worker {

/// The context value with what a request is: the name of its type, or the channel it was published on
/// (std::string).
inline constexpr const char* requestTypeKey = "requestType";

/// The worker's end of the link to its gateway: the sockets `main`, on which everything is one order, and
/// `control`, on which what must not wait comes.
///
///     constructed -- greet --> greeted -- serve --> serving -- Stop comes, awaitStop --> stop --> destroyed
///          '-------------- end of a socket, wrong frame, closed descriptor --> broken (told once)
///
/// Threads: every operation from any thread, but one at a time of `greet`, `serve`, `awaitStop` and `stop`.
/// It has three of its own: the reader, on which handlers of messages and subscriptions run; control's, which
/// waits for nobody; one that sends what the sockets have not taken.
class Link {
public:
    struct Options {
        int main = -1;  ///< borrowed, as is the other
        int control = -1;
        /// Called once, on any thread, when the link is of no further use: because the gateway has gone, or
        /// for what is wrong in this process. It must not wait, nor use the link.
        std::function<void(bool isGatewayGone)> broken;
        /// What a Pong says. It must be quick, and wait for nobody.
        std::function<links::PongHead()> status;
        /// Takes the level of the log that the gateway asks for with each ping; may be null.
        std::function<void(std::uint64_t severity)> setLogLevel{};
    };
    /// What requests work with.
    struct Services {
        std::shared_ptr<connector::ServiceFramework> framework;
        std::shared_ptr<connector::json::JsonSerializer> serializer;
        // As dispatch::DispatcherOptions; may be null.
        std::function<bool()> isReadingInput{};
        std::function<std::string()> dequeMode{};
    };

    /// Throws: std::system_error.
    explicit Link(Options options);
    /// Ends its threads. What has not been sent is dropped.
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /// Says Hello and returns the answer.  Blocks: until it is there.
    /// Throws: std::runtime_error, when the link breaks before.
    links::Start greet(const links::Hello& hello);

    /// To be used from the beginning; it outlives the link, and then reaches nobody.
    const std::shared_ptr<LinkMessageService>& messages() const;

    /// Takes requests from now on, and says Ready. What services want to know of clients they have asked for
    /// by then.
    void serve(Services services);

    /// What the interpreter does: "busy", "idle" or "input".
    void tellState(std::string_view state);
    /// A line of the log; lost when much waits to be sent.
    void tellLog(std::uint64_t severity, std::string_view logger, std::string_view text);

    /// Blocks: until the gateway asks for the end, or the link is broken. Returns how long the end may take;
    /// nothing when it is broken.
    std::optional<std::chrono::milliseconds> awaitStop();

    /// Refuses requests that wait or come, and interrupts those that run.  Blocks: until they have ended.
    void stop();

    /// Whether everything is sent.  Blocks: until then, for `limit` at most.
    bool flush(std::chrono::milliseconds limit);

private:
    class Impl;
    const std::unique_ptr<Impl> impl_;
};

}  // namespace worker
