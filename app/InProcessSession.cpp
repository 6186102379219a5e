#include "InProcessSession.h"

#include <chrono>
#include <cstdint>
#include <utility>

#include <Poco/Exception.h>
#include <Poco/UUIDGenerator.h>

namespace app {

namespace {

standalone::HostOptions prepareHost(const WindowSize& window) {
    standalone::blockInterpreterSignals();
    standalone::HostOptions options;
    options.columns = static_cast<std::uint64_t>(window.columns);
    options.rows = static_cast<std::uint64_t>(window.rows);
    return options;
}

std::shared_ptr<connector::common::ContextState> requestContext() {
    using namespace std::chrono;
    const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    auto context = std::make_shared<connector::common::ContextState>();
    context->set("requestStartTime", static_cast<std::uint64_t>(now));
    context->set("clientType", std::string("numora-cli"));
    return context;
}

}  // namespace

InProcessSession::InProcessSession(const WindowSize& window)
    : serializer_(std::make_shared<connector::json::JsonSerializer>()),
      host_(prepareHost(window)),
      module_({.framework = host_.framework(),
               .configuration = host_.configuration(),
               .serializer = serializer_,
               .zvm = host_.zvm(),
               .messageServiceFactory = host_.messageServiceFactory(),
               .shadowService = host_.shadowService(),
               .requestGate = host_.requestGate(),
               .requestTracker = host_.requestCounter()}) {}

std::unique_ptr<connector::Message> InProcessSession::read(const std::string& type,
                                                           const Poco::JSON::Object::Ptr& message) const {
    if (!message) throw BadMessage("a message of type " + type + " has to be a JSON object");
    Poco::JSON::Object::Ptr complete = new Poco::JSON::Object(*message);
    if (!complete->has("uuid")) {
        complete->set("uuid", Poco::UUIDGenerator::defaultGenerator().createRandom().toString());
    }
    try {
        return serializer_->read(type, complete);
    } catch (const Poco::Exception& error) {
        throw BadMessage("a message of type " + type + " cannot be read: " + error.displayText());
    } catch (const std::exception& error) {
        throw BadMessage("a message of type " + type + " cannot be read: " + error.what());
    }
}

Poco::JSON::Object::Ptr InProcessSession::request(const std::string& type,
                                                  const Poco::JSON::Object::Ptr& message) {
    auto future = host_.framework()->deliver(connector::Address{}, read(type, message), requestContext());
    return serializer_->write(*future.get());
}

}  // namespace app
