#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include <boost/asio/io_context.hpp>

#include "bayeux/BayeuxServer.h"
#include "interpreters/AbsentClientsSession.h"
#include "jupyter/KernelHost.h"
#include "messages/LocalMessageService.h"
#include "metrics/metricsPage.h"
#include "ports/InterpreterPort.h"

namespace gateway::interpreters {

/// What belongs to one interpreter and outlives its process: the messages that clients have missed, their
/// sessions and subscriptions, and the counts of what was asked for.
///
///     made -- start --> serving -- stop --> stopped
///
/// Threads: any; made, started, stopped and destroyed one after the other. Destroyed when no thread runs the
/// io_context, or when it is stopped and nobody can use it any more.
/// Owns: shares the message service, with which clients' sessions may outlive it.
class Desk {
public:
    struct Options {
        std::string id;  ///< of the interpreter
        bayeux::ServerOptions bayeux;
        std::chrono::milliseconds standInTime;
    };

    Desk(boost::asio::io_context& context, std::shared_ptr<messages::LocalMessageService> messages,
         std::unique_ptr<ports::InterpreterPort> port, Options options);
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    void start() { absentClients_->start(); }
    /// Ends requests, as the port says, then the sessions of clients, while answers can still be sent.
    void stop();
    /// The same for one that a client has deleted.
    void stopDeleted();
    /// Whether nothing is left of its sessions, sockets and processes once it has stopped.
    bool isUnused() const { return bayeux_.isUnused() && kernel_.isUnused() && port_->isUnused(); }

    const std::string& id() const { return id_; }
    ports::InterpreterPort& port() const { return *port_; }
    jupyter::KernelHost& kernel() { return kernel_; }
    const jupyter::KernelHost& kernel() const { return kernel_; }
    bayeux::BayeuxServer& bayeux() { return bayeux_; }
    const bayeux::BayeuxServer& bayeux() const { return bayeux_; }
    messages::LocalMessageService& messages() const { return *messages_; }
    metrics::InterpreterSnapshot snapshot() const;

private:
    void countCompletion(const std::string& data);

    const std::string id_;
    const std::shared_ptr<messages::LocalMessageService> messages_;
    const std::unique_ptr<ports::InterpreterPort> port_;
    std::atomic<std::uint64_t> successes_{0};
    std::atomic<std::uint64_t> failures_{0};
    const std::unique_ptr<connector::message_service::Subscription> completions_;
    const std::shared_ptr<AbsentClientsSession> absentClients_;
    jupyter::KernelHost kernel_;
    bayeux::BayeuxServer bayeux_;
};

}  // namespace gateway::interpreters
