#include "http/HttpConnection.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include <boost/asio/post.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/error.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/stream_traits.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/write.hpp>

#include "dispatch/readMessage.h"
#include "http/Deadline.h"
#include "http/WebSocketConnection.h"
#include "http/addresses.h"
#include "http/requestHead.h"
#include "http/streams.h"
#include "log.h"

namespace gateway::http {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace beast_http = boost::beast::http;
using boost::system::error_code;

namespace {

constexpr std::size_t readSize = 4096;
constexpr std::size_t largeReadSize = std::size_t{32} << 10;
constexpr std::size_t writeSize = std::size_t{256} << 10;
constexpr std::size_t bufferRoom = std::size_t{64} << 10;  // beside a head
constexpr std::size_t bodyRate = std::size_t{64} << 10;    // the least in a second
constexpr auto drainTime = std::chrono::seconds(5);

// The client sends no more; it may wait for an answer all the same.
bool isEndOfStream(const error_code& error) {
    return error == asio::error::eof || error == asio::ssl::error::stream_truncated;
}

/// One connection, which takes one request after the other.
///
///     handshake --> idle --> head --> body --> waiting --> writing --+--> idle
///                    ^         |                 |                   |
///                    |         '--- refused -----+---> writing       '--> draining --> closed
///                    '--------- keep-alive ----------------'
///
/// Every state has a deadline but `waiting`, which the dispatcher bounds. There a read is pending, too, which
/// says that the client has gone, or takes the beginning of the next request; it may still be pending in
/// later states. A client that has gone gives up its place, and gets its answer in case it has only ended its
/// own direction.
///
/// Threads: its strand, but for `finish` and `abort`.  Owns: pending operations and answers hold it.
template <class Stream>
class HttpConnection : public Connection, public std::enable_shared_from_this<HttpConnection<Stream>> {
public:
    HttpConnection(Stream stream, std::shared_ptr<ConnectionTable::Place> place,
                   const ConnectionContext& context)
        : stream_(std::move(stream)),
          strand_(stream_.get_executor()),
          place_(std::move(place)),
          context_(context),
          deadline_(strand_),
          buffer_(context.limits.headBytes + bufferRoom) {
        error_code error;
        peerAddress_ = addressText(socket().remote_endpoint(error).address());
        localAddress_ = addressText(socket().local_endpoint(error).address());
    }

    void start() {
        onStrand([this] { begin(); });
    }
    void finish() override {
        onStrand([this] {
            isFinishing_ = true;
            if (state_ <= State::Body) close();
        });
    }
    void abort() override {
        onStrand([this] { close(); });
    }

private:
    using Clock = std::chrono::steady_clock;
    enum class State { Handshake, Idle, Head, Body, Waiting, Writing, Draining, Closed };
    static constexpr bool isTls = std::is_same_v<Stream, TlsStream>;

    PlainStream& socket() { return beast::get_lowest_layer(stream_); }

    template <class Action>
    void onStrand(Action action) {
        asio::post(strand_, [self = this->shared_from_this(), action] { action(); });
    }
    /// A handler of an operation, which holds this connection.
    template <class... Arguments>
    auto handler(void (HttpConnection::*operation)(Arguments...)) {
        return [self = this->shared_from_this(), operation](auto... arguments) {
            if (self->state_ != State::Closed) (self.get()->*operation)(arguments...);
        };
    }
    void setDeadline(std::chrono::milliseconds limit) {
        deadline_.set(limit, [self = this->shared_from_this()] { self->close(); });
    }

    void begin() {
        if constexpr (isTls) {
            setDeadline(context_.limits.headTime);
            stream_.async_handshake(asio::ssl::stream_base::server, handler(&HttpConnection::onHandshake));
        } else {
            awaitRequest();
        }
    }
    void onHandshake(error_code error) { error ? close() : awaitRequest(); }

    void awaitRequest() {
        state_ = State::Idle;
        if (isFinishing_) return close();
        if (buffer_.size() > 0) return readHead();
        setDeadline(context_.limits.idleTime);
        read();
    }

    // One read is under way at a time. It may take longer than a state, so whatever state there is then takes
    // what has come, and a buffer of its own, because others are used up meanwhile.
    void read() {
        if (isAtEnd_) return close();
        if (std::exchange(isReading_, true)) return;
        useIncoming(state_ == State::Body ? largeReadSize : readSize);
        const std::size_t size = std::min(incoming_.size(), buffer_.max_size() - buffer_.size());
        stream_.async_read_some(asio::buffer(incoming_, size), handler(&HttpConnection::onBytes));
    }
    void readAhead() {
        if (!isAtEnd_ && buffer_.size() < buffer_.max_size()) read();
    }
    void onBytes(error_code error, std::size_t count) {
        isReading_ = false;
        if (state_ == State::Draining) return onReadWhileEnding(error);
        buffer_.commit(asio::buffer_copy(buffer_.prepare(count), asio::buffer(incoming_, count)));
        if (error) return onReadFailed(error);
        switch (state_) {
            case State::Idle:
                return readHead();
            case State::Head:
                return parseHead();
            case State::Body:
                return readBody();
            case State::Waiting:
                return readAhead();
            default:
                return;
        }
    }
    void onReadFailed(error_code error) {
        const bool isAnswered = state_ == State::Writing || (state_ == State::Waiting && !held_);
        if (!isAnswered || !isEndOfStream(error)) return close();
        isAtEnd_ = true;
        place_->leave();
    }
    void useIncoming(std::size_t size) {
        if (incoming_.size() != size) incoming_ = std::vector<char>(size);
    }

    void readHead() {
        state_ = State::Head;
        isHead_ = false;
        bodyBytes_ = 0;
        parser_.emplace();
        parser_->header_limit(static_cast<std::uint32_t>(context_.limits.headBytes));
        parser_->body_limit(context_.limits.bodyBytes);
        setDeadline(context_.limits.headTime);
        parseHead();
    }
    void parseHead() {
        error_code error;
        buffer_.consume(parser_->put(buffer_.data(), error));
        if (error == beast_http::error::need_more) return read();
        if (error) return refuseMalformed(error);
        onHead();
    }
    void onHead() {
        isHead_ = parser_->get().method() == beast_http::verb::head;
        keepAlive_ = parser_->keep_alive();
        if (!isFramedClearly(parser_->get())) return refuse(400, "That Transfer-Encoding is not understood.");
        Request head = requestHead(parser_->get());
        head.peerAddress = peerAddress_;
        head.localAddress = localAddress_;
        if (auto refusal = context_.endpoints.judge(head)) {
            // What of the body is not read yet would be taken for the next request.
            keepAlive_ = keepAlive_ && parser_->is_done();
            return write(std::move(*refusal));
        }
        isStranger_ = context_.endpoints.isStranger(head);
        if (!isStranger_ && !place_->prove() && !Endpoints::isForEveryPlace(head)) {
            keepAlive_ = false;
            return write(context_.endpoints.crowded(head));
        }
        if (Endpoints::isWebSocket(head)) return upgrade(std::move(head));
        head_ = std::move(head);
        parser_->eager(true);
        if (!parser_->is_done() && waitsForContinue(parser_->get())) return sayContinue();
        readBody();
    }

    void sayContinue() {
        static constexpr std::string_view text = "HTTP/1.1 100 Continue\r\n\r\n";
        asio::async_write(stream_, asio::buffer(text), handler(&HttpConnection::onContinue));
    }
    void onContinue(error_code error, std::size_t) { error ? close() : readBody(); }

    // Piece by piece, because the parser's own way of reading does not come back as long as pieces end inside
    // of what is around chunks.
    void readBody() {
        error_code error;
        if (!parser_->is_done() && buffer_.size() > 0) {
            const std::size_t count = parser_->put(buffer_.data(), error);
            buffer_.consume(count);
            bodyBytes_ += count;
        }
        if (error && error != beast_http::error::need_more) return refuseMalformed(error);
        if (parser_->is_done()) return answer();
        if (!mayGoOn()) return refuse(413, "The body is too large.");
        if (buffer_.size() == buffer_.max_size()) return refuseMalformed(beast_http::error::buffer_overflow);
        if (std::exchange(state_, State::Body) != State::Body) bodyBegin_ = Clock::now();
        const auto end =
            bodyBegin_ + context_.limits.bodyTime + std::chrono::milliseconds(1000 * bodyBytes_ / bodyRate);
        setDeadline(std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()));
        read();
    }

    // The parser sees to the largest body, but not to what is between its chunks; nor does it know strangers.
    bool mayGoOn() {
        const auto& limits = context_.limits;
        const std::string& body = parser_->get().body();
        if (isStranger_ && body.size() > limits.strangerBytes) {
            if (!context_.endpoints.showsSession(body)) {
                unprovenBody_ = context_.endpoints.takeUnprovenBody();
                if (!unprovenBody_) return false;
            }
            isStranger_ = false;
        }
        // Chunks may be small, so what is around them may take as much room again.
        const std::size_t most = isStranger_ ? limits.strangerBytes : limits.bodyBytes;
        return bodyBytes_ <= 2 * std::min(most, limits.bodyBytes) + bufferRoom;
    }

    void refuseMalformed(error_code error) {
        if (error == beast_http::error::body_limit) return refuse(413, "The body is too large.");
        if (error == beast_http::error::header_limit) return refuse(431, "The head is too large.");
        refuse(400, "That is no HTTP request: " + error.message() + ".");
    }
    // Nobody knows where the next request would begin.
    void refuse(int status, std::string_view text) {
        keepAlive_ = false;
        write(context_.endpoints.malformed(status, text));
    }

    void answer() {
        state_ = State::Waiting;
        deadline_.cancel();
        head_.body = std::move(parser_->get().body());
        const auto request = std::make_shared<const Request>(std::exchange(head_, {}));
        if (request->body.size() <= dispatch::largeBody) return hold(ask(*request));
        // Elsewhere, because what this thread serves would wait for the body to be read.
        isAsking_ = true;
        asio::post(context_.reading, [self = this->shared_from_this(), request] {
            const auto held = std::make_shared<std::unique_ptr<bayeux::PendingPost>>(self->ask(*request));
            asio::post(self->strand_, [self, held] {
                self->isAsking_ = false;
                self->hold(std::move(*held));
            });
        });
    }
    /// On the strand, or elsewhere while that waits for it.
    std::unique_ptr<bayeux::PendingPost> ask(const Request& request) {
        const auto done = [self = this->shared_from_this()](Reply reply) {
            asio::post(self->strand_, [self, reply = std::move(reply)]() mutable {
                if (self->isAsking_) {
                    self->early_ = std::move(reply);
                } else if (self->state_ == State::Waiting) {
                    self->write(std::move(reply));
                }
            });
        };
        try {
            return context_.endpoints.answer(request, done);
        } catch (const std::exception& error) {
            log().error("A request cannot be answered: " + std::string(error.what()));
            done(errorReply(500, "The server failed."));
            return nullptr;
        }
    }
    void hold(std::unique_ptr<bayeux::PendingPost> held) {
        if (state_ != State::Waiting) return;
        held_ = std::move(held);
        if (held_) {
            // Whoever shows neither the token nor a session has to begin anew.
            held_->isTrusted() ? void(place_->prove()) : void(keepAlive_ = false);
        }
        if (early_) return write(*std::exchange(early_, std::nullopt));
        readAhead();
    }

    void write(Reply reply) {
        state_ = State::Writing;
        unprovenBody_.reset();
        keepAlive_ = keepAlive_ && !isFinishing_;
        response_.emplace();
        response_->version(parser_->get().version() == 10 ? 10 : 11);
        response_->result(static_cast<unsigned>(reply.status));
        if (!reply.contentType.empty()) response_->set(beast_http::field::content_type, reply.contentType);
        for (const auto& [name, value] : reply.headers) response_->insert(name, value);
        response_->keep_alive(keepAlive_);
        if (reply.status != 204) response_->content_length(reply.body.size());
        if (!isHead_) response_->body() = std::move(reply.body);
        serializer_.emplace(*response_);
        serializer_->limit(writeSize);
        writeSome();
    }
    void writeSome() {
        setDeadline(context_.limits.writeTime);
        beast_http::async_write_some(stream_, *serializer_, handler(&HttpConnection::onWritten));
    }
    void onWritten(error_code error, std::size_t) {
        if (error) return close();
        if (!serializer_->is_done()) return writeSome();
        serializer_.reset();
        response_.reset();
        if (held_) held_->written();
        held_.reset();  // only now: the time in which its session waits for the next request begins
        keepAlive_ && !isFinishing_ ? awaitRequest() : end();
    }

    void upgrade(Request head) {
        // A client waits for the answer before it sends frames.
        if (buffer_.size() > 0) return refuse(400, "There are bytes behind the request.");
        if (isReading_)
            return refuse(400, "A request for a WebSocket waits for the answer to the one before.");
        state_ = State::Closed;
        deadline_.cancel();
        serveWebSocket(std::move(stream_), parser_->release(), head, place_, context_);
        place_.reset();
    }

    // Reads what the client still sends: a socket that is closed with bytes unread resets the connection, and
    // the client may lose the answer.
    void end() {
        state_ = State::Draining;
        setDeadline(drainTime);
        if constexpr (isTls) {
            error_code ignored;
            if (isReading_) return void(socket().cancel(ignored));
            return stream_.async_shutdown(handler(&HttpConnection::onShutdown));
        }
        onShutdown({});
    }
    void onReadWhileEnding(error_code error) {
        if (isEndOfStream(error)) return close();
        if constexpr (isTls) return stream_.async_shutdown(handler(&HttpConnection::onShutdown));
        error ? close() : drain();
    }
    void onShutdown(error_code) {
        error_code ignored;
        socket().shutdown(PlainStream::shutdown_send, ignored);
        if (!isReading_) drain();
    }
    void drain() {
        useIncoming(largeReadSize);
        socket().async_read_some(asio::buffer(incoming_), handler(&HttpConnection::onDrained));
    }
    void onDrained(error_code error, std::size_t) { error ? close() : drain(); }

    void close() {
        if (std::exchange(state_, State::Closed) == State::Closed) return;
        held_.reset();
        unprovenBody_.reset();
        deadline_.cancel();
        closeNow(socket());
        place_.reset();
    }

    Stream stream_;                       ///< moved from when it has become a WebSocket
    const asio::any_io_executor strand_;  ///< of the stream, for threads that come late
    std::shared_ptr<ConnectionTable::Place> place_;
    const ConnectionContext context_;
    std::string peerAddress_;
    std::string localAddress_;

    State state_ = State::Handshake;
    bool isFinishing_ = false;
    bool isReading_ = false;
    bool isAtEnd_ = false;  ///< nothing more will come
    std::vector<char> incoming_;
    Deadline deadline_;
    beast::flat_buffer buffer_;  ///< read, and not taken by a request yet

    // Of the current request.
    std::optional<beast_http::request_parser<beast_http::string_body>> parser_;
    Request head_;
    bool isHead_ = false;
    bool keepAlive_ = false;
    bool isStranger_ = false;    ///< the sender has not shown who it is, so far
    std::size_t bodyBytes_ = 0;  ///< that have come, with what is between chunks
    Clock::time_point bodyBegin_;
    Endpoints::UnprovenBody unprovenBody_;
    std::unique_ptr<bayeux::PendingPost> held_;
    bool isAsking_ = false;       ///< on another thread
    std::optional<Reply> early_;  ///< came while it was
    std::optional<beast_http::response<beast_http::string_body>> response_;
    std::optional<beast_http::response_serializer<beast_http::string_body>> serializer_;
};

template <class Stream>
void startConnection(Stream stream, std::shared_ptr<ConnectionTable::Place> place,
                     const ConnectionContext& context) {
    const auto connection = std::make_shared<HttpConnection<Stream>>(std::move(stream), place, context);
    place->set(connection);
    connection->start();
}

}  // namespace

void serveHttp(asio::ip::tcp::socket socket, asio::ssl::context* tls,
               std::shared_ptr<ConnectionTable::Place> place, const ConnectionContext& context) {
    if (tls) {
        startConnection(TlsStream(std::move(socket), *tls), std::move(place), context);
    } else {
        startConnection(std::move(socket), std::move(place), context);
    }
}

}  // namespace gateway::http
