#include "KernelProcess.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include "InProcessSession.h"
#include "KernelSignals.h"
#include "StartingInterpreter.h"
#include "StopDeadline.h"
#include "connector/common/ClientRequests.h"
#include "dispatch/RequestDispatcher.h"
#include "foundation/log/diagnostic_logger.h"
#include "jupyter/ConnectionFile.h"
#include "jupyter/Kernel.h"
#include "jupyter/SessionInterpreter.h"
#include "jupyter/zmq/ParentWatch.h"
#include "jupyter/zmq/SocketThread.h"
#include "services/window.h"
#include "text.h"

namespace app {

namespace {

using connector::common::ClientRequests;
using connector::common::RequestRefusal;
using jupyter::SessionInterpreter;
using jupyter::SocketThread;

// With what the operating system needs, it stays below 2.5 seconds.
constexpr auto timeToEnd = std::chrono::milliseconds(2300);
constexpr rlim_t files = 4096;  // one for each connection of a client

/// While it exists, standard output and error lead nowhere: what code prints goes to clients, also when no
/// cell runs, and whoever reads the kernel's own output is to see it no second time. The log goes on to
/// standard error.
class LogAlone {
public:
    LogAlone() : error_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::dup2(nowhere, stream);
        ::close(nowhere);
        keepLog();
    }
    ~LogAlone() {
        ::dup2(error_, STDERR_FILENO);
        keepLog();
        ::close(error_);
    }
    LogAlone(const LogAlone&) = delete;
    LogAlone& operator=(const LogAlone&) = delete;

    /// Call it after somebody else has chosen.
    void keepLog() const { foundation::log::setDescriptor(error_); }
    /// Of standard error.
    int descriptor() const { return error_; }

private:
    const int error_;
};

/// The end of the process, from when it is asked for.
class Ending {
public:
    /// Threads: one.
    void begin(int status = 0) {
        if (deadline_) return;
        deadline_.emplace(timeToEnd, StopDeadline::deafCode, status);
        begun_.set_value(status);
    }
    /// The exit status.
    int wait() { return begun_.get_future().get(); }

private:
    std::promise<int> begun_;
    std::optional<StopDeadline> deadline_;
};

/// The kernel, on the thread of its sockets.
class KernelOfProcess : public jupyter::SocketUser {
public:
    KernelOfProcess(SocketThread& sockets, Ending& ending, const std::filesystem::path& history)
        : sockets_(sockets),
          ending_(ending),
          kernel_(sockets, interpreter_, sockets,
                  {.isShared = false, .shutDown = [this](bool) { endLater(); }, .history = history}) {}

    void use(std::unique_ptr<jupyter::Interpreter> interpreter) {
        interpreter_.become(std::move(interpreter));
    }

    void receive(jupyter::Message message) override { kernel_.receive(std::move(message)); }
    void subscribed() override { kernel_.welcome(); }
    void roomIsBack() override { kernel_.resume(); }
    void waitsForRoom() override { kernel_.resume(); }
    void raised(int signal) override {
        if (signal == SIGINT) return kernel_.interrupt();
        ending_.begin();
    }
    void failed(const std::string&) override { ending_.begin(1); }

private:
    // When the kernel has told its clients.
    void endLater() {
        sockets_.post([&ending = ending_] { ending.begin(); });
    }

    SocketThread& sockets_;
    Ending& ending_;
    StartingInterpreter interpreter_;
    jupyter::Kernel kernel_;
};

void allowFiles() {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= files) return;
    limit.rlim_cur = std::min(limit.rlim_max, files);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

std::shared_ptr<dispatch::RequestDispatcher> makeDispatcher(const InProcessSession& session) {
    return std::make_shared<dispatch::RequestDispatcher>(
        session.host().framework(), session.serializer(),
        dispatch::DispatcherOptions{.isReadingInput =
                                        [&session] {
                                            return session.host().requestGate()->isOpen() &&
                                                   services::prompt::detail::isInCharBufferMode();
                                        },
                                    .dequeMode = [&session] { return session.dequeMode(); }});
}

SessionInterpreter::Ways waysTo(const InProcessSession& session,
                                std::shared_ptr<dispatch::RequestDispatcher> dispatcher) {
    return {.messages = session.host().messages(),
            .names = dispatcher->names(),
            .submit =
                [dispatcher](const auto& type, auto json, auto context, auto answered) {
                    const auto own = context ? context->template getOr<std::shared_ptr<ClientRequests>>(
                                                   ClientRequests::contextKey, nullptr)
                                             : nullptr;
                    if (own && dispatch::isInterrupt(type)) own->withdraw();
                    dispatcher->submit(type, std::move(json), std::move(context), std::move(answered));
                },
            .stream =
                [](messages::ClientSession& client, const auto& channel, const auto& json,
                   const auto& context, const auto& taken) {
                    client.publish(channel, json, context);
                    taken(context->getOr(RequestRefusal::contextKey, RequestRefusal()));
                },
            .restart = {}};
}

}  // namespace

std::unique_ptr<SocketThread> openSockets(const std::filesystem::path& path) {
    allowFiles();
    try {
        const auto file = jupyter::ConnectionFile::read(path);
        auto sockets = std::make_unique<SocketThread>(file);
        if (sockets->file() != file) sockets->file().write(path);
        return sockets;
    } catch (const std::exception& error) {
        throw InputError(error.what());
    }
}

int runKernelProcess(const std::filesystem::path& connectionFile, const Workplace& workplace,
                     const std::filesystem::path& history) {
    const auto parent = jupyter::parentToWatch();
    standalone::blockInterpreterSignals();
    Ending ending;
    const auto sockets = openSockets(connectionFile);
    const LogAlone log;
    KernelSignals signals(*sockets);
    KernelOfProcess* kernel = nullptr;
    sockets->start([&] {
        auto made = std::make_unique<KernelOfProcess>(*sockets, ending, history);
        kernel = made.get();
        jupyter::watchParent(*sockets, parent, [&ending] { ending.begin(); });
        return made;
    });
    const InProcessSession session({}, workplace, {}, log.descriptor());
    log.keepLog();
    signals.passInterrupts();
    const auto dispatcher = makeDispatcher(session);
    sockets->post([&sockets, kernel, ways = waysTo(session, dispatcher)] {
        kernel->use(std::make_unique<SessionInterpreter>(ways, *sockets));
    });
    const int status = ending.wait();
    sockets->stop();
    dispatcher->stop();
    return status;
}

}  // namespace app
