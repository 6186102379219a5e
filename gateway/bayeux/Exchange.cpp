#include "bayeux/Exchange.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "bayeux/Connection.h"
#include "bayeux/Core.h"
#include "bayeux/Session.h"
#include "bayeux/handshake.h"
#include "bayeux/replies.h"
#include "foundation/log/diagnostic_logger.h"

namespace gateway::bayeux {

namespace {

std::string internalError(const Request& request, const Core& core, const char* reason) {
    foundation::log::DiagnosticLogger("gateway::bayeux")
        .error("A message could not be handled: " + std::string(reason));
    const bool isAdvised = request.channel() == connectChannel || request.channel() == handshakeChannel;
    return failed(request, errorText(500, "internal error"),
                  isAdvised ? core.advice.retry(std::chrono::seconds(1)) : "");
}

}  // namespace

void Exchange::start(const std::shared_ptr<Exchange>& exchange) {
    if (const auto connection = exchange->connection()) connection->beginExchange();
    exchange->run();
}

void Exchange::run() {
    for (; next_ < requests_.size(); ++next_) {
        const Request& request = requests_[next_];
        try {
            if (!handle(request)) return;
        } catch (const std::exception& error) {
            add(internalError(request, *core_, error.what()));
        }
    }
    flush();
    if (const auto socket = connection()) socket->endExchange();
}

bool Exchange::handle(const Request& request) {
    if (request.channel().empty()) {
        add(failed(request, errorText(400, "missing channel")));
        return true;
    }
    if (request.channel() == handshakeChannel) {
        add(answerHandshake(core_, request, *this));
        return true;
    }
    const auto session = core_->sessions.find(request.clientId());
    if (!session || !session->belongsTo(peer())) {
        add(unknownClient(request, core_->advice));
        return true;
    }
    trust();
    if (!session->strand().isCurrent()) {
        session->strand().dispatch([self = shared_from_this()] { self->run(); });
        return false;
    }
    session->handle(request, *this);
    return true;
}

void Exchange::add(std::string_view messages) {
    if (messages.empty()) return;
    messages_.append(messages_.empty() ? "[" : ",").append(messages);
}

void Exchange::flush() {
    if (messages_.empty()) return;
    messages_.push_back(']');
    send(std::exchange(messages_, {}));
}

void PostExchange::send(std::string array) { answer({200, inAscii(std::move(array))}); }

void PostExchange::answer(HttpAnswer answer) {
    if (isAbandoned_ || !done_) return;
    std::exchange(done_, nullptr)(std::move(answer));
}

// Only a request that is alone is held, so the session of the first one has to know.
void PostExchange::end(bool isWritten) {
    isAbandoned_ = true;
    const auto session = core_->sessions.find(requests_.front().clientId());
    if (!session) return;
    session->strand().post(
        [session, isWritten, self = shared_from_this()] { session->release(*self, isWritten); });
}

const Peer& SocketExchange::peer() const { return connection_->peer(); }

void SocketExchange::trust() { connection_->trust(); }

bool SocketExchange::canHold() const {
    return std::ranges::all_of(requests_, [this](const Request& request) {
        return request.clientId() == requests_.front().clientId();
    });
}

bool SocketExchange::isAbandoned() const { return connection_->isClosed(); }

void SocketExchange::send(std::string array) { connection_->send(std::move(array), true); }

}  // namespace gateway::bayeux
