#include "Request.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "lenientJson.h"

namespace jupyter {

namespace {

std::string nonEmpty(const Poco::JSON::Object& header, const std::string& name) {
    const auto value = header.get(name);
    if (value.type() != typeid(std::string) || value.extract<std::string>().empty()) {
        throw std::invalid_argument(name + " must be a string that is not empty");
    }
    return value.extract<std::string>();
}

std::string textOrNone(const Poco::JSON::Object& header, const std::string& name) {
    const auto value = header.get(name);
    return value.type() == typeid(std::string) ? value.extract<std::string>() : std::string();
}

}  // namespace

std::shared_ptr<const Request> Request::read(Message message) {
    auto request = std::make_shared<Request>();
    const auto header = parseLeniently(message.header);
    request->id = nonEmpty(*header, "msg_id");
    request->type = nonEmpty(*header, "msg_type");
    request->session = textOrNone(*header, "session");
    request->date = textOrNone(*header, "date");
    request->message = std::move(message);
    return request;
}

Poco::JSON::Object::Ptr Request::content(std::span<const dispatch::Member> members,
                                         std::string_view asText) const {
    if (message.content.size() > longestContent) {
        throw dispatch::BadMessage("content must have at most 64 MiB");
    }
    Poco::JSON::Object::Ptr object;
    try {
        std::string text = message.content;
        object = parseLeniently(text, asText);
    } catch (const std::exception& error) {
        throw dispatch::BadMessage("content must be a JSON object: " + std::string(error.what()));
    }
    for (const auto& name : object->getNames()) {
        if (object->isNull(name)) object->remove(name);
    }
    std::vector<std::string> unknown;
    dispatch::checkMembers(members, *object, "", unknown);
    return object;
}

}  // namespace jupyter
