#include "Evaluation.h"

#include <Poco/JSON/Array.h>

#include "connector/wireWords.h"
#include "text.h"

namespace app {

namespace {

Evaluation::Wants wantsAt(nmutil::prompt::InputRequester prompt) {
    switch (prompt) {
        case nmutil::prompt::PAUSE_PROMPT:
            return Evaluation::Wants::Input;
        case nmutil::prompt::INCOMPLETE_BLOCK_PROMPT:
            return Evaluation::Wants::RestOfBlock;
        default:
            return Evaluation::Wants::Code;
    }
}

void addFaults(const Poco::JSON::Object& response, Evaluation& evaluation) {
    const auto faults = response.getArray("messageFaults");
    for (unsigned i = 0; faults && i < faults->size(); ++i) {
        const auto fault = faults->getObject(i);
        const auto code = fault->optValue<std::string>("faultCode", "");
        // A request that was dropped or cancelled has a fault without the error flag; a warning is no
        // failure.
        if (!code.ends_with("Warning")) evaluation.failed = true;
        evaluation.faults.push_back(code + ": " + fault->optValue<std::string>("message", ""));
    }
}

}  // namespace

Poco::JSON::Object::Ptr sendEval(Session& session, const std::string& code,
                                 const EvaluationSettings& settings) {
    Poco::JSON::Object::Ptr message = new Poco::JSON::Object;
    message->set("mcode", code);
    message->set("width", settings.window.columns);
    message->set("height", settings.window.rows);
    message->set("timeout", settings.timeoutSeconds);
    return session.request(connector::wire::type::eval, message);
}

Evaluation outcomeOf(Session& session, const std::string& code, const Poco::JSON::Object& response) {
    Evaluation evaluation;
    evaluation.text = response.optValue<std::string>("responseStr", "");
    evaluation.failed = response.optValue("isError", false);
    evaluation.clearWindow = response.optValue("clearCommandWindow", false);
    addFaults(response, evaluation);
    if (session.wasDropped()) {
        evaluation.failed = true;
        evaluation.faults.emplace_back("the code was not run, because an interrupt came while it waited");
    }
    const int promptType = response.optValue("promptType", 0);
    if (promptType >= 1 && promptType <= 3) {
        evaluation.wants = Evaluation::Wants::Input;
    } else if (promptType == 4) {
        evaluation.wants = wantsAt(session.promptAfter(code));
    }
    return evaluation;
}

void print(const Evaluation& evaluation, const StandardStreams& streams) {
    const int target = evaluation.failed ? streams.error : streams.output;
    writeAll(target, evaluation.text);
    if (evaluation.faults.empty()) return;
    if (evaluation.failed && !evaluation.text.empty() && !evaluation.text.ends_with('\n'))
        writeAll(target, "\n");
    for (const auto& fault : evaluation.faults) writeAll(streams.error, "numora: " + fault + "\n");
}

}  // namespace app
