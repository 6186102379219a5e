#pragma once

#include <functional>
#include <memory>
#include <string>

#include "connector/common/ClientRequests.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestNames.h"
#include "connector/common/requests.h"
#include "dispatch/Answer.h"
#include "jupyter/Interpreter.h"
#include "messages/LocalMessageService.h"

namespace jupyter {

class Executor;

/// An interpreter that is reached by the message service and the dispatcher of this process, as clients of a
/// gateway reach it: wherever it runs. It is one client more, whose messages are read without their data
/// being parsed.
///
/// Threads: as Interpreter; made and destroyed on the executor.  Locks: none; that of HandlerGate.
/// Blocks: its destruction, while a thread posts to the executor.
/// Owns: shares the message service; `executor` must outlive it.
class SessionInterpreter : public Interpreter {
public:
    using Json = std::shared_ptr<const std::string>;
    using Context = std::shared_ptr<connector::common::ContextState>;

    /// How requests get to the interpreter. The functions are called on the executor; what they are given, on
    /// any thread.
    struct Ways {
        std::shared_ptr<messages::LocalMessageService> messages;
        std::shared_ptr<connector::common::RequestNames> names;
        std::function<void(const std::string& type, Json json, Context context,
                           std::function<void(dispatch::Answer)> answered)>
            submit;
        std::function<void(messages::ClientSession& session, const std::string& channel,
                           const std::string& json, const Context& context,
                           const std::function<void(connector::common::RequestRefusal)>& taken)>
            stream;
        /// An empty answer with status 200 when the new process takes requests. Empty where it cannot be
        /// restarted.
        std::function<void(std::function<void(dispatch::Answer)> answered)> restart;
    };

    SessionInterpreter(Ways ways, Executor& executor);
    ~SessionInterpreter() override;

    void stream(const Code& code, Refused refused) override;
    void call(const std::string& type, std::string json, Answered answered) override;
    void callInTurn(const std::string& type, std::string json, Answered answered) override;
    void restart(Answered answered) override;
    void listen(std::function<void(const InterpreterEvent&)> received,
                std::function<bool()> hasRoom) override;
    void resume() override;

private:
    class Feed;

    Context newContext() const;
    void submit(const std::string& type, std::string json, std::function<void(dispatch::Answer)> answered);

    const Ways ways_;
    const std::shared_ptr<connector::common::ClientRequests> underWay_;  // what an interrupt takes back
    const std::shared_ptr<Feed> feed_;
};

}  // namespace jupyter
