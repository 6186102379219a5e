#pragma once

#include <functional>
#include <memory>
#include <string>

#include "AsideRequests.h"
#include "Cell.h"
#include "ExecutionQueue.h"
#include "History.h"
#include "InputRequests.h"
#include "InterpreterLives.h"
#include "KernelInfo.h"
#include "Lifetime.h"
#include "Publisher.h"
#include "StopOnError.h"
#include "jupyter/Kernel.h"

namespace jupyter {

/// What is behind a Kernel: knows which request goes where, and what runs.
///
/// Threads: on the kernel's executor.
class Kernel::Core {
public:
    Core(Executor& executor, Interpreter& interpreter, Outlet& outlet, KernelOptions options);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void receive(Message message);
    void welcome();
    void interrupt(std::function<void()> taken = {});
    void restart(InterpreterLives::Answered answered) { lives_.restart(std::move(answered)); }
    void resume() { interpreter_.resume(); }
    const char* executionState() const;
    double lastActivity() const { return lastActivity_; }

private:
    using Handler = void (Core::*)(const RequestPtr&);
    static Handler handlerOf(const std::string& type);

    void tellStart();
    void handle(const RequestPtr& request);
    void refuse(const Request& request, const std::string& reason);
    /// After the reply to a request that has not waited for its turn.
    void finish(const Request& request);
    void publishState();

    void takeExecution(const RequestPtr& request);
    void takeComm(const RequestPtr& request);
    void takeKernelInfo(const RequestPtr& request);
    void takeHistory(const RequestPtr& request);
    void takeAside(const RequestPtr& request);
    void takeInterrupt(const RequestPtr& request);
    void takeShutdown(const RequestPtr& request);
    void takeUnknown(const RequestPtr& request) { finish(*request); }
    void restartFor(const RequestPtr& request);

    void queue(std::unique_ptr<Job> job);
    void runNext();
    void ended(const JobEnd& end);
    /// All that wait, or those of a session alone: an error concerns no other front end.
    void abortCells(const std::string* session = nullptr);
    void endKernel();
    void storeHistoryLater();
    void forgetAll();

    void takeEvent(const InterpreterEvent& event);
    void tellOfLoss(std::string_view notice);
    /// For what no request is the cause of: as of the last cell.
    CellOutput lateOutput() { return {publisher_, lastParent_}; }

    Executor& executor_;
    Interpreter& interpreter_;
    const KernelOptions options_;
    Publisher publisher_;
    History history_;
    bool isStoring_ = false, isEnding_ = false;
    CellCount count_;
    InputRequests inputs_;
    AsideRequests asides_;
    KernelInfo info_;
    InterpreterLives lives_;
    ExecutionQueue queue_;
    StopOnError stop_;
    std::unique_ptr<Job> job_;       // that runs
    std::unique_ptr<Job> endedJob_;  // the one before, which may be the caller
    std::string lastParent_ = "{}";
    double lastActivity_ = 0;
    bool isStartTold_ = false;
    const Lifetime lifetime_;
};

}  // namespace jupyter
