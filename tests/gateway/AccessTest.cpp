#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "access/AccessPolicy.h"
#include "access/token.h"

namespace {

using gateway::access::AccessPolicy;
using gateway::http::Request;

struct HostCase {
    std::string name;
    std::string host;
    std::string localAddress;
    bool isAllowed = false;
};
class HostTest : public testing::TestWithParam<HostCase> {};

TEST_P(HostTest, isAllowedWhenItNamesThisServer) {
    const AccessPolicy policy({.token = "t", .hosts = {"gate.example", "proxy.example:443"}}, 8350);
    Request request;
    request.host = GetParam().host;
    request.localAddress = GetParam().localAddress;
    EXPECT_EQ(policy.isAllowedHost(request), GetParam().isAllowed);
}

INSTANTIATE_TEST_SUITE_P(
    Header, HostTest,
    testing::Values(HostCase{"Loopback", "127.0.0.1:8350", "127.0.0.1", true},
                    HostCase{"OtherLoopback", "127.0.0.2:8350", "127.0.0.1", false},
                    HostCase{"ReachedAddress", "192.0.2.7:8350", "192.0.2.7", true},
                    HostCase{"ReachedAddressInBrackets", "[2001:db8::7]:8350", "[2001:db8::7]", true},
                    HostCase{"BracketsWithoutPort", "[::1]", "[::1]", false},
                    HostCase{"CapitalLetters", "LOCALHOST:8350", "127.0.0.1", true},
                    HostCase{"DefaultPortLeftOut", "localhost", "127.0.0.1", false},
                    HostCase{"NameBeforeOurs", "localhost.evil.example:8350", "127.0.0.1", false},
                    HostCase{"UserBeforeOurs", "evil@localhost:8350", "127.0.0.1", false},
                    HostCase{"NoName", ":8350", "127.0.0.1", false},
                    HostCase{"PortThatBeginsLikeOurs", "localhost:83501", "127.0.0.1", false},
                    HostCase{"ConfiguredForEveryPort", "gate.example:1", "127.0.0.1", true},
                    HostCase{"ConfiguredWithoutPort", "gate.example", "127.0.0.1", true},
                    HostCase{"ProxyWithoutPort", "proxy.example", "127.0.0.1", true},
                    HostCase{"ProxyWithAnotherPort", "proxy.example:8350", "127.0.0.1", false}),
    [](const auto& info) { return info.param.name; });

struct OriginCase {
    std::string name;
    std::uint16_t port = 0;
    std::string origin;
    bool isAllowed = false;
};
class OriginTest : public testing::TestWithParam<OriginCase> {};

TEST_P(OriginTest, isAllowedWhenItIsOfThisServerOrConfigured) {
    const AccessPolicy policy(
        {.token = "t", .hosts = {"proxy.example:443"}, .origins = {"https://lab.example"}}, GetParam().port);
    Request request;
    request.host = "localhost";
    request.localAddress = "192.0.2.7";
    request.origin = GetParam().origin;
    EXPECT_EQ(policy.isAllowedOrigin(request), GetParam().isAllowed);
}

INSTANTIATE_TEST_SUITE_P(
    Header, OriginTest,
    testing::Values(OriginCase{"None", 8350, "", true},
                    OriginCase{"Own", 8350, "http://localhost:8350", true},
                    OriginCase{"OwnAddress", 8350, "https://192.0.2.7:8350", true},
                    OriginCase{"DefaultPortLeftOut", 80, "http://localhost", true},
                    OriginCase{"PortOfAnotherScheme", 80, "https://localhost", false},
                    OriginCase{"DefaultPortOfTls", 443, "https://localhost", true},
                    OriginCase{"Proxy", 8350, "https://proxy.example", true},
                    OriginCase{"ProxyWithoutTls", 8350, "http://proxy.example", false},
                    OriginCase{"Configured", 8350, "https://lab.example", true},
                    OriginCase{"ConfiguredWithPort", 8350, "https://lab.example:444", false},
                    OriginCase{"BeginsLikeTheConfigured", 8350, "https://lab.example.evil.example", false},
                    OriginCase{"File", 8350, "file://", false}, OriginCase{"Opaque", 8350, "null", false},
                    OriginCase{"NoScheme", 8350, "localhost:8350", false}),
    [](const auto& info) { return info.param.name; });

TEST(TokenTest, isFoundAmongOtherCookiesAndParameters) {
    const AccessPolicy policy({.token = "secret"}, 1);
    const auto withCookie = [&](const std::string& cookie) {
        Request request;
        request.cookie = cookie;
        return policy.isAuthenticated(request);
    };
    EXPECT_TRUE(withCookie("a=b;numora-token-1=secret"));
    EXPECT_TRUE(withCookie("numora-token-1=secret; z"));
    EXPECT_FALSE(withCookie("x-numora-token-1=secret"));
    EXPECT_FALSE(withCookie("numora-token-1=secret2"));
    EXPECT_FALSE(withCookie("numora-token-1"));
    const auto withQuery = [&](const std::string& query) {
        Request request;
        request.query = query;
        return policy.isAuthenticated(request);
    };
    EXPECT_TRUE(withQuery("a&token=%73ecret"));
    EXPECT_FALSE(withQuery("xtoken=secret"));
    EXPECT_FALSE(withQuery("token=secret%"));
    EXPECT_FALSE(withQuery("token="));
}

TEST(TokenTest, madeUpOnesAreGoodAndChosenOnesMustBe) {
    EXPECT_EQ(gateway::access::tokenProblem(gateway::access::makeToken()), "");
    EXPECT_EQ(gateway::access::tokenProblem("0123456789-._~Az"), "");
    for (const char* token :
         {"", "0123456789abcde", "0123456789abcde;", "0123456789 abcdef", "0123456789abcd\xC3\xA9"}) {
        EXPECT_NE(gateway::access::tokenProblem(token), "") << token;
    }
    EXPECT_NE(gateway::access::tokenProblem(std::string(513, 'x')), "");
}

}  // namespace
