#include "Evaluation.h"

#include <Poco/JSON/Array.h>

#include "services/prompt/prompt.h"
#include "text.h"

namespace app {

namespace {

Evaluation::Wants wantsAfter(int promptType) {
    if (promptType >= 1 && promptType <= 3) return Evaluation::Wants::Input;
    if (promptType != 4) return Evaluation::Wants::Code;
    switch (services::prompt::getInputRequester()) {  // type 4 stands for several prompts
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

Poco::JSON::Object::Ptr sendEval(InProcessSession& session, const std::string& code,
                                 const EvaluationSettings& settings) {
    Poco::JSON::Object::Ptr message = new Poco::JSON::Object;
    message->set("mcode", code);
    message->set("width", settings.window.columns);
    message->set("height", settings.window.rows);
    message->set("timeout", settings.timeoutSeconds);
    return session.request("connector/v1/Eval", message);
}

Evaluation outcomeOf(const Poco::JSON::Object& response) {
    Evaluation evaluation;
    evaluation.text = response.optValue<std::string>("responseStr", "");
    evaluation.failed = response.optValue("isError", false);
    evaluation.clearWindow = response.optValue("clearCommandWindow", false);
    evaluation.wants = wantsAfter(response.optValue("promptType", 0));
    addFaults(response, evaluation);
    return evaluation;
}

void print(const Evaluation& evaluation, const standalone::StandaloneHost& host) {
    const int target = evaluation.failed ? host.standardError() : host.standardOutput();
    writeAll(target, evaluation.text);
    if (evaluation.faults.empty()) return;
    if (evaluation.failed && !evaluation.text.empty() && !evaluation.text.ends_with('\n'))
        writeAll(target, "\n");
    for (const auto& fault : evaluation.faults) writeAll(host.standardError(), "numora: " + fault + "\n");
}

}  // namespace app
