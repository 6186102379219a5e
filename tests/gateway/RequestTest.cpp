#include <atomic>
#include <future>
#include <map>
#include <utility>
#include <vector>

#include <Poco/RegularExpression.h>

#include "GatewayFixture.h"
#include "support/LogRecords.h"

namespace {

using RequestTest = GatewayFixture;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

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
        {"$T", TestClient::token},
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
        {"POST /connector/v1/Other HTTP/1.1\r\n$H$A$J", 404},
        {"POST /connector/v1/EvalResponse HTTP/1.1\r\n$H$A$J", 404},
        {"GET /other HTTP/1.1\r\n$H$A\r\n", 404},
        {"GET /connector/v1/Eval HTTP/1.1\r\n$H$A\r\n", 405},
        {"GET /cometd HTTP/1.1\r\n$H$A\r\n", 405},
        {"POST /metrics HTTP/1.1\r\n$H$A$J", 405},
        {"DELETE / HTTP/1.1\r\n$H$A\r\n", 405},
        {"OPTIONS /messages HTTP/1.1\r\n$H$A\r\n", 405},
        {"GET http://127.0.0.1:$P/healthz HTTP/1.1\r\n$H\r\n", 200},
        {"GET HTTP://localhost:$P?token=$T HTTP/1.1\r\n$H\r\n", 200},
        {"GET http://evil.example/healthz HTTP/1.1\r\n$H\r\n", 403},
        {"$E$H$AContent-Type: Application/JSON; charset=utf-8\r\nContent-Length: 13\r\n\r\n{\"mcode\":\"1\"}",
         200},
        {"$E$H$AContent-Type: text/plain\r\nContent-Length: 2\r\n\r\n{}", 415, "Content-Type must be"},
        {"$E$H$AContent-Encoding: gzip\r\n$J", 415, "Content-Encoding"},
        {"$E$H$A$C\r\n", 400},
        {"$E$H$A$CContent-Length: 2\r\n\r\n[]", 400, "The message must be a JSON object."},
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
        EXPECT_EQ(response.header("connector-dropped"), "") << request;
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
    EXPECT_TRUE(Poco::RegularExpression(R"(\{"messageFaults":\[\],"uuid":"[0-9a-f]{8}-[0-9a-f]{4})"
                                        R"(-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}"\})")
                    .match(body))
        << body;
    EXPECT_NE(post("/connector/v1/Interrupt", "{}").body, body);
}

TEST_F(RequestTest, envelopeIsAnsweredInTheSameFormAndTheClientTypeReachesTheService) {
    start();
    auto client = connect();
    const auto call =
        client.post("/connector/v1/FEval", R"({"function":"f"})", "Connector-Client-Type: desk\r\n");
    EXPECT_THAT(client.ask(call).body, HasSubstr(R"("results":"[\"desk\"]")"));
    const std::string context = R"("context":{"a":[1],"clientType":"lab"}})";
    const auto lab =
        post("/messages", R"({"type":"connector/v1/FEval","message":{"function":"f"},)" + context).body;
    EXPECT_THAT(lab, StartsWith(R"({"type":"connector/v1/FEvalResponse","message":{)"));
    EXPECT_THAT(lab, HasSubstr(R"("results":"[\"lab\"]")"));
    EXPECT_THAT(lab, EndsWith(context));
    const auto sequence =
        post("/messages", R"({"type":"connector/v1/Sequence","message":{"uuid":"s","messages":[
        {"type":"connector/v1/FEval","message":{"uuid":"1","function":"f"}},
        {"type":"connector/v1/FEval","message":{"function":"f"}}]}})");
    EXPECT_EQ(sequence.status, 200);
    EXPECT_THAT(sequence.body, StartsWith(R"({"type":"connector/v1/Sequence","message":{)"));
    EXPECT_THAT(sequence.body, ContainsRegex(R"("uuid":"1".*"uuid":"[0-9a-f-]{36}".*"uuid":"s")"));
}

TEST_F(RequestTest, whatWasNotRunIsToldBesideTheResponse) {
    start();
    const auto plain = post("/connector/v1/Eval", R"({"mcode":"drop"})");
    const auto wrapped = post("/messages", R"({"type":"connector/v1/Eval","message":{"mcode":"drop"}})");
    EXPECT_EQ(plain.status, 200);
    EXPECT_EQ(wrapped.status, 200);
    EXPECT_EQ(plain.header("connector-dropped") + wrapped.header("connector-dropped"), "truetrue");
    EXPECT_THAT(plain.body, Not(HasSubstr("dropped")));
    EXPECT_THAT(wrapped.body, HasSubstr(R"("ext":{"connector":{"dropped":true}})"));
    EXPECT_THAT(get("/metrics").body, HasSubstr("dropped"));
}

TEST_F(RequestTest, whatWaitsForSomethingElseIsNotHeldUp) {
    std::atomic<int> looks{-1};  // that still find the code reading input
    std::promise<void> hasGoneOn;
    const auto isReadingInput = [&] {
        const int left = looks--;
        if (left == 0) hasGoneOn.set_value();
        return left > 0;
    };
    start({.handlerThreads = 1, .isReadingInput = isReadingInput});
    auto waiting = connect();
    waiting.send(evalOf(waiting, "release"));
    ASSERT_TRUE(interpreter_->waitForWaiting(1));
    const std::string sequence = R"({"type":"connector/v1/Sequence","message":{"messages":[
        {"type":"connector/v1/FEval","message":)";
    for (const std::string mode : {"ppe", "pause", "prompt", "non_debug_prompt", "debug_prompt", "idle"}) {
        const std::string call = R"({"function":"f","dequeMode":")" + mode + R"("})";
        EXPECT_EQ(post("/connector/v1/FEval", call).status, 200) << mode;
        EXPECT_EQ(post("/messages", sequence + call + "}]}}").status, 200) << mode;
    }
    looks = 1;
    auto late = connect();
    late.send(evalOf(late, "typed too late"));
    ASSERT_EQ(hasGoneOn.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    looks = 2;
    EXPECT_EQ(post("/connector/v1/Eval", R"({"mcode":"typed"})").status, 200);
    interpreter_->release();
    EXPECT_EQ(waiting.receive().status, 200);
    EXPECT_EQ(late.receive().status, 200);
}

// $ stands for one member, with a value of each kind in turn, or for one that is not known.
TEST_F(RequestTest, membersThatAreMissingOrOfAWrongKindAreNamed) {
    const std::string call = R"({"type":"connector/v1/FEval","message":{$}})";
    const std::string sequence = R"({"type":"connector/v1/Sequence","message":{)";
    const std::string entry = sequence + R"("messages":[{"type":"connector/v1/Interrupt","message":{}},)";
    const std::string interrupt = R"({"type":"connector/v1/Interrupt",)", path = "messages[1].";
    const std::string eval = R"({"type":"connector/v1/Eval","message":{$}})";
    const std::string any = "an integer between -2147483648 and 2147483647";
    const std::string count = "an integer between 0 and 2147483647";
    const std::string seconds = "an integer between 0 and 2147483", strings = "an array of strings";
    const std::map<std::string, std::string> fitting = {
        {any, " 1 "},          {count, " 1 "},           {seconds, " 1 "},  {"a string", " \"1\" "},
        {"an object", " {} "}, {"an array", " [] [1] "}, {strings, " [] "}, {"true or false", " true "}};
    struct Row {
        std::string body, path, kind;
        std::vector<std::string> members;
        bool isRequired = false;
    };
    const Row rows[] = {
        {eval, "", "a string", {"mcode"}, true},
        {eval, "", "a string", {"uuid"}},
        {eval, "", any, {"width", "height"}},
        {eval, "", seconds, {"timeout"}},
        {call, "", "a string", {"function"}, true},
        {call, "", "a string", {"uuid", "dequeMode", "outputMode"}},
        {call, "", "an array", {"arguments"}},
        {call, "", count, {"nargout", "timeoutMs"}},
        {call, "", any, {"priority"}},
        {call, "", "true or false", {"hotlinks"}},
        {interrupt + R"("message":{$}})", "", "a string", {"uuid"}},
        {sequence + "$}}", "", "a string", {"uuid"}},
        {sequence + "$}}", "", "an array", {"messages"}, true},
        {sequence + R"("messages":[1]}})", "", "an object", {"messages[0]"}, true},
        {entry + "{\"message\":{},$}]}}", path, "a string", {"type"}, true},
        {entry + "{\"type\":\"connector/v1/FEval\",$}]}}", path, "an object", {"message"}, true},
        {entry + call + "]}}", path + "message.", "a string", {"function"}, true},
        {entry + call + "]}}", path + "message.", "an array", {"arguments"}},
        {R"({"message":{},$})", "", "a string", {"type"}, true},
        {interrupt + "$}", "", "an object", {"message"}, true},
        {interrupt + R"("message":{},$})", "", "an object", {"context"}},
        {interrupt + R"("message":{},"context":{$}})", "context.", "a string", {"clientType"}},
        {interrupt + R"("message":{},"context":{$}})", "context.", strings, {"numoraCapabilities"}},
    };
    start();
    auto client = connect();
    const auto answer = [&](std::string body, const std::string& member) {
        if (const auto at = body.find('$'); at != std::string::npos) body.replace(at, 1, member);
        return client.ask(client.post("/messages", body)).body;
    };
    for (const auto& [body, where, kind, members, isRequired] : rows) {
        for (const auto& member : members) {
            const std::string refusal = R"({"error":")" + where + member + " must be " + kind + "\"}";
            EXPECT_EQ(answer(body, R"("x":1)") == refusal, isRequired) << refusal;
            for (const std::string value : {"null", "true", "1", "0.5", "-2147483649", "2147483648", "1e300",
                                            "\"1\"", "[]", "[1]", "{}"}) {
                const bool fits = fitting.at(kind).find(' ' + value + ' ') != std::string::npos;
                const auto got = answer(body, '"' + member + "\":" + value);
                EXPECT_EQ(got == refusal, !fits || body.find('$') == std::string::npos) << value << got;
            }
        }
    }
    EXPECT_EQ(post("/messages", R"({"type":"other","message":{}})").status, 404);
}

TEST_F(RequestTest, membersThatNobodyReadsAreLoggedByNameAndNeverWithTheirValues) {
    start();
    const LogRecords records;
    const std::string message = R"({"type":"connector/v1/Eval","message":{"mcode":"1","timeot":"secret"}})";
    const auto sequence =
        R"({"type":"connector/v1/Sequence","message":{"messages":[)" + message + R"(]},"x":1})";
    EXPECT_EQ(post("/messages", sequence).status, 200);
    EXPECT_EQ(
        records.all(),
        "warning: Unknown members of a request to /messages: \"x\"\n"
        "warning: Unknown members of a request to connector/v1/Sequence: \"messages[0].message.timeot\"\n");
    for (int i = 0; i < 100; ++i) post("/messages", sequence);
    EXPECT_LE(records.count("warning: Unknown"), 100) << "clients can fill the log";
}

TEST_F(RequestTest, firstVisitTakesTheTokenOutOfTheAddressAndIntoACookie) {
    start();
    auto client = connect();
    const auto first = client.get("/?token=" + TestClient::token);
    EXPECT_EQ(first.status, 200);  // after a redirection that another site has begun there would be no cookie
    EXPECT_EQ(first.header("refresh"), "0;url=./");
    const std::string set = first.header("set-cookie");
    const std::string name = "numora-key-" + std::to_string(gateway_->port()) + "=";
    EXPECT_THAT(set, StartsWith(name));
    EXPECT_THAT(set, EndsWith("; HttpOnly; SameSite=Strict"));
    EXPECT_THAT(set, Not(HasSubstr("Path")));  // the folder that the browser knows
    EXPECT_THAT(set, Not(HasSubstr(TestClient::token)));
    const std::string cookies = name + "x\r\nCookie: a=b; " + set.substr(0, set.find(';'));
    EXPECT_EQ(client.get("/", "Cookie: " + cookies + "\r\n").status, 200);
    const auto refusal = client.get("/?token=another-wrong-token");
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
    EXPECT_EQ(head.header("content-length"), std::to_string(client.get("/healthz").body.size()));
    client.send(client.head("HEAD /healthz") + "garbage\r\n\r\n");
    EXPECT_EQ(client.receive(false).status, 200);
    EXPECT_NE(client.receive().body, "") << "what is no request is not answered like HEAD";
}

TEST_F(RequestTest, configuredOriginsAreAnsweredAsBrowsersWantIt) {
    start({.origins = {"https://lab.example"}});
    auto client = connect();
    const std::string origin = "Origin: https://lab.example\r\n";
    const auto preflight = client.ask(client.head("OPTIONS /messages", origin));
    EXPECT_EQ(preflight.status, 204);
    const auto answer = client.ask(client.post("/connector/v1/Interrupt", "{}", origin));
    EXPECT_EQ(answer.status, 200);
    for (const auto* response : {&preflight, &answer}) {
        EXPECT_EQ(response->header("access-control-allow-origin"), "https://lab.example");
    }
}

}  // namespace
