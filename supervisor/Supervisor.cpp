#include "supervisor/Supervisor.h"

#include <csignal>
#include <future>
#include <list>
#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "Cgroup.h"
#include "Limits.h"
#include "Spawn.h"
#include "log.h"

namespace supervisor {

namespace {

using boost::asio::posix::stream_descriptor;

constexpr std::chrono::seconds betweenLooks{5};

/// Without this the system reaps, and nobody learns how a worker has ended. Programs inherit it.
void noticeChildren() {
    struct sigaction action {};
    if (::sigaction(SIGCHLD, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
        std::signal(SIGCHLD, SIG_DFL);
}

/// Whether children of others become those of this process when their parents end.
bool isReaper() {
    int isSubreaper = 0;
    ::prctl(PR_GET_CHILD_SUBREAPER, &isSubreaper);
    return ::getpid() == 1 || isSubreaper != 0;
}

/// A callback of the owner, whose exceptions end here.
template <class Callback, class... Arguments>
void call(const Callback& callback, Arguments&&... arguments) noexcept {
    try {
        if (callback) callback(std::forward<Arguments>(arguments)...);
    } catch (const std::exception& error) {
        log().error(std::string("the owner of a worker failed: ") + error.what());
    }
}

}  // namespace

/// What runs on the thread. All but spawn() and stop() is its own.
class Supervisor::Core {
public:
    Core() : environment_(inheritedEnvironment()), lookTimer_(context_) {
        noticeChildren();
        lookAround();
        thread_ = std::thread([this] { context_.run(); });
    }
    ~Core() {
        context_.stop();
        thread_.join();
        for (Watched& watched : watched_) watched.pidfd.release();
    }
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void spawn(WorkerSpec spec, Spawned spawned, Ended ended) {
        boost::asio::post(context_, [this, spec = std::move(spec), spawned = std::move(spawned),
                                     ended = std::move(ended)]() mutable {
            std::string problem;
            const auto worker = start(std::move(spec), std::move(ended), problem);
            call(spawned, worker, std::move(problem));
        });
    }

    void stop(std::chrono::milliseconds limit) {
        const auto stopped = std::make_shared<std::promise<void>>();
        boost::asio::post(context_, [this, stopped] {
            isStopped_ = true;
            stopping_.push_back(stopped);
            for (const Watched& watched : watched_) watched.worker->kill(cause::serverStopped);
            noteIfStopped();
        });
        if (stopped->get_future().wait_for(limit) != std::future_status::ready)
            log().error("a worker did not die when it was killed");
    }

private:
    struct Watched {
        std::shared_ptr<Worker> worker;
        stream_descriptor pidfd;  ///< borrowed from the worker
        Ended ended;
    };
    using Place = std::list<Watched>::iterator;

    std::shared_ptr<Worker> start(WorkerSpec spec, Ended ended, std::string& problem) noexcept {
        try {
            if (isStopped_) throw std::runtime_error("the server stops");
            Process process = supervisor::spawn(spec, environment_);
            // It waits for its owner's first word, so none of its children is missed.
            auto cgroup = cgroups_ ? cgroups_->make(spec, process.pid) : nullptr;
            auto worker = std::make_shared<Worker>(std::move(spec), std::move(process), std::move(cgroup));
            watched_.push_back({worker, stream_descriptor(context_), std::move(ended)});
            const Place place = std::prev(watched_.end());
            try {
                place->pidfd.assign(worker->pidfd());
            } catch (...) {
                watched_.erase(place);
                throw;
            }
            watch(place);
            return worker;
        } catch (const std::exception& error) {
            problem = error.what();
            return nullptr;
        }
    }

    void watch(Place place) {
        place->pidfd.async_wait(stream_descriptor::wait_read,
                                [this, place](boost::system::error_code) { look(place); });
    }

    void look(Place place) {
        auto record = place->worker->bury([this] { return outOfMemory_.take(); });
        if (!record) return watch(place);
        place->pidfd.release();
        const Watched watched = std::move(*place);
        watched_.erase(place);
        log().debug("the interpreter " + record->interpreter + ", life " + std::to_string(record->life) +
                    ", has ended: " + record->cause + ", " + record->detail);
        reapStrangers();
        call(watched.ended, std::move(*record));
        noteIfStopped();
    }

    void noteIfStopped() {
        if (!isStopped_ || !watched_.empty()) return;
        for (const auto& stopped : stopping_) stopped->set_value();
        stopping_.clear();
    }

    void lookAround() {
        outOfMemory_.forgetOld();
        reapStrangers();
        lookTimer_.expires_after(betweenLooks);
        lookTimer_.async_wait([this](boost::system::error_code error) {
            if (!error) lookAround();
        });
    }

    void reapStrangers() {
        siginfo_t info{};
        while (isReaper() && ::waitid(P_ALL, 0, &info, WEXITED | WNOWAIT | WNOHANG) == 0 &&
               info.si_pid != 0) {
            // One of ours is looked at in its own turn, and the others after it.
            for (const Watched& watched : watched_)
                if (watched.worker->pid() == info.si_pid) return;
            ::waitpid(info.si_pid, nullptr, WNOHANG);
            info = {};
        }
    }

    const std::vector<std::string> environment_;
    const std::unique_ptr<const CgroupTree> cgroups_ = CgroupTree::claim();
    boost::asio::io_context context_{1};
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard_{context_.get_executor()};
    boost::asio::steady_timer lookTimer_;
    OutOfMemoryCounter outOfMemory_;
    std::list<Watched> watched_;
    bool isStopped_ = false;
    std::vector<std::shared_ptr<std::promise<void>>> stopping_;
    std::thread thread_;  // last: it uses the rest
};

Supervisor::Supervisor() : core_(std::make_unique<Core>()) {}

Supervisor::~Supervisor() { stop(); }

void Supervisor::spawn(WorkerSpec spec, Spawned spawned, Ended ended) {
    core_->spawn(std::move(spec), std::move(spawned), std::move(ended));
}

void Supervisor::stop(std::chrono::milliseconds limit) { core_->stop(limit); }

}  // namespace supervisor
