#include <cstdint>
#include <string>

#include <gmock/gmock.h>

#include "access/AccessPolicy.h"
#include "access/Refusals.h"
#include "access/token.h"
#include "support/LogRecords.h"

namespace {

using gateway::HttpRequest;
using gateway::access::AccessPolicy;

TEST(AccessPolicyTest, allowsTheHostsThatNameThisServer) {
    const AccessPolicy policy({.token = "t", .hosts = {"gate.example", "proxy.example:443"}}, 8350);
    const auto isAllowed = [&](const std::string& host, const std::string& localAddress = "127.0.0.1") {
        HttpRequest request;
        request.host = host;
        request.localAddress = localAddress;
        return policy.isAllowedHost(request);
    };
    for (const char* host : {"127.0.0.1:8350", "LOCALHOST:8350", "[::1]:8350", "gate.example:1",
                             "gate.example", "proxy.example"}) {
        EXPECT_TRUE(isAllowed(host)) << host;
    }
    for (const char* host : {"127.0.0.2:8350", "127.0.0.1:1", "127.0.0.1", "[::1]", "localhost", ":8350",
                             "localhost.evil.example:8350", "evil@localhost:8350", "localhost:83501",
                             "proxy.example:8350", "evil.example:8350"}) {
        EXPECT_FALSE(isAllowed(host)) << host;
    }
    EXPECT_TRUE(isAllowed("192.0.2.7:8350", "192.0.2.7"));
    EXPECT_TRUE(isAllowed("[2001:db8::7]:8350", "[2001:db8::7]"));
}

TEST(AccessPolicyTest, allowsTheOriginsOfThisServerAndTheConfiguredOnes) {
    const auto isAllowed = [](std::uint16_t port, const std::string& origin, const std::string& host) {
        const AccessPolicy policy({.token = "t",
                                   .hosts = {"proxy.example:443", "gate.example"},
                                   .origins = {"https://lab.example"}},
                                  port);
        HttpRequest request;
        request.host = host;
        request.localAddress = "192.0.2.7";
        request.origin = origin;
        request.isSecure = port == 443;
        return policy.isAllowedOrigin(request);
    };
    for (const char* origin : {"", "http://LocalHost:8350", "http://192.0.2.7:8350", "https://proxy.example",
                               "https://lab.example"}) {
        EXPECT_TRUE(isAllowed(8350, origin, "localhost")) << origin;
    }
    for (const char* origin :
         {"http://localhost:1", "https://192.0.2.7:8350", "http://127.0.0.1:8350.evil.example",
          "http://proxy.example", "https://lab.example:444", "https://lab.example.evil.example", "file://",
          "null", "localhost:8350", "http://gate.example:81"}) {
        EXPECT_FALSE(isAllowed(8350, origin, "localhost:81")) << origin;
    }
    EXPECT_TRUE(isAllowed(8350, "http://gate.example:81", "gate.example:81"));
    EXPECT_FALSE(isAllowed(8350, "http://gate.example:82", "gate.example:81"));
    EXPECT_TRUE(isAllowed(443, "https://localhost", "localhost"));
    EXPECT_FALSE(isAllowed(443, "http://localhost:443", "localhost"));
    EXPECT_TRUE(isAllowed(80, "http://localhost", "localhost"));
    EXPECT_FALSE(isAllowed(80, "https://localhost", "localhost"));
}

TEST(TokenTest, isFoundInHeaderAndQueryAndItsKeyAmongOtherCookies) {
    const AccessPolicy policy({.token = "secret"}, 1);
    const auto allows = [&](std::string HttpRequest::*member, const std::string& value) {
        HttpRequest request;
        request.*member = value;
        return policy.grantOf(request) != nullptr;
    };
    const auto cookieOf = [](const std::string& set) { return set.substr(0, set.find(';')); };
    const std::string cookie = cookieOf(policy.setCookie(*policy.grantOf("secret"), {}));
    const std::string name = cookie.substr(0, cookie.find('=') + 1);
    EXPECT_EQ(cookie.find("secret"), std::string::npos);
    EXPECT_TRUE(allows(&HttpRequest::cookie, "a=b;" + cookie));
    EXPECT_TRUE(allows(&HttpRequest::cookie, name + "wrong; " + cookie + "; z"));
    const AccessPolicy ofAnother({.token = "secret"}, 2);
    const std::string ofAnotherPort = cookieOf(ofAnother.setCookie(*ofAnother.grantOf("secret"), {}));
    for (const std::string& wrong : {"x-" + cookie, cookie + "2", name, name + "secret", ofAnotherPort,
                                     name + ofAnotherPort.substr(ofAnotherPort.find('=') + 1)}) {
        EXPECT_FALSE(allows(&HttpRequest::cookie, wrong)) << wrong;
    }
    EXPECT_EQ(policy.grantOf(cookie.substr(name.size())), nullptr);
    EXPECT_TRUE(allows(&HttpRequest::query, "a&token=%73ecret"));
    for (const char* wrong : {"xtoken=secret", "token=secret%", "token="}) {
        EXPECT_FALSE(allows(&HttpRequest::query, wrong)) << wrong;
    }
    EXPECT_TRUE(allows(&HttpRequest::authorization, "bearer secret"));
    for (const char* wrong : {"Bearer secre", "Bearer secret2", "Bearer ", "Basic secret", "secret"}) {
        EXPECT_FALSE(allows(&HttpRequest::authorization, wrong)) << wrong;
    }
}

TEST(TokenTest, thatIsRestrictedHasAKeyOfItsOwnWithItsRightsAlone) {
    using gateway::access::Right;
    const auto policyOf = [](const char* token) {
        return AccessPolicy({.token = token,
                             .restricted = {{gateway::access::digestOf("other"),
                                             {.interpreters = {"lab", "team-*"}, .rights = {Right::Use}}}}},
                            1);
    };
    const AccessPolicy policy = policyOf("secret");
    HttpRequest request;
    request.cookie = policy.setCookie(*policy.grantOf("other"), {});
    const auto grant = policy.grantOf(request);
    ASSERT_EQ(grant, policy.grantOf("other"));
    for (const char* id : {"lab", "team-", "team-1"}) EXPECT_TRUE(grant->allows(Right::Use, id)) << id;
    for (const char* id : {"lab1", "team", "default", "*"}) EXPECT_FALSE(grant->covers(id)) << id;
    EXPECT_FALSE(grant->allows(Right::Restart, "lab"));
    EXPECT_EQ(policyOf("another secret").grantOf(request), nullptr);
}

TEST(RefusalsTest, areLoggedOnceInAnIntervalAndThenCounted) {
    using enum gateway::access::Refusals::Reason;
    boost::asio::io_context context;
    gateway::access::Refusals refusals(context, std::chrono::milliseconds(1));
    const LogRecords log("gateway");
    for (const char* client : {"a", "b", "c"}) refusals.note(Token, client);
    refusals.note(Host, "d", "evil");
    context.run();
    refusals.note(Token, "e");
    const std::string wrong = "the token is missing or wrong";
    EXPECT_THAT(
        log.lines(),
        testing::ElementsAre("warning: Refused a request from a: " + wrong,
                             "warning: Refused a request from d: the Host does not name this server: evil",
                             "warning: Refused 2 more in the last 0 seconds, the last from c: " + wrong,
                             "warning: Refused a request from e: " + wrong));
    EXPECT_THAT(refusals.counts(), testing::ElementsAre(4, 0, 1, 0, 0));
}

TEST(TokenTest, madeUpOnesAreGoodAndChosenOnesMustBe) {
    using gateway::access::makeToken, gateway::access::tokenProblem;
    EXPECT_EQ(tokenProblem(makeToken()), "");
    EXPECT_EQ(makeToken().size(), 40U);
    EXPECT_NE(makeToken(), makeToken());
    EXPECT_EQ(tokenProblem("0123456789-._~Az"), "");
    for (const std::string& token :
         {std::string("0123456789abcde"), std::string(513, 'x'), std::string("0123456789abcde;"),
          std::string("0123456789abcd\xC3\xA9")}) {
        EXPECT_EQ(tokenProblem(token), "The token must consist of 16 to 512 letters, digits and -._~.");
    }
}

}  // namespace
