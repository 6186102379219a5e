#include "server/Server.h"

#include <chrono>
#include <exception>
#include <future>
#include <stdexcept>
#include <utility>

#include "dispatch/members.h"
#include "http/addresses.h"
#include "http/streams.h"
#include "interpreters/settings.h"
#include "log.h"
#include "ports/LocalPort.h"

namespace gateway {

namespace {

constexpr auto finishTime = std::chrono::seconds(1);
constexpr auto stopCheckInterval = std::chrono::milliseconds(50);

bayeux::ServerOptions bayeuxOptions(const GatewayOptions& options, const access::AccessPolicy& access,
                                    access::Refusals& refusals, const std::string& id) {
    using enum bayeux::ServerOptions::TokenCheck;
    bayeux::ServerOptions bayeux;
    bayeux.checkToken = [&access, id](const std::string& token) {
        const auto grant = access.grantOf(token);
        if (!grant) return Wrong;
        return grant->allows(access::Right::Use, id) ? Right : NotAllowed;
    };
    bayeux.isCurrent = [&access](const auto& grant) { return access.isCurrent(grant); };
    bayeux.refused = [&refusals](auto check, const std::string& address) {
        using enum access::Refusals::Reason;
        refusals.note(check == Wrong ? Token : Rights, address);
    };
    bayeux.frameBytes = options.limits.bodyBytes;
    bayeux.unauthenticatedBytes = options.limits.unauthenticatedBytes;
    bayeux.ownerWait = options.ownerWait;
    return bayeux;
}

std::vector<access::RestrictedToken> restrictedTokens(const std::vector<TokenOptions>& options) {
    std::vector<access::RestrictedToken> tokens;
    for (const auto& [sha256, interpreters, rights] : options) {
        tokens.push_back({sha256, {.interpreters = interpreters, .rights = access::rightsNamed(rights)}});
    }
    return tokens;
}

std::unique_ptr<ports::InterpreterPort> makeLocalPort(const Server::Parts& parts) {
    const auto& options = parts.options;
    return std::make_unique<ports::LocalPort>(
        ports::LocalPort::Parts{.framework = parts.framework,
                                .serializer = parts.serializer,
                                .isReady = parts.isReady,
                                .streaming = options.streaming},
        dispatch::DispatcherOptions{.threads = options.handlerThreads,
                                    .queueLength = options.handlerQueue,
                                    .isReadingInput = options.isReadingInput,
                                    .dequeMode = options.dequeMode});
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
               .restricted = restrictedTokens(parts.options.tokens),
               .hosts = parts.options.hosts,
               .origins = parts.options.origins,
               .basePath = parts.options.basePath},
              listener_.port()),
      refusals_(context_),
      files_(parts.options.console),
      proxies_(parts.options.trustedProxies),
      connections_(std::make_shared<http::OpenConnections>(parts.options.limits.connections)),
      interpreters_([this](const auto& spec) { return makeDesk(spec); }, parts.options.mostInterpreters),
      endpoints_({.access = access_,
                  .files = files_,
                  .interpreters = interpreters_,
                  .checkVenv = parts.options.checkVenv,
                  .metrics = metrics_,
                  .basePath = parts.options.basePath,
                  .open = parts.options.open,
                  .snapshot = [this] { return snapshot(); },
                  .refusals = refusals_,
                  .sessions = sessions_,
                  .canMakeInterpreters = parts.options.makePort != nullptr},
                 parts.options.limits.unauthenticatedBodies) {
    createConfigured();
    listener_.start([this](auto socket) { serve(std::move(socket)); });
    startThreads();
}

Server::~Server() { stop(); }

// On the strand of the listener, so that nobody else takes a place meanwhile.
void Server::serve(boost::asio::ip::tcp::socket socket) {
    const auto refusedBefore = connections_->refused();
    auto place = connections_->take();
    if (connections_->refused() != refusedBefore) {
        boost::system::error_code error;
        refusals_.note(access::Refusals::Reason::Connections,
                       http::addressText(socket.remote_endpoint(error).address()));
    }
    if (!place) return http::closeNow(socket);
    http::serveHttp(std::move(socket), tls_.get().get(), std::move(place),
                    {.endpoints = endpoints_,
                     .limits = parts_.options.limits,
                     .proxies = proxies_,
                     .onAccess = parts_.options.onAccess,
                     .reading = reading_});
}

void Server::reload(const std::string& token, const std::vector<TokenOptions>& tokens,
                    std::shared_ptr<boost::asio::ssl::context> tls) {
    auto restricted = restrictedTokens(tokens);
    if (tls) tls_.set(std::move(tls));
    access_.setTokens(token, std::move(restricted));
}

void Server::stop() {
    if (threads_.empty()) return;
    listener_.close();
    endpoints_.refuseAll();
    // While answers can still be sent.
    interpreters_.stop();
    connections_->finishAll();
    if (!connections_->waitUntilEmpty(finishTime)) {
        connections_->abortAll();
        connections_->waitUntilEmpty(finishTime);
    }
    context_.stop();
    for (auto& thread : threads_) thread.join();
    threads_.clear();
    interpreters_.clear();
    reading_.stop();
    reading_.join();
}

// The message service that this was made with is that of the process, and of its interpreter.
std::unique_ptr<interpreters::Desk> Server::makeDesk(ports::InterpreterSpec spec) {
    const auto& options = parts_.options;
    const std::string& id = spec.worker.id;
    spec.configuration.insert(options.configuration.begin(), options.configuration.end());
    const bool isDefault = id == interpreters::Registry::defaultId;
    std::shared_ptr<messages::LocalMessageService> messages(std::shared_ptr<void>(), &parts_.messages);
    if (!isDefault) {
        if (!options.makePort) {
            throw interpreters::Refusal(501, "The server runs its one interpreter in its own process.");
        }
        messages = std::make_shared<messages::LocalMessageService>();
    }
    auto port = options.makePort ? options.makePort(context_, *messages, spec) : makeLocalPort(parts_);
    return std::make_unique<interpreters::Desk>(
        context_, std::move(messages), std::move(port),
        interpreters::Desk::Options{.id = id,
                                    .bayeux = bayeuxOptions(options, access_, refusals_, id),
                                    .standInTime = options.standInTime});
}

void Server::createConfigured() {
    auto known = parts_.options.interpreters;
    known.try_emplace(std::string(interpreters::Registry::defaultId), "{}");
    for (const auto& [id, json] : known) {
        try {
            auto spec = interpreters::readSpec(json);
            spec.worker.id = id;
            checkFolders(spec.worker);
            interpreters_.create(spec);
        } catch (const std::runtime_error& problem) {
            throw std::invalid_argument("interpreters." + id + ": " + problem.what());
        }
    }
}

// One whose folder is not there, such as that of a disk which is not mounted yet, does not keep the others
// away.
void Server::checkFolders(const supervisor::WorkerSpec& spec) const {
    try {
        interpreters::requireFolders(spec, parts_.options.checkVenv);
    } catch (const dispatch::BadMessage& problem) {
        if (spec.id == interpreters::Registry::defaultId) throw;
        log().warning("The interpreter \"" + spec.id + "\" cannot start: " + problem.what());
    }
}

void Server::startInterpreter() {
    const auto started = std::make_shared<std::promise<dispatch::Answer>>();
    interpreters_.find(interpreters::Registry::defaultId)->port().start([started](dispatch::Answer answer) {
        started->set_value(std::move(answer));
    });
    auto answer = started->get_future();
    const auto& isStopWanted = parts_.options.isStopWanted;
    while (!isStopWanted || !isStopWanted()) {
        if (answer.wait_for(stopCheckInterval) != std::future_status::ready) continue;
        const auto problem = answer.get().problem;
        if (!problem.empty()) throw std::runtime_error(problem);
        return;
    }
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
    metrics::Snapshot now{.connections = connections_->size(), .refusedConnections = connections_->refused()};
    const auto refusals = refusals_.counts();
    for (std::size_t i = 0; i < refusals.size(); ++i) {
        now.refusals.emplace_back(access::Refusals::nameOf(static_cast<access::Refusals::Reason>(i)),
                                  refusals.at(i));
    }
    for (const auto& desk : interpreters_.all()) {
        const bool isDefault = desk->id() == interpreters::Registry::defaultId;
        now.interpreters.push_back(desk->snapshot());
        now.interpreters.back().label = isDefault ? "" : desk->id();
    }
    return now;
}

}  // namespace gateway
