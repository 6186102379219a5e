#include "http/addresses.h"

#include <stdexcept>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace gateway::http {

namespace ip = boost::asio::ip;

ip::address addressOf(const std::string& host) {
    boost::system::error_code error;
    auto address = ip::make_address(host, error);
    if (!error) return address;
    boost::asio::io_context context;
    const auto found = ip::tcp::resolver(context).resolve(host, "", error);
    if (error || found.empty()) {
        throw std::runtime_error("The host name " + host + " cannot be resolved.");
    }
    return found.begin()->endpoint().address();
}

ip::address reachableAddress(const ip::address& address) {
    if (!address.is_unspecified()) return address;
    if (address.is_v6()) return ip::address_v6::loopback();
    return ip::address_v4::loopback();
}

ip::address plainAddress(const ip::address& address) {
    if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address;
    return ip::make_address_v4(ip::v4_mapped, address.to_v6());
}

std::string addressText(const ip::address& address) {
    const auto plain = plainAddress(address);
    return plain.is_v6() ? "[" + plain.to_string() + "]" : plain.to_string();
}

}  // namespace gateway::http
