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
    std::string host = "localhost";
};
class OriginTest : public testing::TestWithParam<OriginCase> {};

TEST_P(OriginTest, isAllowedWhenItIsOfThisServerOrConfigured) {
    const AccessPolicy policy({.token = "t",
                               .hosts = {"proxy.example:443", "gate.example"},
                               .origins = {"https://lab.example"},
                               .isSecure = GetParam().port == 443},
                              GetParam().port);
    Request request;
    request.host = GetParam().host;
    request.localAddress = "192.0.2.7";
    request.origin = GetParam().origin;
    EXPECT_EQ(policy.isAllowedOrigin(request), GetParam().isAllowed);
}

INSTANTIATE_TEST_SUITE_P(
    Header, OriginTest,
    testing::Values(OriginCase{"None", 8350, "", true},
                    OriginCase{"Own", 8350, "http://localhost:8350", true},
                    OriginCase{"OwnAddress", 8350, "http://192.0.2.7:8350", true},
                    OriginCase{"OwnAddressWithAnotherScheme", 8350, "https://192.0.2.7:8350", false},
                    OriginCase{"SchemeWithoutTls", 443, "http://localhost:443", false},
                    OriginCase{"NameAtThePortOfHost", 8350, "http://gate.example:81", true,
                               "gate.example:81"},
                    OriginCase{"NameAtAnotherPort", 8350, "http://gate.example:82", false, "gate.example:81"},
                    OriginCase{"NameOfAnotherHost", 8350, "http://gate.example:81", false, "localhost:81"},
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

TEST(TokenTest, isFoundInTheQueryAndItsKeyAmongOtherCookies) {
    const AccessPolicy policy({.token = "secret"}, 1);
    const auto withCookie = [&](const std::string& cookie) {
        Request request;
        request.cookie = cookie;
        return policy.isAuthenticated(request);
    };
    const auto cookieOf = [](const AccessPolicy& server) {
        const std::string text = server.setCookie();
        return text.substr(0, text.find(';'));
    };
    const std::string cookie = cookieOf(policy);
    const std::string name = cookie.substr(0, cookie.find('=') + 1);
    EXPECT_EQ(cookie.find("secret"), std::string::npos);
    EXPECT_TRUE(withCookie("a=b;" + cookie));
    EXPECT_TRUE(withCookie(name + "wrong; " + cookie + "; z"));
    const std::string key = cookie.substr(name.size());
    const std::string ofAnotherPort = cookieOf(AccessPolicy({.token = "secret"}, 2));
    for (const std::string& wrong : {"x-" + cookie, cookie + "2", name, name + "secret", ofAnotherPort,
                                     name + ofAnotherPort.substr(ofAnotherPort.find('=') + 1)}) {
        EXPECT_FALSE(withCookie(wrong)) << wrong;
    }
    EXPECT_FALSE(policy.isToken(key));
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
