#pragma once

#include <condition_variable>
#include <memory>
#include <string>
#include <string_view>

#include <gmock/gmock.h>

#include "TestClient.h"
#include "connector/ThreadSafety.h"
#include "connector/interpreter/v1/InterpreterServiceProvider.h"
#include "gateway/Gateway.h"

/// Answers evaluations with their own code, but for these: "wait" waits for an interrupt, "release" for the
/// test, "throw" fails, "drop" is taken for older than an interrupt. A function call is answered with the
/// name of its client type.
class ScriptedInterpreter : public connector::interpreter::v1::InterpreterServiceProvider {
public:
    using MessageFuture = connector::Future<std::unique_ptr<connector::Message>>;
    using connector::interpreter::v1::InterpreterServiceProvider::handle;
    MessageFuture handle(std::unique_ptr<connector::interpreter::v1::Interrupt>&& message) override;
    MessageFuture handle(std::unique_ptr<connector::interpreter::v1::FEval>&& message) override;
    MessageFuture handle(std::unique_ptr<connector::interpreter::v1::Eval>&& message) override;

    /// Waits until so many evaluations wait; false when it has not come to that in ten seconds.
    bool waitForWaiting(int count) CONNECTOR_EXCLUDES(mutex_);
    /// Lets the evaluations end that wait for the test.
    void release() { signal(&ScriptedInterpreter::releases_); }

private:
    void signal(int ScriptedInterpreter::*event) CONNECTOR_EXCLUDES(mutex_);
    std::u16string waitFor(int ScriptedInterpreter::*event) CONNECTOR_EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::condition_variable changed_;
    int waiting_ = 0;
    int interrupts_ = 0;
    int releases_ = 0;
};

/// A gateway on a free port of the loopback.
class GatewayFixture : public testing::Test {
protected:
    GatewayFixture();
    ~GatewayFixture() override;

    /// Starts it with `options`, but for the host, the port and the token.
    void start(gateway::GatewayOptions options = {});
    TestClient connect() const { return TestClient(gateway_->port()); }
    /// The answer to one request on a connection of its own.
    TestResponse ask(std::string_view bytes) const { return connect().ask(bytes); }
    TestResponse post(const std::string& path, const std::string& body) const {
        auto client = connect();
        return client.ask(client.post(path, body));
    }
    /// The answer to a GET with the token.
    TestResponse get(const std::string& path) const {
        return connect().get(path, "Authorization: Bearer " + TestClient::token + "\r\n");
    }
    /// The request for an evaluation of `code`.
    static std::string evalOf(const TestClient& client, const std::string& code);
    /// A frame with a handshake, and the id in the reply to one.
    static std::string handshake(bool hasToken);
    static std::string clientIdIn(const std::string& reply) {
        return reply.substr(reply.find("\"clientId\":\"") + 12, 40);
    }
    /// Asks for the metrics until `line` is among them; false when it is not after ten seconds.
    bool waitForMetric(const std::string& line) const;

    const std::shared_ptr<ScriptedInterpreter> interpreter_ = std::make_shared<ScriptedInterpreter>();
    const std::shared_ptr<connector::ServiceFramework> framework_;
    const std::shared_ptr<connector::json::JsonSerializer> serializer_ =
        std::make_shared<connector::json::JsonSerializer>();
    messages::LocalMessageService messages_;
    bool isReady_ = true;
    std::unique_ptr<gateway::Gateway> gateway_;
};
