#include "http/WebSocketConnection.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <optional>
#include <utility>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/stream_traits.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "dispatch/readMessage.h"
#include "http/BufferedStream.h"
#include "http/Deadline.h"
#include "http/OutgoingFrames.h"
#include "log.h"

namespace gateway::http {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;

namespace {

constexpr std::size_t sliceSize = std::size_t{256} << 10;
constexpr std::size_t mostUnsent = std::size_t{64} << 20;
constexpr std::size_t mostUnsentReplies = std::size_t{2} << 20;
constexpr int switchingProtocols = 101;
constexpr int badRequest = 400;
constexpr int upgradeRequired = 426;
constexpr std::uint16_t abnormalClosure = 1006;
constexpr auto closeTime = std::chrono::seconds(5);
constexpr auto finishGrace = std::chrono::milliseconds(300);

bool isTokenCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

std::vector<std::string_view> offeredProtocols(const ReceivedRequest& upgrade) {
    constexpr std::string_view between = ", \t";
    const auto header = upgrade[beast::http::field::sec_websocket_protocol];
    std::string_view list(header.data(), header.size());
    std::vector<std::string_view> offered;
    while (true) {
        list.remove_prefix(std::min(list.find_first_not_of(between), list.size()));
        if (list.empty()) return offered;
        const auto name = list.substr(0, list.find_first_of(between));
        if (std::ranges::all_of(name, isTokenCharacter)) offered.push_back(name);
        list.remove_prefix(name.size());
    }
}

/// One WebSocket.
///
///     accepting --> open --> closing, once what is queued is written --> over
///                     '----- an error, a deadline, a frame too large -----^
///
/// Messages are written in slices, one under way at a time, so that pings find a gap and a client that takes
/// nothing is noticed. A client that takes no replies is not read from.
///
/// What is to be written while the frames of one read are handled waits until all of them are: a client that
/// sends many gets the replies in one write.
///
/// Threads: its strand, but for `finish`, `abort` and what a FrameSocket does.
/// Owns: pending operations hold it.
template <class Stream>
class WebSocketConnection : public OpenConnection,
                            public sockets::FrameSocket,
                            public std::enable_shared_from_this<WebSocketConnection<Stream>> {
public:
    WebSocketConnection(Stream stream, HttpRequest head, std::shared_ptr<OpenConnections::Place> place,
                        const ConnectionContext& context, AccessEntry access)
        : stream_(std::move(stream)),
          head_(std::move(head)),
          speaker_(context.endpoints.speakerFor(head_)),
          place_(std::move(place)),
          context_(context),
          access_(std::move(access)),
          deadline_(stream_.get_executor()),
          trusting_(stream_.get_executor()),
          finishing_(stream_.get_executor()) {}

    void accept(const ReceivedRequest& upgrade) {
        stream_.next_layer().setOnEmpty([this] { onAllRead(); });
        stream_.next_layer().setOnWrite([this] { speaker_->progressed(); });
        setIdleTime(2 * context_.limits.pingTime);
        stream_.auto_fragment(false);
        stream_.set_option(websocket::stream_base::decorator(
            [protocol = speaker_->chosen(offeredProtocols(upgrade))](websocket::response_type& response) {
                response.set(beast::http::field::server, "numora");  // or it would name the library
                if (!protocol.empty()) response.set(beast::http::field::sec_websocket_protocol, protocol);
            }));
        stream_.async_accept(upgrade, handler(&WebSocketConnection::onAccepted));
    }

    // Its speaker closes it, if that knows how to.
    void finish() override {
        onStrand([this] {
            finishing_.set(finishGrace,
                           [self = this->self()] { self->close(websocket::close_code::going_away); });
        });
    }
    void abort() override {
        onStrand([this] { over(); });
    }

    void send(sockets::OutgoingFrame frame) override {
        unsentBytes_ += frame.pieces.size();
        const bool isReply = frame.isReply;
        auto queued = [self = this->self(), frame = std::move(frame)]() mutable {
            self->queue(std::move(frame));
        };
        // A reply may be sent from within this strand, where it must not overtake one that is on its way
        // here.
        if (isReply) return asio::post(stream_.get_executor(), std::move(queued));
        asio::dispatch(stream_.get_executor(), std::move(queued));
    }
    std::size_t unsentBytes() const override { return unsentBytes_; }
    void close(std::uint16_t code) override {
        onStrand([this, code] { beginClose(code); });
    }

private:
    std::shared_ptr<WebSocketConnection> self() { return this->shared_from_this(); }
    template <class Action>
    void onStrand(Action action) {
        asio::post(stream_.get_executor(), [self = this->self(), action] { action(); });
    }
    template <class... Arguments>
    auto handler(void (WebSocketConnection::*operation)(Arguments...)) {
        return [self = this->self(), operation](auto... arguments) {
            if (!self->isOver_) (self.get()->*operation)(arguments...);
        };
    }
    void setDeadline(std::chrono::milliseconds limit) {
        deadline_.set(limit, [self = this->self()] { self->over(); });
    }

    void onAccepted(error_code error) {
        if (error == websocket::condition::handshake_failed) noteRefusal(error);
        if (error) return over();
        access_.status = switchingProtocols;
        noteAccess();
        context_.endpoints.noteOpened(head_);
        speaker_->opened(self());
        if (!speaker_->isTrusted()) {
            trusting_.set(context_.limits.headTime, [self = this->self()] {
                if (!self->speaker_->isTrusted()) self->close(websocket::close_code::policy_error);
            });
        }
        read();
    }

    void setIdleTime(std::chrono::steady_clock::duration limit) {
        stream_.set_option(websocket::stream_base::timeout{context_.limits.headTime, limit, true});
    }

    // Piece by piece, because no read may begin once closing has.
    void read() {
        stream_.read_message_max(speaker_->maxFrameBytes());
        stream_.async_read_some(buffer_, 0, handler(&WebSocketConnection::onRead));
    }
    void onRead(error_code error, std::size_t) {
        if (error) return over();
        if (closeCode_) return onAllRead();
        if (!stream_.is_message_done()) return read();
        const bool isText = stream_.got_text();
        std::string data = beast::buffers_to_string(buffer_.data());
        buffer_.clear();
        if (buffer_.capacity() > sliceSize) buffer_.shrink_to_fit();
        if (data.size() <= dispatch::largeBody) {
            isInReadTurn_ = true;
            return receive(std::move(data), isText);
        }
        onAllRead();
        // Elsewhere, because what this thread serves would wait for the frame to be read.
        asio::post(context_.reading, [self = this->self(), data = std::move(data), isText]() mutable {
            self->receive(std::move(data), isText);
        });
    }
    /// On any thread.
    void receive(std::string data, bool isText) {
        try {
            speaker_->received(std::move(data), isText);
        } catch (const std::exception& problem) {
            log().error("A frame could not be handled: " + std::string(problem.what()));
            onStrand([this] { onAllRead(); });
            return close(websocket::close_code::internal_error);
        }
        onStrand([this] { readNext(); });  // after what the frame has led to
    }
    void readNext() {
        if (isOver_) return;
        if (!closeCode_ && unsentReplies_ <= mostUnsentReplies) return read();
        onAllRead();
        if (closeCode_) return;
        // Pongs are not seen now; it is the deadlines of the writes that end a client which takes nothing.
        isPaused_ = true;
        setIdleTime(websocket::stream_base::none());
    }
    void readOn() {
        if (!isPaused_ || closeCode_ || unsentReplies_ > mostUnsentReplies) return;
        isPaused_ = false;
        setIdleTime(2 * context_.limits.pingTime);
        read();
    }

    /// All bytes that had come are read.
    void onAllRead() {
        isInReadTurn_ = false;
        speaker_->endReadTurn();
        writeNext();
    }

    void queue(sockets::OutgoingFrame frame) {
        if (isOver_ || closeCode_) return;
        const auto size = frame.pieces.size();
        if (unsentBytes_ - size > mostUnsent) return over();
        if (frame.isReply) unsentReplies_ += size;
        frames_.push(std::move(frame));
        // Before the client learns that it is trusted, so that it may send a large frame at once.
        stream_.read_message_max(speaker_->maxFrameBytes());
        if (!isProven_ && speaker_->isTrusted()) isProven_ = place_->markAuthenticated();
        if (!isInReadTurn_) writeNext();
    }
    void writeNext() {
        if (isOver_ || isWriting_ || frames_.empty()) return;
        isWriting_ = true;
        batch_ = frames_.take();
        slices_.start(batch_.frame);
        stream_.text(batch_.frame.form != sockets::OutgoingFrame::Form::Binary);
        writeSlice();
    }
    void writeSlice() {
        const auto slice = slices_.next(sliceSize);
        setDeadline(context_.limits.writeTime);
        stream_.async_write_some(slices_.isAtEnd(), slice, handler(&WebSocketConnection::onWritten));
    }
    void onWritten(error_code error, std::size_t) {
        if (error) return over();
        if (!slices_.isAtEnd()) return writeSlice();
        isWriting_ = false;
        deadline_.cancel();
        unsentBytes_ -= batch_.queuedBytes;
        access_.bytes += batch_.queuedBytes;
        if (batch_.frame.isReply) unsentReplies_ -= batch_.queuedBytes;
        batch_ = {};
        speaker_->drained();
        readOn();
        if (closeCode_ && frames_.empty()) return sendClose();
        if (closeCode_ || !isInReadTurn_) writeNext();
    }

    void beginClose(std::uint16_t code) {
        if (isOver_ || closeCode_) return;
        closeCode_ = code;
        writeNext();
        if (!isWriting_) sendClose();
    }
    void sendClose() {
        setDeadline(closeTime);
        stream_.async_close(*closeCode_, handler(&WebSocketConnection::onClosed));
    }
    void onClosed(error_code) { over(); }

    void noteAccess() {
        if (!context_.onAccess) return;
        access_.duration =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin_);
        context_.onAccess(access_);
    }
    /// The answer has been written.
    void noteRefusal(error_code error) {
        const bool isOfVersion = error == websocket::error::bad_sec_version;
        access_.status = isOfVersion ? upgradeRequired : badRequest;
        access_.bytes = error.message().size();
        context_.endpoints.noteRefused(head_, access_.status);
        noteAccess();
    }
    void noteEnd() {
        if (access_.status != switchingProtocols) return;  // it has not begun
        access_.method = "CLOSE";
        const auto ofClient = stream_.reason().code;
        access_.status =
            ofClient != websocket::close_code::none ? ofClient : closeCode_.value_or(abnormalClosure);
        noteAccess();
    }

    void over() {
        if (std::exchange(isOver_, true)) return;
        noteEnd();
        speaker_->closed();
        deadline_.cancel();
        trusting_.cancel();
        finishing_.cancel();
        closeNow(beast::get_lowest_layer(stream_));
        place_.reset();
    }

    websocket::stream<BufferedStream<Stream>> stream_;
    const HttpRequest head_;
    const std::shared_ptr<sockets::Speaker> speaker_;
    std::shared_ptr<OpenConnections::Place> place_;
    const ConnectionContext context_;
    AccessEntry access_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    Deadline deadline_;
    Deadline trusting_;
    Deadline finishing_;

    beast::flat_buffer buffer_;
    std::atomic<std::size_t> unsentBytes_{0};
    std::size_t unsentReplies_ = 0;  ///< bytes of those that are queued or being written
    bool isInReadTurn_ = false;      ///< what is to be written waits for its end
    bool isProven_ = false;          ///< it counts among those of known clients
    bool isPaused_ = false;          ///< no read is under way until there are fewer
    OutgoingFrames frames_;
    bool isWriting_ = false;
    OutgoingFrames::Batch batch_;  ///< being written
    FrameSlices slices_;
    std::optional<std::uint16_t> closeCode_;
    bool isOver_ = false;
};

template <class Stream>
void startWebSocket(Stream stream, const ReceivedRequest& upgrade, const HttpRequest& head,
                    const std::shared_ptr<OpenConnections::Place>& place, const ConnectionContext& context,
                    AccessEntry access) {
    const auto connection = std::make_shared<WebSocketConnection<Stream>>(std::move(stream), head, place,
                                                                          context, std::move(access));
    place->set(connection);
    connection->accept(upgrade);
}

}  // namespace

void serveWebSocket(PlainStream stream, const ReceivedRequest& upgrade, const HttpRequest& head,
                    const std::shared_ptr<OpenConnections::Place>& place, const ConnectionContext& context,
                    AccessEntry access) {
    startWebSocket(std::move(stream), upgrade, head, place, context, std::move(access));
}

void serveWebSocket(TlsStream stream, const ReceivedRequest& upgrade, const HttpRequest& head,
                    const std::shared_ptr<OpenConnections::Place>& place, const ConnectionContext& context,
                    AccessEntry access) {
    startWebSocket(std::move(stream), upgrade, head, place, context, std::move(access));
}

}  // namespace gateway::http
