#include "bayeux/Calls.h"

#include <exception>
#include <optional>
#include <thread>
#include <utility>

#include "bayeux/channelRules.h"
#include "bayeux/replies.h"
#include "connector/common/ContextState.h"
#include "connector/json/parse.h"
#include "foundation/log/diagnostic_logger.h"
#include "ports/InterpreterPort.h"

namespace gateway::bayeux {

using connector::common::ClientRequests;
using connector::common::ContextScope;
using connector::common::ContextState;
using connector::json::Text;
using messages::ClientSession;
using messages::MessageFrame;

namespace {

std::string errorOf(const dispatch::Answer& answer, const std::string& channel) {
    const bool isOfProcess = !answer.death.empty() || answer.status == 409 || answer.status == 504;
    if (isOfProcess) return errorText(answer.status, channel, answer.problem);
    switch (answer.status) {
        case 400:
            return errorText(400, channel, answer.problem);
        case 404:
            return errorText(404, channel, "no such request type");
        case 429:
            return errorText(429, channel, "too many requests");
        default:
            return errorText(answer.status, channel, "the request has failed");
    }
}

}  // namespace

/// A call under way. The port holds it until it is answered.
class Calls::Call {
public:
    Call(std::shared_ptr<ClientSession> session, std::string channel, std::string idJson,
         std::shared_ptr<std::atomic<std::size_t>> underWay)
        : session_(std::move(session)),
          channel_(std::move(channel)),
          idJson_(std::move(idJson)),
          underWay_(std::move(underWay)) {
        ++*underWay_;
    }
    ~Call() { end(); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    void answered(dispatch::Answer answer) noexcept {
        end();
        if (std::this_thread::get_id() == submitter_ && isBeingSubmitted_) {
            refusal_ = std::move(answer);
            return;
        }
        try {
            send(answer);
        } catch (const std::exception& error) {
            foundation::log::DiagnosticLogger("gateway::bayeux")
                .error("The answer to a call could not be sent: " + std::string(error.what()));
        }
    }

    /// What it was answered with while it was being submitted, if it was. Only the thread that submits it
    /// looks at the mark, which is why that needs no lock.
    const std::optional<dispatch::Answer>& endSubmission() {
        isBeingSubmitted_ = false;
        return refusal_;
    }

private:
    void send(const dispatch::Answer& answer) {
        Members members;
        if (!idJson_.empty()) members.addJson("id", idJson_);
        members.add("successful", answer.status == 200);
        if (answer.status != 200) {
            members.add("error", errorOf(answer, channel_));
            if (!answer.death.empty()) {
                members.add("ext", Members().add("connector", Members().addJson("death", answer.death)));
            }
        } else if (answer.isDropped) {
            members.add("ext", Members().add("connector", Members().add("dropped", true)));
        }
        session_->send(std::make_shared<const MessageFrame>(channel_, answer.json, members.members()));
    }
    // Before the answer is on its way: the client may call again as soon as it has it.
    void end() {
        if (!isEnded_.exchange(true)) --*underWay_;
    }

    const std::shared_ptr<ClientSession> session_;
    const std::string channel_;
    const std::string idJson_;
    const std::shared_ptr<std::atomic<std::size_t>> underWay_;
    std::atomic<bool> isEnded_{false};

    const std::thread::id submitter_ = std::this_thread::get_id();
    bool isBeingSubmitted_ = true;
    std::optional<dispatch::Answer> refusal_;
};

std::string Calls::start(const ClientMessage& message) {
    const auto& channel = message.channel();
    if (!isPortableName(channel) || channel.size() <= servicePrefix.size()) {
        return failed(message, errorText(405, "bad channel name"));
    }
    const auto data = message.get("data");
    if (data.type() != typeid(Text) || data.extract<Text>().json->front() != '{') {
        return failed(message, errorText(400, channel, "data must be an object"));
    }
    const std::string typeName = channel.substr(servicePrefix.size());
    if (*underWay_ >= limit_ && !dispatch::isInterrupt(typeName)) {
        return failed(message, errorText(429, channel, "too many calls under way"));
    }

    const auto context = std::make_shared<ContextState>();
    if (!session_->clientType().empty()) {
        context->set("clientType", session_->clientType(), ContextScope::Client);
    }
    if (const auto life = message.life()) context->set(ports::InterpreterPort::wantedLife, *life);
    if (dispatch::isInterrupt(typeName)) context->set(ClientRequests::contextKey, evaluations_);
    const auto call = std::make_shared<Call>(session_, channel, message.idJson(), underWay_);
    port_.submit(typeName, data.extract<Text>().json, context,
                 [call](dispatch::Answer answer) { call->answered(std::move(answer)); });
    if (const auto& refusal = call->endSubmission()) return failed(message, errorOf(*refusal, channel));
    return succeeded(message);
}

}  // namespace gateway::bayeux
