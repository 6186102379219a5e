#include <atomic>
#include <chrono>
#include <future>
#include <string>
#include <utility>

#include <Poco/RegularExpression.h>

#include "GatewayFixture.h"

namespace {

using RequestTest = GatewayFixture;

/// One request on a connection of its own. In it, $P stands for the port, $T for the token, $E for the line
/// of an evaluation, $H for one with the Host, $A for one with the token, $C for one with the type of JSON,
/// and $J for the end of a request with a body `{"mcode":"1"}`.
struct RequestCase {
    std::string request;
    int status = 0;
    std::string text{};  ///< that the body holds
};

std::string expanded(std::string text, const std::string& port) {
    const std::pair<std::string, std::string> words[] = {
        {"$E", "POST /connector/v1/Eval HTTP/1.1\r\n"},
        {"$H", "Host: 127.0.0.1:$P\r\n"},
        {"$A", "Authorization: Bearer $T\r\n"},
        {"$J", "$CContent-Length: 13\r\n\r\n{\"mcode\":\"1\"}"},
        {"$C", "Content-Type: application/json\r\n"},
        {"$T", std::string(TestClient::token)},
        {"$P", port},
    };
    for (const auto& [word, by] : words) {
        for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + by.size())) {
            text.replace(at, word.size(), by);
        }
    }
    return text;
}

TEST_F(RequestTest, isAnsweredWithAStatusAndAnErrorInJson) {
    const RequestCase cases[] = {
        // Who asks.
        {"$E$H$A$J", 200},
        {"POST /connector/v1/Eval?a=b&token=$T HTTP/1.1\r\n$H$J", 200},
        {"$E$H$J", 401, "The token is missing or wrong."},
        {"GET / HTTP/1.1\r\n$H\r\n", 401, "<html"},
        {"GET /metrics HTTP/1.1\r\n$H\r\n", 401},
        {"GET /readyz HTTP/1.1\r\n$H\r\n", 401},
        {"GET /healthz HTTP/1.1\r\n$H\r\n", 200},
        {"POST /cometd/handshake HTTP/1.1\r\n$H$J", 200},
        {"$E$H$AOrigin: http://127.0.0.1:$P\r\n$J", 200},
        {"$E$H$AOrigin: https://evil.example\r\n$J", 403, "Origin"},
        {"$E$H$AOrigin: http://127.0.0.1:$P\r\nOrigin: https://evil.example\r\n$J", 403},
        {"GET /healthz HTTP/1.1\r\nHost: evil.example:$P\r\n\r\n", 403, "Host"},
        {"$E$A$J", 400, "A request must have exactly one Host header."},
        {"$E$H$H$A$J", 400},
        // What is asked.
        {"POST /connector/v1/Other HTTP/1.1\r\n$H$A$J", 404},
        {"POST /connector/v1/EvalResponse HTTP/1.1\r\n$H$A$J", 404},
        {"GET /other HTTP/1.1\r\n$H$A\r\n", 404},
        {"POST /other HTTP/1.1\r\n$H$A$J", 404},
        {"GET /connector/v1/Eval HTTP/1.1\r\n$H$A\r\n", 405},
        {"GET /connector/v1/Other HTTP/1.1\r\n$H$A\r\n", 405},
        {"GET /cometd HTTP/1.1\r\n$H$A\r\n", 405},
        {"POST /metrics HTTP/1.1\r\n$H$A$J", 405},
        {"DELETE / HTTP/1.1\r\n$H$A\r\n", 405},
        {"OPTIONS /messages HTTP/1.1\r\n$H$A\r\n", 405},
        {"GET http://127.0.0.1:$P/healthz HTTP/1.1\r\n$H\r\n", 200},
        {"GET HTTP://localhost:$P?token=$T HTTP/1.1\r\n$H\r\n", 303},
        {"GET http://evil.example/healthz HTTP/1.1\r\n$H\r\n", 403},
        // With what body.
        {"$E$H$AContent-Type: Application/JSON; charset=utf-8\r\nContent-Length: 2\r\n\r\n{}", 200},
        {"$E$H$AContent-Type: text/plain\r\nContent-Length: 2\r\n\r\n{}", 415, "Content-Type must be"},
        {"$E$H$AContent-Encoding: gzip\r\n$J", 415, "Content-Encoding"},
        {"$E$H$A$C\r\n", 400},
        {"$E$H$A$CContent-Length: 2\r\n\r\n[]", 400, "The body must be a JSON object."},
        {"$E$H$A$CContent-Length: 13\r\n\r\n{\"width\":\"x\"}", 400, "width"},
        {"$E$H$AConnector-Client-Type: " + std::string(200, 'x') + "\r\n$J", 400, "Connector-Client-Type"},
        {"$E$H$A$CContent-Length: 99999999\r\n\r\n", 413, "The body is too large."},
        {"$E$HX: " + std::string(20'000, 'x') + "\r\n\r\n", 431, "The head is too large."},
        {"\x16\x03\x01 hello\r\n\r\n", 400, "The request is not valid HTTP"},
        {"GET / HTTP/3.0\r\n$H\r\n", 400},
        {"$E$H$AContent-Length: -1\r\n\r\n", 400},
        {"$E$H$A$CContent-Length: 17\r\n\r\n{\"mcode\":\"throw\"}", 500, "the service failed"},
    };
    start();
    for (const auto& [request, status, text] : cases) {
        const TestResponse response = ask(expanded(request, std::to_string(gateway_->port())));
        EXPECT_EQ(response.status, status) << request << response.body;
        EXPECT_NE(response.body.find(text), std::string::npos) << request << response.body;
        EXPECT_EQ(response.body.find(TestClient::token), std::string::npos) << request;
        EXPECT_EQ(response.header("x-content-type-options"), "nosniff") << request;
        EXPECT_EQ(response.header("allow").empty(), status != 405) << request;
        if (status >= 400 && response.header("content-type").starts_with("application/json")) {
            EXPECT_TRUE(response.body.starts_with(R"({"error":")")) << request << response.body;
        }
    }
}

TEST_F(RequestTest, responseHasTheUuidOfTheRequestOrAMadeUpOne) {
    start();
    EXPECT_EQ(post("/connector/v1/Eval", R"({"mcode":"6*7","uuid":"u"})").body,
              R"({"clearCommandWindow":false,"isError":false,"messageFaults":[],"promptType":0,)"
              R"("responseStr":"6*7","uuid":"u"})");
    const std::string body = post("/connector/v1/Interrupt", "{}").body;
    const Poco::RegularExpression uuid(
        R"("uuid":"[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}")");
    std::string first;
    ASSERT_EQ(uuid.extract(body, first), 1) << body;
    EXPECT_EQ(post("/connector/v1/Interrupt", "{}").body.find(first), std::string::npos);
}

TEST_F(RequestTest, envelopeIsAnsweredInTheSameFormAndTheClientTypeReachesTheService) {
    start();
    auto client = connect();
    client.send(client.post("/connector/v1/FEval", "{}", "Connector-Client-Type: desk\r\n"));
    EXPECT_NE(client.receive().body.find(R"("results":"[\"desk\"]")"), std::string::npos);
    const auto lab =
        post("/messages", R"({"type":"connector/v1/FEval","message":{},"context":{"clientType":"lab"}})");
    EXPECT_NE(lab.body.find(R"("results":"[\"lab\"]")"), std::string::npos);
    EXPECT_EQ(
        post("/messages", R"({"type":"connector/v1/Interrupt","message":{"uuid":"i"},"context":{"a":[1]}})")
            .body,
        R"({"type":"connector/v1/InterruptResponse","message":{"messageFaults":[],"uuid":"i"},)"
        R"("context":{"a":[1]}})");
    const auto sequence =
        post("/messages", R"({"type":"connector/v1/Sequence","message":{"uuid":"s","messages":[
        {"type":"connector/v1/FEval","message":{"uuid":"1"}},
        {"type":"connector/v1/FEval","message":{"uuid":"2"}}]}})");
    EXPECT_EQ(sequence.status, 200);
    EXPECT_TRUE(sequence.body.starts_with(R"({"type":"connector/v1/Sequence","message":{)")) << sequence.body;
    EXPECT_LT(sequence.body.find(R"("uuid":"1")"), sequence.body.find(R"("uuid":"2")"));
}

TEST_F(RequestTest, whatWasNotRunIsToldBesideTheResponse) {
    start();
    const std::string ext = R"("ext":{"connector":{"dropped":true}})";
    for (const char* code : {"1", "drop"}) {
        const bool isDropped = std::string(code) == "drop";
        const std::string message = R"({"mcode":")" + std::string(code) + R"("})";
        const auto plain = post("/connector/v1/Eval", message);
        const auto wrapped = post("/messages", R"({"type":"connector/v1/Eval","message":)" + message + "}");
        for (const auto& response : {plain, wrapped}) {
            EXPECT_EQ(response.status, 200);
            EXPECT_EQ(response.header("connector-dropped"), isDropped ? "true" : "");
        }
        EXPECT_EQ(plain.body.find(ext), std::string::npos);
        EXPECT_EQ(wrapped.body.find(ext) != std::string::npos, isDropped);
    }
    EXPECT_NE(get("/metrics").body.find("dropped"), std::string::npos);
}

TEST_F(RequestTest, whatWaitsForSomethingElseIsNotHeldUp) {
    std::atomic<int> looks{-1};  // that still find the code reading input
    std::promise<void> hasGoneOn;
    gateway::GatewayOptions options;
    options.handlerThreads = 1;
    options.isReadingInput = [&] {
        const int left = looks--;
        if (left == 0) hasGoneOn.set_value();
        return left > 0;
    };
    start(std::move(options));
    auto waiting = connect();
    waiting.send(waiting.post("/connector/v1/Eval", R"({"mcode":"release"})"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    for (const std::string mode : {"ppe", "pause", "prompt", "non_debug_prompt", "debug_prompt", "idle"}) {
        const std::string call = R"({"dequeMode":")" + mode + R"("})";
        EXPECT_EQ(post("/connector/v1/FEval", call).status, 200) << mode;
        const auto sequence = R"({"type":"connector/v1/Sequence","message":{"messages":[
            {"type":"connector/v1/FEval","message":)" +
                              call + "}]}}";
        EXPECT_EQ(post("/messages", sequence).status, 200) << mode;
    }
    looks = 1;
    auto late = connect();
    late.send(late.post("/connector/v1/Eval", R"({"mcode":"typed too late"})"));
    ASSERT_EQ(hasGoneOn.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    looks = 2;
    EXPECT_EQ(post("/connector/v1/Eval", R"({"mcode":"typed"})").status, 200);
    interpreter_->release();
    EXPECT_EQ(waiting.receive().status, 200);
    EXPECT_EQ(late.receive().status, 200);
}

TEST_F(RequestTest, malformedEnvelopesAreRefused) {
    start();
    const std::string eval = R"({"type":"connector/v1/Eval","message":{},"context":)";
    const std::pair<std::string, std::string> cases[] = {
        {R"({"type":1,"message":{}})", R"(\"type\" must be a string.)"},
        {R"({"type":"connector/v1/Eval","message":[]})", R"(\"message\" must be an object.)"},
        {eval + "1}", R"(\"context\" must be an object.)"},
        {eval + R"({"clientType":1}})", R"(\"clientType\" must be a string.)"},
        {eval + R"({"clientType":"\n"}})",
         R"(\"clientType\" must be at most 128 printable ASCII characters.)"},
        {eval + R"({"numoraCapabilities":1}})", R"(\"numoraCapabilities\" must be an array of strings.)"},
        {eval + R"({"numoraCapabilities":[1]}})", R"(\"numoraCapabilities\" must be an array of strings.)"},
    };
    for (const auto& [body, problem] : cases) {
        const auto response = post("/messages", body);
        EXPECT_EQ(response.status, 400) << body;
        EXPECT_EQ(response.body, R"({"error":")" + problem + "\"}");
    }
    EXPECT_EQ(post("/messages", R"({"type":"other","message":{}})").status, 404);
}

TEST_F(RequestTest, firstVisitTakesTheTokenOutOfTheAddressAndIntoACookie) {
    start();
    auto client = connect();
    const std::string token(TestClient::token);
    client.send(client.head("GET /?token=" + token));
    const auto redirect = client.receive();
    EXPECT_EQ(redirect.status, 303);
    EXPECT_EQ(redirect.header("location"), "/");
    const std::string set = redirect.header("set-cookie");
    const std::string name = "numora-key-" + std::to_string(gateway_->port()) + "=";
    EXPECT_TRUE(set.starts_with(name)) << set;
    EXPECT_TRUE(set.ends_with("; Path=/; HttpOnly; SameSite=Strict")) << set;
    EXPECT_EQ(set.find(token), std::string::npos);
    client.send(client.head(
        "GET /", "Cookie: " + name + "x\r\nCookie: a=b; " + set.substr(0, set.find(';')) + "\r\n"));
    EXPECT_EQ(client.receive().status, 200);
    client.send(client.head("GET /?token=another-wrong-token"));
    const auto refusal = client.receive();
    EXPECT_EQ(refusal.status, 401);
    EXPECT_EQ(refusal.header("set-cookie"), "");
}

TEST_F(RequestTest, healthAndReadinessAreToldAlsoWithoutABody) {
    start();
    EXPECT_EQ(get("/readyz").status, 200);
    isReady_ = false;
    EXPECT_EQ(get("/readyz").status, 503);
    auto client = connect();
    client.send(client.head("HEAD /healthz"));
    const auto head = client.receive(false);
    EXPECT_EQ(head.status, 200);
    client.send(client.head("GET /healthz"));
    EXPECT_EQ(std::to_string(client.receive().body.size()), head.header("content-length"));
    client.send(client.head("HEAD /healthz") + "garbage\r\n\r\n");
    EXPECT_EQ(client.receive(false).status, 200);
    EXPECT_NE(client.receive().body, "") << "what is no request is not answered like HEAD";
}

TEST_F(RequestTest, configuredOriginsAreAnsweredAsBrowsersWantIt) {
    start({.origins = {"https://lab.example"}});
    auto client = connect();
    client.send(client.head("OPTIONS /messages", "Origin: https://lab.example\r\n"));
    const auto preflight = client.receive();
    EXPECT_EQ(preflight.status, 204);
    EXPECT_EQ(preflight.header("access-control-allow-origin"), "https://lab.example");
    client.send(client.post("/connector/v1/Interrupt", "{}", "Origin: https://lab.example\r\n"));
    const auto answer = client.receive();
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.header("access-control-allow-origin"), "https://lab.example");
}

}  // namespace
