#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include "messages/LocalMessageService.h"

namespace gateway {

/// Subscribes to the streams of evaluations, and to each events channel, together with the first client that
/// does, and stays for `standInTime` after the last one has left. A service publishes prompts and events only
/// while somebody is subscribed, and what is not published can be neither played to a client that comes back
/// nor named to it as missed. So a tag counts as listened to for that long after its last client has left.
/// Clients choose the names of tags: of those that no client holds, the 64 that were left last are kept.
///
/// Threads: made and started on one thread, destroyed on any; the rest happens on a strand of the io_context,
/// which watchers of the message service post to.  Locks: none.
/// Owns: its session. Owned by a shared pointer; handlers hold weak ones.
class AbsentClientsSession : public std::enable_shared_from_this<AbsentClientsSession> {
public:
    AbsentClientsSession(boost::asio::io_context& context,
                         std::shared_ptr<messages::LocalMessageService> messages,
                         std::chrono::milliseconds standInTime);
    ~AbsentClientsSession();
    AbsentClientsSession(const AbsentClientsSession&) = delete;
    AbsentClientsSession& operator=(const AbsentClientsSession&) = delete;

    /// Once.
    void start();

private:
    using Clock = std::chrono::steady_clock;
    using Subscription = connector::message_service::Subscription;
    using Change = void (AbsentClientsSession::*)(const std::string& channel);

    struct Left {
        std::string channel;
        Clock::time_point until;
    };

    std::unique_ptr<Subscription> watch(const std::string& pattern);
    // The rest is for the strand.
    void join(const std::string& channel);
    void leave(const std::string& channel);
    void forget(std::deque<Left>::iterator left);
    void forgetOverdue();
    messages::ClientSession& session();

    boost::asio::strand<boost::asio::io_context::executor_type> strand_;
    const std::shared_ptr<messages::LocalMessageService> messages_;
    const std::chrono::milliseconds standInTime_;
    std::shared_ptr<messages::ClientSession> session_;         // null until the first client comes
    std::unordered_map<std::string, std::size_t> subscribed_;  // clients' subscriptions by channel
    std::deque<Left> left_;  // channels that no client holds any more, in the order of leaving
    boost::asio::steady_timer timer_;
    // Last: they end before the session.
    std::unique_ptr<Subscription> ofStreams_;
    std::unique_ptr<Subscription> ofEvents_;
};

}  // namespace gateway
