#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/thread_pool.hpp>

#include "Current.h"
#include "access/AccessPolicy.h"
#include "access/Refusals.h"
#include "endpoints/Endpoints.h"
#include "endpoints/StaticFiles.h"
#include "gateway/GatewayOptions.h"
#include "http/HttpConnection.h"
#include "http/Listener.h"
#include "http/OpenConnections.h"
#include "http/TrustedProxies.h"
#include "interpreters/Registry.h"
#include "jupyter/rest/NotebookSessions.h"
#include "messages/LocalMessageService.h"
#include "metrics/RequestMetrics.h"

namespace gateway {

/// The parts of a gateway that serves, and the threads that run them.
///
/// Threads: made, stopped and destroyed on one thread.
class Server {
public:
    /// What the gateway was made with.
    struct Parts {
        messages::LocalMessageService& messages;
        std::shared_ptr<connector::ServiceFramework> framework;
        std::shared_ptr<connector::json::JsonSerializer> serializer;
        std::function<bool()> isReady;
        const GatewayOptions& options;  ///< with a token
    };

    /// Listens at `address` and serves.  Throws: as Gateway::start.
    Server(const Parts& parts, const boost::asio::ip::address& address);
    /// Stops.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Starts the process of the default interpreter, if it has one of its own.
    /// Blocks: until it takes requests, or `isStopWanted` of the options.  Throws: std::runtime_error, when
    /// it cannot start.
    void startInterpreter();

    std::uint16_t port() const { return listener_.port(); }
    void stop();

    /// Has new connections made with `tls`, unless it is null, and these tokens count.
    /// Throws: std::invalid_argument, with nothing changed.
    void reload(const std::string& token, const std::vector<TokenOptions>& tokens,
                std::shared_ptr<boost::asio::ssl::context> tls);

private:
    std::unique_ptr<interpreters::Desk> makeDesk(ports::InterpreterSpec spec);
    void createConfigured();
    void checkFolders(const supervisor::WorkerSpec& spec) const;
    void serve(boost::asio::ip::tcp::socket socket);
    void startThreads();
    void work();
    metrics::Snapshot snapshot() const;

    // First, because what others post into it may outlive them.
    boost::asio::io_context context_;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> guard_;

    const Parts parts_;
    Current<boost::asio::ssl::context> tls_;  ///< null for plain HTTP
    http::Listener listener_;
    access::AccessPolicy access_;
    access::Refusals refusals_;
    const endpoints::StaticFiles files_;
    const http::TrustedProxies proxies_;
    const std::shared_ptr<http::OpenConnections> connections_;
    metrics::RequestMetrics metrics_;
    interpreters::Registry interpreters_;
    jupyter::NotebookSessions sessions_{context_};
    endpoints::Endpoints endpoints_;
    boost::asio::thread_pool reading_{1};

    std::vector<std::thread> threads_;  // last: they run the rest
};

}  // namespace gateway
