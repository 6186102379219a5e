#pragma once

#include <array>
#include <map>
#include <memory>
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
/// watches.
class StandInGateway {
public:
    using Frame = links::Frame;
    using Kind = links::Kind;

    StandInGateway() : main_([this](const Frame& frame) { take(frame); }), control_([](const Frame&) {}) {}

    worker::Link::Options options() {
        return {.main = main_.workersEnd(), .control = control_.workersEnd(), .broken = {}, .status = {}};
    }
    messages::LocalMessageService& hub() { return hub_; }

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

    void take(const Frame& frame) {
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
                main_.send({.kind = Kind::NoticesEnd, .id = frame.id, .head = {}, .body = {}});
                break;
            case Kind::Unwatch:
                watches_.erase(frame.id);
                break;
            case Kind::Publish:
                publish(frame);
                break;
            default:
                break;
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
        main_.send({.kind = Kind::Message, .id = 0, .head = head.encode(), .body = message.data});
    }
    template <class Event>
    void notify(std::uint64_t watch, bool isSubscribed, const Event& event) {
        const links::NoticeHead head{isSubscribed, event.channel, event.clientId, event.clientType};
        main_.send({.kind = Kind::Notice, .id = watch, .head = head.encode(), .body = {}});
    }

    static inline thread_local bool isOfWorker_ = false;

    messages::LocalMessageService hub_;
    std::map<std::string, Token> listeners_;
    std::map<std::uint64_t, Token> watches_;
    Lane main_;
    Lane control_;
};
