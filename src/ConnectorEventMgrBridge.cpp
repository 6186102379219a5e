#include "connector/interpreter/ConnectorEventMgrBridge.h"

#include <charconv>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/exception/diagnostic_information.hpp>

#include "connector/ThreadSafety.h"
#include "connector/wireWords.h"
#include "event_json_converter/EventToJsonConverter.h"
#include "fl/i18n/text.h"
#include "foundation/cppmicroservices/framework.h"
#include "foundation/json/Value.h"
#include "foundation/log/diagnostic_logger.h"
#include "foundation/msg_svc/eventmgr/EventMgr.h"
#include "v1/converters.h"

namespace connector::interpreter {

using foundation::msg_svc::eventmgr::BaseEvent;
using foundation::msg_svc::eventmgr::EventMgr;
using foundation::msg_svc::eventmgr::ScopedConnection;
using message_service::MessageService;
using message_service::Subscription;
using Logger = foundation::log::DiagnosticLogger;

namespace {

constexpr std::string_view prefix = wire::channel::events;
constexpr const char* converterBundle = R"(bin\win64\json_event_converter)";

void startConverters() {
    static std::once_flag once;
    std::call_once(once, [] { foundation::cppmicroservices::installAndStart(converterBundle); });
}

std::vector<std::string> pieces(std::string_view channel) {
    std::vector<std::string> all;
    for (;;) {
        const auto end = channel.find('/');
        all.emplace_back(channel.substr(0, end));
        if (end == std::string_view::npos) return all;
        channel.remove_prefix(end + 1);
    }
}

/// The event manager of the interpreter with this id, or of the local one when that is no number.
std::shared_ptr<EventMgr> eventManager(const std::string& id, const Logger& logger) {
    zvm::ZvmID number = 0;
    const char* const end = id.data() + id.size();
    const auto parsed = std::from_chars(id.data(), end, number);
    if (parsed.ec == std::errc() && parsed.ptr == end) return nmutil::eventmgr::createLocalEventMgr(number);
    logger.warning("Malformed ZvmID: " + id);
    return nmutil::eventmgr::createLocalEventMgr();
}

void forward(const BaseEvent& event, const std::string& tag, const std::string& channel,
             MessageService& messages, const Logger& logger) {
    try {
        const auto converter = v1::converterFor(tag);
        if (!converter) return;
        std::map<std::string, foundation::json::Value> members;
        converter->convert(event, members);
        const std::string text = foundation::json::serialize(foundation::json::Value(std::move(members)));
        messages.publish(channel, common::DataBuffer(text));
    } catch (const std::exception& error) {
        logger.error(std::string("Event forwarding failed: ") + error.what());
    } catch (...) {
        logger.error("Exception caught: " + boost::current_exception_diagnostic_information());
    }
}

}  // namespace

/// Notices and events reach it through weak references.
class ConnectorEventMgrBridge::Impl : public std::enable_shared_from_this<Impl> {
public:
    void privateInit(std::shared_ptr<MessageService> messages) CONNECTOR_EXCLUDES(mutex_);
    /// Blocks: while handlers run.
    void end() CONNECTOR_EXCLUDES(mutex_);

    template <class Action>
    void guarded(const Action& action) const {
        try {
            action();
        } catch (...) {
            logger_.error("Exception caught: " + boost::current_exception_diagnostic_information());
        }
    }

private:
    struct Entry {
        std::uint64_t count = 1;
        ScopedConnection connection;
    };

    void handleSubscribe(const std::string& channel) CONNECTOR_EXCLUDES(mutex_);
    void handleUnsubscribe(const std::string& channel) CONNECTOR_EXCLUDES(mutex_);
    ScopedConnection connect(const std::string& channel, const std::string& id, const std::string& tag)
        CONNECTOR_REQUIRES(mutex_);

    const Logger logger_{"connector::interpreter::v1::EventMgrBridge"};

    Mutex mutex_;
    bool hasEnded_ CONNECTOR_GUARDED_BY(mutex_) = false;
    std::shared_ptr<MessageService> messages_ CONNECTOR_GUARDED_BY(mutex_);
    std::unordered_map<std::string, Entry> channels_ CONNECTOR_GUARDED_BY(mutex_);
    std::unique_ptr<Subscription> notices_ CONNECTOR_GUARDED_BY(mutex_);
};

// One watch for both kinds of notices: the order of a client's notices holds within a watch only.
void ConnectorEventMgrBridge::Impl::privateInit(std::shared_ptr<MessageService> messages) {
    startConverters();
    if (!messages) return;
    {
        MutexLock lock(mutex_);
        messages_ = messages;
    }
    const auto notified = [this](void (Impl::*handle)(const std::string&)) {
        return [weak = weak_from_this(), handle](const auto& event) {
            const auto self = weak.lock();
            if (self) self->guarded([&] { (*self.*handle)(event.channel); });
        };
    };
    auto notices = messages->watch(std::string(prefix) + "/**", notified(&Impl::handleSubscribe),
                                   notified(&Impl::handleUnsubscribe));
    MutexLock lock(mutex_);
    if (!hasEnded_) notices_ = std::move(notices);
}

void ConnectorEventMgrBridge::Impl::end() {
    std::unique_ptr<Subscription> notices;
    {
        MutexLock lock(mutex_);
        hasEnded_ = true;
        notices = std::move(notices_);
    }
    notices.reset();
    std::unordered_map<std::string, Entry> channels;  // end after the lock
    MutexLock lock(mutex_);
    channels.swap(channels_);
}

void ConnectorEventMgrBridge::Impl::handleSubscribe(const std::string& channel) {
    if (!channel.starts_with(prefix)) return;
    const auto names = pieces(channel);
    if (names.size() != 4) {
        logger_.warning("Malformed subscription request: " + channel);
        return;
    }
    MutexLock lock(mutex_);
    if (const auto found = channels_.find(channel); found != channels_.end()) {
        ++found->second.count;
        logger_.debug("Incref for channel " + channel);
        return;
    }
    channels_.emplace(channel, Entry{1, connect(channel, names[2], names[3])});
    logger_.debug("Subscribed to channel " + channel);
}

ScopedConnection ConnectorEventMgrBridge::Impl::connect(const std::string& channel, const std::string& id,
                                                        const std::string& tag) {
    const auto handler = [messages = messages_, logger = logger_, channel, tag](const BaseEvent& event) {
        forward(event, tag, channel, *messages, logger);
    };
    const auto manager = eventManager(id, logger_);
    return ScopedConnection(manager->subscribe<BaseEvent>(handler, fl::i18n::to_ustring(tag)));
}

void ConnectorEventMgrBridge::Impl::handleUnsubscribe(const std::string& channel) {
    if (!channel.starts_with(prefix)) return;
    ScopedConnection ended;  // waits for its handler, after the lock; no other notice is handled before
    MutexLock lock(mutex_);
    const auto found = channels_.find(channel);
    if (found == channels_.end()) {
        logger_.warning("Unexpected unsubscribe from channel " + channel);
    } else if (found->second.count == 1) {
        ended = std::move(found->second.connection);
        channels_.erase(found);
        logger_.debug("Unsubscribed from channel " + channel);
    } else {
        --found->second.count;
        logger_.debug("Decref for channel " + channel);
    }
}

ConnectorEventMgrBridge::ConnectorEventMgrBridge(
    const std::shared_ptr<message_service::MessageServiceFactory>& factory)
    : impl_(std::make_shared<Impl>()) {
    auto future = factory->create("eventmgr", {});
    if (!future.valid()) throw std::runtime_error("Future state isn't valid!");
    future.then([weak = std::weak_ptr(impl_)](Future<std::shared_ptr<MessageService>> ready) {
        const auto self = weak.lock();
        if (self) self->guarded([&] { self->privateInit(ready.get()); });
    });
}

ConnectorEventMgrBridge::~ConnectorEventMgrBridge() { impl_->end(); }

}  // namespace connector::interpreter
