#define PY_SSIZE_T_CLEAN
#include "thread/Interpreter.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <utility>

#include <Python.h>
#include <unistd.h>

#include "cmddistributor/FEvalResult.h"
#include "connector/zvm_common/contextState.h"
#include "fl/i18n/text.h"
#include "foundation/log/diagnostic_logger.h"
#include "iqm/PacketInfo.h"
#include "nmutil/io/CLCEvent.h"
#include "nmutil/io/HomeEvent.h"
#include "nmutil/io/PrintableErrorEvent.h"
#include "nmutil/io/SinkTextEvent.h"
#include "nmutil/prompt/promptName.h"
#include "nmutil/utils/InputRequestEvent.h"
#include "nmutil/utils/IqmInputRequestEvent.h"
#include "numora/lang/correction/SuggestionEvent.h"
#include "output/NativeCapture.h"
#include "output/TerminalWindow.h"
#include "python/CodeRunner.h"
#include "python/FunctionCaller.h"
#include "python/PythonRuntime.h"
#include "services/io/CmdWinSink.h"
#include "services/processFramework.h"
#include "shutdown/ShutdownObject.h"

namespace standalone {

namespace {

using cmddistributor::IIPResult;
using cmddistributor::RuntimeException;
using services::io::CmdWinSinkHandle;

constexpr auto interruptInterval = std::chrono::milliseconds(200);
constexpr int interruptsAtStop = 25;
constexpr auto promptPatience = std::chrono::milliseconds(500);

const foundation::log::DiagnosticLogger& logger() {
    static const foundation::log::DiagnosticLogger instance("standalone::interpreter");
    return instance;
}

// There is one workspace; what it is, the code runner knows.
class MainWorkspace : public iqm::Workspace {};

RuntimeException internalError(const std::exception& error) {
    logger().error("A request failed: " + std::string(error.what()));
    const std::u16string what = fl::i18n::to_ustring(error.what());
    return {nmutil::cmddistributor::EXECUTION_ERROR, "NUMORA:internal", what, what + u"\n"};
}

// Whoever waited for it has given up and was answered otherwise.
void logLateResult(const std::exception& error) {
    logger().warning("The late result of an evaluation was dropped: " + std::string(error.what()));
}

// Shows that code is running, and what was shown before when it ends, in whatever way.
class PromptScope {
public:
    explicit PromptScope(PromptReader& prompts)
        : prompts_(prompts), outer_(prompts.show(nmutil::prompt::NO_PROMPT)) {
        if (outer_ == nmutil::prompt::INCOMPLETE_BLOCK_PROMPT) outer_ = nmutil::prompt::BASE_PROMPT;
    }
    // Where code waits at a prompt, it goes on doing so for all that listeners know, whatever runs meanwhile;
    // where that asked for input itself, the code announces its prompt anew.
    void announce() {
        if (isBaseLevel()) prompts_.announce(nmutil::prompt::NO_PROMPT, true);
    }
    ~PromptScope() {
        if (!isRestored_) restore(false);
    }
    PromptScope(const PromptScope&) = delete;
    PromptScope& operator=(const PromptScope&) = delete;

    void restore(bool isIncomplete) {
        isRestored_ = true;
        prompts_.show(isIncomplete ? nmutil::prompt::INCOMPLETE_BLOCK_PROMPT : outer_);
        if (isBaseLevel()) prompts_.announce(prompts_.current(), true);
    }

private:
    bool isBaseLevel() const { return outer_ == nmutil::prompt::BASE_PROMPT; }

    PromptReader& prompts_;
    nmutil::prompt::InputRequester outer_;
    bool isRestored_ = false;
};

void withInterpreterLock(const std::function<void()>& action) {
    struct Lock {
        ~Lock() { PyGILState_Release(state); }
        const PyGILState_STATE state = PyGILState_Ensure();
    };
    const Lock lock;
    action();
}

void withoutInterpreterLock(const std::function<void()>& action) {
    struct Release {
        ~Release() noexcept(false) { PyEval_RestoreThread(state); }  // ends other threads at Python's end
        PyThreadState* const state = PyEval_SaveThread();
    };
    const Release release;
    action();
}

// This thread delivers output of native code, whose order the lock keeps.
thread_local bool keepsLock = false;

struct KeptLock {
    KeptLock() { keepsLock = true; }
    ~KeptLock() { keepsLock = false; }
    KeptLock(const KeptLock&) = delete;
    KeptLock& operator=(const KeptLock&) = delete;
};

// Raises an event, and goes on when it has been dealt with: what follows must not overtake it. Its listeners
// may need the interpreter's lock. The manager is shared because Python's own threads come back here even
// when the interpreter has ended meanwhile.
// NOLINTBEGIN(performance-unnecessary-value-param)
template <class Event>
void raiseUnlocked(std::shared_ptr<LocalEventManager> events, Event&& event) {
    events->raise(std::forward<Event>(event), withoutInterpreterLock);
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace

/// The interpreter as requests see it. It may outlive the interpreter, and is unavailable then.
class Interpreter::LocalZvm : public zvm::ZVM, public zvm::Session {
public:
    explicit LocalZvm(std::shared_ptr<RequestQueue> queue) : queue_(std::move(queue)) {}

    zvm::ZvmID id() const override { return 0; }
    bool isAvailable() const override { return !queue_->isStopped(); }
    bool isActive() const override { return isAvailable(); }
    void interrupt() override {
        queue_->interrupt();
        if (!Interrupts::isSignalThread()) queue_->awaitInterrupted(promptPatience);
    }
    void interrupt(const foundation::msg_svc::exchange::IDType& request) override {
        queue_->cancel(request, true);
    }
    std::shared_ptr<cmddistributor::CmdDistributor> getCmdDistributor() override { return queue_; }

private:
    const std::shared_ptr<RequestQueue> queue_;
};

Interpreter::Interpreter(const HostOptions& options)
    : options_(options),
      processId_(getpid()),
      telemetry_(options.telemetryFile),
      queue_(std::make_shared<RequestQueue>(RequestQueue::Signals{&Interrupts::look, &Interrupts::calm})),
      events_(std::make_shared<LocalEventManager>()),
      zvm_(std::make_shared<LocalZvm>(queue_)),
      prompts_(*queue_, {[this] { requestInput(); },
                         [this](std::unique_ptr<QueuedRequest> queued) { run(std::move(queued)); },
                         [this] { return takeInterrupt() ? Interrupts::deliver() : Interrupts::check(); },
                         [this](auto prompt, bool isBaseLevel) { announcePrompt(prompt, isBaseLevel); }}),
      columns_(options.columns),
      rows_(options.rows) {
    std::promise<void> started;
    thread_ = std::thread([this, &started] { threadMain(started); });
    try {
        started.get_future().get();
    } catch (...) {
        thread_.join();
        throw;
    }
}

Interpreter::~Interpreter() {
    queue_->stop();
    {
        connector::MutexLock lock(mutex_);
        for (int i = 0; i < interruptsAtStop && !hasEnded_; ++i) {
            lock.unlock();
            zvm_->interrupt();
            lock.lock();
            if (!hasEnded_) endedChanged_.wait_for(lock.native(), interruptInterval);
        }
        if (!hasEnded_) {
            logger().error("The running code does not end; the process ends without it.");
            foundation::log::flush(interruptInterval);
            std::_Exit(shutdown::errorStatus() != 0 ? shutdown::errorStatus() : 1);
        }
    }
    thread_.join();
    events_->stop();
}

int Interpreter::originalDescriptor(int descriptor) const {
    return capture_ ? capture_->original(descriptor) : descriptor;
}

std::shared_ptr<zvm::ZVM> Interpreter::currentLocalZVM() { return zvm_; }
std::shared_ptr<zvm::Session> Interpreter::session() { return zvm_; }

std::shared_ptr<foundation::msg_svc::eventmgr::EventMgr> Interpreter::eventManager(
    const boost::optional<zvm::ZvmID>& id) {
    return !id || *id == zvm_->id() ? events_ : nullptr;
}

cppmicroservices::Framework Interpreter::microservices() { return processFramework(); }
std::vector<cppmicroservices::Bundle> Interpreter::installAndStartBundles(const std::string& path) {
    return standalone::installAndStartBundles(path);
}

int Interpreter::acquireLock() { return PyGILState_Ensure(); }
void Interpreter::releaseLock(int state) { PyGILState_Release(static_cast<PyGILState_STATE>(state)); }
void Interpreter::setLastError(const RuntimeException& error) { python_->setLastError(error); }

void Interpreter::threadMain(std::promise<void>& started) {
    try {
        // Threads that start here take over the blocked signals, so they come before `attach`.
        setInterpreterSignalsBlocked(true);
        if (options_.captureFileDescriptors) {
            capture_ = std::make_unique<NativeCapture>(
                [this](auto stream, auto text) {
                    const KeptLock kept;
                    print(stream, text);
                },
                withInterpreterLock);
        }
        InterpreterServices& services = *this;
        python_ = std::make_unique<PythonRuntime>(services);
        if (capture_) capture_->start();
        Interrupts::attach();
        terminal_ = std::make_shared<TerminalWindow>(originalDescriptor(1), originalDescriptor(2));
        CmdWinSinkHandle::setFactory(terminal_);
        runner_ = std::make_unique<CodeRunner>(python_->runtimeModule(), [this] { queue_->openCode(); });
        caller_ = std::make_unique<FunctionCaller>(python_->runtimeModule());
        host::install(this);
    } catch (...) {
        capture_.reset();
        started.set_exception(std::current_exception());
        return;
    }
    started.set_value();
    serve();

    shutdown::ShutdownRegistry::run(true);
    python_->finish();
    Interrupts::detach();
    stopCapture();
    caller_.reset();
    runner_.reset();
    python_.reset();
    host::install(nullptr);
    CmdWinSinkHandle::reset();
    {
        connector::MutexLock lock(mutex_);
        hasEnded_ = true;
    }
    endedChanged_.notify_all();
}

// The descriptors are put back only when the host is destroyed, for the sake of what the program still
// prints.
void Interpreter::stopCapture() {
    if (!capture_) return;
    capture_->drain(true);
    withoutInterpreterLock([this] { capture_->stop(); });
}

void Interpreter::serve() {
    while (!queue_->isStopped()) {
        runTypeAhead();
        auto request = queue_->tryTake(prompts_.current());
        if (!request) {
            withoutInterpreterLock([&] { request = queue_->take(prompts_.current()); });
        }
        if (request) run(std::move(request));
    }
}

// What was typed and not read by the code that it was meant for is taken as a command, as at any terminal.
void Interpreter::runTypeAhead() {
    const std::u16string code = prompts_.takeTypeAhead();
    if (code.empty()) return;
    MainWorkspace workspace;
    try {
        evaluate(code, workspace);
    } catch (const RuntimeException&) {
        // It has been shown; there is no request to tell.
    }
}

// Called while code is about to wait, which what becomes of its clients does not concern.
void Interpreter::requestInput() {
    drainOutput();
    prompts_.announce(prompts_.current(), false);
    const auto& sink = CmdWinSinkHandle::activeSink(false);
    const auto prompt = prompts_.current();
    if (prompt == nmutil::prompt::PAUSE_PROMPT) sink->keyStrokeRequested(prompt);
    try {
        sink->requestInput();
    } catch (const std::exception& error) {
        logLateResult(error);
    }
    sink->setDirty(false);
}

void Interpreter::run(std::unique_ptr<QueuedRequest> queued) {
    active_.push_back(queued.get());
    std::unique_ptr<IIPResult> result;
    try {
        result = runRequest(*queued);
    } catch (const RuntimeException& error) {
        result = std::make_unique<IIPResult>(queued->id, error);
    } catch (const std::exception& error) {
        result = std::make_unique<IIPResult>(queued->id, internalError(error));
    }
    active_.pop_back();
    queue_->finish(*queued, *result);
}

std::unique_ptr<IIPResult> Interpreter::runRequest(QueuedRequest& queued) {
    const std::uint64_t contextHandle = queued.options.contextHandle();
    const connector::common::CurrentContext context(connector::zvm_common::findContextState(contextHandle),
                                                    contextHandle);
    const std::shared_ptr<cmddistributor::IIP>& iip = queued.request->getIIP();
    if (const auto* task = dynamic_cast<const cmddistributor::PackagedTaskIIP*>(iip.get())) {
        prompts_.typeWhole([task] { task->run(); });
        return std::make_unique<IIPResult>(queued.id, boost::none);
    }
    if (const auto* call = dynamic_cast<const cmddistributor::FEvalIIP*>(iip.get()))
        return runFunctionCall(queued, *call);
    return runPlugin(queued, iip);
}

std::unique_ptr<IIPResult> Interpreter::runFunctionCall(QueuedRequest& queued,
                                                        const cmddistributor::FEvalIIP& iip) {
    prepareCode();
    PromptScope prompt(prompts_);
    std::vector<matrix::ArrayPtr> outputs;
    boost::optional<RuntimeException> failure;
    interruptibly(Opens::AtOnce, [&] {
        prompt.announce();
        try {
            outputs = caller_->call(iip);
        } catch (const RuntimeException& error) {
            failure = error;
        }
    });
    if (getpid() != processId_) runner_->exitForkedChild();
    if (codeDepth_ == 0) tidyUp();
    if (!isAside_) drainOutput(true);
    return std::make_unique<cmddistributor::FEvalResult>(queued.id, std::move(failure), std::move(outputs));
}

// Called between two steps of running code. The debugger and profilers of that code do not see what runs
// here.
void Interpreter::runRequests() {
    if (isAside_) return;
    struct Aside {
        explicit Aside(bool& flag) : isAside(flag) {
            isAside = true;
            PyThreadState_EnterTracing(state);
        }
        ~Aside() {
            PyThreadState_LeaveTracing(state);
            isAside = false;
        }
        bool& isAside;
        PyThreadState* const state = PyThreadState_Get();
    };
    const Aside aside(isAside_);
    while (auto request = queue_->tryTake(nmutil::prompt::NO_PROMPT)) run(std::move(request));
}

std::unique_ptr<IIPResult> Interpreter::runPlugin(QueuedRequest& queued,
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
        showError(*failure);
    }
    try {
        plugin->post();
    } catch (const std::exception& error) {
        logLateResult(error);
    }
    return plugin->createResult(std::move(failure));
}

// What the code that begins is to see and to report: the window's size, and no status of code before it.
void Interpreter::prepareCode() {
    if (codeDepth_ == 0) {
        isTypedByStream_ = false;
        codeBlockStatus_ = 0;
        executionStatus_ = nmutil::cmddistributor::EXECUTION_OK;
    }
    if (columns_ == shownColumns_ && rows_ == shownRows_) return;
    python_->setWindow(columns_, rows_);
    shownColumns_ = columns_;
    shownRows_ = rows_;
}

void Interpreter::evaluate(const std::u16string& code, iqm::Workspace&) {
    prepareCode();
    PromptScope prompt(prompts_);
    CodeRunner::Result result = CodeRunner::Result::Failed;
    interruptibly(Opens::WhenItRuns, [&] {
        prompt.announce();
        result = runner_->execute(code, !isInternalCode());
    });
    if (getpid() != processId_) runner_->exitForkedChild();  // or it would go on here as a second interpreter

    // Describing an error runs code of the user's, which may have to be interrupted, too.
    boost::optional<CodeError> error;
    if (result == CodeRunner::Result::Failed) {
        interruptibly(Opens::AtOnce, [&] { error = runner_->takeError(); });
    }
    if (codeDepth_ == 0) tidyUp();
    drainOutput(true);
    if (codeDepth_ == 0 && isHeard(u"workspace")) python_->announceWorkspace();

    const bool isIncomplete = result == CodeRunner::Result::Incomplete;
    codeBlockStatus_ = isIncomplete ? 1 : 0;
    executionStatus_ = error ? error->exception.getExecutionStatus() : nmutil::cmddistributor::EXECUTION_OK;
    builtinName_ = error ? error->builtin : boost::none;
    isInCompiledExtension_ = error && error->isInCompiledExtension;
    if (error) showFailure(*error);
    prompt.restore(isIncomplete);
    if (error) throw RuntimeException(error->exception);
}

bool Interpreter::isInternalCode() const {
    if (active_.empty()) return false;
    const auto* const request =
        dynamic_cast<const cmddistributor::EvalCmdRequest*>(active_.back()->request.get());
    return request != nullptr && request->isInternal();
}

// A suggestion for captured code becomes part of its response, and is no news to others.
void Interpreter::showFailure(const CodeError& failure) {
    if (executionStatus_ == nmutil::cmddistributor::EXECUTION_INTERRUPTED) {
        window(false)->ctrlCProcessed();
    }
    showError(failure.exception);
    if (!failure.suggestion) return;
    const bool isCaptured = recipient() == Recipient::Capture;
    raiseUnlocked(events_,
                  numora::lang::correction::SuggestionEvent(*failure.suggestion, isCaptured, !isCaptured));
}

// Runs what may run user code as code of its own, so that interrupts can be meant for it. Code that is not
// open at once would lose them in what is done before it runs.
void Interpreter::interruptibly(Opens opens, const std::function<void()>& action) {
    queue_->beginCode(active_.empty() ? RequestQueue::IDType{} : active_.back()->id);
    const bool isOuterSignalled = Interrupts::begin(codeDepth_++ > 0);
    if (opens == Opens::AtOnce) queue_->openCode();
    const auto end = [&] {
        queue_->closeCode();  // what it did not take is dropped with the signals that came for it
        Interrupts::end();    // which may run requests inside
        --codeDepth_;
        queue_->endCode();
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

// The evaluation that is interrupted is told, whether its code goes on or not. A call has no capture level.
bool Interpreter::takeInterrupt() {
    if (Interrupts::takeOutside()) queue_->interrupt();
    if (!queue_->takeInterrupt()) return false;
    if (recipient() == Recipient::Capture && !isAside_) CmdWinSinkHandle::activeSink(false)->ctrlCProcessed();
    return true;
}

void Interpreter::tidyUp() {
    python_->endDebugging();
    if (!Interrupts::isDisturbed()) return;
    python_->restoreInterrupts();
    Interrupts::install();
}

bool Interpreter::setInterruptPending(bool pending) {
    if (!pending) return queue_->clearInterrupts();
    const bool wasPending = queue_->isInterrupted();
    queue_->interrupt();
    return wasPending;
}

bool Interpreter::isCodeBlockComplete(const std::u16string& code) { return runner_->isComplete(code); }

// An error is shown once: to the request's own callback if it has one, else in the window and, unless that
// captures, as an event. The callback of a request that was captured and is answered has nobody to tell.
void Interpreter::showError(const RuntimeException& error) {
    const nmutil::io::PrintableErrorEvent event(error.getText(), error);
    const bool isAnswered =
        recipient() == Recipient::Terminal && !CmdWinSinkHandle::activeSink(true)->isWaitedFor();
    if (isAnswered && queue_->isStopped()) return;  // that code still waits at the end is no news
    if (!isAnswered && !active_.empty() && active_.back()->options.printableErrorCallback()) {
        active_.back()->options.printableErrorCallback()(event);
        return;
    }
    window(true)->doPrintableError(std::u16string(error.getText()));
    if (recipient() != Recipient::Capture) raiseUnlocked(events_, event);
}

std::string stateAt(nmutil::prompt::InputRequester prompt) {
    using namespace nmutil::prompt;  // the values
    if (prompt == NO_PROMPT) return "busy";
    return prompt == BASE_PROMPT || prompt == INCOMPLETE_BLOCK_PROMPT ? "idle" : "input";
}

// Called between two pieces of code and when some have ended in whatever way, so nothing gets out.
void Interpreter::announcePrompt(nmutil::prompt::InputRequester prompt, bool isBaseLevel) {
    try {
        tellOfLostText();
        if (isHeard(u"status")) {
            TaggedEvent::Members members;
            members.emplace("state", stateAt(prompt));
            members.emplace("prompt", std::string(promptName(prompt)));
            events_->postInTurn(std::make_shared<TaggedEvent>(u"status", std::move(members)), 0,
                                withoutInterpreterLock);
        }
        if (isBaseLevel) {
            raiseUnlocked(events_, nmutil::utils::IqmInputRequestEvent(prompt));
        } else {
            raiseUnlocked(events_, nmutil::utils::InputRequestEvent(prompt));
        }
    } catch (const std::exception& error) {
        logger().error("A prompt could not be announced: " + std::string(error.what()));
    }
}

void Interpreter::postEvent(std::u16string tag, TaggedEvent::Members members, std::size_t bytes) {
    const auto events = events_;  // see raiseUnlocked
    events->postInTurn(std::make_shared<TaggedEvent>(std::move(tag), std::move(members)), bytes,
                       withoutInterpreterLock);
}

// Other threads of Python code belong to the outermost request, not to one that runs aside of it.
const QueuedRequest* Interpreter::requestOfThread() const {
    if (active_.empty()) return nullptr;
    return isInterpreterThread() ? active_.back() : active_.front();
}

Interpreter::Recipient Interpreter::recipient() const {
    const QueuedRequest* request = requestOfThread();
    if (request != nullptr && request->options.getOutSink()) return Recipient::OwnSink;
    return isCaptured() ? Recipient::Capture : Recipient::Terminal;
}

// What nobody waits for in a captured window is kept for who answers the next prompt, unless a stream has
// answered the last one: then it is for those who watch the terminal's.
bool Interpreter::isCaptured() const {
    const auto& active = CmdWinSinkHandle::activeSink(false);
    return active != terminal_->getSink(false) && (active->isWaitedFor() || !isTypedByStream_);
}

// A capture level is open for whoever does not stream.
void Interpreter::typeCodeUnit(char16_t unit) {
    prompts_.type(unit);
    isTypedByStream_ = !CmdWinSinkHandle::activeSink(false)->isWaitedFor();
}

std::shared_ptr<services::io::CmdWinSink> Interpreter::window(bool isError) const {
    return recipient() == Recipient::Capture ? CmdWinSinkHandle::activeSink(isError)
                                             : terminal_->getSink(isError);
}

void Interpreter::print(nmutil::io::StreamTypeEnum stream, std::u16string_view text) {
    const bool isError = stream != nmutil::io::STANDARD_OUTPUT;
    // Held here, because a sink may release the lock, and the request end meanwhile.
    const auto write = [text](auto sink) {
        sink->getUnicodeOutStreamBuffer()->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    };
    if (const QueuedRequest* request = requestOfThread()) {
        const auto& options = request->options;
        const auto& sink = isError && options.getErrSink() ? options.getErrSink() : options.getOutSink();
        if (sink) return write(sink);
    }
    // A window that captures takes standard error in the order printed; only the terminal tells them apart.
    if (isCaptured()) return write(CmdWinSinkHandle::activeSink(false));
    write(terminal_->getSink(isError));
    static const foundation::msg_svc::eventmgr::TypeInformation type(nmutil::io::SinkTextEvent::typeName);
    if (!events_->hasSubscriptions(type)) return;
    tellOfLostText();
    if (!postText(stream, text)) lostText_ += text.size();
}

// Waits for room, not for the listeners: nobody's answer depends on them.
bool Interpreter::postText(nmutil::io::StreamTypeEnum stream, std::u16string_view text) {
    const auto event = std::make_shared<nmutil::io::SinkTextEvent>(std::u16string(text), stream);
    const std::size_t bytes = text.size() * sizeof(char16_t);
    const auto events = events_;  // see raiseUnlocked
    return keepsLock ? events->post(event, bytes) : events->postInTurn(event, bytes, withoutInterpreterLock);
}

void Interpreter::tellOfLostText() {
    const std::size_t lost = std::exchange(lostText_, 0);
    if (lost == 0) return;
    const auto notice =
        fl::i18n::to_ustring("\n[" + std::to_string(lost) + " characters of output were lost]\n");
    if (!postText(nmutil::io::STANDARD_ERROR, notice)) lostText_ += lost;
}

void Interpreter::unlocked(const std::function<void()>& action) {
    if (!keepsLock && Py_IsInitialized() != 0 && PyGILState_Check() != 0) {
        withoutInterpreterLock(action);
    } else {
        action();
    }
}

const cmddistributor::RunOptions* Interpreter::runningOptions() const {
    return active_.empty() ? nullptr : &active_.back()->options;
}

void Interpreter::beforePrint() {
    if (capture_) capture_->drainIfReady();
}

void Interpreter::drainOutput(bool isEnd) {
    if (capture_) capture_->drain(isEnd);
}

ReadResult Interpreter::readLine(nmutil::prompt::InputRequester prompt, std::u16string& line) {
    requireInputAllowed();
    return prompts_.readLine(prompt, line);
}

ReadResult Interpreter::readKey() {
    requireInputAllowed();
    return prompts_.readKey();
}

void Interpreter::requireInputAllowed() const {
    if (isAside_)
        throw std::runtime_error("A function that is called while other code runs cannot read typed input.");
}

// The window is that of whoever gets the text. What runs aside of other code has no say in that code's.
template <class Event>
void Interpreter::changeWindow(void (services::io::CmdWinSink::*change)()) {
    if (isAside_ && isInterpreterThread()) return;
    drainOutput();
    const Recipient to = recipient();
    if (to != Recipient::OwnSink) (*window(false).*change)();
    if (to != Recipient::Capture) raiseUnlocked(events_, Event());
}

void Interpreter::clearWindow() { changeWindow<nmutil::io::CLCEvent>(&services::io::CmdWinSink::doClc); }
void Interpreter::moveHome() { changeWindow<nmutil::io::HomeEvent>(&services::io::CmdWinSink::doHome); }

}  // namespace standalone
