#include <chrono>
#include <utility>

#include "CommRequest.h"
#include "KernelCore.h"
#include "connector/wireWords.h"
#include "foundation/log/diagnostic_logger.h"

// What a kernel does with each type of request.

namespace jupyter {

using Kind = dispatch::Member::Kind;
using Members = Publisher::Members;

namespace {

constexpr auto deafTime = std::chrono::milliseconds(500);
constexpr int cannotRestart = 501;
constexpr dispatch::Member shutdownMembers[] = {{"restart", Kind::Boolean}};

}  // namespace

void Kernel::Core::takeExecution(const RequestPtr& request) {
    const Cell::Parts parts{interpreter_, publisher_, inputs_, history_, count_, options_.isShared};
    auto cell = std::make_unique<Cell>(parts, request, [this](const JobEnd& end) { ended(end); });
    if (!isEnding_ && !stop_.covers(*request)) return queue(std::move(cell));
    cell->abort();
    publishState();
}

void Kernel::Core::takeComm(const RequestPtr& request) {
    queue(std::make_unique<CommRequest>(interpreter_, publisher_, request,
                                        [this](const JobEnd& end) { ended(end); }));
}

void Kernel::Core::takeKernelInfo(const RequestPtr& request) {
    info_.ask(lifetime_.guarded([this, request](const Members& content) {
        publisher_.reply(*request, content);
        finish(*request);
    }));
}

void Kernel::Core::takeHistory(const RequestPtr& request) {
    const std::string history = history_.answer(*request);
    publisher_.reply(*request, Members().add("status", "ok").addJson("history", history));
    finish(*request);
}

void Kernel::Core::takeAside(const RequestPtr& request) {
    asides_.answer(request, [this, request] { finish(*request); });
}

// Not before it was taken: it must not end what is sent after the reply.
void Kernel::Core::takeInterrupt(const RequestPtr& request) {
    interrupt(lifetime_.guarded([this, request] {
        publisher_.reply(*request, Members().add("status", "ok"));
        finish(*request);
    }));
}

void Kernel::Core::interrupt(std::function<void()> taken) {
    interpreter_.call(
        connector::wire::type::interrupt, "{}",
        [taken = std::move(taken)](int status, const std::string& reason) {
            if (status != 200)
                foundation::log::DiagnosticLogger("jupyter").warning("An interrupt was not taken: " + reason);
            if (taken) taken();
        });
    if (!job_) return;
    job_->noteInterrupt();
    executor_.postAfter(deafTime, lifetime_.guarded([this, name = job_->name()] {
        if (job_ && job_->name() == name) job_->output().tell("The interrupted code is still running.");
    }));
}

void Kernel::Core::takeShutdown(const RequestPtr& request) {
    const bool isRestart = memberOr(*request->content(shutdownMembers), "restart", false);
    if (isRestart) return restartFor(request);
    if (!options_.isShared) abortCells();
    publisher_.reply(*request, Members().add("status", "ok").add("restart", false));
    finish(*request);
    if (!options_.isShared && options_.shutDown) options_.shutDown(false);
}

void Kernel::Core::restartFor(const RequestPtr& request) {
    lives_.restart([this, request](int status, const std::string& reason) {
        const bool isForOwner = status == cannotRestart && !options_.isShared;
        if (status == 200 || isForOwner) {
            publisher_.reply(*request, Members().add("status", "ok").add("restart", true));
        } else {
            publisher_.replyError(*request, ErrorText::of("Refused", reason));
        }
        finish(*request);
        if (isForOwner && options_.shutDown) options_.shutDown(true);
    });
}

}  // namespace jupyter
