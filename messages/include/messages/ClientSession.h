#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "connector/common/ContextState.h"
#include "connector/common/RequestOrigin.h"
#include "messages/MessageFrame.h"

namespace messages {

class MessageHub;
class OutgoingQueue;

struct SessionOptions {
    /// What the client says it is; may be empty.
    std::string clientType = {};
    /// Room in the queue of outgoing frames, in bytes of their texts. An empty queue takes any frame. Twice
    /// MessageServiceOptions::logBytes at least, for a client that may come back.
    std::size_t queueBytes = std::size_t{8} << 20;
    /// How long the queue may be full with nothing taken from it.
    std::chrono::milliseconds fullLimit = std::chrono::seconds(30);
    /// For how long the client may take nothing while what its own requests print or post waits for it. 0:
    /// nothing ever waits.
    std::chrono::milliseconds ownerWait = std::chrono::seconds(2);
};

/// What was taken from a session's queue.
struct TakenFrames {
    std::vector<std::shared_ptr<const MessageFrame>> frames;
    bool isClosed = false;  ///< the session is closed and there is nothing left in its queue
};

/// A client of the message service: what it is subscribed to, and the queue of what is on the way to it.
///
///     open --+-- close, destruction --------------------------------------------> closed
///            +-- a frame that must not be lost finds no room --------------------> closed
///            +-- the queue stays full, with nothing taken, for `fullLimit` ------> closed
///
/// A full queue loses its oldest frames of those that may be lost, and those that the client's own requests
/// have caused after all others. Where they were stands one notice, on the channel "/connector/dropped", of
/// how many and how large they were: docs/messages.md. Closing it empties no queue. It ends every
/// subscription, and the watchers are told; a session that is closed by a publisher, which must not wait for
/// watchers, does so with the next `take`, `close` or `LocalMessageService::sweep`.
///
/// Threads: every operation from any thread.  Locks: none while foreign code runs.
/// Owns: shares the core of the service, which thereby outlives it.
class ClientSession {
public:
    /// For `LocalMessageService::openSession`.
    ClientSession(std::shared_ptr<MessageHub> hub, std::string id, std::string clientType,
                  std::shared_ptr<OutgoingQueue> queue);
    /// Closes, and lets go of what has not been taken.
    ~ClientSession();
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    /// 160 random bits as 40 hexadecimal digits. Who knows them is the client: they belong in no log.
    const std::string& id() const { return id_; }
    const std::string& clientType() const { return clientType_; }

    /// Subscribes the client; it gets one copy of a message, however many of its patterns match. Being
    /// subscribed to a pattern already, or not subscribed, changes nothing. False when the session is closed.
    /// Blocks: while watchers are told.  Throws: std::invalid_argument, for a malformed pattern.
    bool subscribe(const std::string& pattern);
    /// The same for a client that comes back and knows the messages up to the number `after`, 0 for none:
    /// what is kept of the later ones that any of the patterns matches is queued first, each once, after a
    /// notice of what is not kept: docs/messages.md. A pattern that it has already plays nothing.
    bool subscribe(const std::vector<std::string>& patterns, std::uint64_t after);
    /// The number of the last message that was numbered: where a client begins that subscribes now.
    std::uint64_t lastNumber() const;
    /// A message that is being published meanwhile may still come.
    bool unsubscribe(const std::string& pattern);

    /// Publishes for the client: `data` is one JSON value. `context`, a new one when null, goes to the
    /// subscribers in this process and gets the client's type, if there is one, as "clientType". `members`
    /// goes to clients only: MessageFrame; a message of a channel that is logged carries its number only when
    /// `members` has no "ext". False when the session is closed.
    /// Blocks: while subscribers in this process run.
    /// Throws: std::invalid_argument, for a channel that is not a valid name, and for empty data.
    bool publish(const std::string& channel, std::string_view data,
                 std::shared_ptr<connector::common::ContextState> context, std::string_view members = {});

    /// Goes into the origin of the client's requests, so that what they print and post waits for the client.
    /// It holds no frames when the session is gone.
    std::shared_ptr<connector::common::ClientPace> pace() const;

    /// Queues a frame for this client alone, after what is queued. False when the session is or gets closed.
    /// Blocks: never.
    bool send(const std::shared_ptr<const MessageFrame>& frame);

    /// Takes frames from the queue: the first one, and as many more as `maxBytes` hold.
    /// Blocks: while the queue is empty and the session open, for `timeout` at most.
    TakenFrames take(std::size_t maxBytes, std::chrono::milliseconds timeout);

    /// Says that the client has read a part of what was taken: what its requests print goes on waiting for
    /// it. Cheap.
    void noteReading();

    /// Has `wakeUp` called whenever the queue becomes non-empty and when the session closes; at once, when
    /// either is so already. It is let go when the session closes, or for another one, which may be empty; a
    /// thread that is about to call it may do so after that.
    /// Threads: it runs on a publishing thread, so it must be quick.
    void setWakeUp(std::function<void()> wakeUp);

    /// Closes, if that has not happened.  Blocks: while watchers are told.
    void close(const std::string& reason = "closed by its owner");
    bool isClosed() const;
    /// Empty while open.
    std::string closeReason() const;
    std::size_t queuedBytes() const;

private:
    const std::shared_ptr<MessageHub> hub_;
    const std::string id_;
    const std::string clientType_;
    const std::shared_ptr<OutgoingQueue> queue_;
};

}  // namespace messages
