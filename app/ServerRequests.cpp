#include "ServerRequests.h"

#include <chrono>

#include "connector/json/write.h"
#include "connector/wireWords.h"
#include "serverAnswer.h"

namespace app {

using Poco::JSON::Array;
using Poco::JSON::Object;

namespace {

constexpr auto limit = std::chrono::seconds(30);
constexpr auto restartLimit =
    std::chrono::seconds(60);  // it waits for the end of a life, and half a minute for the next
constexpr const char* all = "/interpreters";

Array::Ptr arrayFrom(const HttpClient::Answer& answer, const char* name) {
    const auto array = objectFrom(answer)->getArray(name);
    if (!array) throw ServerRefusal(std::string("the server's answer must have an array ") + name);
    return array;
}

}  // namespace

ServerRequests::ServerRequests(const ServerAddress& address)
    : interpreter_(address.interpreter.empty() ? "default" : address.interpreter),
      http_(address.withoutInterpreter()) {}

bool ServerRequests::isReady() {
    constexpr int notReady = 503;
    const auto answer = http_.get(interpreterPath(interpreter_) + "/readyz", limit);
    if (answer.status == notReady) return false;
    valueIn(answer);
    return true;
}

void ServerRequests::interrupt() {
    valueIn(http_.post(interpreterPath(interpreter_) + "/" + connector::wire::type::interrupt, "{}", limit));
}

Object::Ptr ServerRequests::describe() { return objectFrom(http_.get(interpreterPath(interpreter_), limit)); }

Object::Ptr ServerRequests::restart(bool force) {
    Object::Ptr options = new Object;
    options->set("force", force);
    return objectFrom(http_.post(interpreterPath(interpreter_) + "/restart",
                                 connector::json::written(options), restartLimit));
}

Array::Ptr ServerRequests::deaths() {
    return arrayFrom(http_.get(interpreterPath(interpreter_) + "/deaths", limit), "deaths");
}

Array::Ptr ServerRequests::interpreters() { return arrayFrom(http_.get(all, limit), "interpreters"); }

Object::Ptr ServerRequests::create(const Object::Ptr& options) {
    return objectFrom(http_.post(all, connector::json::written(options), limit));
}

void ServerRequests::remove(const std::string& interpreter) {
    valueIn(http_.remove(interpreterPath(interpreter), limit));
}

}  // namespace app
