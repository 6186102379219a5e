#include <utility>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/post.hpp>

#include "foundation/log/diagnostic_logger.h"
#include "ports/WorkerLife.h"
#include "ports/lifeAnswers.h"

// How the lives of an interpreter end.

namespace gateway::ports {

namespace asio = boost::asio;
namespace cause = supervisor::cause;
using connector::MutexLock;
using dispatch::Answer;
using supervisor::DeathRecord;

namespace {

constexpr std::size_t keptDeaths = 10;
constexpr auto stopTime = std::chrono::milliseconds(2000);
constexpr auto traceTime = std::chrono::milliseconds(300);
constexpr auto traceInterval = std::chrono::milliseconds(10);
constexpr auto lastTime = std::chrono::seconds(3);

foundation::log::DiagnosticLogger log() { return foundation::log::DiagnosticLogger("gateway::interpreters"); }

}  // namespace

// A process that cannot be talked to any more is of no use; what is left of it would only be in the way.
void WorkerLife::noteBroken(std::uint64_t number, const std::string& reason) {
    WorkerPtr worker;
    {
        const MutexLock lock(mutex_);
        if (number == number_) worker = worker_;
    }
    if (!worker) return;
    log().debug("The link to interpreter " + spec_.worker.id + " is broken: " + reason);
    worker->kill(cause::closedTheLink);
}

// On the supervisor's thread.
void WorkerLife::ended(DeathRecord record) {
    judge(record);
    LinkPtr link;
    {
        const MutexLock lock(mutex_);
        link = link_;
    }
    if (!link) return asio::post(strand_, [self = shared_from_this(), record] { self->buried(record); });
    record.inFlight = link->inFlight();
    link->die(record, [self = shared_from_this(), record] {
        asio::post(self->strand_, [self, record] { self->buried(record); });
    });
}

void WorkerLife::judge(DeathRecord& record) {
    const MutexLock lock(mutex_);
    if (record.isBad()) policy_.noteBadEnd();
    record.startsAnew = !policy_.hasFailed() && spec_.restart != RestartMode::Never;
}

void WorkerLife::buried(const DeathRecord& record) {
    stopping_.cancel();
    if (record.isBad()) {
        log().error(record.sentence());
    } else {
        log().info(record.sentence());
    }
    Actions actions;
    {
        const MutexLock lock(mutex_);
        deaths_.push_front(record);
        if (deaths_.size() > keptDeaths) deaths_.pop_back();
        worker_.reset();
        // A thread that sends by it holds it; the last one to let go must not do so under the mutex.
        actions.emplace_back([link = std::exchange(link_, nullptr)] {});
        culler_.reset();
        stopCause_.clear();
        const bool hasFailedToStart = record.cause == cause::startFailed;
        if (isStopped_ || policy_.hasFailed() || hasFailedToStart) {
            enterLocked(isStopped_ ? Phase::Absent : policy_.hasFailed() ? Phase::Failed : Phase::Dead);
            const Answer answer = isStopped_ ? stopped(whyStopped_) : notStarted(record);
            refuseWaitingLocked(answer, actions);
            answerRestartsLocked(answer, actions);
        } else {
            enterLocked(record.cause == cause::idle ? Phase::Absent : Phase::Dead);
            const bool isWanted = !restarts_.empty() || !waiting_.empty();
            const bool isToReturn = spec_.restart == RestartMode::Always && record.cause != cause::idle;
            if (isWanted || isToReturn) startLocked(actions);
        }
    }
    run(actions);
}

void WorkerLife::beginStopLocked(std::string_view cause, bool force, Actions& actions) {
    if (!worker_) {
        stopCause_ = cause;
        return;
    }
    if (phase_ != Phase::Stopping) enterLocked(Phase::Stopping);
    worker_->expectEnd(cause);
    if (!force) {
        const bool isGivenUp = cause != cause::serverStopped;
        actions.emplace_back([link = link_, isGivenUp] { link->requestStop(stopTime, isGivenUp); });
    }
    const auto limit = force ? std::chrono::milliseconds(0) : stopTime;
    actions.emplace_back([self = shared_from_this(), worker = worker_, cause = std::string(cause), limit] {
        self->endBy(worker, cause, limit);
    });
}

void WorkerLife::endBy(const WorkerPtr& worker, const std::string& cause, std::chrono::milliseconds limit) {
    asio::post(strand_, [self = shared_from_this(), worker, cause, limit] {
        self->stopping_.expires_after(limit);
        self->stopping_.async_wait(
            asio::bind_executor(self->strand_, [self, worker, cause](const auto& error) {
                if (error) return;
                {
                    const MutexLock lock(self->mutex_);
                    if (self->worker_ != worker) return;
                }
                worker->requestTrace();
                self->waitForTrace(worker, cause, Clock::now() + traceTime);
            }));
    });
}

// A kill at once would leave no trace of what kept the process.
void WorkerLife::waitForTrace(const WorkerPtr& worker, const std::string& cause, Clock::time_point until) {
    if (worker->hasTrace() || Clock::now() >= until) return worker->kill(cause);
    stopping_.expires_after(traceInterval);
    stopping_.async_wait(
        asio::bind_executor(strand_, [self = shared_from_this(), worker, cause, until](const auto& error) {
            if (!error) self->waitForTrace(worker, cause, until);
        }));
}

void WorkerLife::stop(std::string_view cause) {
    Actions actions;
    {
        const MutexLock lock(mutex_);
        if (std::exchange(isStopped_, true)) return;
        whyStopped_ = cause;
        refuseWaitingLocked(stopped(cause), actions);
        answerRestartsLocked(stopped(cause), actions);
        if (phase_ == Phase::Starting || phase_ == Phase::Ready || phase_ == Phase::Stopping) {
            beginStopLocked(cause, phase_ == Phase::Starting, actions);
        }
    }
    run(actions);
    const auto until = Clock::now() + lastTime;
    MutexLock lock(mutex_);
    while (phase_ == Phase::Starting || phase_ == Phase::Ready || phase_ == Phase::Stopping) {
        if (changed_.wait_until(lock.native(), until) == std::cv_status::timeout) break;
    }
}

}  // namespace gateway::ports
