#pragma once

#include <string>

#include <boost/asio/ip/address.hpp>

namespace gateway::http {

/// The address that `host`, a name or an address, stands for.  Throws: std::runtime_error.
boost::asio::ip::address addressOf(const std::string& host);

/// Where this machine reaches what listens at `address`, which may stand for all addresses.
boost::asio::ip::address reachableAddress(const boost::asio::ip::address& address);

/// The text of an address as it stands in a URL: an IPv4 one that arrived as IPv6 without the prefix, an IPv6
/// one in brackets.
std::string addressText(boost::asio::ip::address address);

}  // namespace gateway::http
