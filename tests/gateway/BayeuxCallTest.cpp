#include <algorithm>
#include <future>
#include <map>
#include <memory>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "BayeuxFixture.h"
#include "connector/common/ClientRequests.h"

namespace {

using namespace std::chrono_literals;
using Poco::JSON::Object;
using testing::HasSubstr;

const std::string eval = R"("channel":"/service/connector/v1/Eval")";

class BayeuxCallTest : public BayeuxFixture {
protected:
    void SetUp() override {
        onRequest = [](const Object& request) {
            Object::Ptr response = new Object;
            response->set("echo", request.get("mcode"));
            return response;
        };
        socket_ = openSocket();
        handshakeOn(*socket_);
    }
    std::string call(const std::string& members) {
        return askSocket(*socket_, "[{" + eval + R"(,"clientId":"$")" + members + "}]");
    }
    /// All that comes up to the frame with `text`.
    std::string receiveUntil(const std::string& text) {
        std::string all;
        turnUntil([&] {
            const auto more = socket_->received();
            if (!more.empty()) all += (all.empty() ? "" : "\n") + more;
            return all.find(text) != std::string::npos;
        });
        return all;
    }

    std::shared_ptr<WebSocket> socket_;
};

TEST_F(BayeuxCallTest, isAcknowledgedAtOnceAndAnsweredBehindItsOutput) {
    subscribe("/eval/response/output");
    std::promise<void> go;
    onRequest = [this, ready = go.get_future().share()](const Object& request) {
        ready.wait();
        for (int i = 0; i < 100; ++i) publish("/eval/response/output", std::to_string(i));
        Object::Ptr response = new Object;
        response->set("echo", request.get("mcode"));
        return response;
    };
    EXPECT_EQ(call(R"(,"id":7,"data":{"mcode":"1+1"})"), "[{" + eval + R"(,"id":7,"successful":true}])");
    go.set_value();
    const auto frames = receiveUntil("echo");
    std::size_t at = 0;
    for (int i = 0; i < 100; ++i) {
        at = frames.find(R"("data":)" + std::to_string(i) + "}", at);
        ASSERT_NE(at, std::string::npos) << i;
    }
    EXPECT_NE(frames.find("{" + eval + R"(,"data":{"echo":"1+1"},"id":7,"successful":true})", at),
              std::string::npos);
}

TEST_F(BayeuxCallTest, isAnsweredOverTheNextConnection) {
    std::promise<void> go;
    onRequest = [ready = go.get_future().share()](const Object& request) {
        ready.wait();
        return Object::Ptr(new Object(request));
    };
    call(R"(,"id":"a","data":{"mcode":1,"uuid":"u"})");
    socket_->closed();
    turn();
    const auto held = connect();
    go.set_value();
    turnUntil([&] { return held->answer.has_value(); });
    EXPECT_THAT(held->body(), HasSubstr(R"("data":{"mcode":1,"uuid":"u"},"id":"a","successful":true})"));
}

// The test stands for the service that evaluates.
TEST_F(BayeuxCallTest, interruptTakesBackWhatItsSessionStreamsAndThatIsBounded) {
    using connector::common::ClientRequests;
    serve({.evaluationsPerSession = 2});
    std::map<std::string, std::unique_ptr<ClientRequests::Entry>> requests;
    const auto subscription = messages_.subscribe("/eval/request", [&](const auto& message) {
        const auto ofClient = message.context->template getOr<std::shared_ptr<ClientRequests>>(
            ClientRequests::contextKey, nullptr);
        auto& request = requests[message.data] = std::make_unique<ClientRequests::Entry>(ofClient);
        request->set([&requests, code = message.data] { requests.erase(code); });
    });
    const auto publishAs = [this](WebSocket& socket, const std::string& code) {
        return askSocket(socket, R"([{"channel":"/eval/request","clientId":"$","data":")" + code + R"("}])");
    };
    const auto other = openSocket();
    handshakeOn(*other);
    publishAs(*other, "of another");
    socket_ = openSocket();
    handshakeOn(*socket_);
    publishAs(*socket_, "1");
    publishAs(*socket_, "2");
    EXPECT_THAT(publishAs(*socket_, "3"), HasSubstr("429:/eval/request:too many evaluations are waiting"));
    requests.erase(R"("1")");
    EXPECT_THAT(publishAs(*socket_, "4"), HasSubstr(R"("successful":true)"));
    EXPECT_EQ(requests.size(), 3U);
    askSocket(*socket_, R"([{"channel":"/service/connector/v1/Interrupt","clientId":"$","data":{}}])");
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests.begin()->first, R"("of another")");
}

TEST_F(BayeuxCallTest, isRefusedAtOnceOrAnsweredWithWhatWentWrong) {
    const auto refused = [](const std::string& error) {
        return "[{" + eval + R"(,"successful":false,"error":")" + error + R"("}])";
    };
    EXPECT_EQ(call(""), refused("400:/service/connector/v1/Eval:data must be an object"));
    EXPECT_EQ(call(R"(,"data":"1+1")"), refused("400:/service/connector/v1/Eval:data must be an object"));
    EXPECT_EQ(askSocket(*socket_, R"([{"channel":"/service/x/y","id":1,"clientId":"$","data":{}}])"),
              R"([{"channel":"/service/x/y","id":1,"successful":false,)"
              R"("error":"404:/service/x/y:no such request type"}])");
    EXPECT_THAT(call(R"(,"id":"a","data":{"bad":1})"), HasSubstr(R"("successful":true)"));
    EXPECT_EQ(receiveUntil("error"), "[{" + eval +
                                         R"(,"data":{"error":"bad request"},"id":"a","successful":false,)"
                                         R"("error":"400:/service/connector/v1/Eval:bad request"}])");
    dispatcher_->stop();
    EXPECT_EQ(call(R"(,"data":{})"), refused("503:/service/connector/v1/Eval:the request has failed"));
    turn();
    EXPECT_EQ(socket_->received(), "");
}

TEST_F(BayeuxCallTest, waitsForOneOfManyToEnd) {
    serve({.callsPerSession = 2});
    handshakeOn(*(socket_ = openSocket()));
    std::promise<void> go;
    onRequest = [ready = go.get_future().share()](const Object&) {
        ready.wait();
        return Object::Ptr(new Object);
    };
    EXPECT_THAT(call(R"(,"data":{})"), HasSubstr("true"));
    EXPECT_THAT(call(R"(,"data":{})"), HasSubstr("true"));
    EXPECT_THAT(call(R"(,"data":{})"), HasSubstr("429:/service/connector/v1/Eval:too many calls under way"));
    // What ends them is never one too many; here nobody takes it.
    EXPECT_THAT(
        askSocket(*socket_, R"([{"channel":"/service/connector/v1/Interrupt","clientId":"$","data":{}}])"),
        HasSubstr("404:/service/connector/v1/Interrupt:no such request type"));
    const auto first = client_;
    handshakeOn(*socket_);
    EXPECT_THAT(call(R"(,"data":{})"), HasSubstr("true"));
    client_ = first;
    go.set_value();
    std::string answers;
    turnUntil([&] {
        answers += socket_->received();
        return std::ranges::count(answers, '{') == 3 * 2;  // each has an empty object as its data
    });
    EXPECT_THAT(call(R"(,"data":{})"), HasSubstr("true"));
}

TEST_F(BayeuxCallTest, isNotAnsweredAfterTheEndOfTheSession) {
    std::promise<void> begun, go;
    onRequest = [&, ready = go.get_future().share()](const Object&) {
        begun.set_value();
        ready.wait();
        return Object::Ptr(new Object);
    };
    call(R"(,"data":{})");
    begun.get_future().wait();
    askSocket(*socket_, R"([{"channel":"/meta/disconnect","clientId":"$"}])");
    server_.reset();
    go.set_value();
    dispatcher_->stop();
    turn();
    EXPECT_EQ(socket_->received(), "");
}

}  // namespace
