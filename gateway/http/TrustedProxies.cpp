#include "http/TrustedProxies.h"

#include <algorithm>
#include <stdexcept>

#include "http/addresses.h"

namespace gateway::http {

namespace ip = boost::asio::ip;

TrustedProxies::TrustedProxies(const std::vector<std::string>& networks) {
    for (const auto& text : networks) {
        boost::system::error_code problem;
        if (const auto address = ip::make_address(text, problem); !problem) {
            const auto plain = plainAddress(address);
            if (plain.is_v4()) v4_.emplace_back(plain.to_v4(), 32);
            if (plain.is_v6()) v6_.emplace_back(plain.to_v6(), 128);
        } else if (const auto v4 = ip::make_network_v4(text, problem); !problem) {
            v4_.push_back(v4.canonical());
        } else if (const auto v6 = ip::make_network_v6(text, problem); !problem) {
            const auto plain = plainAddress(v6.address());
            const int mappedBits = v6.prefix_length() - 96;
            if (plain.is_v4() && mappedBits >= 0) {
                v4_.push_back(
                    ip::network_v4(plain.to_v4(), static_cast<unsigned short>(mappedBits)).canonical());
            } else {
                v6_.push_back(v6.canonical());
            }
        } else {
            throw std::invalid_argument(
                "A trusted proxy (--trust-proxy, trusted_proxies) must be an address "
                "or a network, such as 10.0.0.0/8: \"" +
                text + "\".");
        }
    }
}

bool TrustedProxies::contain(const ip::address& address) const {
    const auto plain = plainAddress(address);
    const auto isIn = [](const auto& networks, const auto& one) {
        return std::ranges::any_of(networks, [&](const auto& network) {
            const decltype(network.canonical()) same(one, network.prefix_length());
            return same.canonical() == network;
        });
    };
    return plain.is_v4() ? isIn(v4_, plain.to_v4()) : isIn(v6_, plain.to_v6());
}

}  // namespace gateway::http
