#pragma once

#include <string>
#include <vector>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/network_v4.hpp>
#include <boost/asio/ip/network_v6.hpp>

namespace gateway::http {

/// The proxies that are believed when they say where a request comes from.
///
/// Threads: any; nothing changes.
class TrustedProxies {
public:
    /// Each is an address or a network: "192.0.2.7", "10.0.0.0/8", "fd00::/8".
    /// Throws: std::invalid_argument, for others.
    explicit TrustedProxies(const std::vector<std::string>& networks);

    bool contain(const boost::asio::ip::address& address) const;

private:
    std::vector<boost::asio::ip::network_v4> v4_;
    std::vector<boost::asio::ip::network_v6> v6_;
};

}  // namespace gateway::http
