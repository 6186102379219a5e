#include <functional>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "InterpretersFixture.h"
#include "access/token.h"

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

/// Asks for a row of paths, in which "{name}" stands for the id in an earlier answer.
class NotebookApiTest : public InterpretersFixture {
protected:
    struct Row {
        std::string token, method, path, body;
        int status;
        std::string answer;  // a part of it
        std::string name{};  // of the first id in it
    };

    void check(const std::vector<Row>& rows) {
        for (const auto& row : rows) {
            const auto answer = request(row.method, filled(row.path), filled(row.body), row.token);
            EXPECT_EQ(answer.status, row.status) << row.method << row.path << row.body << answer.body;
            EXPECT_THAT(answer.body, HasSubstr(filled(row.answer))) << row.method << row.path;
            std::smatch id;
            if (!row.name.empty() && std::regex_search(answer.body, id, std::regex(R"("id":"([^"]*)\")"))) {
                ids_[row.name] = id[1];
            }
        }
    }
    std::string filled(std::string text) const {
        for (const auto& [name, id] : ids_) {
            for (std::size_t at = 0; (at = text.find("{" + name + "}")) != std::string::npos;) {
                text.replace(at, name.size() + 2, id);
            }
        }
        return text;
    }

    std::map<std::string, std::string> ids_;
};

TEST_F(NotebookApiTest, answersWhatFrontEndsAskForOfKernelsAndSessions) {
    serve({.basePath = "/base", .interpreters = {{"lab", "{}"}}, .mostInterpreters = 4});
    const std::string all = TestClient::token;
    const std::string api = "/base/api/";
    check(
        {{all, "GET", "/base/api", "", 200, R"({"version":")"},
         {all, "GET", api + "status", "", 200, R"("connections":0,"kernels":2})"},
         {all, "GET", api + "kernelspecs?1700000000", "", 200,
          R"({"default":"numora","kernelspecs":{"numora":{)"},
         {all, "GET", api + "kernelspecs/numora-shared", "", 200,
          R"("logo-64x64":"/base/kernelspecs/numora-shared/logo-64x64.png")"},
         {all, "GET", api + "kernelspecs/ir", "", 404, R"({"message":"There is no kernelspec \"ir\"."})"},
         {all, "GET", "/base/kernelspecs/numora/logo-64x64.png", "", 200, "PNG"},
         {all, "POST", api + "kernels", R"({"name":"numora-shared"})", 201, R"("interpreter":"default")",
          "default"},
         {all, "POST", api + "kernels", R"({"name":"ir"})", 404, "There is no kernelspec"},
         {all, "POST", api + "kernels", R"({"name":1})", 400, R"({"message":"name must be a string"})"},
         {all, "POST", api + "kernels", R"({"interpreter":{"cpu":1}})", 400, "is not a known member"},
         {all, "POST", api + "kernels", "", 201, R"("interpreter":"kernel-)", "own"},
         {all, "POST", api + "kernels", R"({"name":"python","interpreter":{"cpus":1}})", 201,
          R"("interpreter":"kernel-)", "second"},
         {all, "POST", api + "kernels", "{}", 429, "There are 4 interpreters already"},
         {all, "GET", api + "kernels", "", 200, R"("id":"{own}","name":"numora","last_activity":")"},
         {all, "POST", api + "kernels/{own}/interrupt", "", 204, ""},
         {all, "POST", api + "kernels/{own}/restart", "", 200, R"({"id":"{own}")"},
         {all, "GET", api + "kernels/{own}/channels", "", 426,
          R"({"message":"The path is that of a WebSocket."})"},
         {all, "GET", api + "kernels/{own}/other", "", 404, R"({"message":"There is no kernel)"},
         {all, "PUT", api + "contents/a.ipynb", "", 404, R"({"message":"There is no such path."})"},
         // A session is that of a document, which another front end finds.
         {all, "POST", api + "sessions",
          R"({"path":"a.ipynb","name":"a","type":"notebook","kernel":{"id":"{own}"}})", 201,
          R"("notebook":{"path":"a.ipynb","name":"a"}})", "session"},
         {all, "POST", api + "sessions",
          R"({"path":"a.ipynb","type":"notebook","kernel":{"name":"numora-shared"}})", 201,
          R"({"id":"{session}",)"},
         // What has no path has nothing in common.
         {all, "POST", api + "sessions", R"({"path":"","kernel":{"id":"{own}"}})", 201, "{own}", "other"},
         {all, "POST", api + "sessions", R"({"path":"","kernel":{"id":"{second}"}})", 201, "{second}",
          "third"},
         // The interpreter ends with the last session of a kernel that was made for one; others are let go.
         {all, "PATCH", api + "sessions/{session}", R"({"path":"b.ipynb","kernel":{"id":"{default}"}})", 200,
          R"("path":"b.ipynb","name":"a","type":"notebook","kernel":{"id":"{default}")"},
         {all, "PATCH", api + "sessions/{other}", R"({"kernel":{"id":"none"}})", 404, "There is no kernel"},
         {all, "PATCH", api + "sessions/{other}", R"({"kernel":{"id":"{own}"}})", 200, "{own}"},
         {all, "GET", api + "kernels/{own}", "", 200, "{own}"},
         {all, "PATCH", api + "sessions/{other}", R"({"kernel":{"name":"numora-shared"}})", 200, "{default}"},
         {all, "GET", api + "kernels/{own}", "", 404, "There is no kernel"},
         {all, "PATCH", api + "sessions/{other}", R"({"kernel":{"id":"{own}"}})", 404, "There is no kernel"},
         {all, "DELETE", api + "sessions/{other}", "", 204, ""},
         {all, "GET", api + "sessions/{session}", "", 200, "b.ipynb"},
         {all, "DELETE", api + "sessions/{session}", "", 204, ""},
         {all, "DELETE", api + "sessions/{third}", "", 204, ""},
         {all, "GET", api + "kernels/{second}", "", 404, "There is no kernel"},
         {all, "GET", api + "sessions", "", 200, "[]"},
         {all, "DELETE", api + "kernels/{default}", "", 204, ""},
         {all, "GET", "/base/interpreters/lab/api/kernels/{default}", "", 404, "There is no kernel"},
         {all, "POST", "/base/interpreters/lab/api/kernels", "", 201, R"("interpreter":"lab")"},
         {all, "GET", api + "kernels/{default}", "", 200, R"("execution_state":"idle","connections":0)"}});
    const auto model = request("GET", filled(api + "kernels/{default}")).body;
    EXPECT_TRUE(
        std::regex_search(model, std::regex(R"("last_activity":"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z")")))
        << model;
}

TEST_F(NotebookApiTest, holdsTokensToTheirRights) {
    const auto digest = [](const char* token) { return gateway::access::digestOf(token); };
    serve({.tokens = {{digest("maker-of-team-kernels"), {"team-*"}, {"use", "create"}},
                      {digest("user-of-the-lab-alone"), {"lab"}, {"use"}},
                      {digest("user-of-the-default-one"), {"default"}, {"use"}},
                      {digest("restarts-and-nothing-else"), {"*"}, {"restart", "create"}}},
           .interpreters = {{"lab", "{}"}, {"team-1", "{}"}}});
    const std::string all = TestClient::token;
    const std::string maker = "maker-of-team-kernels";
    const std::string ofLab = "user-of-the-lab-alone";
    const std::string ofDefault = "user-of-the-default-one";
    const std::string restarter = "restarts-and-nothing-else";
    const std::string denied = R"({"message":"This token may )";
    check(
        {{all, "GET", "/interpreters/default/api/kernels", "", 200, "", "default"},
         {all, "GET", "/interpreters/lab/api/kernels", "", 200, "", "lab"},
         {"no-token-of-this-server", "GET", "/api/kernels", "", 401, R"({"message":"The token is)"},
         {maker, "POST", "/api/kernels", R"({"interpreter":{}})", 201, R"("interpreter":"team-)", "own"},
         {maker, "POST", "/api/kernels", R"({"interpreter":{"id":"lab2"}})", 403, denied + "not create the"},
         {maker, "POST", "/api/kernels", R"({"name":"numora-shared"})", 403, denied + "neither create"},
         {ofLab, "GET", "/api/kernelspecs", "", 200,
          R"({"default":"numora-shared","kernelspecs":{"numora-sh)"},
         {ofLab, "POST", "/api/kernels", "", 403, denied + "neither create"},
         {ofLab, "POST", "/interpreters/lab/api/kernels", "", 201, "{lab}"},
         {ofLab, "POST", "/interpreters/default/api/kernels", "", 403, denied + "not use the"},
         {ofLab, "GET", "/api/status", "", 200, R"("kernels":1})"},
         {ofLab, "GET", "/api/kernels/{default}", "", 404,
          R"({"message":"There is no kernel \"{default}\"."})"},
         {ofLab, "GET", "/api/kernels/{default}/channels", "", 404, "There is no kernel"},
         {ofLab, "POST", "/api/kernels/{default}/interrupt", "", 404, "There is no kernel"},
         {ofLab, "POST", "/api/kernels/{lab}/restart", "", 403, denied + "not restart"},
         {ofLab, "POST", "/api/sessions", R"({"kernel":{"id":"{default}"}})", 404, "There is no kernel"},
         {ofLab, "POST", "/api/sessions", R"({"path":"l","kernel":{"id":"{lab}"}})", 201, "", "session"},
         {all, "POST", "/api/sessions", R"({"path":"l","kernel":{"id":"{lab}"}})", 201, "", "of another"},
         {ofDefault, "POST", "/api/kernels", "", 201, "{default}"},
         {ofDefault, "GET", "/api/sessions", "", 200, "[]"},
         {ofDefault, "GET", "/api/sessions/{session}", "", 404, "There is no session"},
         {ofDefault, "PATCH", "/api/sessions/{session}", "", 404, "There is no session"},
         {ofDefault, "DELETE", "/api/sessions/{session}", "", 404, "There is no session"},
         {ofDefault, "DELETE", "/api/kernels/{own}", "", 404, "There is no kernel"},
         {ofDefault, "DELETE", "/api/kernels/{default}", "", 204, ""},
         {restarter, "GET", "/api/kernels", "", 200, "[]"},
         {restarter, "GET", "/api/kernels/{lab}", "", 403, denied + "not use"},
         {restarter, "DELETE", "/api/kernels/{own}", "", 403, denied + "not"},
         {restarter, "POST", "/api/kernels", "", 403, denied + "neither create"},
         {restarter, "POST", "/api/kernels/{lab}/restart", "", 200, "{lab}"},
         {maker, "DELETE", "/api/kernels/{own}", "", 204, ""}});
    EXPECT_NE(ids_["session"], ids_["of another"]);
    const auto ofMaker = request("GET", "/api/kernels", "", maker).body;
    EXPECT_THAT(ofMaker, HasSubstr(R"("interpreter":"team-1")"));
    EXPECT_THAT(ofMaker, Not(HasSubstr("default")));
}

TEST_F(NotebookApiTest, decidesOnSessionsOneAfterTheOther) {
    constexpr int trials = 20;
    serve({.mostInterpreters = 2 * trials, .ioThreads = 4});
    const auto together = [](const std::vector<std::function<void()>>& actions) {
        std::vector<std::thread> threads;
        for (const auto& action : actions) threads.emplace_back(action);
        for (auto& thread : threads) thread.join();
    };
    for (int i = 0; i < trials; ++i) {
        const std::string body = R"({"path":"a)" + std::to_string(i) + R"("})";
        const auto post = [&] { EXPECT_EQ(request("POST", "/api/sessions", body).status, 201); };
        together({post, post, post, post});
    }
    EXPECT_THAT(get("/api/status").body, HasSubstr(R"("kernels":)" + std::to_string(trials + 1) + "}"));
    for (int i = 0; i < trials; ++i) {
        const Row made{TestClient::token,
                       "POST",
                       "/api/sessions",
                       R"({"path":"b","kernel":{"name":"numora-shared"}})",
                       201,
                       "",
                       "session"};
        check({made});
        const auto path = filled("/api/sessions/{session}");
        together({[&] { request("PATCH", path, R"({"name":"new"})"); },
                  [&] { EXPECT_EQ(request("DELETE", path).status, 204); }});
        EXPECT_EQ(request("GET", path).status, 404);
    }
}

// As clients of notebook servers show it, with the type that some of them give to every body.
TEST_F(NotebookApiTest, takesTheTokenAndTheBodiesOfItsClients) {
    serve({.origins = {"https://lab.example"}});
    auto client = connect();
    const auto ask = [&](const std::string& line, const std::string& headers, const std::string& body = "") {
        return client.ask(
            client.head(line, headers + "Content-Length: " + std::to_string(body.size()) + "\r\n") + body);
    };
    const std::string form = "Content-Type: application/x-www-form-urlencoded\r\n";
    EXPECT_EQ(
        ask("POST /api/kernels", form + "Authorization: token " + TestClient::token + "\r\n", "{}").status,
        201);
    EXPECT_EQ(ask("POST /api/kernels?user=a&token=" + TestClient::token, "").status, 201);
    const auto preflight = ask("OPTIONS /api/sessions/x", "Origin: https://lab.example\r\n");
    EXPECT_EQ(preflight.status, 204);
    EXPECT_THAT(preflight.header("access-control-allow-methods"), HasSubstr("PATCH, DELETE"));
    EXPECT_THAT(preflight.header("access-control-allow-headers"), HasSubstr("X-XSRFToken"));
}

}  // namespace
