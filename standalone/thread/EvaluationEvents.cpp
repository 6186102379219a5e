#include "thread/EvaluationEvents.h"

#include <exception>
#include <string_view>
#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"

namespace standalone {

namespace {

using foundation::json::Value;

constexpr std::size_t shownUnits = 100'000;

std::string beginningOf(std::u16string_view code) {
    if (code.size() > shownUnits) {
        const bool isPairCut = (code[shownUnits - 1] & 0xFC00) == 0xD800;
        code = code.substr(0, shownUnits - (isPairCut ? 1 : 0));
    }
    return fl::i18n::to_string(code);
}

Value::Array linesOf(const std::string& text) {
    Value::Array lines;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        lines.emplace_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return lines;
}

bool isOfClient(const RunningRequest* request) {
    const auto* const evaluation =
        request != nullptr ? dynamic_cast<const cmddistributor::EvalCmdRequest*>(&request->request) : nullptr;
    return evaluation != nullptr && !evaluation->isInternal();
}

}  // namespace

EvaluationEvents::EvaluationEvents(PlacedEvents& events, const RunningRequest* request, std::uint64_t number,
                                   const std::u16string& code, const EvaluationEvents*& innermost)
    : events_(events),
      number_(number),
      code_(code),
      isToldOf_(isOfClient(request)),
      innermost_(innermost),
      outer_(std::exchange(innermost, this)) {
    if (!isToldOf_) return;
    if (const auto& source = request->options.source()) clientType_ = fl::i18n::to_string(*source);
    if (events_.hasSubscribers(u"evaluation")) events_.raise(u"evaluation", members("begun"));
}

EvaluationEvents::~EvaluationEvents() {
    innermost_ = outer_;
    try {
        end(true);
    } catch (const std::exception& error) {
        foundation::log::DiagnosticLogger("standalone::interpreter")
            .error("The end of an evaluation could not be announced: " + std::string(error.what()));
    }
}

void EvaluationEvents::fail(const CodeError& failure, bool isAlone) {
    if (!isToldOf_ || !events_.hasSubscribers(u"error")) return;
    const auto& error = failure.exception;
    std::string name = error.GetID();
    if (constexpr std::string_view prefix = "NUMORA:"; name.starts_with(prefix)) name.erase(0, prefix.size());
    auto lines = linesOf(fl::i18n::to_string(error.getText()));
    if (isAlone && failure.suggestion) {
        lines.emplace_back("Did you mean: '" + fl::i18n::to_string(*failure.suggestion) + "'?");
    }
    events_.raise(u"error", {{"name", std::move(name)},
                             {"value", fl::i18n::to_string(error.getMessage())},
                             {"traceback", std::move(lines)}});
}

void EvaluationEvents::end(bool isError) {
    if (!std::exchange(isToldOf_, false) || !events_.hasSubscribers(u"evaluation")) return;
    auto ended = members("ended");
    const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - begin_;
    ended["isError"] = isError;
    ended["seconds"] = lasted.count();
    events_.raise(u"evaluation", std::move(ended));
}

TaggedEvent::Members EvaluationEvents::members(const char* state) const {
    return {{"number", number_},         {"code", beginningOf(code_)}, {"state", state},
            {"clientType", clientType_}, {"isError", nullptr},         {"seconds", nullptr}};
}

}  // namespace standalone
