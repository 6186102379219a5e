#include "http/forwarded.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "http/addresses.h"

namespace gateway::http {

namespace ip = boost::asio::ip;

namespace {

constexpr std::size_t longestAddress = 64;

/// What one proxy says of the request that it has got. What it does not say is empty.
struct Hop {
    std::string address{};
    std::string scheme{};
    std::string host{};
};
using Hops = std::vector<Hop>;  ///< the last proxy first

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

/// All headers of a name, as if they were one.
std::string joined(const ReceivedRequest& received, std::string_view name) {
    std::string all;
    const auto [begin, end] = received.equal_range({name.data(), name.size()});
    for (auto header = begin; header != end; ++header) {
        all.append(all.empty() ? "" : ",").append(header->value().data(), header->value().size());
    }
    return all;
}

/// The parts between separators that do not stand in quotes, where there may be any. A client can open some
/// that nobody closes, which must not hide what proxies have added.
std::vector<std::string_view> split(std::string_view text, char separator, bool mayQuote) {
    std::vector<std::string_view> parts;
    bool isQuoted = false;
    std::size_t begin = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') isQuoted = mayQuote && !isQuoted;
        if (text[i] == '\\' && isQuoted) ++i;
        if (isQuoted || i >= text.size() || text[i] != separator) continue;
        parts.push_back(trimmed(text.substr(begin, i - begin)));
        begin = i + 1;
    }
    if (isQuoted) return split(text, separator, false);
    parts.push_back(trimmed(text.substr(begin)));
    return parts;
}

std::string unquoted(std::string_view text) {
    if (text.size() < 2 || !text.starts_with('"') || !text.ends_with('"')) return std::string(text);
    text = text.substr(1, text.size() - 2);
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size()) ++i;
        plain.push_back(text[i]);
    }
    return plain;
}

Hops hopsIn(std::string_view forwarded) {
    Hops hops;
    for (const auto element : split(forwarded, ',', true)) {
        Hop& hop = hops.emplace_back();
        const std::array members = {std::pair("for", &hop.address), std::pair("proto", &hop.scheme),
                                    std::pair("host", &hop.host)};
        for (const auto pair : split(element, ';', true)) {
            const auto sign = std::min(pair.find('='), pair.size());
            for (const auto& [name, value] : members) {
                if (!equalsIgnoringCase(pair.substr(0, sign), name)) continue;
                *value = unquoted(pair.substr(std::min(sign + 1, pair.size())));
            }
        }
    }
    std::ranges::reverse(hops);
    return hops;
}

// A proxy may add to a list that has come, or replace it. So hosts and schemes may be fewer than addresses,
// and the first of them is that of all proxies before.
Hops hopsIn(const std::string& addresses, const std::string& schemes, const std::string& hosts) {
    const auto ofAddresses = split(addresses, ',', false);
    const auto ofSchemes = split(schemes, ',', false);
    const auto ofHosts = split(hosts, ',', false);
    const auto at = [](const auto& list, std::size_t fromEnd) {
        return std::string(list.empty() ? "" : list[list.size() - 1 - std::min(fromEnd, list.size() - 1)]);
    };
    Hops hops;
    for (std::size_t i = 0; i < std::max<std::size_t>(1, ofAddresses.size()); ++i) {
        hops.push_back({at(ofAddresses, i), at(ofSchemes, i), at(ofHosts, i)});
    }
    return hops;
}

/// An address, with or without a port.
std::optional<ip::address> addressIn(std::string_view text) {
    if (text.empty() || text.size() > longestAddress || text.find('%') != std::string_view::npos) return {};
    if (text.starts_with('[')) {
        text = text.substr(1, text.find(']') - 1);
    } else if (std::ranges::count(text, ':') == 1) {
        text = text.substr(0, text.find(':'));
    }
    boost::system::error_code problem;
    const auto address = ip::make_address(std::string(text), problem);
    if (problem) return {};
    return plainAddress(address);
}

void applyScheme(HttpRequest& head, std::string_view scheme) {
    const auto is = [scheme](auto... names) { return (equalsIgnoringCase(scheme, names) || ...); };
    const bool isSecure = is("https", "wss");
    if (!isSecure && !is("http", "ws")) return;
    head.isSecure = isSecure;
    head.isSchemeForwarded = true;
}

}  // namespace

void applyForwarded(HttpRequest& head, const ReceivedRequest& received, const TrustedProxies& proxies) {
    const auto addresses = joined(received, "X-Forwarded-For");
    const auto schemes = joined(received, "X-Forwarded-Proto");
    const auto hosts = joined(received, "X-Forwarded-Host");
    const bool isStandard = addresses.empty() && schemes.empty() && hosts.empty();
    for (const auto& hop :
         isStandard ? hopsIn(joined(received, "Forwarded")) : hopsIn(addresses, schemes, hosts)) {
        applyScheme(head, hop.scheme);
        if (!hop.host.empty() && !head.host.empty()) head.host = hop.host;
        const auto address = addressIn(hop.address);
        if (!address) return;
        head.clientAddress = addressText(*address);
        if (!proxies.contain(*address)) return;
    }
}

}  // namespace gateway::http
