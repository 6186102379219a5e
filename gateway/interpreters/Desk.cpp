#include "interpreters/Desk.h"

#include <utility>

#include "connector/json/escape.h"
#include "connector/wireWords.h"

namespace gateway::interpreters {

Desk::Desk(boost::asio::io_context& context, std::shared_ptr<messages::LocalMessageService> messages,
           std::unique_ptr<ports::InterpreterPort> port, Options options)
    : id_(std::move(options.id)),
      messages_(std::move(messages)),
      port_(std::move(port)),
      completions_(messages_->subscribe(connector::wire::channel::completion,
                                        [this](const auto& message) { countCompletion(message.data); })),
      absentClients_(std::make_shared<AbsentClientsSession>(context, messages_, options.standInTime)),
      kernel_(context, *port_,
              {.messages = messages_,
               .frameBytes = options.bayeux.frameBytes,
               .ownerWait = options.bayeux.ownerWait}),
      bayeux_(context, *messages_, *port_, std::move(options.bayeux)) {
    port_->setWatchers([this] { return bayeux_.sessions() + kernel_.connections(); });
}

void Desk::stop() {
    port_->stop();
    port_->setWatchers({});
    kernel_.stop();
    bayeux_.stop();
}

metrics::InterpreterSnapshot Desk::snapshot() const {
    return {.messages = messages_->metrics(),
            .port = port_->metrics(),
            .completions = {.successes = successes_, .failures = failures_},
            .bayeuxSessions = bayeux_.sessions(),
            .isReady = port_->isReady()};
}

void Desk::countCompletion(const std::string& data) {
    ++(data == connector::json::quoted(connector::wire::completion::success) ? successes_ : failures_);
}

void Desk::stopDeleted() {
    port_->stopDeleted();
    stop();
}

}  // namespace gateway::interpreters
