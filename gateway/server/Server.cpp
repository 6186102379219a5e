#include "server/Server.h"

#include <chrono>
#include <exception>

#include "connector/json/escape.h"
#include "connector/wireWords.h"
#include "http/streams.h"
#include "log.h"

namespace gateway {

namespace {

constexpr auto completionTime = std::chrono::milliseconds(500);  // of interrupted code that is streamed
constexpr auto finishTime = std::chrono::seconds(1);

bayeux::ServerOptions bayeuxOptions(const GatewayOptions& options, const access::AccessPolicy& access) {
    bayeux::ServerOptions bayeux;
    bayeux.isToken = [&access](const std::string& token) { return access.isToken(token); };
    bayeux.frameBytes = options.limits.bodyBytes;
    bayeux.unauthenticatedBytes = options.limits.unauthenticatedBytes;
    bayeux.ownerWait = options.ownerWait;
    return bayeux;
}

}  // namespace

Server::Server(const Parts& parts, const boost::asio::ip::address& address)
    : context_(static_cast<int>(parts.options.ioThreads)),
      guard_(boost::asio::make_work_guard(context_)),
      parts_(parts),
      tls_(parts.options.tlsCertificate.empty()
               ? nullptr
               : http::makeTlsContext(parts.options.tlsCertificate, parts.options.tlsKey)),
      listener_(context_, address, parts.options.port),
      access_({.token = parts.options.token,
               .hosts = parts.options.hosts,
               .origins = parts.options.origins,
               .isSecure = tls_ != nullptr},
              listener_.port()),
      files_(parts.options.console),
      connections_(std::make_shared<http::OpenConnections>(parts.options.limits.connections)),
      completions_(parts.messages.subscribe(connector::wire::channel::completion,
                                            [this](const auto& message) { countCompletion(message.data); })),
      absentClients_(
          std::make_shared<AbsentClientsSession>(context_, parts.messages, parts.options.standInTime)),
      dispatcher_(parts.framework, parts.serializer,
                  {.threads = parts.options.handlerThreads,
                   .queueLength = parts.options.handlerQueue,
                   .isReadingInput = parts.options.isReadingInput}),
      bayeux_(context_, parts.messages, dispatcher_, bayeuxOptions(parts.options, access_)),
      endpoints_({.access = access_,
                  .files = files_,
                  .dispatcher = dispatcher_,
                  .bayeux = bayeux_,
                  .metrics = metrics_,
                  .isReady = parts.isReady,
                  .snapshot = [this] { return snapshot(); }},
                 parts.options.limits.unauthenticatedBodies) {
    absentClients_->start();
    listener_.start([this](boost::asio::ip::tcp::socket socket) {
        auto place = connections_->take();
        if (!place) return http::closeNow(socket);
        http::serveHttp(std::move(socket), tls_.get(), std::move(place),
                        {.endpoints = endpoints_, .limits = parts_.options.limits, .reading = reading_});
    });
    startThreads();
}

Server::~Server() { stop(); }

void Server::stop() {
    if (threads_.empty()) return;
    listener_.close();
    endpoints_.refuseAll();
    // While answers can still be sent.
    dispatcher_.stop();
    if (parts_.options.streaming) parts_.options.streaming->waitUntilIdle(completionTime);
    bayeux_.stop();
    connections_->finishAll();
    if (!connections_->waitUntilEmpty(finishTime)) {
        connections_->abortAll();
        connections_->waitUntilEmpty(finishTime);
    }
    context_.stop();
    for (auto& thread : threads_) thread.join();
    threads_.clear();
    absentClients_.reset();
    reading_.stop();
    reading_.join();
}

void Server::startThreads() {
    try {
        for (std::size_t i = 0; i < parts_.options.ioThreads; ++i) threads_.emplace_back([this] { work(); });
    } catch (...) {
        stop();
        throw;
    }
}

void Server::work() {
    while (!context_.stopped()) {
        try {
            context_.run();
        } catch (const std::exception& error) {
            log().error("A connection failed: " + std::string(error.what()));
        }
    }
}

metrics::Snapshot Server::snapshot() const {
    metrics::Snapshot now;
    now.messages = parts_.messages.metrics();
    now.dispatcher = dispatcher_.metrics();
    if (parts_.options.streaming) now.streaming = parts_.options.streaming->counts();
    now.completions = {.successes = successes_, .failures = failures_};
    now.bayeuxSessions = bayeux_.sessions();
    now.connections = connections_->size();
    now.refusedConnections = connections_->refused();
    now.isReady = parts_.isReady();
    return now;
}

void Server::countCompletion(const std::string& data) {
    ++(data == connector::json::quoted(connector::wire::completion::success) ? successes_ : failures_);
}

}  // namespace gateway
