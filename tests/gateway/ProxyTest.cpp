#include <stdexcept>
#include <string>

#include "GatewayFixture.h"

namespace {

using gateway::GatewayOptions;

class ProxyTest : public GatewayFixture {
protected:
    static constexpr const char* forwarded =
        "X-Forwarded-Proto: https\r\nX-Forwarded-Host: lab.example\r\nX-Forwarded-For: 192.0.2.3\r\n";
    /// The answer to the first visit of a browser.
    TestResponse visit(const std::string& path, const std::string& headers = "") const {
        return connect().get(path + "?token=" + TestClient::token, headers);
    }
};

TEST_F(ProxyTest, servesWhatIsBelowTheBasePathAndHealth) {
    start({.basePath = "/a/numora/"});
    EXPECT_TRUE(gateway_->url().ends_with("/a/numora/"));
    for (const char* path : {"/healthz", "/a/numora/healthz", "/a/numora/readyz", "/a/numora/",
                             "/a/numora/interpreters/default/readyz"}) {
        EXPECT_EQ(get(path).status, 200) << path;
    }
    for (const char* path :
         {"/", "/readyz", "/a/numorax/readyz", "/a/x/numora/readyz", "/a/numora/a/numora/readyz"}) {
        EXPECT_EQ(get(path).status, 404) << path;
    }
    const auto reply = visit("/a/numora");
    EXPECT_EQ(reply.header("refresh"), "0;url=numora/");
    EXPECT_NE(reply.header("set-cookie").find("; Path=/a/numora;"), std::string::npos);
}

TEST_F(ProxyTest, isBelievedWhenItIsTrustedAndElseNot) {
    const std::string https = "Origin: https://lab.example\r\n";
    start({.hosts = {"lab.example"}, .trustedProxies = {"127.0.0.0/8"}});
    const auto reply = visit("/", forwarded + https);
    EXPECT_EQ(reply.status, 200);
    EXPECT_TRUE(reply.header("set-cookie").ends_with("; Secure"));
    EXPECT_EQ(visit("/", std::string(forwarded) + "Origin: http://lab.example\r\n").status, 403);
    EXPECT_EQ(visit("/", "X-Forwarded-Host: evil.example\r\n").status, 403);
    gateway_.reset();
    start({.hosts = {"lab.example"}, .trustedProxies = {"192.0.2.0/24"}});
    EXPECT_EQ(visit("/", forwarded + https).status, 403);
    EXPECT_EQ(visit("/", forwarded).header("set-cookie").find("Secure"), std::string::npos);
}

TEST_F(ProxyTest, handshakesCountForTheClientBehindIt) {
    start({.trustedProxies = {"127.0.0.1"}});
    for (int i = 0; i < 60; ++i) {
        auto client = connect();
        const auto address = "X-Forwarded-For: 192.0.2." + std::to_string(i) + "\r\n";
        const auto reply = client.ask(client.post("/cometd", handshake(true), address));
        EXPECT_NE(reply.body.find("\"successful\":true"), std::string::npos) << reply.body;
    }
}

TEST_F(ProxyTest, watchersNeedNoTokenForWhatIsOpen) {
    start({.open = {"readyz"}});
    const auto statusOf = [&](const std::string& request) {
        return ask("GET " + request + "\r\n\r\n").status;
    };
    const std::string host = " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(gateway_->port());
    EXPECT_EQ(statusOf("/readyz" + host), 200);
    EXPECT_EQ(statusOf("/metrics" + host), 401);
    EXPECT_EQ(statusOf("/interpreters/default/readyz" + host), 401);
    EXPECT_EQ(statusOf("/readyz HTTP/1.1\r\nHost: evil.example"), 403);
}

TEST_F(ProxyTest, namesThatNeverMatchAreRefused) {
    const auto expect = [&](const GatewayOptions& options, const std::string& problem) {
        std::string told;
        try {
            const gateway::Gateway made(
                messages_, framework_, serializer_, [] { return true; }, options);
        } catch (const std::invalid_argument& error) {
            told = error.what();
        }
        EXPECT_TRUE(problem.empty() ? told.empty() : told.find(problem) != std::string::npos) << told;
    };
    expect({.hosts = {"lab.example", "Lab.Example:443", "[2001:db8::7]", "192.0.2.7:1"},
            .origins = {"https://lab.example", "HTTP://Lab:81", "https://[::7]:8443", "app://pages",
                        "http://lab:443"}},
           "");
    for (const char* wrong : {"", "*", "null", "lab", "https://lab/", "https://lab/x", "https://l ab",
                              "https://*.lab", "https://lab:0", "https://lab:65536", "https://lab:0444",
                              "wss://lab", "WS://lab", "https://u@lab", "https://lab "}) {
        expect({.origins = {wrong}},
               std::string("be a scheme and a host, with the port unless it is the usual one, and ") +
                   "nothing else, such as https://lab.example: \"" + wrong + "\" never matches.");
    }
    for (const std::string scheme : {"https://lab", "HTTPS://lab"}) {
        expect({.origins = {scheme + ":443"}},
               "without the usual port, as browsers send it: \"" + scheme + "\", not ");
    }
    for (const char* wrong : {"", "*", "https://lab", "lab/", "2001:db8::7", "lab:", "lab:08080", "a b"}) {
        expect({.hosts = {wrong}}, "(--allow-host, hosts) must be");
    }
    for (const char* wrong : {"numora", "/a//b", "/a/../b", "/a b", "/a?b", "/%41", "/a/interpreters/b"}) {
        expect({.basePath = wrong}, "(--base-path, base_path) must");
    }
    expect({.open = {"/metrics"}}, "(--open, open) must be readyz or metrics");
}

}  // namespace
