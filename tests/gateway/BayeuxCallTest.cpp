#include <algorithm>
#include <future>
#include <map>

#include "BayeuxFixture.h"
#include "connector/common/ClientRequests.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestOrigin.h"
#include "connector/common/requests.h"
#include "dispatch/readMessage.h"

namespace {

using namespace std::chrono_literals;
using Poco::JSON::Object;
using testing::HasSubstr;

const std::string eval = R"("channel":"/service/test/Request")", data = R"(,"data":{})";

class BayeuxCallTest : public BayeuxFixture {
protected:
    void SetUp() override {
        onRequest = [](const Object& request) { return Object::Ptr(new Object(request)); };
        begin();
    }
    void begin(const gateway::bayeux::ServerOptions& options = {}) {
        serve(options);
        handshakeOn(*(socket_ = openSocket()));
    }
    /// Lets requests wait for `go_`.
    void hold() {
        onRequest = [ready = go_.get_future().share()](const Object& request) {
            ready.wait();
            return Object::Ptr(new Object(request));
        };
    }
    std::string call(const std::string& members) {
        return askSocket(*socket_, "[{" + eval + R"(,"clientId":"$")" + members + "}]");
    }
    std::string interrupt() {
        return askSocket(*socket_,
                         R"([{"channel":"/service/connector/v1/Interrupt","clientId":"$","data":{}}])");
    }
    /// All that comes up to the frame with `text`.
    std::string receiveUntil(const std::string& text) {
        std::string all;
        turnUntil([&] {
            for (const auto& frame : std::exchange(socket_->frames, {})) all += frame;
            return all.find(text) != std::string::npos;
        });
        return all;
    }

    std::promise<void> go_;
    std::shared_ptr<WebSocket> socket_;
};

TEST_F(BayeuxCallTest, isAcknowledgedAtOnceAndAnsweredBehindItsOutput) {
    subscribe("/eval/response/output");
    onRequest = [this, ready = go_.get_future().share()](const Object& request) {
        ready.wait();
        for (int i = 0; i < 100; ++i) publish("/eval/response/output", std::to_string(i));
        return Object::Ptr(new Object(request));
    };
    EXPECT_EQ(call(R"(,"id":7,"data":{"mcode":"1+1","uuid":"u"})"),
              "[{" + eval + R"(,"id":7,"successful":true}])");
    go_.set_value();
    const std::string answer = "{" + eval + R"(,"data":{"mcode":"1+1","uuid":"u"},"id":7,"successful":true})";
    const auto frames = receiveUntil(answer);
    std::size_t at = 0;
    for (int i = 0; i < 100; ++i) {
        at = frames.find(R"("data":)" + std::to_string(i) + "}", at);
        ASSERT_NE(at, std::string::npos) << i;
    }
    EXPECT_NE(frames.find(answer, at), std::string::npos);
}

TEST_F(BayeuxCallTest, isAnsweredOverTheNextConnection) {
    hold();
    call(R"(,"id":"a","data":{"mcode":1,"uuid":"u"})");
    socket_->closed();
    turn();
    const auto held = connect();
    go_.set_value();
    turnUntil([&] { return held->answer.has_value(); });
    EXPECT_THAT(held->body(), HasSubstr(R"("data":{"mcode":1,"uuid":"u"},"id":"a","successful":true})"));
}

// The test stands for the service that evaluates.
TEST_F(BayeuxCallTest, interruptTakesBackWhatItsSessionStreamsAndThatIsBounded) {
    using connector::common::ClientRequests;
    begin({.evaluationsPerSession = 2});
    std::map<std::string, std::unique_ptr<ClientRequests::Entry>> requests;
    const auto subscription = messages_.subscribe("/eval/request", [&](const auto& message) {
        const auto ofClient = message.context->template getOr<std::shared_ptr<ClientRequests>>(
            ClientRequests::contextKey, nullptr);
        auto& request = requests[message.data] = std::make_unique<ClientRequests::Entry>(ofClient);
        request->set([&requests, code = message.data] { requests.erase(code); });
    });
    const auto publishAs = [this](const std::string& code) {
        return askSocket(*socket_,
                         R"([{"channel":"/eval/request","clientId":"$","data":")" + code + R"("}])");
    };
    publishAs("of another");
    handshakeOn(*(socket_ = openSocket()));
    publishAs("1");
    publishAs("2");
    EXPECT_THAT(publishAs("3"), HasSubstr("429:/eval/request:too many evaluations are waiting"));
    requests.erase(R"("1")");
    EXPECT_THAT(publishAs("4"), HasSubstr(R"("successful":true)"));
    EXPECT_EQ(requests.size(), 3U);
    interrupt();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests.begin()->first, R"("of another")");
}

// The test stands for the service that evaluates; it refuses what is "gone".
TEST_F(BayeuxCallTest, namesWhatIsPublishedToBeEvaluated) {
    using connector::common::RequestOrigin;
    using connector::common::RequestRefusal;
    std::vector<std::shared_ptr<connector::common::ContextState>> contexts;
    const auto subscription = messages_.subscribe("/eval/request", [&](const auto& message) {
        if (message.data == R"("gone")") {
            message.context->set(RequestRefusal::contextKey, RequestRefusal{409, "the prompt is gone"});
        } else {
            contexts.push_back(message.context);
        }
    });
    const auto publish = [this](const std::string& members, const std::string& code = "1") {
        return askSocket(*socket_, R"([{"channel":"/eval/request","clientId":"$","data":")" + code +
                                       R"(","ext":{"connector":{)" + members + "}}}]");
    };
    EXPECT_THAT(publish(R"("request":"a:1","prompt":7)"),
                HasSubstr(R"("ext":{"connector":{"request":"a:1"}})"));
    EXPECT_EQ(RequestOrigin::of(*contexts[0])->request, "a:1");
    EXPECT_EQ(contexts[0]->getOr<std::uint64_t>(RequestOrigin::forPrompt, 0), 7U);
    const auto reply = publish("");
    EXPECT_THAT(reply, HasSubstr(RequestOrigin::of(*contexts.at(1))->request));

    for (const char* members : {R"("request":"")", R"("request":1)", R"("request":"a b")", R"("lossy":1)",
                                R"("prompt":-1)", R"("prompt":18446744073709551615)", R"("prompt":"7")",
                                R"("capabilities":"display")", R"("capabilities":[1])"}) {
        EXPECT_THAT(publish(members), HasSubstr("400:/eval/request:ext.connector.")) << members;
    }
    // One name for two requests would be of no use, wherever they come from.
    handshakeOn(*(socket_ = openSocket()));
    EXPECT_THAT(publish(R"("request":"a:1")"), HasSubstr("409:/eval/request:"));
    RequestOrigin::of(*contexts[0])->reservation->release();
    EXPECT_THAT(publish(R"("request":"a:1")"), HasSubstr("true"));
    EXPECT_THAT(publish("", "gone"), HasSubstr("409:/eval/request:the prompt is gone"));
    EXPECT_EQ(contexts.size(), 3U);
}

TEST_F(BayeuxCallTest, letsNoClientReadWhatOthersSendToServices) {
    const std::string subscribe = R"([{"channel":"/meta/subscribe","clientId":"$","subscription":")";
    EXPECT_THAT(askSocket(*socket_, subscribe + R"(/eval/request"}])"),
                HasSubstr("403:/eval/request:denied"));
    EXPECT_THAT(askSocket(*socket_, subscribe + R"(/**"}])"), HasSubstr("true"));
    send(*socket_, R"([{"channel":"/eval/request","clientId":"$","data":"secret"}])");
    send(*socket_, R"([{"channel":"/eval/other","clientId":"$","data":"seen"}])");
    EXPECT_THAT(receiveUntil("seen"), testing::Not(HasSubstr("secret")));
}

TEST_F(BayeuxCallTest, isRefusedAtOnceOrAnsweredWithWhatWentWrong) {
    const auto refused = [](const std::string& members, const std::string& error) {
        return "[{" + eval + members + R"("successful":false,"error":")" + error + R"("}])";
    };
    const std::string noObject = "400:/service/test/Request:data must be an object";
    EXPECT_EQ(call(""), refused(",", noObject));
    EXPECT_EQ(call(R"(,"data":"1+1")"), refused(",", noObject));
    EXPECT_EQ(askSocket(*socket_, R"([{"channel":"/service/x/y","id":1,"clientId":"$","data":{}}])"),
              R"([{"channel":"/service/x/y","id":1,"successful":false,)"
              R"("error":"404:/service/x/y:no such request type"}])");
    EXPECT_EQ(call(R"(,"id":"a","data":{"bad":1})"),
              refused(R"(,"id":"a",)", "400:/service/test/Request:bad request"));
    const std::string large(dispatch::largeBody, ' ');  // is read after the acknowledgement
    // Either is in a frame of its own, and the second may come with the first.
    send(*socket_, "[{" + eval + R"(,"clientId":"$","id":"a","data":{"bad":")" + large + "\"}}]");
    EXPECT_EQ(receiveUntil("error"), "[{" + eval + R"(,"id":"a","successful":true}])" +
                                         refused(R"(,"data":{"error":"bad request"},"id":"a",)",
                                                 "400:/service/test/Request:bad request"));
    port_->stop();
    EXPECT_EQ(call(data), refused(",", "503:/service/test/Request:the request has failed"));
    turn();
    EXPECT_EQ(socket_->received(), "");
}

TEST_F(BayeuxCallTest, waitsForOneOfManyToEnd) {
    begin({.callsPerSession = 2});
    hold();
    for (int i = 0; i < 2; ++i) EXPECT_THAT(call(data), HasSubstr("true"));
    EXPECT_THAT(call(data), HasSubstr("429:/service/test/Request:too many calls under way"));
    // What ends them is never one too many; here nobody takes it.
    EXPECT_THAT(interrupt(), HasSubstr("404:/service/connector/v1/Interrupt:no such request type"));
    const auto first = client_;
    handshakeOn(*socket_);
    EXPECT_THAT(call(data), HasSubstr("true"));
    client_ = first;
    go_.set_value();
    std::string answers;
    turnUntil([&] {
        answers += socket_->received();
        return std::ranges::count(answers, '{') == 3 * 2;  // each has an object as its data
    });
    EXPECT_THAT(call(data), HasSubstr("true"));
}

TEST_F(BayeuxCallTest, isNotAnsweredAfterTheEndOfTheSession) {
    std::promise<void> begun;
    onRequest = [&, ready = go_.get_future().share()](const Object&) {
        begun.set_value();
        ready.wait();
        return Object::Ptr(new Object);
    };
    call(data);
    begun.get_future().wait();
    askSocket(*socket_, R"([{"channel":"/meta/disconnect","clientId":"$"}])");
    server_.reset();
    go_.set_value();
    port_->stop();
    turn();
    EXPECT_EQ(socket_->received(), "");
}

}  // namespace
