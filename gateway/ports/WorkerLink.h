#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include "connector/ThreadSafety.h"
#include "link/FrameReader.h"
#include "link/FrameWriter.h"
#include "link/messages.h"
#include "messages/LocalMessageService.h"
#include "ports/ClientInterest.h"
#include "ports/InFlight.h"
#include "ports/OwnerPaces.h"
#include "ports/Work.h"
#include "supervisor/DeathRecord.h"

namespace gateway::ports {

/// The link to one process of an interpreter: docs/link.md. What the process publishes goes to the message
/// service, and what it wants of clients comes from there.
///
///     made -- start, Hello --> starting -- Ready --> ready     both -- broken, die --> over
///
/// Threads: `start` once; the rest from any thread. Frames are read on a strand of the io_context, where the
/// events are called, too.
/// Locks: mutex_, a leaf.  Owns: borrows the message service; copies of the sockets. It is owned by shared
/// pointers, and ends with `die`.
class WorkerLink : public std::enable_shared_from_this<WorkerLink> {
public:
    struct Events {
        std::function<void()> ready;
        /// The link is of no use any more, though the process may live. Called once at most.
        std::function<void(const std::string& reason)> broken;
        /// A request has ended in a way that DispatcherMetrics counts.
        std::function<void(const std::string& typeName, const std::string& outcome)> counted;
        /// Streamed code of a client of a type was sent.
        std::function<void(const std::string& clientType)> streamStarted;
        /// It has ended.
        std::function<void(const std::string& clientType)> streamEnded;
    };

    /// Copies the sockets.  Throws: std::system_error.
    WorkerLink(boost::asio::io_context& context, messages::LocalMessageService& messages, int mainSocket,
               int controlSocket, links::Start start, Events events);
    ~WorkerLink();
    WorkerLink(const WorkerLink&) = delete;
    WorkerLink& operator=(const WorkerLink&) = delete;

    void start();

    /// Sends it to an interpreter that is ready. What the process does not answer, `die` does. False, with
    /// nothing moved from `work`, when the link is over.  Throws: std::length_error, for a context that is
    /// too large.
    bool send(Work& work);

    /// Asks the process to end within `limit`. `isGivenUp`: what it gives up then is answered by its end.
    void requestStop(std::chrono::milliseconds limit, bool isGivenUp);

    /// What is under way, and how large it is.
    std::size_t inFlight() const { return inFlight_.count(); }
    std::size_t bytesInFlight() const { return inFlight_.bytes(); }

    struct State {
        std::string activity = "idle";  ///< "busy", "idle" or "input"
        std::string health = "ok";      ///< "ok", "deaf" or "silent"
        std::string request{};          ///< type and uuid of the request under way
        std::uint64_t runningMs = 0;
    };
    State state() const CONNECTOR_EXCLUDES(mutex_);

    /// The process is dead: takes what it has written, then answers what is under way with the record.
    /// Streams get its sentence and their completion. `then` is called on the strand.
    void die(const supervisor::DeathRecord& record, std::function<void()> then);

private:
    using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;
    using Stream = boost::asio::posix::stream_descriptor;
    using Clock = std::chrono::steady_clock;

    /// One of the two sockets.
    struct Lane {
        Lane(WorkerLink& owner, int socket);
        Stream stream;
        links::FrameReader reader;
        links::FrameWriter writer;
        bool isOver = false;  ///< nothing can be read any more
    };

    void waitToRead(Lane& lane);
    enum class Turn { More, Empty, Over };
    Turn read(Lane& lane);
    void waitToWrite(Lane& lane);
    void noteBroken(const std::string& reason);

    bool sendRequest(Work& work);
    bool sendStream(Work& work);
    void take(links::Frame&& frame);
    void takeHello(const links::Frame& frame);
    void takePublish(const links::Frame& frame);
    void takeResponse(links::Frame&& frame);
    void takePong(const links::Frame& frame);
    void publish(const std::string& channel, std::string_view data, connector::common::RequestOrigin origin);

    void armPing();
    void pollPaces();
    void answerAll(const supervisor::DeathRecord& record);
    void noteEnding(const std::string& name);
    void tellFailure(const std::string& name, const supervisor::DeathRecord& record);
    void endStream(const InFlight::Stream& stream, const supervisor::DeathRecord& record);
    void shut();

    boost::asio::io_context& context_;
    messages::LocalMessageService& messages_;
    const links::Start startHead_;
    const Events events_;
    const Strand strand_;
    Lane main_;
    Lane control_;
    InFlight inFlight_;
    std::atomic<std::uint64_t> interrupts_{0};  // sent
    OwnerPaces paces_;

    // On the strand.
    ClientInterest interest_;
    boost::asio::steady_timer ping_;
    boost::asio::steady_timer paceTimer_;
    std::atomic<bool> isGivenUp_{false};
    bool isPolling_ = false;
    bool hasHello_ = false;
    bool isBroken_ = false;
    std::string lastPrompt_;           // as it was published
    std::set<std::uint64_t> refused_;  // streams that have not ended
    std::set<std::string> ending_;     // names of streams that have ended and whose completion has not come
    bool isOver_ = false;
    std::uint64_t pings_ = 0;
    std::string buffer_;

    mutable connector::Mutex mutex_;
    State state_ CONNECTOR_GUARDED_BY(mutex_);
    Clock::time_point lastPong_ CONNECTOR_GUARDED_BY(mutex_) = Clock::now();
    Clock::time_point pongAt_ CONNECTOR_GUARDED_BY(mutex_) = Clock::now();
};

}  // namespace gateway::ports
