#include "HttpClient.h"

#include <cerrno>
#include <cstdint>
#include <limits>
#include <utility>
#include <variant>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <sys/socket.h>

#include "ServerConnection.h"

namespace app {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

namespace {

// A server ends idle connections after a minute; a request must not cross with that.
constexpr auto longestIdle = std::chrono::seconds(40);
constexpr const char* lifeHeader = "Connector-Interpreter-Life";

// Nothing comes unasked: what can be read between two requests is the end.
bool isQuiet(tcp::socket& socket) {
    char byte = 0;
    return ::recv(socket.native_handle(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           (errno == EAGAIN || errno == EWOULDBLOCK);
}

}  // namespace

class HttpClient::Impl {
public:
    explicit Impl(ServerAddress address) : connection_(std::move(address)) {}

    Answer exchange(http::verb verb, const std::string& path, const std::string& json,
                    std::optional<std::chrono::seconds> limit, const std::string& life = {});
    void abort() { connection_.abort(); }

private:
    Answer exchangeNow(http::request<http::string_body>& request, std::optional<std::chrono::seconds> limit);
    template <class Stream>
    http::response<http::string_body> exchangeOver(Stream& stream, http::request<http::string_body>& request);

    ServerConnection connection_;
    beast::flat_buffer buffer_;
    Clock::time_point lastUse_;
};

HttpClient::Answer HttpClient::Impl::exchange(http::verb verb, const std::string& path,
                                              const std::string& json,
                                              std::optional<std::chrono::seconds> limit,
                                              const std::string& life) {
    const ServerAddress& address = connection_.address;
    http::request<http::string_body> request(verb, address.interpreterFolder() + path, 11);
    request.set(http::field::host, address.authority());
    request.set(http::field::user_agent, "numora/" NUMORA_VERSION);
    request.set("Connector-Client-Type", "numora-cli");
    if (!address.token.empty()) request.set(http::field::authorization, "Bearer " + address.token);
    if (!life.empty()) request.set(lifeHeader, life);
    if (verb == http::verb::post) {
        request.set(http::field::content_type, "application/json");
        request.body() = json;
        request.prepare_payload();
    }
    try {
        return exchangeNow(request, limit);
    } catch (...) {
        connection_.stream.reset();
        throw;
    }
}

HttpClient::Answer HttpClient::Impl::exchangeNow(http::request<http::string_body>& request,
                                                 std::optional<std::chrono::seconds> limit) {
    auto& stream = connection_.stream;
    if (stream && (Clock::now() - lastUse_ > longestIdle || !isQuiet(connection_.lowest().socket())))
        stream.reset();
    if (!stream) {
        buffer_.clear();
        connection_.connect();
    }
    if (limit) {
        connection_.lowest().expires_after(*limit);
    } else {
        connection_.lowest().expires_never();
    }
    auto response = std::visit([&](auto& layer) { return exchangeOver(layer, request); }, *stream);
    lastUse_ = Clock::now();
    if (!response.keep_alive()) stream.reset();
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
    const error_code sent =
        connection_.outcomeOf([&](auto handler) { http::async_write(stream, request, handler); });
    if (sent == beast::error::timeout) connection_.check(what, sent);
    // A server that refuses a request may answer before it has got all of it, and close.
    const error_code received =
        connection_.outcomeOf([&](auto handler) { http::async_read(stream, buffer_, parser, handler); });
    connection_.check(what, received && sent ? sent : received);
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
