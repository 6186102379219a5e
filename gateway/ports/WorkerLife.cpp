#include "ports/WorkerLife.h"

#include <exception>
#include <utility>

#include <boost/asio/bind_executor.hpp>
#include <boost/asio/post.hpp>

#include "connector/common/DataBuffer.h"
#include "connector/json/ObjectBuilder.h"
#include "connector/wireWords.h"
#include "foundation/log/diagnostic_logger.h"
#include "ports/lifeAnswers.h"

namespace gateway::ports {

namespace asio = boost::asio;
namespace cause = supervisor::cause;
using connector::MutexLock;
using dispatch::Answer;
using dispatch::errorAnswer;
using supervisor::DeathRecord;

namespace {

constexpr std::size_t mostBytes = std::size_t{128} << 20;  // of the bodies of requests
constexpr std::size_t mostInterruptBytes = std::size_t{64} << 10;
constexpr auto startTime = std::chrono::seconds(30);
constexpr auto tickInterval = std::chrono::seconds(1);

foundation::log::DiagnosticLogger log() { return foundation::log::DiagnosticLogger("gateway::interpreters"); }

}  // namespace

WorkerLife::WorkerLife(asio::io_context& context, messages::LocalMessageService& messages,
                       supervisor::Supervisor& supervisor, InterpreterSpec spec)
    : context_(context),
      messages_(messages),
      supervisor_(supervisor),
      spec_(std::move(spec)),
      strand_(asio::make_strand(context)),
      tick_(context),
      stopping_(context) {}

std::string_view WorkerLife::nameOf(Phase phase) {
    switch (phase) {
        case Phase::Absent:
            return "absent";
        case Phase::Starting:
            return "starting";
        case Phase::Ready:
            return "ready";
        case Phase::Stopping:
            return "stopping";
        case Phase::Dead:
            return "dead";
        case Phase::Failed:
            break;
    }
    return "failed";
}

// Told on the strand, so that what is told keeps the order of the changes.
void WorkerLife::enterLocked(Phase phase) {
    phase_ = phase;
    since_ = std::chrono::system_clock::now();
    connector::json::ObjectBuilder told;
    told.add("id", spec_.worker.id).add("life", number_).add("state", nameOf(phase));
    const bool isOver = phase == Phase::Dead || phase == Phase::Failed || phase == Phase::Absent;
    told.addJson("death", isOver && !deaths_.empty() ? deaths_.front().json() : "null");
    asio::post(strand_, [self = shared_from_this(), text = told.take()] {
        self->messages_.publish(connector::wire::channel::interpreter, connector::common::DataBuffer(text));
    });
    changed_.notify_all();
}

void WorkerLife::run(const Actions& actions) {
    for (const auto& action : actions) action();
}

void WorkerLife::submit(Work work) {
    Actions actions;
    std::optional<Answer> refusal;
    LinkPtr link;
    {
        const MutexLock lock(mutex_);
        if (phase_ == Phase::Ready) {
            refusal = refusalLocked(work);
            link = link_;
            if (!refusal && culler_) culler_->noteBegin();
        } else {
            refusal = queueLocked(work, actions);
        }
    }
    if (!refusal && link && !link->send(work)) {  // it has died just now
        const MutexLock lock(mutex_);
        refusal = queueLocked(work, actions);
    }
    run(actions);
    if (refusal) work.answer(std::move(*refusal));
}

bool WorkerLife::isOfOtherLifeLocked(const Work& work) const {
    const bool isAlive = phase_ == Phase::Starting || phase_ == Phase::Ready;
    return work.context->has(InterpreterPort::wantedLife) &&
           (!isAlive || work.context->getOr<std::uint64_t>(InterpreterPort::wantedLife, number_) != number_);
}

std::optional<Answer> WorkerLife::refusalLocked(const Work& work) {
    if (isStopped_) return stopped(whyStopped_);
    if (isOfOtherLifeLocked(work)) return ofOtherLife();
    // Interrupts get through when requests have used up their room, which is why they have some of their own.
    const bool isInterrupt = work.isInterrupt();
    if (isInterrupt && work.json->size() > mostInterruptBytes) {
        return errorAnswer(413, "An interrupt must have at most 64 KiB.");
    }
    const std::size_t count = waiting_.size() + (link_ ? link_->inFlight() : 0);
    const std::size_t bytes = waitingBytes_ + (link_ ? link_->bytesInFlight() : 0);
    if (count >= (isInterrupt ? 2 : 1) * spec_.requests) return tooMany();
    if (!isInterrupt && bytes + work.json->size() > mostBytes) return tooMany();
    return std::nullopt;
}

std::optional<Answer> WorkerLife::queueLocked(Work& work, Actions& actions) {
    if (auto refusal = refusalLocked(work)) return refusal;
    const bool isNeverStarted = spec_.restart == RestartMode::Never && phase_ == Phase::Dead;
    if (phase_ == Phase::Failed || isNeverStarted) {
        return notStarted(deaths_.front());
    }
    waitingBytes_ += work.json->size();
    waiting_.push_back({std::move(work), Clock::now() + startTime});
    if (phase_ == Phase::Absent || phase_ == Phase::Dead) startLocked(actions);
    return std::nullopt;
}

void WorkerLife::startLocked(Actions& actions) {
    ++number_;
    enterLocked(Phase::Starting);
    actions.emplace_back([self = shared_from_this(), number = number_] { self->spawn(number); });
}

void WorkerLife::spawn(std::uint64_t number) {
    armTick();
    auto worker = spec_.worker;
    worker.life = number;
    supervisor_.spawn(
        std::move(worker),
        [self = shared_from_this(), number](const WorkerPtr& process, const std::string& problem) {
            self->spawned(number, process, problem);
        },
        [self = shared_from_this()](DeathRecord record) { self->ended(std::move(record)); });
}

// On the supervisor's thread.
void WorkerLife::spawned(std::uint64_t number, const WorkerPtr& worker, const std::string& problem) {
    if (!worker) {
        DeathRecord record;
        record.interpreter = spec_.worker.id;
        record.life = number;
        record.cause = cause::startFailed;
        record.detail = problem;
        record.started = record.ended = std::chrono::system_clock::now();
        judge(record);
        return asio::post(strand_, [self = shared_from_this(), record] { self->buried(record); });
    }
    if (number == 1 && spec_.worker.cpus > 0 && worker->limitsEnforcedBy() != "cgroup") {
        log().warning(
            "The interpreter \"" + spec_.worker.id +
            "\" may use more processors than cpus says: the server has no cgroup to limit them by.");
    }
    LinkPtr link;
    try {
        links::Start start;
        start.id = spec_.worker.id;
        start.life = number;
        start.folder = spec_.worker.folder.string();
        start.venv = spec_.worker.venv.string();
        start.logLevel = static_cast<std::uint64_t>(foundation::log::level());
        start.configuration = spec_.configuration;
        const auto weak = weak_from_this();
        const auto toSelf = [weak](auto action) {
            return [weak, action](const auto&... arguments) {
                if (const auto self = weak.lock()) action(*self, arguments...);
            };
        };
        link = std::make_shared<WorkerLink>(
            context_, messages_, worker->mainSocket(), worker->controlSocket(), std::move(start),
            WorkerLink::Events{
                .ready = toSelf([number](WorkerLife& self) { self.noteReady(number); }),
                .broken = toSelf([number](WorkerLife& self, const std::string& reason) {
                    self.noteBroken(number, reason);
                }),
                .counted = toSelf([](WorkerLife& self, const std::string& type, const std::string& outcome) {
                    self.count(type, outcome);
                }),
                .streamStarted = toSelf([](WorkerLife& self, const std::string& clientType) {
                    if (!clientType.empty()) self.streaming_.requestStarted(clientType, nullptr);
                }),
                .streamEnded = toSelf([](WorkerLife& self, const std::string& clientType) {
                    if (!clientType.empty()) self.streaming_.requestEnded(clientType, nullptr);
                    const MutexLock lock(self.mutex_);
                    if (self.culler_) self.culler_->noteEnd();
                })});
    } catch (const std::exception& error) {
        log().error(error.what());
        return worker->kill(cause::startFailed);
    }
    std::string stopCause;
    {
        const MutexLock lock(mutex_);
        worker_ = worker;
        link_ = link;
        stopCause = std::exchange(stopCause_, {});
    }
    link->start();
    if (!stopCause.empty()) worker->kill(stopCause);
}

void WorkerLife::noteReady(std::uint64_t number) {
    {
        const MutexLock lock(mutex_);
        if (phase_ != Phase::Starting || number != number_ || !worker_) return;
        worker_->noteReady();
        culler_.emplace(spec_.culling);
    }
    flushWaiting();
}

// What comes meanwhile is queued behind, until nothing is left.
void WorkerLife::flushWaiting() {
    for (;;) {
        Actions actions;
        Work work;
        LinkPtr link;
        bool isOfOther = false;
        {
            const MutexLock lock(mutex_);
            if (phase_ != Phase::Starting || !link_) return;
            if (waiting_.empty()) {
                enterLocked(Phase::Ready);
                actions.emplace_back([text = "The interpreter \"" + spec_.worker.id + "\" runs: life " +
                                             std::to_string(number_) + ", process " +
                                             std::to_string(worker_->pid()) + "."] { log().info(text); });
                answerRestartsLocked(Answer{}, actions);
            } else {
                work = std::move(waiting_.front().work);
                waitingBytes_ -= work.json->size();
                waiting_.pop_front();
                link = link_;
                isOfOther = isOfOtherLifeLocked(work);
                if (!isOfOther) culler_->noteBegin();
            }
        }
        if (!link) return run(actions);
        if (isOfOther) {
            work.answer(ofOtherLife());
            continue;
        }
        if (!link->send(work)) return work.refuse(503, "The interpreter has died.");
    }
}

void WorkerLife::refuseWaitingLocked(const Answer& answer, Actions& actions) {
    for (auto& waiting : std::exchange(waiting_, {})) {
        actions.emplace_back(
            [work = std::make_shared<Work>(std::move(waiting.work)), answer] { work->answer(answer); });
    }
    waitingBytes_ = 0;
}

void WorkerLife::answerRestartsLocked(const Answer& answer, Actions& actions) {
    for (auto& answered : std::exchange(restarts_, {})) {
        actions.emplace_back([answered = std::move(answered), answer] { answered(answer); });
    }
}

void WorkerLife::start(Answered answered) {
    Actions actions;
    {
        const MutexLock lock(mutex_);
        const bool isOver = phase_ == Phase::Absent || phase_ == Phase::Dead;
        if (isStopped_) {
            actions.emplace_back([answered, answer = stopped(whyStopped_)] { answered(answer); });
        } else if (phase_ == Phase::Ready) {
            actions.emplace_back([answered] { answered({}); });
        } else if (phase_ == Phase::Failed) {
            actions.emplace_back([answered, answer = notStarted(deaths_.front())] { answered(answer); });
        } else {
            restarts_.push_back(std::move(answered));
            if (isOver) startLocked(actions);
        }
    }
    run(actions);
}

void WorkerLife::restart(bool force, std::optional<std::uint64_t> life, Answered answered) {
    Actions actions;
    std::optional<Answer> refusal;
    {
        const MutexLock lock(mutex_);
        if (isStopped_) {
            refusal = stopped(whyStopped_);
        } else if (life && *life != number_) {
            refusal = errorAnswer(409, "The interpreter is in life " + std::to_string(number_) +
                                           ", not in life " + std::to_string(*life) + ".");
        } else {
            policy_.reset();
            restarts_.push_back(answered);
            if (phase_ == Phase::Absent || phase_ == Phase::Dead || phase_ == Phase::Failed) {
                startLocked(actions);
            } else if (phase_ == Phase::Ready || force) {
                beginStopLocked(cause::killedByAClient, force, actions);
            }  // else it starts, or ends, already
        }
    }
    run(actions);
    if (refusal) answered(std::move(*refusal));
}

bool WorkerLife::isReady() const {
    const MutexLock lock(mutex_);
    if (phase_ == Phase::Ready) return link_ && link_->state().health != "silent";
    return (phase_ == Phase::Absent || phase_ == Phase::Dead) && spec_.restart != RestartMode::Never &&
           !isStopped_;
}

std::uint64_t WorkerLife::number() const {
    const MutexLock lock(mutex_);
    return number_;
}

std::vector<DeathRecord> WorkerLife::deaths() const {
    const MutexLock lock(mutex_);
    return {deaths_.begin(), deaths_.end()};
}

InterpreterState WorkerLife::state() const {
    WorkerPtr worker;
    LinkPtr link;
    InterpreterState state;
    {
        const MutexLock lock(mutex_);
        worker = worker_;
        link = link_;
        state.state = nameOf(phase_);
        state.life = number_;
        state.since = since_;
        if (!deaths_.empty()) state.lastDeath = deaths_.front();
    }
    state.memoryMiB = spec_.worker.memoryMiB;
    state.cpus = spec_.worker.cpus;
    if (worker) {
        state.memoryBytes = worker->memoryBytes();
        state.processorMs = worker->processorMs();
        state.enforcedBy = worker->limitsEnforcedBy();
    }
    if (!link) return state;
    const auto now = link->state();
    state.activity = now.activity == "idle" && link->inFlight() > 0 ? "busy" : now.activity;
    state.health = now.health;
    if (!now.request.empty()) {
        const auto space = now.request.find(' ');
        state.request = {.type = now.request.substr(0, space),
                         .uuid = space == std::string::npos ? "" : now.request.substr(space + 1),
                         .ms = now.runningMs};
    }
    return state;
}

PortMetrics WorkerLife::metrics() const {
    PortMetrics metrics;
    metrics.streaming = streaming_.counts();
    const MutexLock lock(mutex_);
    metrics.requests.queued = waiting_.size();
    metrics.requests.running = link_ ? link_->inFlight() : 0;
    metrics.requests.outcomes = outcomes_;
    return metrics;
}

void WorkerLife::count(const std::string& typeName, const std::string& outcome) {
    const MutexLock lock(mutex_);
    if (!outcome.empty()) ++outcomes_[{typeName, outcome}];
    if (culler_) culler_->noteEnd();
}

void WorkerLife::setWatchers(std::function<std::size_t()> watchers) {
    const MutexLock lock(mutex_);
    watchers_ = std::move(watchers);
}

void WorkerLife::armTick() {
    {
        const MutexLock lock(mutex_);
        if (std::exchange(isTicking_, true)) return;
    }
    asio::post(strand_, [self = shared_from_this()] {
        self->tick_.expires_after(tickInterval);
        self->tick_.async_wait(
            asio::bind_executor(self->strand_, [weak = std::weak_ptr(self)](const auto& error) {
                const auto life = weak.lock();
                if (!error && life) life->tick();
            }));
    });
}

// Once a second while there is a process: who has waited too long for it, and whether it is idle.
void WorkerLife::tick() {
    Actions actions;
    bool goesOn = false;
    std::function<std::size_t()> watchers;
    {
        const MutexLock lock(mutex_);
        watchers = watchers_;
    }
    const std::size_t watching = watchers ? watchers() : 0;
    {
        const MutexLock lock(mutex_);
        isTicking_ = false;
        if (culler_) culler_->noteWatchers(watching);
        while (!waiting_.empty() && waiting_.front().until <= Clock::now()) {
            const auto work = std::make_shared<Work>(std::move(waiting_.front().work));
            waitingBytes_ -= work->json->size();
            waiting_.pop_front();
            actions.emplace_back([work] { work->refuse(503, "The interpreter does not start.", 1); });
        }
        watchIdleLocked(actions);
        const bool isLate =
            phase_ == Phase::Starting && std::chrono::system_clock::now() - since_ > startTime;
        if (isLate && worker_) {
            actions.emplace_back([worker = worker_] { worker->kill(cause::startFailed); });
        }
        goesOn = !isStopped_ && phase_ != Phase::Absent && phase_ != Phase::Dead && phase_ != Phase::Failed;
    }
    run(actions);
    if (goesOn) armTick();
}

void WorkerLife::watchIdleLocked(Actions& actions) {
    if (!culler_ || phase_ != Phase::Ready) return;
    switch (culler_->look()) {
        case supervisor::Culler::Step::Nothing:
            return;
        case supervisor::Culler::Step::Announce:
            return asio::post(strand_, [self = shared_from_this(), number = number_] {
                connector::json::ObjectBuilder told;
                told.add("id", self->spec_.worker.id).add("life", number).add("state", "ready");
                told.addJson("death", "null").add("endsInSeconds", 60);
                self->messages_.publish(connector::wire::channel::interpreter,
                                        connector::common::DataBuffer(told.take()));
            });
        case supervisor::Culler::Step::End:
            return beginStopLocked(cause::idle, false, actions);
    }
}

}  // namespace gateway::ports
