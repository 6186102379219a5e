#include "WebSocketClient.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>

#include <boost/asio/buffer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "HttpClient.h"
#include "ServerConnection.h"
#include "connector/identifiers.h"
#include "jupyter/wire/WebSocket.h"

namespace app {

using namespace std::chrono_literals;
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;

namespace {

const std::string subprotocol(jupyter::wire::webSocketV1);
constexpr auto patience = 60s;
constexpr auto longEnough = 10s;  // of a connection, to count as one
constexpr auto handshakeLimit = 10s;
constexpr auto closeLimit = 1s;
constexpr auto silenceLimit = 30s;  // half of it, and it is pinged
constexpr auto shortestDelay = 100ms;
constexpr auto longestDelay = 2s;
constexpr const char* what = "the connection is lost to ";
constexpr std::size_t queueBytes = std::size_t{64} << 20;
constexpr std::size_t messageBytes = std::size_t{256} << 20;

/// There is no sense in another attempt.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

}  // namespace

class WebSocketClient::Impl {
public:
    Impl(ServerAddress server, const std::string& kernel)
        : connection_(std::move(server)),
          target_(connection_.address.folder + "/api/kernels/" + kernel +
                  "/channels?session_id=" + connector::randomUuid()) {}

    ~Impl() {
        if (!thread_.joinable()) return;
        connection_.abort();
        asio::post(connection_.context, [this] { leave(); });
        thread_.join();
    }

    void start(jupyter::ServerSocketListener& listener) {
        listener_ = &listener;
        thread_ = std::thread([this] { run(); });
    }

    bool send(std::uint64_t number, std::string frame) {
        const auto before = queuedBytes_.fetch_add(frame.size());
        if (before > 0 && before + frame.size() > queueBytes) {
            queuedBytes_ -= frame.size();
            return false;
        }
        asio::post(connection_.context, [this, number, frame = std::move(frame)]() mutable {
            queue_.emplace_back(number, std::move(frame));
            write();
        });
        return true;
    }

    void readOn() {
        asio::post(connection_.context, [this] { read(); });
    }

    void goOn(std::set<std::uint64_t> dropped) {
        asio::post(connection_.context, [this, dropped = std::move(dropped)] {
            std::erase_if(queue_, [&](const auto& message) {
                if (!dropped.contains(message.first)) return false;
                queuedBytes_ -= message.second.size();
                return true;
            });
            isHeld_ = false;
            write();
        });
    }

private:
    using Plain = websocket::stream<ServerConnection::Plain>;
    using Secure = websocket::stream<ServerConnection::Secure>;

    void run();
    void open();
    void upgrade();
    void converse();
    void read();
    void write();
    void ping();
    void leave();
    void finish(const std::string& reason);
    void close() {
        with([](auto& stream) { beast::get_lowest_layer(stream).close(); });
    }
    /// To be called when an operation of the stream has ended.
    void settle(bool& isUnderWay, const error_code& error);

    template <class Operation>
    void with(Operation operation) {
        std::visit(operation, *stream_);
    }

    ServerConnection connection_;  // makes the streams; its own stream goes into this one's
    const std::string target_;
    asio::steady_timer delay_{connection_.context};
    jupyter::ServerSocketListener* listener_ = nullptr;
    std::atomic<std::size_t> queuedBytes_{0};

    // The thread's.
    std::optional<std::variant<Plain, Secure>> stream_;
    bool isOpen_ = false;
    bool isHeld_ = false;  // nothing is written before goOn
    bool isReading_ = false, isWriting_ = false, isPinging_ = false, isClosing_ = false;  // is under way
    std::string loss_;  // why the connection is no more
    beast::flat_buffer buffer_;
    std::deque<std::pair<std::uint64_t, std::string>> queue_;  // the first one is written while isWriting_
    // Numbers of messages. A pong tells that what was written before its ping has arrived.
    std::uint64_t written_ = 0, pinged_ = 0, confirmed_ = 0;
    websocket::ping_data pingData_;

    std::thread thread_;  // last: starts once the rest exists
};

void WebSocketClient::Impl::run() {
    auto end = Clock::now();  // of the attempts
    bool isFirst = true;
    std::chrono::milliseconds delay = shortestDelay;
    while (!connection_.isAborted()) {
        try {
            open();
            const auto opened = Clock::now();
            converse();
            if (isFirst || Clock::now() - opened > longEnough) {
                end = Clock::now() + patience;
                delay = shortestDelay;
                isFirst = false;
            }
            connection_.check(what, http::error::end_of_stream);
        } catch (const ConnectionLost& error) {
            if (Clock::now() >= end && !connection_.isAborted()) return listener_->ended(error.what());
        } catch (const std::exception& error) {
            return listener_->ended(error.what());
        }
        delay_.expires_after(delay);
        connection_.outcomeOf([this](auto handler) { delay_.async_wait(handler); });
        delay = std::min<std::chrono::milliseconds>(2 * delay, longestDelay);
    }
}

void WebSocketClient::Impl::open() {
    connection_.connect();
    connection_.lowest().expires_never();  // the WebSocket has limits of its own
    if (auto* plain = std::get_if<ServerConnection::Plain>(&*connection_.stream)) {
        stream_.emplace(std::in_place_type<Plain>, std::move(*plain));
    } else {
        stream_.emplace(std::in_place_type<Secure>,
                        std::move(std::get<ServerConnection::Secure>(*connection_.stream)));
    }
    connection_.stream.reset();
    upgrade();
}

void WebSocketClient::Impl::upgrade() {
    constexpr int serverError = 500;
    websocket::response_type response;
    error_code outcome;
    with([&](auto& stream) {
        stream.set_option(websocket::stream_base::timeout{handshakeLimit, silenceLimit, true});
        stream.set_option(websocket::stream_base::decorator([this](websocket::request_type& request) {
            request.set(http::field::user_agent, "numora/" NUMORA_VERSION);
            request.set(http::field::sec_websocket_protocol, subprotocol);
            const auto& token = connection_.address.token;
            if (!token.empty()) request.set(http::field::authorization, "Bearer " + token);
        }));
        stream.read_message_max(messageBytes);
        stream.auto_fragment(false);
        stream.binary(true);
        outcome = connection_.outcomeOf([&](auto handler) {
            stream.async_handshake(response, connection_.address.authority(), target_, handler);
        });
    });
    const auto status = static_cast<int>(response.result_int());
    if (outcome == websocket::error::upgrade_declined && status < serverError) {
        throw Refused(connection_.address.withoutInterpreter().url() + " answers with status " +
                      std::to_string(status) + (status == 404 ? ": the kernel is gone" : ""));
    }
    connection_.check(what, outcome);
    if (response[http::field::sec_websocket_protocol] != subprotocol) {
        throw Refused(connection_.address.url() + " must know the subprotocol " + subprotocol);
    }
}

void WebSocketClient::Impl::converse() {
    with([this](auto& stream) {
        stream.control_callback([this](websocket::frame_type type, beast::string_view payload) {
            if (type != websocket::frame_type::pong || payload.empty()) return;
            std::from_chars(payload.data(), payload.data() + payload.size(), confirmed_);
            asio::post(connection_.context, [this] { ping(); });
        });
    });
    const auto work = asio::make_work_guard(connection_.context);
    buffer_.clear();
    loss_.clear();
    pinged_ = confirmed_;
    isOpen_ = true;
    listener_->opened();
    read();
    write();
    connection_.context.restart();
    while (isOpen_ || isReading_ || isWriting_ || isPinging_ || isClosing_) connection_.context.run_one();
    stream_.reset();
    isHeld_ = true;
    if (!connection_.isAborted()) listener_->lost(loss_, confirmed_, written_);
    confirmed_ = written_;  // what becomes of them is settled
}

void WebSocketClient::Impl::read() {
    if (!isOpen_ || isReading_) return;
    isReading_ = true;
    with([this](auto& stream) {
        stream.async_read(buffer_, [this](const error_code& error, std::size_t) {
            if (!error) listener_->received(beast::buffers_to_string(buffer_.data()));
            buffer_.consume(buffer_.size());
            settle(isReading_, error);
        });
    });
}

void WebSocketClient::Impl::write() {
    if (!isOpen_ || isHeld_ || isWriting_ || queue_.empty()) return;
    isWriting_ = true;
    written_ = queue_.front().first;
    with([this](auto& stream) {
        stream.async_write(asio::buffer(queue_.front().second), [this](const error_code& error, std::size_t) {
            queuedBytes_ -= queue_.front().second.size();
            queue_.pop_front();
            settle(isWriting_, error);
            ping();
            write();
        });
    });
}

// One that is not answered at a time.
void WebSocketClient::Impl::ping() {
    if (!isOpen_ || isPinging_ || pinged_ != confirmed_ || isWriting_ || written_ == confirmed_) return;
    isPinging_ = true;
    pinged_ = written_;
    pingData_ = std::to_string(pinged_);
    with([this](auto& stream) {
        stream.async_ping(pingData_, [this](const error_code& error) { settle(isPinging_, error); });
    });
}

void WebSocketClient::Impl::settle(bool& isUnderWay, const error_code& error) {
    isUnderWay = false;
    if (error) {
        try {
            connection_.check(what, error == websocket::error::closed ? http::error::end_of_stream : error);
        } catch (const ConnectionLost& lost) {
            finish(lost.what());
        }
    }
}

// The server is told that nobody comes back.
void WebSocketClient::Impl::leave() {
    constexpr const char* reason = "the program ends";
    delay_.cancel();
    if (!isOpen_) {
        if (stream_) close();
        return;
    }
    isClosing_ = true;
    with([this](auto& stream) {
        stream.async_close(websocket::close_code::normal, [this](const error_code&) {
            isClosing_ = false;
            finish(reason);
        });
    });
    delay_.expires_after(closeLimit);
    delay_.async_wait([this](const error_code& error) {
        if (!error) finish(reason);
    });
}

void WebSocketClient::Impl::finish(const std::string& reason) {
    if (!std::exchange(isOpen_, false)) return;
    loss_ = reason;
    close();
}

WebSocketClient::WebSocketClient(ServerAddress server, const std::string& kernel)
    : impl_(std::make_unique<Impl>(std::move(server), kernel)) {}

WebSocketClient::~WebSocketClient() = default;

void WebSocketClient::start(jupyter::ServerSocketListener& listener) { impl_->start(listener); }

bool WebSocketClient::send(std::uint64_t number, std::string frame) {
    return impl_->send(number, std::move(frame));
}

void WebSocketClient::readOn() { impl_->readOn(); }

void WebSocketClient::goOn(std::set<std::uint64_t> dropped) { impl_->goOn(std::move(dropped)); }

}  // namespace app
