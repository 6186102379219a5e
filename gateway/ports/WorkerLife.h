#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>

#include "connector/ThreadSafety.h"
#include "messages/LocalMessageService.h"
#include "messages/RequestCounter.h"
#include "ports/InterpreterPort.h"
#include "ports/InterpreterSpec.h"
#include "ports/Work.h"
#include "ports/WorkerLink.h"
#include "supervisor/Culler.h"
#include "supervisor/RestartPolicy.h"
#include "supervisor/Supervisor.h"

namespace gateway::ports {

/// The lives of one interpreter: its processes, one after the other, and what waits for the next one.
///
///     absent -- asked --> starting -- Ready --> ready -- stop, restart, idle --> stopping
///       ^                  ^    |                 |                                 |
///       |           asked  |    v      death      |                                 |
///       |                 dead <------------------'------------ restart -----------'
///       '--- idle --------------------------------------------------------------------'
///     dead, and requests or a restart wait: starting at once
///     dead -- 3rd bad end in 5 minutes --> failed -- restart --> starting
///
/// Threads: every operation from any thread; events of processes come from the supervisor's thread and from
/// the strand. Every change of state is told on "/connector/interpreter", in order.
/// Locks: mutex_; nothing is sent, spawned or answered under it.
class WorkerLife : public std::enable_shared_from_this<WorkerLife> {
public:
    using Answered = InterpreterPort::Answered;

    WorkerLife(boost::asio::io_context& context, messages::LocalMessageService& messages,
               supervisor::Supervisor& supervisor, InterpreterSpec spec);

    /// Sends `work` to the process, now or when there is one.
    void submit(Work work) CONNECTOR_EXCLUDES(mutex_);
    void start(Answered answered) CONNECTOR_EXCLUDES(mutex_);
    void restart(bool force, std::optional<std::uint64_t> life, Answered answered) CONNECTOR_EXCLUDES(mutex_);
    /// Ends the process, for good.  Blocks: until it is dead, three seconds at the most or little more.
    void stop(std::string_view cause = supervisor::cause::serverStopped) CONNECTOR_EXCLUDES(mutex_);

    bool isReady() const CONNECTOR_EXCLUDES(mutex_);
    std::uint64_t number() const CONNECTOR_EXCLUDES(mutex_);
    InterpreterState state() const CONNECTOR_EXCLUDES(mutex_);
    PortMetrics metrics() const CONNECTOR_EXCLUDES(mutex_);
    std::vector<supervisor::DeathRecord> deaths() const CONNECTOR_EXCLUDES(mutex_);
    void setWatchers(std::function<std::size_t()> watchers) CONNECTOR_EXCLUDES(mutex_);

private:
    enum class Phase { Absent, Starting, Ready, Stopping, Dead, Failed };
    using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;
    using Clock = std::chrono::steady_clock;
    using WorkerPtr = std::shared_ptr<supervisor::Worker>;
    using LinkPtr = std::shared_ptr<WorkerLink>;

    struct Waiting {
        Work work;
        Clock::time_point until;
    };
    /// What is to be done once the mutex is free.
    using Actions = std::vector<std::function<void()>>;

    void enterLocked(Phase phase) CONNECTOR_REQUIRES(mutex_);
    /// What refuses `work`, if anything; else it waits, and a process is started if there is none.
    std::optional<dispatch::Answer> queueLocked(Work& work, Actions& actions) CONNECTOR_REQUIRES(mutex_);
    bool isOfOtherLifeLocked(const Work& work) const CONNECTOR_REQUIRES(mutex_);
    std::optional<dispatch::Answer> refusalLocked(const Work& work) CONNECTOR_REQUIRES(mutex_);
    void startLocked(Actions& actions) CONNECTOR_REQUIRES(mutex_);
    void beginStopLocked(std::string_view cause, bool force, Actions& actions) CONNECTOR_REQUIRES(mutex_);
    void refuseWaitingLocked(const dispatch::Answer& answer, Actions& actions) CONNECTOR_REQUIRES(mutex_);
    void answerRestartsLocked(const dispatch::Answer& answer, Actions& actions) CONNECTOR_REQUIRES(mutex_);
    static void run(const Actions& actions);
    static std::string_view nameOf(Phase phase);

    void spawn(std::uint64_t number);
    void spawned(std::uint64_t number, const WorkerPtr& worker, const std::string& problem)
        CONNECTOR_EXCLUDES(mutex_);
    void noteReady(std::uint64_t number) CONNECTOR_EXCLUDES(mutex_);
    void flushWaiting() CONNECTOR_EXCLUDES(mutex_);
    void noteBroken(std::uint64_t number, const std::string& reason) CONNECTOR_EXCLUDES(mutex_);
    void ended(supervisor::DeathRecord record) CONNECTOR_EXCLUDES(mutex_);
    /// Says what follows from an end.
    void judge(supervisor::DeathRecord& record) CONNECTOR_EXCLUDES(mutex_);
    void buried(const supervisor::DeathRecord& record) CONNECTOR_EXCLUDES(mutex_);
    void endBy(const WorkerPtr& worker, const std::string& cause, std::chrono::milliseconds limit);
    void waitForTrace(const WorkerPtr& worker, const std::string& cause, Clock::time_point until);
    void count(const std::string& typeName, const std::string& outcome) CONNECTOR_EXCLUDES(mutex_);
    void armTick() CONNECTOR_EXCLUDES(mutex_);
    void tick() CONNECTOR_EXCLUDES(mutex_);
    void watchIdleLocked(Actions& actions) CONNECTOR_REQUIRES(mutex_);

    boost::asio::io_context& context_;
    messages::LocalMessageService& messages_;
    supervisor::Supervisor& supervisor_;
    const InterpreterSpec spec_;
    const Strand strand_;
    messages::RequestCounter streaming_;
    boost::asio::steady_timer tick_;      // on the strand
    boost::asio::steady_timer stopping_;  // on the strand

    mutable connector::Mutex mutex_;
    std::condition_variable changed_;
    Phase phase_ CONNECTOR_GUARDED_BY(mutex_) = Phase::Absent;
    std::uint64_t number_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::chrono::system_clock::time_point since_ CONNECTOR_GUARDED_BY(mutex_) =
        std::chrono::system_clock::now();
    WorkerPtr worker_ CONNECTOR_GUARDED_BY(mutex_);  // null until it is spawned, and when it is dead
    LinkPtr link_ CONNECTOR_GUARDED_BY(mutex_);
    std::deque<Waiting> waiting_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t waitingBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::vector<Answered> restarts_ CONNECTOR_GUARDED_BY(mutex_);  // who waits for the next life
    std::string stopCause_ CONNECTOR_GUARDED_BY(mutex_);  // of one that is to end as soon as it is spawned
    bool isStopped_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::string whyStopped_ CONNECTOR_GUARDED_BY(mutex_);
    bool isTicking_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::deque<supervisor::DeathRecord> deaths_ CONNECTOR_GUARDED_BY(mutex_);
    supervisor::RestartPolicy policy_ CONNECTOR_GUARDED_BY(mutex_);
    std::optional<supervisor::Culler> culler_ CONNECTOR_GUARDED_BY(mutex_);  // of the process that is ready
    std::function<std::size_t()> watchers_ CONNECTOR_GUARDED_BY(mutex_);
    std::map<std::pair<std::string, std::string>, std::uint64_t> outcomes_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace gateway::ports
