#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace jupyter {

/// Something that the interpreter has published for its clients: docs/wire.md and docs/events.md say what.
struct InterpreterEvent {
    std::string_view channel;  ///< such as "/eval/response/output"
    std::string_view data;     ///< one JSON value
    std::string_view request;  ///< the name of the request that it comes of; empty for none
    std::uint64_t prompt = 0;  ///< the number of the question that it tells of; 0 for none
    std::string_view
        death;  ///< how the process of the interpreter has ended, as JSON; empty where it has not
};

/// What a kernel asks of the interpreter that it stands for. The ways in, local or through a gateway, derive
/// from it.
///
/// Threads: called on the kernel's executor, where what it is given is called later, never within the
/// operation; after the end of the interpreter perhaps never.
class Interpreter {
public:
    /// With an HTTP status and, where it is not 200, the reason; else the JSON of the response. 410 where it
    /// takes nothing until it is restarted.
    using Answered = std::function<void(int status, std::string text)>;
    /// With an HTTP status and the reason why the code is not run, or why nothing more can be known of it:
    /// then nothing comes of it.
    using Refused = std::function<void(int status, std::string reason)>;

    struct Code {
        std::string request;  ///< its name, which all that comes of it carries: RequestOrigin::isName
        std::string text;     ///< in UTF-8
        /// The number of the question that it answers; 0 for code, which is typed nowhere.
        std::uint64_t prompt = 0;
        /// What the client can do, as `numora.require` asks for it.
        std::vector<std::string> capabilities{};
    };

    virtual ~Interpreter() = default;

    /// Has code run, or a line typed, with its output streamed as events. The last event of each request that
    /// was not refused is its completion, "/eval/response/completion".
    virtual void stream(const Code& code, Refused refused) = 0;
    /// Sends a message of a type such as "connector/v1/FEval". `answered` may overtake events.
    virtual void call(const std::string& type, std::string json, Answered answered) = 0;
    /// The same, answered after all events that it has caused.
    virtual void callInTurn(const std::string& type, std::string json, Answered answered) = 0;
    /// Ends the interpreter's process and starts another one; 501 where it cannot.
    virtual void restart(Answered answered) = 0;

    /// From now on `received` is called on the kernel's executor with each event, in their order. Events wait
    /// while `hasRoom` says no, and the code that causes them with them, as long as the client is waited for;
    /// `resume` has it asked again, and says that the clients read. Empty functions end it.
    virtual void listen(std::function<void(const InterpreterEvent&)> received,
                        std::function<bool()> hasRoom) = 0;
    virtual void resume() = 0;
};

}  // namespace jupyter
