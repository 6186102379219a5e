#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "connector/message_service/MessageService.h"
#include "connector/wireWords.h"
#include "messages/ClientSession.h"

namespace messages {

struct MessageServiceOptions {
    /// What a client that is too slow may lose: patterns. Losses are counted by the pattern.
    std::vector<std::string> droppable = {connector::wire::channel::output, connector::wire::channel::error,
                                          connector::wire::channel::allEvents};
    /// Of which channels the last messages are kept and numbered, for clients that come back: patterns.
    std::vector<std::string> logged = {connector::wire::channel::allEvalResponses,
                                       connector::wire::channel::allEvents,
                                       connector::wire::channel::interpreter};
    /// What clients publish for services alone: patterns of channels from which no client gets anything.
    std::vector<std::string> forServices = {connector::wire::channel::evalRequest};
    /// The number of the first of the messages that are kept. 0 stands for the time in microseconds, so that
    /// it is larger than all numbers of an earlier service, and a client that comes back from there is told
    /// that it has missed something.
    std::uint64_t firstNumber = 0;
    /// How much is kept of each class of what may be lost, and as much again of what must not be, in bytes of
    /// frames with 256 more for each; and one message beyond. Make it half of the smallest
    /// SessionOptions::queueBytes at most, or playing what is kept can close a session: what must not be lost
    /// has to fit into its queue. Within that only a message larger than `logBytes` can do so.
    std::size_t logBytes = std::size_t{4} << 20;
    /// The time; called with a lock held.
    std::function<std::chrono::steady_clock::time_point()> now = std::chrono::steady_clock::now;
};

/// Numbers of a service since its start, but for the first two.
struct MessageMetrics {
    std::uint64_t openSessions = 0;
    std::uint64_t queuedBytes = 0;  ///< of all open sessions
    std::uint64_t droppedMessages = 0;
    std::uint64_t droppedBytes = 0;       ///< of their data
    std::uint64_t framesBuilt = 0;        ///< one for a published message that any session gets at once
    std::uint64_t messagesPublished = 0;  ///< by services and by clients
};

/// The message service of this process: subscribers in the process, and sessions of clients.
///
/// A message is queued for the sessions first; then the subscribers in the process run, in the order in which
/// they subscribed. A watcher's handlers run one at a time, on a thread that subscribes or unsubscribes a
/// client. Two handlers that end each other's subscription at the same time do not block each other: the
/// second does not wait. What is said of threads in MessageService.h holds.
class LocalMessageService : public connector::message_service::MessageService {
public:
    /// Throws: std::invalid_argument, for a malformed pattern.
    explicit LocalMessageService(MessageServiceOptions options = {});
    ~LocalMessageService() override;

    connector::Future<void> publish(const std::string& channel,
                                    const connector::common::DataBuffer& data) override;
    std::unique_ptr<connector::message_service::Subscription> subscribe(const std::string& pattern,
                                                                        MessageHandler handler) override;
    std::unique_ptr<connector::message_service::Subscription> watch(const std::string& pattern,
                                                                    SubscribeHandler subscribed,
                                                                    UnsubscribeHandler unsubscribed) override;

    /// Throws: std::system_error, when the operating system gives no random bits.
    std::shared_ptr<ClientSession> openSession(const SessionOptions& options = {});

    /// Closes the sessions whose queue has been full for too long, and ends the subscriptions of those that
    /// publishers closed. For a timer.  Blocks: while watchers are told.
    void sweep();

    MessageMetrics metrics() const;

private:
    const std::shared_ptr<MessageHub> hub_;
};

/// Hands out one service, whatever the name and the properties.
class LocalMessageServiceFactory : public connector::message_service::MessageServiceFactory {
public:
    explicit LocalMessageServiceFactory(std::shared_ptr<connector::message_service::MessageService> service)
        : service_(std::move(service)) {}

    connector::Future<std::shared_ptr<connector::message_service::MessageService>> create(
        const std::string& name, const Properties& properties) override;

private:
    const std::shared_ptr<connector::message_service::MessageService> service_;
};

}  // namespace messages
