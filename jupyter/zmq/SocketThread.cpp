#include "jupyter/zmq/SocketThread.h"

#include <algorithm>
#include <exception>
#include <future>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/log/diagnostic_logger.h"
#include "zmq/IopubQueue.h"
#include "zmq/Sockets.h"
#include "zmq/Tasks.h"

namespace jupyter {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto longestWait = std::chrono::minutes(1);
constexpr auto timeToFlush = milliseconds(500);
constexpr auto timeToSubscribe = milliseconds(500);
constexpr std::size_t mostEarly = 100;
constexpr int messagesAtOnce = 64;

// What goes wrong with one message or task is no reason to end the kernel.
void guarded(const char* what, const std::function<void()>& action) {
    try {
        action();
    } catch (const std::exception& error) {
        foundation::log::DiagnosticLogger("jupyter::sockets").error(std::string(what) + ": " + error.what());
    }
}

}  // namespace

class SocketThread::Impl {
public:
    explicit Impl(ConnectionFile file) : sockets_(std::move(file)), iopub_(sockets_) {}
    ~Impl() {
        stop();
        if (thread_.joinable()) thread_.join();
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void start(const std::function<std::unique_ptr<SocketUser>()>& make) {
        std::promise<void> made;
        thread_ = std::thread([this, &make, &made] {
            try {
                user_ = make();
            } catch (...) {
                userGone_.set_value();
                made.set_exception(std::current_exception());
                return;
            }
            made.set_value();
            run();
        });
        made.get_future().get();
    }

    void stop() {
        tasks.close();
        if (thread_.joinable()) userIsGone_.wait();
    }

    void send(Message message) {
        if (message.channel != Channel::Iopub) return sockets_.send(message);
        const bool isFirst = iopub_.isEmpty();
        iopub_.add(std::move(message));
        if (!isFirst) return;
        sendAgain_ = Clock::now();  // if this fails
        sendQueued();
    }

    const ConnectionFile& file() const { return sockets_.file(); }
    bool hasRoom() const { return iopub_.hasRoom(); }

    Tasks tasks;

private:
    void run() {
        try {
            while (runTasks()) {
                if (sendAgain_ && *sendAgain_ <= Clock::now()) sendQueued();
                sockets_.poll(tasks.descriptor(), timeToWait());
                guarded("A client's message failed", [this] { receiveAll(); });
            }
        } catch (const std::exception& error) {
            goOnWithoutSockets(error.what());
        }
        finish();
    }

    // What has failed once would fail again and again.
    void goOnWithoutSockets(const std::string& reason) {
        foundation::log::DiagnosticLogger("jupyter::sockets").error("The kernel's sockets failed: " + reason);
        guarded("The kernel's end failed", [&] { user_->failed(reason); });
        early_.clear();
        while (runTasks()) {
            sendAgain_.reset();  // whatever the user has tried to send meanwhile
            tasks.wait(timeToWait());
        }
    }

    // False when that is to end.
    bool runTasks() {
        const auto taken = tasks.take(Clock::now());
        nextTask_ = taken.next;
        for (int signal = 0; taken.signals >> signal != 0; ++signal) {
            if ((taken.signals >> signal & 1) != 0)
                guarded("A signal failed", [&] { user_->raised(signal); });
        }
        for (const auto& task : taken.tasks) guarded("A task of the kernel failed", task);
        return !taken.isClosed;
    }

    // Each round takes some of what there is, so that nothing waits long for something else.
    void receiveAll() {
        sockets_.echo();
        if (sockets_.takeSubscriptions()) {
            isHeard_ = true;
            user_->subscribed();
        }
        takeEarly();
        for (const Channel channel : {Channel::Control, Channel::Stdin, Channel::Shell}) {
            for (int i = 0; i < messagesAtOnce; ++i) {
                auto message = sockets_.receive(channel);
                if (!message) break;
                if (channel == Channel::Shell && !isHeard_) {
                    keep(std::move(*message));
                } else {
                    receive(std::move(*message));
                }
            }
        }
    }

    void receive(Message message) {
        guarded("A client's message failed", [&] { user_->receive(std::move(message)); });
    }

    // Front ends connect their sockets one after the other, and wait for ever for a status that they have
    // missed.
    void keep(Message message) {
        if (early_.empty()) hearsBy_ = Clock::now() + timeToSubscribe;
        early_.push_back(std::move(message));
        if (early_.size() >= mostEarly) takeEarly();
    }

    void takeEarly() {
        if (early_.empty()) return;
        isHeard_ = isHeard_ || early_.size() >= mostEarly || Clock::now() >= hearsBy_;
        if (!isHeard_) return;
        for (auto& message : std::exchange(early_, {})) receive(std::move(message));
    }

    void sendQueued() {
        const bool hadRoom = iopub_.hasRoom();
        sendAgain_ = iopub_.send(Clock::now());
        if (hadRoom) return;
        tasks.add(
            [this, hasRoom = iopub_.hasRoom()] { hasRoom ? user_->roomIsBack() : user_->waitsForRoom(); });
    }

    milliseconds timeToWait() const {
        const auto now = Clock::now();
        auto until = now + longestWait;
        if (nextTask_) until = std::min(until, *nextTask_);
        if (sendAgain_) until = std::min(until, *sendAgain_);
        if (!early_.empty()) until = std::min(until, hearsBy_);
        return std::max(milliseconds(0), std::chrono::ceil<milliseconds>(until - now));
    }

    void finish() {
        guarded("The kernel's end failed", [this] { user_.reset(); });
        userGone_.set_value();
        guarded("What was left could not be sent", [this] { flush(); });
        sockets_.close();
    }

    void flush() {
        const auto end = Clock::now() + timeToFlush;
        while (!iopub_.isEmpty() && Clock::now() < end) {
            sendQueued();
            if (sendAgain_) std::this_thread::sleep_until(std::min(*sendAgain_, end));
        }
    }

    Sockets sockets_;
    IopubQueue iopub_;
    std::unique_ptr<SocketUser> user_;
    std::optional<Clock::time_point> nextTask_;
    std::optional<Clock::time_point> sendAgain_;
    bool isHeard_ = false;  // somebody has subscribed, or was waited for
    std::vector<Message> early_;
    Clock::time_point hearsBy_{};
    std::promise<void> userGone_;
    const std::shared_future<void> userIsGone_ = userGone_.get_future().share();
    std::thread thread_;  // last: it uses the rest
};

SocketThread::SocketThread(ConnectionFile file) : impl_(std::make_unique<Impl>(std::move(file))) {}
SocketThread::~SocketThread() = default;

const ConnectionFile& SocketThread::file() const { return impl_->file(); }

void SocketThread::start(const std::function<std::unique_ptr<SocketUser>()>& make) { impl_->start(make); }
void SocketThread::stop() { impl_->stop(); }

void SocketThread::post(std::function<void()> task) { impl_->tasks.add(std::move(task)); }
void SocketThread::postAfter(milliseconds time, std::function<void()> task) {
    impl_->tasks.addAt(Clock::now() + time, std::move(task));
}
void SocketThread::raise(int signal) { impl_->tasks.raise(signal); }

void SocketThread::send(Message message) { impl_->send(std::move(message)); }
bool SocketThread::hasRoom() const { return impl_->hasRoom(); }

}  // namespace jupyter
