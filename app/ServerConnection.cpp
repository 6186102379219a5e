#include "ServerConnection.h"

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/error.hpp>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include "HttpClient.h"

namespace app {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr auto connectLimit = std::chrono::seconds(10);

void watch(tcp::socket& socket) {
    const int descriptor = socket.native_handle();
    const auto set = [descriptor](int level, int name, int value) {
        ::setsockopt(descriptor, level, name, &value, sizeof value);
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, 15);
    set(IPPROTO_TCP, TCP_KEEPINTVL, 5);
    set(IPPROTO_TCP, TCP_KEEPCNT, 3);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, 30'000);
}

// Asio opens sockets that programs inherit which are started meanwhile.
bool openSocket(tcp::socket& socket, const tcp& protocol, error_code& error) {
    error_code ignored;
    socket.close(ignored);
    const int descriptor = ::socket(protocol.family(), SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) {
        error.assign(errno, boost::system::system_category());
        return false;
    }
    socket.assign(protocol, descriptor, error);
    if (error) ::close(descriptor);
    return !error;
}

}  // namespace

void ServerConnection::check(const char* what, const error_code& error) const {
    if (!error) return;
    const bool isClosed = error == http::error::end_of_stream || error == asio::error::eof ||
                          error == asio::ssl::error::stream_truncated;
    throw ConnectionLost(what + address.url() + ": " +
                             (isClosed                         ? "the server closed it"
                              : error == beast::error::timeout ? "the time limit has passed"
                                                               : error.message()),
                         error == asio::error::connection_refused);
}

void ServerConnection::abort() {
    isAborted_ = true;
    asio::post(context, [this] {
        if (stream) lowest().close();
    });
}

beast::tcp_stream& ServerConnection::lowest() {
    return std::visit([](auto& layer) -> beast::tcp_stream& { return beast::get_lowest_layer(layer); },
                      *stream);
}

void ServerConnection::connect() {
    constexpr const char* what = "cannot connect to ";
    error_code error;
    tcp::resolver resolver(context);
    const auto endpoints =
        resolver.resolve(address.host, std::to_string(address.port), tcp::resolver::numeric_service, error);
    check(what, error);
    if (address.isSecure) {
        stream.emplace(std::in_place_type<Secure>, context, tls_);
    } else {
        stream.emplace(std::in_place_type<Plain>, context);
    }
    lowest().expires_after(connectLimit);
    error = asio::error::host_not_found;
    for (const auto& entry : endpoints) {
        if (!openSocket(lowest().socket(), entry.endpoint().protocol(), error)) continue;
        error = outcomeOf([&](auto handler) { lowest().async_connect(entry.endpoint(), handler); });
        if (!error || error == beast::error::timeout || isAborted()) break;
    }
    check(what, error);
    watch(lowest().socket());
    if (auto* secure = std::get_if<Secure>(&*stream)) handshake(*secure);
}

void ServerConnection::handshake(Secure& secure) {
    constexpr const char* what = "cannot connect with TLS to ";
    error_code error;
    tls_.set_default_verify_paths(error);
    check(what, error);
    secure.set_verify_mode(asio::ssl::verify_peer);
    secure.set_verify_callback(asio::ssl::host_name_verification(address.host));
    error_code notAnAddress;
    asio::ip::make_address(address.host, notAnAddress);
    if (notAnAddress) SSL_set_tlsext_host_name(secure.native_handle(), address.host.c_str());
    check(what,
          outcomeOf([&](auto handler) { secure.async_handshake(asio::ssl::stream_base::client, handler); }));
}

}  // namespace app
