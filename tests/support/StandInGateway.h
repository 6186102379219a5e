#pragma once

#include <array>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "connector/common/RequestOrigin.h"
#include "link/FrameReader.h"
#include "link/FrameWriter.h"
#include "link/messages.h"
#include "messages/LocalMessageService.h"
#include "worker/Link.h"

/// The other ends of a worker's link: does what a gateway does with a worker's messages, subscriptions and
/// watches, and keeps all other frames for the test.
class StandInGateway {
public:
    using Frame = links::Frame;
    using Kind = links::Kind;

    StandInGateway()
        : main_([this](Frame frame) { take(std::move(frame)); }),
          control_([this](Frame frame) { keep(std::move(frame)); }) {}

    worker::Link::Options options() {
        return {.main = main_.workersEnd(), .control = control_.workersEnd(), .broken = {}, .status = {}};
    }
    messages::LocalMessageService& hub() { return hub_; }
    void send(Frame frame) { main_.send(std::move(frame)); }
    void sendControl(Frame frame) { control_.send(std::move(frame)); }
    void closeControl() { control_.close(); }
    /// The next frame that the test has to do with.
    Frame next() {
        std::unique_lock lock(mutex_);
        kept_.wait(lock, [this] { return !frames_.empty(); });
        Frame frame = std::move(frames_.front());
        frames_.pop_front();
        return frame;
    }

private:
    using Token = std::unique_ptr<connector::message_service::Subscription>;

    /// One socket pair, with a thread that reads what the worker sends.
    class Lane {
    public:
        explicit Lane(links::FrameReader::Take take) : take_(std::move(take)) {
            if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_.data()) != 0) std::abort();
            writer_ = std::make_unique<links::FrameWriter>(
                ends_[0], [this] { makeRoom(); }, [] {});
            reader_ = std::thread([this] { read(); });
        }
        ~Lane() {
            close();
            reader_.join();
            for (const int end : ends_) ::close(end);
        }
        int workersEnd() const { return ends_[1]; }
        void send(Frame frame) { writer_->send(std::move(frame)); }
        void close() { ::shutdown(ends_[0], SHUT_RDWR); }

    private:
        void makeRoom() {
            pollfd ready{ends_[0], POLLOUT, 0};
            ::poll(&ready, 1, -1);
            writer_->sendMore();
        }
        void read() {
            links::FrameReader reader;
            std::array<char, 65536> buffer{};
            for (ssize_t count = 0; (count = ::recv(ends_[0], buffer.data(), buffer.size(), 0)) > 0;) {
                reader.feed({buffer.data(), static_cast<std::size_t>(count)}, take_);
            }
        }

        const links::FrameReader::Take take_;
        std::array<int, 2> ends_{};
        std::unique_ptr<links::FrameWriter> writer_;
        std::thread reader_;
    };

    void keep(Frame frame) {
        const std::lock_guard lock(mutex_);
        frames_.push_back(std::move(frame));
        kept_.notify_all();
    }
    void take(Frame frame) {
        switch (frame.kind) {
            case Kind::Listen:
                listeners_[frame.head] =
                    hub_.subscribe(frame.head, [this](const auto& message) { forward(message); });
                break;
            case Kind::Unlisten:
                listeners_.erase(frame.head);
                break;
            case Kind::Watch:
                watches_[frame.id] = hub_.watch(
                    frame.head, [this, id = frame.id](const auto& event) { notify(id, true, event); },
                    [this, id = frame.id](const auto& event) { notify(id, false, event); });
                send({.kind = Kind::NoticesEnd, .id = frame.id, .head = {}, .body = {}});
                break;
            case Kind::Unwatch:
                watches_.erase(frame.id);
                break;
            case Kind::Publish:
                publish(frame);
                break;
            default:
                keep(std::move(frame));
        }
    }
    void publish(const Frame& frame) {
        const auto head = links::PublishHead::decode(frame.head);
        const auto context = std::make_shared<connector::common::ContextState>();
        connector::common::RequestOrigin::set(
            *context, {.request = head.request, .prompt = head.prompt, .echo = head.echo});
        const connector::common::CurrentContext current(context);
        isOfWorker_ = true;
        hub_.publish(head.channel, connector::common::DataBuffer(frame.body));
        isOfWorker_ = false;
    }
    // The worker's subscribers have had its own messages.
    void forward(const connector::message_service::JsonMessage& message) {
        if (isOfWorker_) return;
        links::MessageHead head;
        head.channel = message.channel;
        send({.kind = Kind::Message, .id = 0, .head = head.encode(), .body = message.data});
    }
    template <class Event>
    void notify(std::uint64_t watch, bool isSubscribed, const Event& event) {
        const links::NoticeHead head{isSubscribed, event.channel, event.clientId, event.clientType};
        send({.kind = Kind::Notice, .id = watch, .head = head.encode(), .body = {}});
    }

    static inline thread_local bool isOfWorker_ = false;

    messages::LocalMessageService hub_;
    std::map<std::string, Token> listeners_;
    std::map<std::uint64_t, Token> watches_;
    std::mutex mutex_;
    std::condition_variable kept_;
    std::deque<Frame> frames_;
    Lane main_;
    Lane control_;
};
