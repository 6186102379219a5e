#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Clients.h"
#include "connector/ThreadSafety.h"
#include "connector/WorkerPool.h"
#include "dispatch/RequestDispatcher.h"
#include "link/Frame.h"
#include "link/FrameWriter.h"
#include "link/messages.h"
#include "worker/Link.h"
#include "worker/LinkMessageService.h"

namespace worker {

/// Takes the requests that come over a link, and answers them.
///
/// Threads: `request`, `message` and `setPace` on the reader, `interrupt` on the thread of control, where it
/// waits for nobody; `start` and `stop` on any other.
class RequestReceiver {
public:
    RequestReceiver(std::shared_ptr<links::FrameWriter> main, std::shared_ptr<links::FrameWriter> control,
                    LinkMessageService& messages);

    /// Before that, requests are refused.
    void start(Link::Services services);
    /// As dispatch::RequestDispatcher.
    void stop();

    // Throws: links::BadFrame.
    void request(links::Frame frame);
    void message(links::Frame frame);
    void interrupt(links::Frame frame);
    void setPace(const links::Frame& frame);

private:
    using Context = std::shared_ptr<connector::common::ContextState>;
    using Reservation = std::shared_ptr<connector::common::RequestNames::Reservation>;

    Context contextOf(const links::MessageHead& head);
    /// `then` is called when it is answered; may be null.
    void submit(links::FrameWriter& writer, links::Frame frame, const links::RequestHead& head,
                const std::function<void()>& then = {});
    /// Interrupts come by a socket of their own. What was sent after one must not be hit by it: waits until
    /// so many are over.  Blocks: 600 ms at most; an interrupt is over then, or native code ignores it.
    void waitForInterrupts(std::uint64_t count) CONNECTOR_EXCLUDES(mutex_);
    void noteInterrupted() CONNECTOR_EXCLUDES(mutex_);
    static void respond(links::FrameWriter& writer, std::uint64_t id, dispatch::Answer answer) noexcept;
    /// Throws: connector::common::RequestRefusal.
    Reservation reserve(const std::string& name, std::function<void()> released);

    const std::shared_ptr<links::FrameWriter> main_;
    const std::shared_ptr<links::FrameWriter> control_;
    LinkMessageService& messages_;
    Clients clients_{main_};

    connector::Mutex mutex_;
    std::condition_variable interrupted_;
    std::uint64_t interruptsOver_ CONNECTOR_GUARDED_BY(mutex_) = 0;

    std::unique_ptr<dispatch::RequestDispatcher> owned_;
    std::atomic<dispatch::RequestDispatcher*> dispatcher_{nullptr};  // once it has started
    connector::WorkerPool interrupts_;                               // last: its thread uses the rest
};

}  // namespace worker
