#include "CommRequest.h"

#include <sstream>
#include <utility>

#include <Poco/Base64Encoder.h>

#include "connector/json/escape.h"
#include "connector/json/parse.h"
#include "functionCalls.h"
#include "lenientJson.h"

namespace jupyter {

using Kind = dispatch::Member::Kind;
using connector::json::quoted;

namespace {

constexpr int hasDied = 502;

constexpr dispatch::Member members[] = {
    {"comm_id", Kind::String, true}, {"target_name", Kind::String}, {"data", Kind::Object}};

std::string base64(const std::vector<std::string>& buffers) {
    std::string json = "[";
    for (const auto& buffer : buffers) {
        std::ostringstream text;
        Poco::Base64Encoder encoder(text);
        encoder.rdbuf()->setLineLength(0);
        encoder << buffer;
        encoder.close();
        json.append(json.size() > 1 ? ",\"" : "\"").append(text.str()).append("\"");
    }
    return json + ']';
}

std::string metadataOf(const Request& message) {
    std::string metadata = message.message.metadata;
    try {
        parseLeniently(metadata);
    } catch (const std::exception& error) {
        throw dispatch::BadMessage("metadata must be a JSON object: " + std::string(error.what()));
    }
    return metadata;
}

}  // namespace

CommRequest::CommRequest(Interpreter& interpreter, Publisher& publisher, RequestPtr request, Ended ended)
    : Job(std::move(request), publisher), interpreter_(interpreter), ended_(std::move(ended)) {
    const Request& message = *this->request();
    const auto content = message.content(members, "data");
    const auto data = content->get("data");
    const bool isText = data.type() == typeid(connector::json::Text);
    arguments_ = '[' + quoted(message.type.substr(message.type.find('_') + 1)) + ',' +
                 quoted(content->getValue<std::string>("comm_id")) + ',' +
                 quoted(memberOr<std::string>(*content, "target_name", "")) + ',' +
                 (isText ? *data.extract<connector::json::Text>().json : "{}") + ',';
    arguments_ += metadataOf(message) + ',' + base64(message.message.buffers) + ']';
}

void CommRequest::begin() {
    const auto told = [this](const CallResult& result) {
        if (!result.problem.empty()) output().tell(result.problem);
        ended_({.abortsCells = result.status == hasDied});
    };
    callFunction(interpreter_,
                 {.name = "numora._notebook.comm",
                  .arguments = arguments_,
                  .dequeMode = "default",
                  .uuid = name(),
                  .isInTurn = true},
                 lifetime_.guarded(told));
}

}  // namespace jupyter
