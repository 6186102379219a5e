#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "http/forwarded.h"

namespace {

using gateway::HttpRequest;
using gateway::http::TrustedProxies;
using Headers = std::vector<std::pair<std::string, std::string>>;

const TrustedProxies proxies({"::ffff:10.1.0.0/104", "::1", "fd00::/8"});

// What is made of a request that the last proxy has sent from 10.0.0.1.
HttpRequest forwarded(const Headers& headers) {
    gateway::http::ReceivedRequest received;
    for (const auto& [name, value] : headers) received.insert(name, value);
    HttpRequest head;
    head.host = "gate";
    head.clientAddress = "10.0.0.1";
    gateway::http::applyForwarded(head, received, proxies);
    return head;
}

struct ForwardedCase {
    std::string name;
    Headers headers;
    std::string seen;  ///< address, scheme and host
};
class ForwardedTest : public testing::TestWithParam<ForwardedCase> {};

TEST_P(ForwardedTest, isBelievedAsFarBackAsProxiesAreTrusted) {
    const auto head = forwarded(GetParam().headers);
    const std::string scheme = head.isSchemeForwarded ? (head.isSecure ? "https" : "http") : "-";
    EXPECT_EQ(head.clientAddress + " " + scheme + " " + head.host, GetParam().seen);
}

const std::string nested = R"(for=192.0.2.3;proto=http;host=evil, for="[2001:DB8::7]:4711";Proto=HTTPS;)"
                           R"(host="lab.example:8443", for=10.0.0.2;host=inner)";

INSTANTIATE_TEST_SUITE_P(
    Headers, ForwardedTest,
    testing::Values(
        ForwardedCase{"OneProxy",
                      {{"X-Forwarded-For", "192.0.2.3"},
                       {"X-Forwarded-Proto", "https"},
                       {"X-Forwarded-Host", "lab.example"}},
                      "192.0.2.3 https lab.example"},
        ForwardedCase{"WhatClientsMadeUp",
                      {{"X-Forwarded-For", "127.0.0.1"},
                       {"x-forwarded-for", "198.51.100.9, 192.0.2.3 ,10.0.0.2"},
                       {"X-Forwarded-Proto", "https, http,https"}},
                      "192.0.2.3 http gate"},
        ForwardedCase{"FewerSchemes",
                      {{"X-Forwarded-For", "192.0.2.3,10.0.0.2"}, {"X-Forwarded-Proto", "wss"}},
                      "192.0.2.3 https gate"},
        ForwardedCase{"PortsAndMapped",
                      {{"X-Forwarded-For", "[2001:db8::7]:1, ::ffff:10.0.0.2, 10.0.0.3:80"}},
                      "[2001:db8::7] - gate"},
        ForwardedCase{"Garbage", {{"X-Forwarded-For", "192.0.2.3, unknown, 10.0.0.2"}}, "10.0.0.2 - gate"},
        ForwardedCase{
            "Empty", {{"X-Forwarded-For", ","}, {"X-Forwarded-Proto", "gopher"}}, "10.0.0.1 - gate"},
        ForwardedCase{"Standard", {{"Forwarded", nested}}, "[2001:db8::7] https lab.example:8443"},
        ForwardedCase{"OpenQuotes", {{"Forwarded", R"(for="x\, for=192.0.2.3)"}}, "192.0.2.3 - gate"},
        ForwardedCase{
            "Hidden", {{"Forwarded", "for=192.0.2.3, for=_hidden;proto=https"}}, "10.0.0.1 https gate"},
        ForwardedCase{"TheOtherKindOfTheClient",
                      {{"Forwarded", "for=127.0.0.1;host=evil"}, {"X-Forwarded-For", "192.0.2.3"}},
                      "192.0.2.3 - gate"}),
    [](const auto& info) { return info.param.name; });

TEST(ForwardedTest, nothingThatAClientSendsHidesWhatTheProxyAdds) {
    std::mt19937 random(4711);
    const std::string pieces[] = {"for=", "\"", "\\", ",", ";", "[", "]", ":", "10.0.0.2", "=", "\xFF", " "};
    for (int i = 0; i < 20'000; ++i) {
        std::string text;
        for (auto count = random() % 12; count > 0; --count) text += pieces[random() % std::size(pieces)];
        for (const auto& [name, added] : Headers{{"Forwarded", ", for="}, {"X-Forwarded-For", ", "}}) {
            EXPECT_EQ(forwarded({{name, text + added + "192.0.2.3"}}).clientAddress, "192.0.2.3") << text;
        }
    }
    EXPECT_EQ(forwarded({{"X-Forwarded-For", std::string(16'000, ',') + "192.0.2.3"}}).clientAddress,
              "192.0.2.3");
}

TEST(TrustedProxiesTest, mustBeAddressesOrNetworks) {
    for (const char* wrong : {"", "lab.example", "10.0.0.0/33", "10.0.0.0/", "*", "10.0.0.1:80", "[::1]"}) {
        EXPECT_THROW(TrustedProxies({wrong}), std::invalid_argument) << wrong;
    }
}

}  // namespace
