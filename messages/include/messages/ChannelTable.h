#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

#include "connector/message_service/MessageService.h"
#include "messages/HandlerGate.h"

namespace messages {

class OutgoingQueue;

/// A subscription from within this process.
struct LocalSubscriber {
    using Handler = connector::message_service::MessageService::MessageHandler;

    LocalSubscriber(std::string itsPattern, Handler itsHandler)
        : pattern(std::move(itsPattern)), handler(std::move(itsHandler)) {}

    const std::string pattern;
    const Handler handler;
    HandlerGate gate;
};

/// Who gets the messages of one channel, each once.
struct Recipients {
    std::vector<std::shared_ptr<OutgoingQueue>> clients;
    std::vector<std::shared_ptr<LocalSubscriber>> subscribers;  // in the order of their numbers
    std::string lossClass;                                      // of the channel's frames
    bool isLogged = false;                                      // what is published is kept for a while
};

/// Calls the subscribers' handlers, one after the other.
void tell(const Recipients& recipients, const connector::message_service::JsonMessage& message);

/// Who is subscribed to what. The answer for a channel is kept until a subscription that matters to it
/// changes, and shared, so that a publish costs one look-up and copies nothing.
///
/// Threads: one at a time.
class ChannelTable {
public:
    using Recipient = std::variant<std::shared_ptr<OutgoingQueue>, std::shared_ptr<LocalSubscriber>>;

    /// `droppable`: the patterns of channels whose frames may be lost; they are the names of the loss
    /// classes. `logged`: of those whose messages are kept. `forServices`: of those that go to no client.
    ChannelTable(std::vector<std::string> droppable, std::vector<std::string> logged,
                 std::vector<std::string> forServices)
        : droppable_(std::move(droppable)),
          logged_(std::move(logged)),
          forServices_(std::move(forServices)) {}

    /// `number` stands for the recipient. False when it has this pattern already.
    bool add(const std::string& pattern, std::uint64_t number, Recipient recipient);
    /// False when the recipient does not have this pattern.
    bool remove(const std::string& pattern, std::uint64_t number);

    std::shared_ptr<const Recipients> find(const std::string& channel);

private:
    using ByNumber = std::map<std::uint64_t, Recipient>;
    using ByPattern = std::unordered_map<std::string, ByNumber>;

    ByPattern& mapOf(const std::string& pattern);
    void forgetMatches(const std::string& pattern);
    Recipients resolve(const std::string& channel) const;

    const std::vector<std::string> droppable_;
    const std::vector<std::string> logged_;
    const std::vector<std::string> forServices_;
    ByPattern names_;      // patterns without wildcards
    ByPattern wildcards_;  // the others
    std::unordered_map<std::string, std::shared_ptr<const Recipients>> resolved_;
};

}  // namespace messages
