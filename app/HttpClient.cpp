#include "HttpClient.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <utility>
#include <variant>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace app {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

namespace {

constexpr auto connectLimit = std::chrono::seconds(10);
// A server ends idle connections after a minute; a request must not cross with that.
constexpr auto longestIdle = std::chrono::seconds(40);
constexpr const char* lifeHeader = "Connector-Interpreter-Life";

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

// Nothing comes unasked: what can be read between two requests is the end.
bool isQuiet(tcp::socket& socket) {
    char byte = 0;
    return ::recv(socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           (errno == EAGAIN || errno == EWOULDBLOCK);
}

}  // namespace

class HttpClient::Impl {
public:
    explicit Impl(ServerAddress address) : address_(std::move(address)) {}

    Answer exchange(http::verb verb, const std::string& path, const std::string& json,
                    std::optional<std::chrono::seconds> limit, const std::string& life = {});
    void abort() {
        isAborted_ = true;
        asio::post(context_, [this] {
            if (stream_) lowest().close();
        });
    }

private:
    using Plain = beast::tcp_stream;
    using Secure = beast::ssl_stream<beast::tcp_stream>;

    Answer exchangeNow(http::request<http::string_body>& request, std::optional<std::chrono::seconds> limit);
    void connect();
    void handshake(Secure& stream);
    template <class Stream>
    http::response<http::string_body> exchangeOver(Stream& stream, http::request<http::string_body>& request);
    /// Starts an operation, which gets a handler for its end, and waits for that.
    template <class Start>
    error_code outcomeOf(Start start);
    void check(const char* what, const error_code& error) const;

    beast::tcp_stream& lowest() {
        return std::visit([](auto& stream) -> beast::tcp_stream& { return beast::get_lowest_layer(stream); },
                          *stream_);
    }

    const ServerAddress address_;
    asio::io_context context_;
    asio::ssl::context tls_{asio::ssl::context::tls_client};
    std::optional<std::variant<Plain, Secure>> stream_;
    beast::flat_buffer buffer_;
    Clock::time_point lastUse_;
    std::atomic<bool> isAborted_{false};
};

void HttpClient::Impl::check(const char* what, const error_code& error) const {
    if (!error) return;
    const bool isClosed = error == http::error::end_of_stream || error == asio::error::eof ||
                          error == asio::ssl::error::stream_truncated;
    throw ConnectionLost(what + address_.url() + ": " +
                             (isClosed                         ? "the server closed it"
                              : error == beast::error::timeout ? "the time limit has passed"
                                                               : error.message()),
                         error == asio::error::connection_refused);
}

template <class Start>
error_code HttpClient::Impl::outcomeOf(Start start) {
    error_code result = asio::error::operation_aborted;
    if (isAborted_) return result;
    start([&result](const error_code& error, const auto&...) { result = error; });
    context_.restart();
    context_.run();
    return result;
}

void HttpClient::Impl::connect() {
    constexpr const char* what = "cannot connect to ";
    error_code error;
    tcp::resolver resolver(context_);
    const auto endpoints =
        resolver.resolve(address_.host, std::to_string(address_.port), tcp::resolver::numeric_service, error);
    check(what, error);
    buffer_.clear();
    if (address_.isSecure) {
        stream_.emplace(std::in_place_type<Secure>, context_, tls_);
    } else {
        stream_.emplace(std::in_place_type<Plain>, context_);
    }
    lowest().expires_after(connectLimit);
    error = asio::error::host_not_found;
    for (const auto& entry : endpoints) {
        if (!openSocket(lowest().socket(), entry.endpoint().protocol(), error)) continue;
        error = outcomeOf([&](auto handler) { lowest().async_connect(entry.endpoint(), handler); });
        if (!error || error == beast::error::timeout || isAborted_) break;
    }
    check(what, error);
    watch(lowest().socket());
    if (auto* secure = std::get_if<Secure>(&*stream_)) handshake(*secure);
}

void HttpClient::Impl::handshake(Secure& stream) {
    constexpr const char* what = "cannot connect with TLS to ";
    error_code error;
    tls_.set_default_verify_paths(error);
    check(what, error);
    stream.set_verify_mode(asio::ssl::verify_peer);
    stream.set_verify_callback(asio::ssl::host_name_verification(address_.host));
    error_code notAnAddress;
    asio::ip::make_address(address_.host, notAnAddress);
    if (notAnAddress) SSL_set_tlsext_host_name(stream.native_handle(), address_.host.c_str());
    check(what,
          outcomeOf([&](auto handler) { stream.async_handshake(asio::ssl::stream_base::client, handler); }));
}

HttpClient::Answer HttpClient::Impl::exchange(http::verb verb, const std::string& path,
                                              const std::string& json,
                                              std::optional<std::chrono::seconds> limit,
                                              const std::string& life) {
    http::request<http::string_body> request(verb, address_.interpreterFolder() + path, 11);
    request.set(http::field::host, address_.authority());
    request.set(http::field::user_agent, "numora/" NUMORA_VERSION);
    request.set("Connector-Client-Type", "numora-cli");
    request.set(http::field::user_agent, "numora/" NUMORA_VERSION);
    if (!address_.token.empty()) request.set(http::field::authorization, "Bearer " + address_.token);
    if (!life.empty()) request.set(lifeHeader, life);
    if (verb == http::verb::post) {
        request.set(http::field::content_type, "application/json");
        request.body() = json;
        request.prepare_payload();
    }
    try {
        return exchangeNow(request, limit);
    } catch (...) {
        stream_.reset();
        throw;
    }
}

HttpClient::Answer HttpClient::Impl::exchangeNow(http::request<http::string_body>& request,
                                                 std::optional<std::chrono::seconds> limit) {
    if (stream_ && (Clock::now() - lastUse_ > longestIdle || !isQuiet(lowest().socket()))) stream_.reset();
    if (!stream_) connect();
    if (limit) {
        lowest().expires_after(*limit);
    } else {
        lowest().expires_never();
    }
    auto response = std::visit([&](auto& stream) { return exchangeOver(stream, request); }, *stream_);
    lastUse_ = Clock::now();
    if (!response.keep_alive()) stream_.reset();
    return {.status = static_cast<int>(response.result_int()),
            .body = std::move(response.body()),
            .isDropped = response.count("Connector-Dropped") > 0,
            .life = std::string(response[lifeHeader])};
}

template <class Stream>
http::response<http::string_body> HttpClient::Impl::exchangeOver(Stream& stream,
                                                                 http::request<http::string_body>& request) {
    constexpr const char* what = "the connection is lost to ";
    http::response_parser<http::string_body> parser;
    parser.body_limit(std::numeric_limits<std::uint64_t>::max());
    const error_code sent = outcomeOf([&](auto handler) { http::async_write(stream, request, handler); });
    if (sent == beast::error::timeout) check(what, sent);
    // A server that refuses a request may answer before it has got all of it, and close.
    const error_code received =
        outcomeOf([&](auto handler) { http::async_read(stream, buffer_, parser, handler); });
    check(what, received && sent ? sent : received);
    return parser.release();
}

HttpClient::HttpClient(ServerAddress address) : impl_(std::make_unique<Impl>(std::move(address))) {}

HttpClient::~HttpClient() = default;

HttpClient::Answer HttpClient::post(const std::string& path, const std::string& json,
                                    std::optional<std::chrono::seconds> limit, const std::string& life) {
    return impl_->exchange(http::verb::post, path, json, limit, life);
}

HttpClient::Answer HttpClient::get(const std::string& path, std::chrono::seconds limit) {
    return impl_->exchange(http::verb::get, path, {}, limit);
}

HttpClient::Answer HttpClient::remove(const std::string& path, std::chrono::seconds limit) {
    return impl_->exchange(http::verb::delete_, path, {}, limit);
}

void HttpClient::abort() { impl_->abort(); }

}  // namespace app
