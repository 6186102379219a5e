#include "KernelRelay.h"

#include <chrono>
#include <csignal>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include <Poco/JSON/Object.h>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <unistd.h>

#include "HttpClient.h"
#include "KernelProcess.h"
#include "StopDeadline.h"
#include "WebSocketClient.h"
#include "connector/json/ObjectBuilder.h"
#include "jupyter/relay/Relay.h"
#include "jupyter/zmq/ParentWatch.h"
#include "jupyter/zmq/SocketThread.h"
#include "serverAnswer.h"
#include "terminal.h"

namespace app {

namespace asio = boost::asio;

namespace {

using connector::json::ObjectBuilder;

constexpr auto limit = std::chrono::seconds(30);
constexpr auto restartLimit = std::chrono::seconds(60);
constexpr auto timeToEnd = std::chrono::seconds(5);
constexpr const char* kernels = "/api/kernels";

ServerAddress placeOf(ServerAddress server, bool isNew) {
    if (isNew) return server.withoutInterpreter();
    if (server.interpreter.empty()) server.interpreter = "default";
    return server;
}

/// The kernel of a server.
class ServerKernel {
public:
    ServerKernel(const ServerAddress& server, bool isNew) : http_(placeOf(server, isNew)), isNew_(isNew) {
        ObjectBuilder wish;
        if (isNew) {
            // Its folder, where the server has it, too.
            const auto folder = std::filesystem::current_path().string();
            wish.add("name", "numora").add("env", ObjectBuilder().add("KERNEL_WORKING_DIR", folder));
        }
        const auto model = objectFrom(http_.post(kernels, wish.take(), limit));
        id_ = model->optValue<std::string>("id", "");
        if (id_.empty()) throw ServerRefusal("the server's answer must have the id of a kernel");
    }

    ~ServerKernel() {
        try {
            if (isNew_) http_.remove(path(), limit);
        } catch (const ConnectionLost&) {
            // The server removes it when it was idle long enough, if it was told to.
        }
    }

    ServerKernel(const ServerKernel&) = delete;
    ServerKernel& operator=(const ServerKernel&) = delete;

    const std::string& id() const { return id_; }

    /// The next relay makes its own.
    void restart() {
        if (!isNew_) valueIn(http_.post(path() + "/restart", "{}", restartLimit));
    }

    /// Ends a restart that is under way: nobody waits for it any more.  Threads: any.
    void abort() {
        if (!isNew_) http_.abort();
    }

private:
    std::string path() const { return kernels + ("/" + id_); }

    HttpClient http_;
    const bool isNew_;
    std::string id_;
};

/// Passes signals on to the sockets, on a thread of its own, since the others may wait for the server. Those
/// that come after the first SIGTERM end the process.
class Signals {
public:
    explicit Signals(jupyter::SocketThread& sockets) : sockets_(sockets) {
        wait();
        thread_ = std::thread([this] { context_.run(); });
    }
    ~Signals() {
        context_.stop();
        thread_.join();
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

private:
    void wait() {
        signals_.async_wait([this](const boost::system::error_code& error, int signal) {
            if (error) return;
            if (signal == SIGTERM) signals_.clear();
            sockets_.raise(signal);
            if (signal != SIGTERM) wait();
        });
    }

    jupyter::SocketThread& sockets_;
    asio::io_context context_;
    asio::signal_set signals_{context_, SIGINT, SIGTERM};
    std::thread thread_;
};

std::string problemOf(const std::function<void()>& action) {
    try {
        action();
        return {};
    } catch (const std::exception& error) {
        return error.what();
    }
}

}  // namespace

int runKernelRelay(const std::filesystem::path& connectionFile, const ServerAddress& server, bool isNew) {
    const auto parent = jupyter::parentToWatch();
    std::optional<StopDeadline> deadline;
    ServerKernel kernel(server, isNew);
    asio::io_context tasks;  // of this thread, which may wait for the server
    const auto work = asio::make_work_guard(tasks);
    std::string failure;
    const jupyter::RelayOptions options{
        .release =
            [&](bool isRestart, const auto& done) {
                asio::post(tasks, [&kernel, isRestart, done] {
                    done(problemOf([&] {
                        if (isRestart) kernel.restart();
                    }));
                });
            },
        .ended =
            [&](const std::string& reason) {
                deadline.emplace(timeToEnd, "The server does not answer; the process ends without it.",
                                 reason.empty() ? 0 : 1);
                kernel.abort();
                asio::post(tasks, [&tasks, &failure, reason] {
                    failure = reason;
                    tasks.stop();
                });
            }};
    const auto sockets = openSockets(connectionFile);
    const Signals signals(*sockets);
    sockets->start([&] {
        jupyter::watchParent(*sockets, parent, [&sockets] { sockets->raise(SIGTERM); });
        auto socket = std::make_unique<WebSocketClient>(server.withoutInterpreter(), kernel.id());
        return std::make_unique<jupyter::Relay>(*sockets, *sockets, std::move(socket), options);
    });
    tasks.run();
    if (!failure.empty()) printError(STDERR_FILENO, failure);
    sockets->stop();
    return failure.empty() ? 0 : 1;
}

}  // namespace app
