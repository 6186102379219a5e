#include "server/Server.h"

#include <chrono>
#include <exception>

#include "http/streams.h"
#include "log.h"
#include "ports/LocalPort.h"

namespace gateway {

namespace {

constexpr auto finishTime = std::chrono::seconds(1);

bayeux::ServerOptions bayeuxOptions(const GatewayOptions& options, const access::AccessPolicy& access) {
    bayeux::ServerOptions bayeux;
    bayeux.isToken = [&access](const std::string& token) { return access.isToken(token); };
    bayeux.frameBytes = options.limits.bodyBytes;
    bayeux.unauthenticatedBytes = options.limits.unauthenticatedBytes;
    bayeux.ownerWait = options.ownerWait;
    return bayeux;
}

std::unique_ptr<interpreters::Desk> makeDesk(boost::asio::io_context& context, const Server::Parts& parts,
                                             const access::AccessPolicy& access) {
    const auto& options = parts.options;
    auto port = std::make_unique<ports::LocalPort>(
        ports::LocalPort::Parts{.framework = parts.framework,
                                .serializer = parts.serializer,
                                .isReady = parts.isReady,
                                .streaming = options.streaming},
        dispatch::DispatcherOptions{.threads = options.handlerThreads,
                                    .queueLength = options.handlerQueue,
                                    .isReadingInput = options.isReadingInput});
    return std::make_unique<interpreters::Desk>(
        context, parts.messages, std::move(port),
        interpreters::Desk::Options{.bayeux = bayeuxOptions(options, access),
                                    .standInTime = options.standInTime});
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
      desk_(makeDesk(context_, parts, access_)),
      endpoints_({.access = access_,
                  .files = files_,
                  .desk = *desk_,
                  .metrics = metrics_,
                  .snapshot = [this] { return snapshot(); }},
                 parts.options.limits.unauthenticatedBodies) {
    desk_->start();
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
    desk_->stop();
    connections_->finishAll();
    if (!connections_->waitUntilEmpty(finishTime)) {
        connections_->abortAll();
        connections_->waitUntilEmpty(finishTime);
    }
    context_.stop();
    for (auto& thread : threads_) thread.join();
    threads_.clear();
    desk_.reset();
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
    return {.interpreter = desk_->snapshot(),
            .connections = connections_->size(),
            .refusedConnections = connections_->refused()};
}

}  // namespace gateway
