#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <Poco/Exception.h>

#include "connector/ServiceFramework.h"
#include "connector/json/JsonSerializer.h"

/// A request or a response that is its JSON.
struct JsonRequest : connector::Message {
    using Object = Poco::JSON::Object;
    explicit JsonRequest(Object::Ptr json) : object(std::move(json)) {}

    /// Knows requests of type "test/Request", but none with a member "bad".
    static std::shared_ptr<connector::json::JsonSerializer> makeSerializer() {
        auto serializer = std::make_shared<connector::json::JsonSerializer>();
        serializer->registerType(
            "test/Request", typeid(JsonRequest),
            [](const Object::Ptr& object) {
                if (object->has("bad")) throw Poco::RangeException("bad request");
                return std::make_unique<JsonRequest>(object);
            },
            [](const Message& message) { return dynamic_cast<const JsonRequest&>(message).object; });
        return serializer;
    }

    Object::Ptr object;
    std::shared_ptr<connector::common::ContextState> context{};
};

/// Answers each request with a function of the test.
class FunctionFramework : public connector::ServiceFramework {
public:
    using Response = std::unique_ptr<connector::Message>;
    using Function = std::function<connector::Future<Response>(const JsonRequest&)>;
    explicit FunctionFramework(Function function) : onRequest(std::move(function)) {}

    void registerService(const connector::Address&, std::vector<std::type_index>,
                         std::shared_ptr<connector::ServiceProvider>) override {}
    void unregisterService(const std::shared_ptr<connector::ServiceProvider>&) override {}
    connector::Future<Response> deliver(const connector::Address&, Response message,
                                        std::shared_ptr<connector::common::ContextState> state) override {
        auto& request = dynamic_cast<JsonRequest&>(*message);
        request.context = std::move(state);
        return onRequest(request);
    }

    Function onRequest;
};
