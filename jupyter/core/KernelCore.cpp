#include "KernelCore.h"

#include <array>
#include <chrono>
#include <utility>

#include "JsonMembers.h"
#include "connector/wireWords.h"
#include "foundation/log/diagnostic_logger.h"

namespace jupyter {

using Members = Publisher::Members;

namespace {

constexpr auto timeForReply = std::chrono::seconds(1);
constexpr auto timeToStore = std::chrono::seconds(1);

foundation::log::DiagnosticLogger log() { return foundation::log::DiagnosticLogger("jupyter"); }

double secondsNow() {
    const std::chrono::duration<double> now = std::chrono::system_clock::now().time_since_epoch();
    return now.count();
}

}  // namespace

Kernel::Core::Core(Executor& executor, Interpreter& interpreter, Outlet& outlet, KernelOptions options)
    : executor_(executor),
      interpreter_(interpreter),
      options_(std::move(options)),
      publisher_(outlet),
      history_(options_.history),
      inputs_(interpreter, publisher_),
      asides_(interpreter, publisher_),
      info_(executor, interpreter),
      lives_(executor, interpreter, publisher_, options_.isShared,
             {[this] { abortCells(); }, [this] { forgetAll(); },
              [this] {
                  publishState();
                  runNext();
              },
              [this](const auto& line) {
                  if (lastParent_ != "{}") lateOutput().tell(line);
              }}),
      lastActivity_(secondsNow()) {
    executor_.post(lifetime_.guarded([this] { tellStart(); }));
    interpreter_.listen(lifetime_.guarded([this](const InterpreterEvent& event) { takeEvent(event); }),
                        [&outlet] { return outlet.hasRoom(); });
}

Kernel::Core::~Core() { interpreter_.listen({}, {}); }

Kernel::Core::Handler Kernel::Core::handlerOf(const std::string& type) {
    static constexpr std::array<std::pair<std::string_view, Handler>, 8> handlers = {
        {{"execute_request", &Core::takeExecution},
         {"comm_open", &Core::takeComm},
         {"comm_msg", &Core::takeComm},
         {"comm_close", &Core::takeComm},
         {"kernel_info_request", &Core::takeKernelInfo},
         {"history_request", &Core::takeHistory},
         {"interrupt_request", &Core::takeInterrupt},
         {"shutdown_request", &Core::takeShutdown}}};
    for (const auto& [name, handler] : handlers) {
        if (name == type) return handler;
    }
    return AsideRequests::knows(type) ? &Core::takeAside : &Core::takeUnknown;
}

// Not by the constructor, within which the outlet may be one that is being made.
void Kernel::Core::tellStart() {
    if (!std::exchange(isStartTold_, true)) publisher_.status("{}", "starting");
}

const char* Kernel::Core::executionState() const {
    if (lives_.state() != nullptr) return lives_.state();
    return job_ ? "busy" : "idle";
}

void Kernel::Core::receive(Message message) {
    lastActivity_ = secondsNow();
    tellStart();
    RequestPtr request;
    try {
        request = Request::read(std::move(message));
    } catch (const std::exception& error) {
        return log().warning("A message is dropped, whose header is none: " + std::string(error.what()));
    }
    if (request->message.channel != Channel::Stdin) return handle(request);
    if (request->type != "input_reply")
        return log().warning("A message on stdin is dropped: " + request->type);
    inputs_.answer(*request, lifetime_.guarded([this](const std::string& line) { lateOutput().tell(line); }));
}

// What waits for its turn is busy when that has come.
void Kernel::Core::handle(const RequestPtr& request) {
    const Handler handler = handlerOf(request->type);
    const bool isInTurn = handler == &Core::takeExecution || handler == &Core::takeComm;
    if (!isInTurn) publisher_.status(request->message.header, "busy");
    try {
        (this->*handler)(request);
    } catch (const std::exception& error) {
        if (isInTurn) publisher_.status(request->message.header, "busy");
        refuse(*request, error.what());
    }
}

void Kernel::Core::refuse(const Request& request, const std::string& reason) {
    const auto error = ErrorText::of("Refused", reason);
    if (request.type == "execute_request") {
        publisher_.error(request.message.header, error);
        publisher_.replyError(request, error, Members().add("execution_count", count_.last));
    } else if (request.type.ends_with("_request")) {
        publisher_.replyError(request, error);
    } else {
        CellOutput(publisher_, request.message.header).tell(reason);
    }
    finish(request);
}

void Kernel::Core::finish(const Request& request) {
    publisher_.status(request.message.header, "idle");
    publishState();
}

// Front ends take the last status for the kernel's, whatever its parent. "restarting" they take for another
// restart.
void Kernel::Core::publishState() {
    if (job_) return publisher_.status(job_->parent(), "busy");
    if (const char* const state = lives_.state())
        publisher_.status("{}", std::string_view(state) == "dead" ? state : "starting");
}

void Kernel::Core::queue(std::unique_ptr<Job> job) {
    if (!queue_.add(job)) {
        throw dispatch::BadMessage("at most " + std::to_string(ExecutionQueue::most) +
                                   " requests, of 128 MiB together, may wait");
    }
    runNext();
}

void Kernel::Core::runNext() {
    if (job_ || lives_.isRestarting()) return;
    job_ = queue_.next();
    if (!job_) return;
    lastParent_ = job_->parent();
    publishState();
    job_->begin();
    storeHistoryLater();
}

void Kernel::Core::ended(const JobEnd& end) {
    inputs_.forget();
    endedJob_ = std::move(job_);
    publisher_.status(endedJob_->parent(), "idle");
    publishState();
    if (end.abortsCells) {
        abortCells(&endedJob_->request()->session);
        executor_.postAfter(StopOnError::longest,
                            lifetime_.guarded([this, number = stop_.begin(*endedJob_->request(), end.time)] {
                                stop_.end(number);
                            }));
    }
    if (end.endsKernel) endKernel();
    if (!end.death.empty()) lives_.noteDeath(end.death);
    lastActivity_ = secondsNow();
    runNext();
}

// Not while clients wait for what comes next.
void Kernel::Core::storeHistoryLater() {
    if (history_.isStored() || std::exchange(isStoring_, true)) return;
    executor_.postAfter(timeToStore, lifetime_.guarded([this] {
        isStoring_ = false;
        history_.store();
    }));
}

// As a shutdown does, but later: front ends look at the reply only as long as there is a process.
void Kernel::Core::endKernel() {
    isEnding_ = true;
    abortCells();
    executor_.postAfter(timeForReply, lifetime_.guarded([this] {
        if (options_.shutDown) options_.shutDown(false);
    }));
}

void Kernel::Core::abortCells(const std::string* session) {
    const auto cells = queue_.takeCells(session);
    for (const auto& cell : cells) static_cast<Cell&>(*cell).abort();
    if (!cells.empty()) publishState();
}

void Kernel::Core::forgetAll() {
    count_.last = 0;
    history_.beginSession();
}

void Kernel::Core::takeEvent(const InterpreterEvent& event) {
    if (event.channel == connector::wire::channel::interpreter) return lives_.noteState(event.data);
    if (event.channel == connector::wire::channel::dropped) return tellOfLoss(event.data);
    if (job_ && event.request == job_->name()) return job_->take(event);
    const bool isOfNobody = event.request.empty() && event.death.empty();
    if (isOfNobody || CellOutput::concernsAll(event)) lateOutput().take(event);
}

void Kernel::Core::tellOfLoss(std::string_view notice) {
    const JsonMembers loss(notice);
    lateOutput().tell("[" + loss.jsonOr("bytes", "0") + " bytes in " + loss.jsonOr("messages", "0") +
                      " messages of " + loss.text("channel") + " were lost]");
}

void Kernel::Core::welcome() { publisher_.publish("{}", "iopub_welcome", Members().add("subscription", "")); }

}  // namespace jupyter
