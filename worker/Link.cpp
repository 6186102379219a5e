#include "worker/Link.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include "LinkSocket.h"
#include "RequestReceiver.h"
#include "SendingThread.h"
#include "connector/ThreadSafety.h"
#include "foundation/log/diagnostic_logger.h"
#include "link/FrameReader.h"

namespace worker {

using connector::MutexLock;
using links::Frame;
using links::FrameWriter;
using links::Kind;

namespace {

constexpr std::size_t mostWaitingLogs = std::size_t{8} << 20;

/// A descriptor that is readable once it is set.
class Event {
public:
    Event() : descriptor_(::eventfd(0, EFD_CLOEXEC)) {
        if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    ~Event() { ::close(descriptor_); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    int descriptor() const { return descriptor_; }
    void set() const { ::eventfd_write(descriptor_, 1); }

private:
    const int descriptor_;
};

}  // namespace

class Link::Impl {
public:
    explicit Impl(Options options)
        : options_(std::move(options)),
          mainSocket_(options_.main),
          controlSocket_(options_.control),
          main_(writerOf(options_.main, 0)),
          control_(writerOf(options_.control, 1)),
          messages_(
              std::make_shared<LinkMessageService>(main_, [this](auto watch) { return readOn(watch); })),
          requests_(main_, control_, *messages_) {
        sending_.start({{{options_.main, main_}, {options_.control, control_}}});
        controlThread_ = std::thread([this] { runThread([this] { readControl(); }); });
        reader_ = std::thread([this] { runThread([this] { readMain(); }); });
    }

    ~Impl() {
        stopped_.set();
        messages_->end();
        controlThread_.join();
        reader_.join();
        requests_.stop();
        sending_.stop();
        main_->close();
        control_->close();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    links::Start greet(const links::Hello& hello) {
        main_->send({.kind = Kind::Hello, .head = hello.encode(), .body = {}});
        MutexLock lock(mutex_);
        while (!start_ && !isBroken_) changed_.wait(lock.native());
        if (!start_) throw std::runtime_error("the gateway has closed the link");
        return *start_;
    }

    std::optional<std::chrono::milliseconds> awaitStop() {
        MutexLock lock(mutex_);
        while (!stop_ && !isBroken_) changed_.wait(lock.native());
        return stop_;
    }

    const std::shared_ptr<FrameWriter>& main() const { return main_; }
    std::atomic<std::uint64_t> lostLogs{0};  ///< and not told yet
    const std::shared_ptr<LinkMessageService>& messages() const { return messages_; }
    RequestReceiver& requests() { return requests_; }

private:
    std::shared_ptr<FrameWriter> writerOf(int socket, std::size_t way) {
        return std::make_shared<FrameWriter>(
            socket, [this, way] { sending_.wake(way); }, [this] { breakOff("it takes nothing"); });
    }

    template <class Read>
    void runThread(const Read& read) {
        try {
            read();
        } catch (const std::exception& error) {
            breakOff(error.what());
        }
    }

    // Any thread, which may hold the mutex of the message service.
    void breakOff(const std::string& reason) {
        {
            const MutexLock lock(mutex_);
            if (std::exchange(isBroken_, true)) return;
        }
        changed_.notify_all();
        foundation::log::DiagnosticLogger("worker").warning("The link to the gateway is broken: " + reason);
        if (options_.broken) options_.broken(mainSocket_.isPeerGone() || controlSocket_.isPeerGone());
    }

    // The frames of one read are taken before any is handled, since a handler may read on.
    bool readFrames() {
        const auto bytes = mainSocket_.read(stopped_.descriptor());
        mainReader_.feed(bytes, [this](Frame&& frame) { frames_.push_back(std::move(frame)); });
        return !bytes.empty();
    }

    void readMain() {
        readerId_ = std::this_thread::get_id();
        while (readFrames()) {
            while (!frames_.empty()) {
                Frame frame = std::move(frames_.front());
                frames_.pop_front();
                handle(std::move(frame));
            }
        }
    }

    // The notices of a watch that a handler begins come before what has been read and waits.
    bool readOn(std::uint64_t watch) {
        if (std::this_thread::get_id() != readerId_.load()) return false;
        std::size_t seen = 0;
        do {
            while (seen < frames_.size()) {
                const auto at = frames_.begin() + static_cast<std::ptrdiff_t>(seen);
                const bool isOfWatch =
                    (at->kind == Kind::Notice || at->kind == Kind::NoticesEnd) && at->id == watch;
                if (!isOfWatch) {
                    ++seen;
                    continue;
                }
                Frame frame = std::move(*at);
                frames_.erase(at);
                const bool isEnd = frame.kind == Kind::NoticesEnd;
                handle(std::move(frame));
                if (isEnd) return true;
            }
        } while (readFrames());
        return true;  // the end has come
    }

    void handle(Frame frame) {
        switch (frame.kind) {
            case Kind::Start:
                return setStart(links::Start::decode(frame.head));
            case Kind::Request:
                return requests_.request(std::move(frame));
            case Kind::Message:
                return requests_.message(std::move(frame));
            case Kind::Notice:
                return messages_->tell(frame.id, links::NoticeHead::decode(frame.head));
            case Kind::NoticesEnd:
                return messages_->endNotices(frame.id);
            case Kind::Pace:
                return requests_.setPace(frame);
            default:
                throw links::BadFrame("a frame that does not belong on the main socket");
        }
    }

    void readControl() {
        links::FrameReader reader;
        for (;;) {
            const auto bytes = controlSocket_.read(stopped_.descriptor());
            if (bytes.empty()) return;
            reader.feed(bytes, [this](Frame&& frame) { handleControl(std::move(frame)); });
        }
    }

    void handleControl(Frame frame) {
        switch (frame.kind) {
            case Kind::Interrupt:
                return requests_.interrupt(std::move(frame));
            case Kind::Ping: {
                const auto level = links::PingHead::decode(frame.head).logLevel;
                if (options_.setLogLevel) options_.setLogLevel(level);
                const auto status = options_.status ? options_.status() : links::PongHead();
                control_->send({.kind = Kind::Pong, .id = frame.id, .head = status.encode(), .body = {}});
                return;
            }
            case Kind::Stop:
                return setStop(std::chrono::milliseconds(links::StopHead::decode(frame.head).ms));
            default:
                throw links::BadFrame("a frame that does not belong on the control socket");
        }
    }

    void setStart(links::Start start) {
        {
            const MutexLock lock(mutex_);
            start_ = std::move(start);
        }
        changed_.notify_all();
    }

    void setStop(std::chrono::milliseconds limit) {
        {
            const MutexLock lock(mutex_);
            stop_ = limit;
        }
        changed_.notify_all();
    }

    const Options options_;
    const Event stopped_;
    LinkSocket mainSocket_;
    LinkSocket controlSocket_;
    SendingThread sending_;

    connector::Mutex mutex_;
    std::condition_variable changed_;
    std::optional<links::Start> start_ CONNECTOR_GUARDED_BY(mutex_);
    std::optional<std::chrono::milliseconds> stop_ CONNECTOR_GUARDED_BY(mutex_);
    bool isBroken_ CONNECTOR_GUARDED_BY(mutex_) = false;

    const std::shared_ptr<FrameWriter> main_;
    const std::shared_ptr<FrameWriter> control_;
    const std::shared_ptr<LinkMessageService> messages_;
    RequestReceiver requests_;

    // Of the reader.
    links::FrameReader mainReader_;
    std::deque<Frame> frames_;
    std::atomic<std::thread::id> readerId_{};

    std::thread controlThread_;
    std::thread reader_;
};

Link::Link(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Link::~Link() = default;

links::Start Link::greet(const links::Hello& hello) { return impl_->greet(hello); }

const std::shared_ptr<LinkMessageService>& Link::messages() const { return impl_->messages(); }

void Link::serve(Services services) {
    impl_->requests().start(std::move(services));
    impl_->main()->send({.kind = Kind::Ready, .head = {}, .body = {}});
}

void Link::tellState(std::string_view state) {
    impl_->main()->send(
        {.kind = Kind::State, .head = links::StateHead{std::string(state)}.encode(), .body = {}});
}

void Link::tellLog(std::uint64_t severity, std::string_view logger, std::string_view text) {
    const auto isSent = [&](std::uint64_t ofRecord, std::string_view line) {
        return impl_->main()->queuedBytes() <= mostWaitingLogs &&
               impl_->main()->send({.kind = Kind::Log,
                                    .id = 0,
                                    .mayBeLost = true,
                                    .head = links::LogHead{ofRecord, std::string(logger)}.encode(),
                                    .body = std::string(line)});
    };
    const auto lost = impl_->lostLogs.exchange(0);
    constexpr auto warning = static_cast<std::uint64_t>(foundation::log::Severity::Warning);
    if (lost > 0 && !isSent(warning, std::to_string(lost) + " log lines were lost.")) impl_->lostLogs += lost;
    if (!isSent(severity, text)) ++impl_->lostLogs;
}

std::optional<std::chrono::milliseconds> Link::awaitStop() { return impl_->awaitStop(); }
void Link::stop() { impl_->requests().stop(); }
bool Link::flush(std::chrono::milliseconds limit) { return impl_->main()->waitUntilBelow(1, limit); }

}  // namespace worker
