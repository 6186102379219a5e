#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "link/FrameWriter.h"
#include "messages/LocalMessageService.h"

namespace gateway::ports {

/// What a worker wants of clients' messages and subscriptions, as subscribers and watchers of the message
/// service: their order and counts are those of the service.
///
/// Threads: made, changed and destroyed on one at a time; what is wanted is sent from the threads of the
/// clients.  Locks: none.  Blocks: its destruction, while one of them sends.
class ClientInterest {
public:
    /// Messages that are published under a context with this value come from the worker itself.
    static constexpr const char* fromWorker = "fromWorker";
    /// More than so much of clients' messages may not wait for the worker.
    static constexpr std::size_t messageBytes = std::size_t{8} << 20;

    /// `writer` is told; both must outlive this.
    ClientInterest(messages::LocalMessageService& messages, links::FrameWriter& writer)
        : messages_(messages), writer_(writer) {}

    /// Throws: std::invalid_argument, for a malformed pattern.
    void listen(const std::string& pattern);
    void unlisten(const std::string& pattern) { listens_.erase(pattern); }
    /// Sends a Notice for each subscription there is, and a NoticesEnd, before it returns.
    /// Throws: std::invalid_argument, for a malformed pattern.
    void watch(std::uint64_t number, const std::string& pattern);
    void unwatch(std::uint64_t number) { watches_.erase(number); }
    void clear() {
        watches_.clear();
        listens_.clear();
    }

private:
    using Subscription = connector::message_service::Subscription;

    void forward(const connector::message_service::JsonMessage& message);
    void notice(std::uint64_t watch, bool isSubscribed, const std::string& channel,
                const std::string& clientId, const std::string& clientType);

    messages::LocalMessageService& messages_;
    links::FrameWriter& writer_;
    std::map<std::string, std::unique_ptr<Subscription>> listens_;
    std::map<std::uint64_t, std::unique_ptr<Subscription>> watches_;
};

}  // namespace gateway::ports
