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
#include <boost/beast/core/stream_traits.hpp>

#include "dispatch/readMessage.h"
#include "http/BodyLimits.h"
#include "http/Deadline.h"
#include "http/RequestReader.h"
#include "http/ResponseWriter.h"
#include "http/WebSocketConnection.h"
#include "http/addresses.h"
#include "http/forwarded.h"
#include "http/streams.h"
#include "log.h"

namespace gateway::http {

namespace asio = boost::asio;
namespace beast = boost::beast;
using boost::system::error_code;

namespace {

constexpr std::size_t readSize = 4096;
constexpr std::size_t largeReadSize = std::size_t{32} << 10;
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
/// Every state has a deadline but `waiting`, which the port of the interpreter bounds. There a read is
/// pending, too, which says that the client has gone, or takes the beginning of the next request; it may
/// still be pending in later states. A client that has gone gives up its place, and gets its answer in case
/// it has only ended its own direction.
///
/// Threads: its strand, but for `finish` and `abort`.  Owns: pending operations and answers hold it.
template <class Stream>
class HttpConnection : public OpenConnection, public std::enable_shared_from_this<HttpConnection<Stream>> {
public:
    HttpConnection(Stream stream, std::shared_ptr<OpenConnections::Place> place,
                   const ConnectionContext& context)
        : stream_(std::move(stream)),
          strand_(stream_.get_executor()),
          place_(std::move(place)),
          context_(context),
          deadline_(strand_),
          reader_(context.limits),
          bodyLimits_(context.endpoints, context.limits) {
        error_code error;
        const auto peer = socket().remote_endpoint(error).address();
        peerAddress_ = addressText(peer);
        isPeerProxy_ = context.proxies.contain(peer);
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
        if (reader_.hasBytes()) return beginRequest();
        setDeadline(context_.limits.idleTime);
        read();
    }

    // One read is under way at a time. It may take longer than a state, so whatever state there is then takes
    // what has come, and a buffer of its own, because others are used up meanwhile.
    void read() {
        if (isAtEnd_) return close();
        if (std::exchange(isReading_, true)) return;
        useIncoming(state_ == State::Body ? largeReadSize : readSize);
        const std::size_t size = std::min(incoming_.size(), reader_.room());
        stream_.async_read_some(asio::buffer(incoming_, size), handler(&HttpConnection::onBytes));
    }
    void readAhead() {
        if (!isAtEnd_ && reader_.room() > 0) read();
    }
    void onBytes(error_code error, std::size_t count) {
        isReading_ = false;
        if (state_ == State::Draining) return onReadWhileEnding(error);
        reader_.append(incoming_.data(), count);
        if (error) return onReadFailed(error);
        switch (state_) {
            case State::Idle:
                return beginRequest();
            case State::Head:
                return readHead();
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

    void beginRequest() {
        state_ = State::Head;
        access_ = {.client = peerAddress_, .method = "-", .path = "-"};
        begin_ = std::chrono::steady_clock::now();
        reader_.begin();
        setDeadline(context_.limits.headTime);
        readHead();
    }
    void readHead() {
        try {
            if (!reader_.readHead()) return read();
        } catch (const BadRequest& error) {
            return refuse(error.status(), error.what());
        }
        onHead();
    }
    void onHead() {
        const ReceivedRequest& received = reader_.received();
        keepAlive_ = reader_.keepsAlive();
        if (!isFramedClearly(received)) {
            return refuse(400, "Transfer-Encoding must be chunked, without a Content-Length.");
        }
        HttpRequest head = requestHead(received);
        head.clientAddress = peerAddress_;
        head.localAddress = localAddress_;
        head.isSecure = isTls;
        if (isPeerProxy_) applyForwarded(head, received, context_.proxies);
        access_ = {.client = head.clientAddress,
                   .method = std::string(received.method_string()),
                   .path = head.path,
                   .status = AccessEntry::left,
                   .userAgent = head.userAgent};
        if (auto refusal = context_.endpoints.check(head)) {
            // What of the body is not read yet would be taken for the next request.
            keepAlive_ = keepAlive_ && reader_.isComplete();
            return write(std::move(*refusal));
        }
        bodyLimits_.begin(head);
        if (head.grant && !place_->markAuthenticated() && !endpoints::Endpoints::isAlwaysServed(head)) {
            keepAlive_ = false;
            return write(context_.endpoints.tooManyConnections(head));
        }
        if (endpoints::Endpoints::isWebSocket(head)) return upgrade(head);
        head_ = std::move(head);
        if (!reader_.isComplete() && waitsForContinue(received)) return sayContinue();
        readBody();
    }

    void sayContinue() {
        static constexpr std::string_view text = "HTTP/1.1 100 Continue\r\n\r\n";
        asio::async_write(stream_, asio::buffer(text), handler(&HttpConnection::onContinue));
    }
    void onContinue(error_code error, std::size_t) { error ? close() : readBody(); }

    void readBody() {
        try {
            if (reader_.readBody()) return answer();
        } catch (const BadRequest& error) {
            return refuse(error.status(), error.what());
        }
        if (!bodyLimits_.allowMore(reader_)) return refuse(413, "The body is too large.");
        if (reader_.room() == 0)
            return refuse(400, "The request is not valid HTTP: too much around a chunk.");
        if (std::exchange(state_, State::Body) != State::Body) bodyLimits_.beginBody();
        setDeadline(bodyLimits_.timeLeft(reader_));
        read();
    }

    // Nobody knows where the next request would begin.
    void refuse(int status, std::string_view text) {
        keepAlive_ = false;
        write(context_.endpoints.malformed(status, text));
    }

    void answer() {
        state_ = State::Waiting;
        deadline_.cancel();
        head_.body = reader_.takeBody();
        const auto request = std::make_shared<const HttpRequest>(std::exchange(head_, {}));
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
    std::unique_ptr<bayeux::PendingPost> ask(const HttpRequest& request) {
        const auto done = [self = this->shared_from_this()](HttpReply reply) {
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
            held_->isTrusted() ? void(place_->markAuthenticated()) : void(keepAlive_ = false);
        }
        if (early_) return write(*std::exchange(early_, std::nullopt));
        readAhead();
    }

    void write(HttpReply reply) {
        state_ = State::Writing;
        access_.status = reply.status;
        access_.bytes = reader_.isHeadMethod() ? 0 : reply.body.size();
        bodyLimits_.end();
        keepAlive_ = keepAlive_ && !isFinishing_;
        writer_.begin(std::move(reply), {.version = reader_.received().version() == 10 ? 10U : 11U,
                                         .keepsAlive = keepAlive_,
                                         .hasBody = !reader_.isHeadMethod()});
        writeSome();
    }
    void writeSome() {
        setDeadline(context_.limits.writeTime);
        writer_.writeSome(stream_, handler(&HttpConnection::onWritten));
    }
    void onWritten(error_code error, std::size_t) {
        if (error) return close();
        if (held_) held_->progressed();
        if (!writer_.isDone()) return writeSome();
        writer_.end();
        noteAccess();
        if (held_) held_->written();
        held_.reset();  // only now: the time in which its session waits for the next request begins
        keepAlive_ && !isFinishing_ ? awaitRequest() : end();
    }

    void upgrade(const HttpRequest& head) {
        if (reader_.hasBytes()) {
            return refuse(400, "A client must send nothing between a WebSocket handshake and its answer.");
        }
        if (isReading_) {
            return refuse(400, "A WebSocket handshake must wait for the answer to the request before.");
        }
        state_ = State::Closed;
        deadline_.cancel();
        serveWebSocket(std::move(stream_), reader_.release(), head, place_, context_, std::move(access_));
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

    void noteAccess() {
        if (!context_.onAccess) return;
        access_.duration =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin_);
        context_.onAccess(access_);
    }

    void close() {
        const State before = std::exchange(state_, State::Closed);
        if (before == State::Closed) return;
        if (before == State::Body || before == State::Waiting || before == State::Writing) noteAccess();
        held_.reset();
        bodyLimits_.end();
        deadline_.cancel();
        closeNow(socket());
        place_.reset();
    }

    Stream stream_;                       ///< moved from when it has become a WebSocket
    const asio::any_io_executor strand_;  ///< of the stream, for threads that come late
    std::shared_ptr<OpenConnections::Place> place_;
    const ConnectionContext context_;
    std::string peerAddress_;
    bool isPeerProxy_ = false;  ///< one that is trusted
    std::string localAddress_;

    State state_ = State::Handshake;
    bool isFinishing_ = false;
    bool isReading_ = false;
    bool isAtEnd_ = false;  ///< nothing more will come
    std::vector<char> incoming_;
    Deadline deadline_;
    RequestReader reader_;
    BodyLimits bodyLimits_;

    // Of the current request.
    HttpRequest head_;
    AccessEntry access_;
    std::chrono::steady_clock::time_point begin_;
    bool keepAlive_ = false;
    std::unique_ptr<bayeux::PendingPost> held_;
    bool isAsking_ = false;           ///< on another thread
    std::optional<HttpReply> early_;  ///< came while it was
    ResponseWriter writer_;
};

template <class Stream>
void startConnection(Stream stream, std::shared_ptr<OpenConnections::Place> place,
                     const ConnectionContext& context) {
    const auto connection = std::make_shared<HttpConnection<Stream>>(std::move(stream), place, context);
    place->set(connection);
    connection->start();
}

}  // namespace

void serveHttp(asio::ip::tcp::socket socket, asio::ssl::context* tls,
               std::shared_ptr<OpenConnections::Place> place, const ConnectionContext& context) {
    if (tls) {
        startConnection(TlsStream(std::move(socket), *tls), std::move(place), context);
    } else {
        startConnection(std::move(socket), std::move(place), context);
    }
}

}  // namespace gateway::http
