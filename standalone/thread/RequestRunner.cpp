#define PY_SSIZE_T_CLEAN
#include "thread/RequestRunner.h"

#include <atomic>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>
#include <vector>

#include <Python.h>
#include <pthread.h>

#include "cmddistributor/IIPResult.h"
#include "connector/common/ContextState.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "iqm/plugins.h"
#include "python/PythonRuntime.h"
#include "python/SuspendedEventLoop.h"
#include "python/capability.h"
#include "thread/Interrupts.h"
#include "thread/PromptScope.h"

namespace standalone {

namespace {

using cmddistributor::IIPResult;
using cmddistributor::RuntimeException;

// There is one workspace; what it is, the code runner knows.
class MainWorkspace : public iqm::Workspace {};

// Set in the child by every fork: to ask for the process's id would be a system call for every request.
std::atomic<bool> isForkedChild{false};

void watchForks() {
    static const int error = pthread_atfork(nullptr, nullptr, [] { isForkedChild = true; });
    if (error != 0) throw std::system_error(error, std::generic_category(), "pthread_atfork");
    isForkedChild = false;
}

RuntimeException internalError(const std::exception& error) {
    foundation::log::DiagnosticLogger("standalone::interpreter")
        .error("A request failed: " + std::string(error.what()));
    const std::u16string what = fl::i18n::to_ustring(error.what());
    return {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:internal", what, what + u"\n"};
}

}  // namespace

RequestRunner::RequestRunner(RequestQueue& queue, PromptReader& prompts, RunningRequests& running,
                             CommandWindow& window, const Announcements& announcements, PlacedEvents& events,
                             PythonRuntime& python, HostObserver* observer)
    : queue_(queue),
      prompts_(prompts),
      running_(running),
      window_(window),
      announcements_(announcements),
      events_(events),
      python_(python),
      observer_(observer),
      codeRunner_(python.runtimeModule(), [this] { queue_.openCode(); }),
      caller_(python.runtimeModule()) {
    watchForks();
}

void RequestRunner::run(std::unique_ptr<QueuedRequest> queued) {
    const std::uint64_t contextHandle = queued->options.contextHandle();
    const auto context = connector::zvm_common::findContextState(contextHandle);
    running_.push({queued->id, *queued->request, queued->options, context});
    Result result;
    try {
        tellObserver();
        const connector::common::CurrentContext current(context, contextHandle);
        result = runRequest(*queued);
    } catch (const RuntimeException& error) {
        result = std::make_unique<IIPResult>(queued->id, error);
    } catch (const std::exception& error) {
        result = std::make_unique<IIPResult>(queued->id, internalError(error));
    }
    running_.pop();
    tellObserver();
    queue_.finish(*queued, *result);
}

void RequestRunner::tellObserver() const {
    if (observer_ == nullptr) return;
    const RunningRequest* const request = running_.innermost();
    if (request == nullptr) return observer_->runs(nullptr);
    constexpr std::size_t most = 4096;
    const auto& iip = request->request.getIIP();
    if (dynamic_cast<const cmddistributor::PackagedTaskIIP*>(iip.get()) != nullptr) return;
    const auto* const evaluation = dynamic_cast<const cmddistributor::EvalIIP*>(iip.get());
    const auto* const call = dynamic_cast<const cmddistributor::FEvalIIP*>(iip.get());
    const std::u16string code = evaluation != nullptr ? evaluation->code().substr(0, most)
                                : call != nullptr     ? FunctionCaller::textOf(*call, most)
                                                      : iip->toCustomerFriendlyString();
    const RunningCode running{request->context.get(), code, request->since};
    observer_->runs(&running);
}

RequestRunner::Result RequestRunner::runRequest(QueuedRequest& queued) {
    const std::shared_ptr<cmddistributor::IIP>& iip = queued.request->getIIP();
    if (const auto* task = dynamic_cast<const cmddistributor::PackagedTaskIIP*>(iip.get())) {
        prompts_.typeWhole([task] { task->run(); });
        return std::make_unique<IIPResult>(queued.id, boost::none);
    }
    if (const auto* call = dynamic_cast<const cmddistributor::FEvalIIP*>(iip.get()))
        return runFunctionCall(queued, *call);
    return runPlugin(queued, iip);
}

RequestRunner::Result RequestRunner::runFunctionCall(QueuedRequest& queued,
                                                     const cmddistributor::FEvalIIP& iip) {
    prepareCode();
    PromptScope prompt(prompts_);
    std::vector<matrix::ArrayPtr> outputs;
    boost::optional<RuntimeException> failure;
    interruptibly(Opens::AtOnce, [&] {
        prompt.announce();
        try {
            outputs = caller_.call(iip);
        } catch (const RuntimeException& error) {
            failure = error;
        }
    });
    if (isForkedChild) codeRunner_.exitForkedChild();
    if (depth_ == 0) cleanUp();
    if (!running_.isBetweenSteps()) window_.drain(true);
    return std::make_unique<cmddistributor::FEvalResult>(queued.id, std::move(failure), std::move(outputs));
}

RequestRunner::Result RequestRunner::runPlugin(QueuedRequest& queued,
                                               const std::shared_ptr<cmddistributor::IIP>& iip) {
    const auto plugin = iqm::PacketInfo::createPlugin({queued.id, iip}, {});
    if (!plugin) throw std::logic_error("No plug-in runs requests named '" + iip->pluginName() + "'.");
    MainWorkspace workspace;
    boost::optional<RuntimeException> failure;
    plugin->pre();
    try {
        plugin->execute(workspace);
    } catch (const RuntimeException& error) {
        failure = error;
        plugin->processMFileError();
    } catch (const std::exception& error) {
        // Short of memory, most likely; the level that `pre` opened is closed all the same.
        failure = internalError(error);
        window_.showError(*failure, queue_.isStopped());
    }
    try {
        plugin->post();
    } catch (const std::exception& error) {
        logLateResult(error);
    }
    return plugin->createResult(std::move(failure));
}

void RequestRunner::runBetweenSteps() {
    if (running_.isBetweenSteps()) return;
    struct BetweenSteps {
        explicit BetweenSteps(RunningRequests& requests) : running(requests) {
            running.setBetweenSteps(true);
            PyThreadState_EnterTracing(state);
        }
        ~BetweenSteps() {
            PyThreadState_LeaveTracing(state);
            running.setBetweenSteps(false);
        }
        RunningRequests& running;
        PyThreadState* const state = PyThreadState_Get();
        const SuspendedEventLoop loop;
    };
    const BetweenSteps scope(running_);
    while (auto request = queue_.tryTake(nmutil::prompt::NO_PROMPT)) run(std::move(request));
}

void RequestRunner::runTypeAhead() {
    const std::u16string code = prompts_.takeTypeAhead();
    if (code.empty()) return;
    try {
        evaluate(code);
    } catch (const RuntimeException&) {
        // It has been shown; there is no request to tell.
    }
}

void RequestRunner::evaluate(const std::u16string& code) {
    prepareCode();
    PromptScope prompt(prompts_);
    EvaluationEvents evaluation(events_, running_.innermost(), codeRunner_.nextNumber(), code, evaluation_);
    CodeRunner::Result result = CodeRunner::Result::Failed;
    const CodeRunner::Kind kind = kindOfCode();
    interruptibly(Opens::WhenItRuns, [&] {
        prompt.announce();
        result = codeRunner_.execute(code, kind);
    });
    if (isForkedChild) codeRunner_.exitForkedChild();  // or it would go on as a second interpreter

    // Describing an error runs code of the user's, which may have to be interrupted, too.
    boost::optional<CodeError> error;
    if (result == CodeRunner::Result::Failed) {
        interruptibly(Opens::AtOnce, [&] { error = codeRunner_.takeError(); });
    }
    if (depth_ == 0) cleanUp();
    window_.drain(true);
    if (depth_ == 0 && announcements_.hasSubscribers(u"workspace")) python_.announceWorkspace();

    const bool isIncomplete = result == CodeRunner::Result::Incomplete;
    setStatus(error, isIncomplete);
    if (error) {
        // A notebook shows what the event says.
        const bool isText = kind != CodeRunner::Kind::Cell || !events_.hasSubscribers(u"error");
        if (isText) window_.showFailure(*error, queue_.isStopped());
        evaluation.fail(*error, !isText);
    }
    if (kind == CodeRunner::Kind::Cell) {
        interruptibly(Opens::AtOnce, [&] { codeRunner_.endCell(error.has_value()); });
        window_.drain(true);
    }
    evaluation.end(error.has_value());
    prompt.restore(isIncomplete);
    if (error) throw RuntimeException(error->exception);
}

InterpreterState RequestRunner::state() const {
    InterpreterState state{.prompt = prompts_.question()};
    const bool isInCall = evaluation_ == nullptr && depth_ > 1;  // the innermost piece asks
    if (evaluation_ == nullptr && !isInCall) return state;
    if (state.prompt.number == 0) state.prompt.requester = nmutil::prompt::NO_PROMPT;
    state.evaluation = isInCall ? 0 : evaluation_->number();
    state.since = isInCall ? running_.outermost()->since : evaluation_->since();
    return state;
}

// What the code that begins is to see and to report: the window's size, and no status of code before it.
void RequestRunner::prepareCode() {
    if (depth_ == 0) {
        window_.forgetTyping();
        status_.block = 0;
        status_.execution = nmutil::cmddistributor::EXECUTION_OK;
    }
    const WindowSize size = window_.size();
    if (size == shownSize_) return;
    python_.setWindow(size.columns, size.rows);
    shownSize_ = size;
}

void RequestRunner::setStatus(const boost::optional<CodeError>& error, bool isIncomplete) {
    status_.block = isIncomplete ? 1 : 0;
    status_.execution = error ? error->exception.getExecutionStatus() : nmutil::cmddistributor::EXECUTION_OK;
    status_.builtin = error ? error->builtin : boost::none;
    status_.isInCompiledExtension = error && error->isInCompiledExtension;
}

CodeRunner::Kind RequestRunner::kindOfCode() const {
    const RunningRequest* running = running_.innermost();
    const auto* const request =
        running != nullptr ? dynamic_cast<const cmddistributor::EvalCmdRequest*>(&running->request) : nullptr;
    if (request == nullptr) return CodeRunner::Kind::Plain;
    if (request->isInternal()) return CodeRunner::Kind::Internal;
    return hasCapability(&running->options, "notebook") ? CodeRunner::Kind::Cell : CodeRunner::Kind::Plain;
}

// Runs what may run user code as code of its own, so that interrupts can be meant for it. Code that is not
// open at once would lose them in what is done before it runs.
void RequestRunner::interruptibly(Opens opens, const std::function<void()>& action) {
    const RunningRequest* running = running_.innermost();
    queue_.beginCode(running != nullptr ? running->id : RequestQueue::IDType{});
    const bool isOuterSignalled = Interrupts::begin(depth_++ > 0);
    if (opens == Opens::AtOnce) queue_.openCode();
    const auto end = [&] {
        queue_.closeCode();  // what it did not take is dropped with the signals that came for it
        Interrupts::end();   // which may run requests inside
        --depth_;
        queue_.endCode();
        if (isOuterSignalled) PyErr_SetInterruptEx(SIGINT);
    };
    try {
        action();
    } catch (...) {
        end();
        throw;
    }
    end();
}

bool RequestRunner::checkInterrupts() {
    if (Interrupts::takeOutside()) queue_.interrupt();
    if (!queue_.takeInterrupt()) return Interrupts::check();
    window_.notifyInterrupted();
    return Interrupts::deliver();
}

void RequestRunner::cleanUp() {
    python_.endDebugging();
    if (!Interrupts::areReplaced()) return;
    python_.restoreInterrupts();
    Interrupts::install();
}

}  // namespace standalone
