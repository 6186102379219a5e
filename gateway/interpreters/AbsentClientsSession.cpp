#include "interpreters/AbsentClientsSession.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <boost/asio/post.hpp>

#include "connector/wireWords.h"
#include "messages/channelNames.h"

namespace gateway {

namespace {

constexpr std::string_view streams = connector::wire::channel::allEvalResponses;
constexpr std::string_view events = connector::wire::channel::allEvents;
constexpr std::ptrdiff_t mostLeft = 64;  // channels of events

void discard(messages::ClientSession& session) {
    constexpr std::size_t atOnce = std::size_t{1} << 20;
    while (!session.take(atOnce, std::chrono::milliseconds(0)).frames.empty()) continue;
}

}  // namespace

AbsentClientsSession::AbsentClientsSession(boost::asio::io_context& context,
                                           std::shared_ptr<messages::LocalMessageService> messages,
                                           std::chrono::milliseconds standInTime)
    : strand_(boost::asio::make_strand(context)),
      messages_(std::move(messages)),
      standInTime_(standInTime),
      timer_(strand_) {}

AbsentClientsSession::~AbsentClientsSession() = default;

void AbsentClientsSession::start() {
    ofStreams_ = watch(std::string(streams));
    ofEvents_ = watch(std::string(events));
}

// Its own subscriptions are told as well: by the session they are known.
std::unique_ptr<AbsentClientsSession::Subscription> AbsentClientsSession::watch(const std::string& pattern) {
    const auto onStrand = [&](Change change) {
        return [weak = weak_from_this(), strand = strand_, pattern, change](const auto& event) {
            if (pattern == events && !messages::isChannelName(event.channel)) return;
            const auto& channel = pattern == events ? event.channel : pattern;
            boost::asio::post(strand, [weak, change, channel, clientId = event.clientId] {
                const auto self = weak.lock();
                if (self && clientId != self->session().id()) ((*self).*change)(channel);
            });
        };
    };
    return messages_->watch(pattern, onStrand(&AbsentClientsSession::join),
                            onStrand(&AbsentClientsSession::leave));
}

void AbsentClientsSession::join(const std::string& channel) {
    if (++subscribed_[channel] > 1) return;
    const auto left = std::ranges::find(left_, channel, &Left::channel);
    if (left == left_.end()) {
        session().subscribe(channel);
    } else {
        left_.erase(left);
    }
}

void AbsentClientsSession::leave(const std::string& channel) {
    const auto found = subscribed_.find(channel);
    if (found == subscribed_.end() || --found->second > 0) return;
    subscribed_.erase(found);
    left_.push_back({channel, Clock::now() + standInTime_});
    const auto isEvent = [](const Left& left) { return left.channel != streams; };
    if (std::ranges::count_if(left_, isEvent) > mostLeft) forget(std::ranges::find_if(left_, isEvent));
    forgetOverdue();
}

void AbsentClientsSession::forget(std::deque<Left>::iterator left) {
    const std::string channel = std::move(left->channel);
    left_.erase(left);
    session().unsubscribe(channel);
}

// Where the first one is joined again meanwhile, the timer comes too early, and is set anew.
void AbsentClientsSession::forgetOverdue() {
    while (!left_.empty() && left_.front().until <= Clock::now()) forget(left_.begin());
    if (left_.empty()) return;
    timer_.expires_at(left_.front().until);
    timer_.async_wait([weak = weak_from_this()](const boost::system::error_code& error) {
        const auto self = weak.lock();
        if (self && !error) self->forgetOverdue();
    });
}

messages::ClientSession& AbsentClientsSession::session() {
    if (!session_) {
        session_ = messages_->openSession();
        session_->setWakeUp([weak = std::weak_ptr(session_)] {
            if (const auto self = weak.lock()) discard(*self);
        });
    }
    return *session_;
}

}  // namespace gateway
