#pragma once

#include <string>

#include <boost/asio/ip/address.hpp>

namespace gateway::http {

/// The address that `host`, a name or an address, stands for.  Throws: std::runtime_error.
boost::asio::ip::address addressOf(const std::string& host);

/// Where this machine reaches what listens at `address`, which may stand for all addresses.
boost::asio::ip::address reachableAddress(const boost::asio::ip::address& address);

/// The IPv4 address that one of IPv6 stands for, if it does.
boost::asio::ip::address plainAddress(const boost::asio::ip::address& address);

/// The text of a plain address as it stands in a URL: an IPv6 one in brackets.
std::string addressText(const boost::asio::ip::address& address);

}  // namespace gateway::http
