#include "AsideRequests.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

#include "JsonMembers.h"
#include "connector/json/escape.h"
#include "functionCalls.h"

namespace jupyter {

using Kind = dispatch::Member::Kind;
using connector::json::quoted;

namespace {

constexpr int longestMs = 10'000;  // native code that runs may keep the interpreter to itself

constexpr dispatch::Member members[] = {{"code", Kind::String},
                                        {"cursor_pos", Kind::Integer},
                                        {"detail_level", Kind::Integer},
                                        {"target_name", Kind::String}};

struct AsideType {
    std::string_view name;
    const char* function;
    std::string (*arguments)(const Poco::JSON::Object& content);
    bool hasCode = true;
    const char* status = R"("status":"ok",)";  // where the result does not say it
};

std::string codeIn(const Poco::JSON::Object& content) {
    return quoted(content.getValue<std::string>("code"));
}

std::string cursorIn(const Poco::JSON::Object& content) {
    return std::to_string(memberOr(content, "cursor_pos", std::numeric_limits<std::int32_t>::max()));
}

constexpr std::array types = {
    AsideType{"complete_request", "numora._notebook.complete",
              [](const auto& content) { return codeIn(content) + ',' + cursorIn(content); }},
    AsideType{"inspect_request", "numora._notebook.inspect",
              [](const auto& content) {
                  return codeIn(content) + ',' + cursorIn(content) + ',' +
                         std::to_string(memberOr(content, "detail_level", 0));
              }},
    AsideType{.name = "is_complete_request",
              .function = "numora._notebook.is_complete",
              .arguments = [](const auto& content) { return codeIn(content); },
              .status = ""},
    AsideType{.name = "comm_info_request",
              .function = "numora._notebook.comm_info",
              .arguments =
                  [](const auto& content) {
                      return content.has("target_name")
                                 ? quoted(content.template getValue<std::string>("target_name"))
                                 : std::string("null");
                  },
              .hasCode = false},
};

const AsideType* typeOf(const std::string& name) {
    const auto* const found = std::ranges::find(types, name, &AsideType::name);
    return found == types.end() ? nullptr : found;
}

}  // namespace

bool AsideRequests::knows(const std::string& type) { return typeOf(type) != nullptr; }

void AsideRequests::answer(const RequestPtr& request, std::function<void()> replied) {
    const AsideType& type = *typeOf(request->type);
    const auto content = request->content(members);
    if (type.hasCode && !content->has("code")) throw dispatch::BadMessage("code must be a string");
    if (underWay_ >= most) {
        refuse(*request, "at most " + std::to_string(most) + " such requests may wait");
        return replied();
    }
    ++underWay_;
    callFunction(
        interpreter_,
        {.name = type.function, .arguments = '[' + type.arguments(*content) + ']', .timeoutMs = longestMs},
        lifetime_.guarded(
            [this, request, status = type.status, replied = std::move(replied)](const CallResult& result) {
                --underWay_;
                const auto members = elementsOf(result.json);
                if (!result.problem.empty() || members.empty()) {
                    refuse(*request, result.problem);
                } else {
                    publisher_.replyJson(*request, '{' + std::string(status).append(members) + '}');
                }
                replied();
            }));
}

// Of is_complete the status is one of four.
void AsideRequests::refuse(const Request& request, const std::string& reason) {
    const auto error = ErrorText::of("Refused", reason);
    if (request.type != "is_complete_request") return publisher_.replyError(request, error);
    publisher_.reply(request, Publisher::Members().add("status", "unknown").addMembers(error.members()));
}

}  // namespace jupyter
