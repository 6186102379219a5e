#include <atomic>
#include <barrier>
#include <latch>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "InterpretersFixture.h"
#include "access/token.h"

namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

using InterpretersTest = InterpretersFixture;

TEST_F(InterpretersTest, arePathsOfTheirOwnWithALife) {
    serve({.interpreters = {{"lab", "{}"}}});
    struct Row {
        std::string method, path, headers;
        int status;
        std::string body, life;
    };
    const std::string eval = "/connector/v1/Eval";
    for (const auto& row : std::vector<Row>{
             {"POST", "/interpreters/lab" + eval, "", 200, "\"responseStr\":\"1\"", "2"},
             {"POST", eval, "", 200, "\"responseStr\":\"1\"", "1"},
             {"POST", "/interpreters/default" + eval, "Connector-Interpreter-Life: 1\r\n", 200, "", "1"},
             {"POST", "/interpreters/lab" + eval, "Connector-Interpreter-Life: 1\r\n", 409,
              "The request is for life 1 of the interpreter, which is in life 2.", "2"},
             {"POST", eval, "Connector-Interpreter-Life: 1x\r\n", 400,
              "Connector-Interpreter-Life must be an integer of at least 0.", "1"},
             {"POST", "/interpreters/LAB" + eval, "", 404, R"({"error":"There is no interpreter \"LAB\"."})",
              ""},
             {"POST", "/interpreters//cometd", "", 404, R"(There is no interpreter \"\".)", ""},
             {"GET", "/interpreters/lab/readyz", "", 200, "ready", "2"},
             {"GET", "/interpreters/lab/metrics", "", 404, "no such", "2"},
             {"GET", "/interpreters/lab/interpreters", "", 404, "no such", "2"},
             {"GET", "/restart", "", 404, "no such", "1"},
             {"DELETE", "/interpreters", "", 405, "", ""},
             {"POST", "/interpreters/lab", "", 405, "", "2"},
             {"OPTIONS", eval, "Origin: https://lab.example\r\n", 403, "", "1"}}) {
        if (row.life == "2") request("POST", "/interpreters/lab/restart", R"({"life":1})");
        const auto answer = request(row.method, row.path, R"({"mcode":"1"})", TestClient::token, row.headers);
        EXPECT_EQ(answer.status, row.status) << row.method << row.path;
        EXPECT_THAT(answer.body, HasSubstr(row.body)) << row.path;
        EXPECT_EQ(answer.header("connector-interpreter-life"), row.life) << row.path;
    }
    EXPECT_THAT(connect().get("/interpreters/lab/?token=" + TestClient::token).header("refresh"),
                testing::Eq("0;url=./"));
}

TEST_F(InterpretersTest, areMadeRestartedAndDeletedByClients) {
    serve({.mostInterpreters = 3});
    struct Row {
        std::string method, path, body;
        int status;
        std::string answer;
    };
    const std::string longest(63, 'x');
    for (const auto& row : std::vector<Row>{
             {"POST", "/interpreters", R"({"id":"lab","memoryMiB":64,"cpus":1.5,"folder":"/"})", 201,
              R"("limits":{"memoryMiB":64,"cpus":1.5,"enforcedBy":"none"},"lastDeath":null})"},
             {"POST", "/interpreters", R"({"id":"lab"})", 409, R"(The interpreter \"lab\" exists already.)"},
             {"POST", "/interpreters", R"({"id":"1a"})", 400, "id must be 1 to 63 small letters"},
             {"POST", "/interpreters", R"({"id":"x)" + longest + "\"}", 400, "id must be"},
             {"POST", "/interpreters", R"({"cpus":-1})", 400, "cpus must be a number between 0 and 4096"},
             {"POST", "/interpreters", R"({"memoryMib":1})", 400, R"(\"memoryMib\" is not a known member)"},
             {"POST", "/interpreters", R"({"folder":"here"})", 400, "folder must be an absolute path"},
             {"POST", "/interpreters", R"({"env":{"A=":""}})", 400, "env must have names"},
             {"POST", "/interpreters", R"({"env":{"A":1}})", 400, "env.A must be a string"},
             {"POST", "/interpreters", R"({"restart":"now"})", 400, "restart must be"},
             {"POST", "/interpreters", "[]", 400, "must be a JSON object"},
             {"POST", "/interpreters", R"({"id":")" + longest + "\"}", 201, longest},
             {"POST", "/interpreters", "", 429, "There are 3 interpreters already"},
             {"POST", "/interpreters/lab/restart", R"({"force":true,"life":1})", 200, R"("life":11)"},
             {"POST", "/interpreters/lab/restart", R"({"life":1})", 409, "another life"},
             {"POST", "/interpreters/lab/restart", R"({"life":"1"})", 400, "life must be an integer"},
             {"GET", "/interpreters/lab/deaths", "", 200, R"({"deaths":[{"interpreter":"lab","life":1)"},
             {"GET", "/interpreters/default", "", 200,
              R"({"id":"default","state":"ready","activity":"idle")"},
             {"GET", "/metrics", "", 200, "\nnumora_sessions 0\nnumora_sessions{interpreter=\"lab\"} 0\n"},
             {"DELETE", "/interpreters/default", "", 403, "cannot be deleted"},
             {"DELETE", "/interpreters/lab", "", 204, ""},
             {"GET", "/interpreters/lab", "", 404, "There is no interpreter"},
             {"DELETE", "/interpreters/lab", "", 404, "There is no interpreter"},
             {"POST", "/interpreters", "", 201, R"({"id":"i)"}}) {
        auto answer = request(row.method, row.path, row.body);
        while (answer.status == 429 && row.status == 201) {  // the place of a deleted one is soon free
            answer = request(row.method, row.path, row.body);
        }
        EXPECT_EQ(answer.status, row.status) << row.method << row.path << row.body;
        EXPECT_THAT(answer.body, HasSubstr(row.answer)) << row.path;
    }
    EXPECT_THROW(serve({.interpreters = {{"lab", R"({"restart":1})"}}}), std::invalid_argument);
}

TEST_F(InterpretersTest, areReachedWithTheRightsOfTheToken) {
    serve({.tokens = {{gateway::access::digestOf(userToken), {"lab-*", "x"}, {"use"}},
                      {gateway::access::digestOf("operator-of-the-labs"), {"*"}, {"restart", "create"}}},
           .interpreters = {{"lab-1", "{}"}, {"other", "{}"}}});
    struct Row {
        std::string token, method, path;
        int status;
        std::string answer;
    };
    const std::string denied = "This token may not ";
    for (const auto& row : std::vector<Row>{
             {"no-token-of-this-server", "GET", "/interpreters", 401, ""},
             {userToken, "GET", "/interpreters", 200, R"({"interpreters":[{"id":"lab-1")"},
             {userToken, "POST", "/interpreters/lab-1/connector/v1/Eval", 200, ""},
             {userToken, "POST", "/connector/v1/Eval", 403, denied + R"(use the interpreter \"default\".)"},
             {userToken, "GET", "/interpreters/other/readyz", 403,
              denied + R"(use the interpreter \"other\".)"},
             {userToken, "POST", "/interpreters/unknown/cometd", 403, denied + "use the"},
             {userToken, "POST", "/interpreters/lab-2/cometd", 404, "There is no"},
             {userToken, "POST", "/interpreters/lab-1/restart", 403, denied + "restart interpreters."},
             {userToken, "DELETE", "/interpreters/lab-1", 403, denied + "delete interpreters."},
             {userToken, "POST", "/interpreters", 403, denied + "create interpreters."},
             {userToken, "GET", "/metrics", 403, denied + "read the metrics"},
             {"operator-of-the-labs", "GET", "/interpreters", 200, R"({"interpreters":[]})"},
             {"operator-of-the-labs", "GET", "/interpreters/lab-1", 403, denied + "use interpreters."},
             {"operator-of-the-labs", "POST", "/interpreters/lab-1/restart", 200, ""},
             {"operator-of-the-labs", "DELETE", "/interpreters/lab-1", 204, ""},
             {"operator-of-the-labs", "GET", "/metrics", 200, ""}}) {
        const auto answer = request(row.method, row.path, R"({"mcode":"1"})", row.token);
        EXPECT_EQ(answer.status, row.status) << row.method << row.path << answer.body;
        EXPECT_THAT(answer.body, HasSubstr(row.answer)) << row.path;
        EXPECT_THAT(answer.body,
                    testing::Not(testing::AllOf(HasSubstr("interpreters\":["), HasSubstr("other"))));
    }
}

TEST_F(InterpretersTest, tellBayeuxClientsTheirLifeAndRefuseAnother) {
    serve({.tokens = {{gateway::access::digestOf(userToken), {"lab"}, {"use"}}},
           .interpreters = {{"lab", "{}"}, {"other", "{}"}}});
    const auto ask = [this](const std::string& interpreter, const std::string& body) {
        auto client = connect();
        return client
            .ask(client.head("POST /interpreters/" + interpreter + "/cometd",
                             "Content-Type: application/json\r\nContent-Length: " +
                                 std::to_string(body.size()) + "\r\n") +
                 body)
            .body;
    };
    const auto handshakeWith = [](const std::string& token) {
        return R"([{"channel":"/meta/handshake","version":"1.0","supportedConnectionTypes":["long-polling"],)"
               R"("ext":{"connector":{"token":")" +
               token + "\"}}}]";
    };
    EXPECT_THAT(ask("other", handshakeWith(userToken)),
                HasSubstr("403::the token may not use the interpreter"));
    EXPECT_THAT(ask("lab", handshakeWith("wrong")), HasSubstr("401::"));
    const auto id = clientIdIn(ask("lab", handshakeWith(userToken)));
    const auto send = [&](const std::string& channel, const std::string& life) {
        return ask("lab", R"([{"clientId":")" + id + R"(","channel":")" + channel +
                              R"(","subscription":"/a","data":{},"ext":{"connector":{"life":)" + life +
                              "}}}]");
    };
    EXPECT_THAT(send("/meta/subscribe", "1"), HasSubstr(R"("life":1}})"));
    const std::string wrong = "The request is for life 2 of the interpreter, which is in life 1.";
    for (const char* channel : {"/service/connector/v1/Interrupt", "/eval/request", "/a"}) {
        EXPECT_THAT(send(channel, "1"), HasSubstr(R"("successful":true)")) << channel;
        EXPECT_THAT(send(channel, "2"), HasSubstr("409:" + std::string(channel) + ":" + wrong));
        EXPECT_THAT(send(channel, "\"1\""), HasSubstr("ext.connector.life must be an integer")) << channel;
    }
    EXPECT_THAT(ask("other", R"([{"clientId":")" + id + R"(","channel":"/meta/connect"}])"),
                HasSubstr("402::"));
}

// Each waits for the others.
TEST_F(InterpretersTest, stopAtTheSameTime) {
    serve({.interpreters = {{"lab", "{}"}, {"other", "{}"}}});
    std::vector<std::unique_ptr<TestClient>> clients;
    for (const char* path : {"", "/interpreters/lab", "/interpreters/other"}) {
        clients.push_back(std::make_unique<TestClient>(gateway_->port()));
        clients.back()->send(
            clients.back()->post(path + std::string("/connector/v1/Eval"), R"({"mcode":"wait"})"));
    }
    ASSERT_TRUE(interpreter_->waitForWaiting(3));
    gateway_->stop();
    for (const auto& client : clients) EXPECT_EQ(client->receive().status, 200);
}

TEST_F(InterpretersTest, areDeletedWhileTheyAreUsed) {
    serve({.mostInterpreters = 4, .ioThreads = 2});
    std::atomic<bool> isOver = false;
    std::atomic<int> served = 0;
    std::vector<std::thread> users;
    for (int i = 0; i < 3; ++i) {
        users.emplace_back([&] {
            while (!isOver) {
                const auto eval = post("/interpreters/lab/connector/v1/Eval", R"({"mcode":"1"})");
                EXPECT_THAT(eval.status, testing::AnyOf(200, 404, 503)) << eval.body;
                served += eval.status == 200 ? 1 : 0;
                auto socket = connect();
                socket.get("/interpreters/lab/cometd?token=" + TestClient::token, TestClient::upgrade);
                post("/interpreters/lab/cometd", handshake(true));
            }
        });
    }
    int deleted = 0;
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while ((deleted < 30 || served < 10) && std::chrono::steady_clock::now() < deadline) {
        const int status = request("POST", "/interpreters", R"({"id":"lab"})").status;
        EXPECT_THAT(status, testing::AnyOf(201, 429));
        if (status != 201) continue;
        get("/interpreters/lab/readyz");
        EXPECT_EQ(request("DELETE", "/interpreters/lab").status, 204);
        ++deleted;
    }
    isOver = true;
    for (auto& user : users) user.join();
    EXPECT_GE(deleted, 30);
    EXPECT_GE(served, 10);
}

}  // namespace
