#pragma once

#include <memory>
#include <string>
#include <utility>

#include "connector/ThreadSafety.h"
#include "connector/message_service/MessageService.h"
#include "host/Environment.h"
#include "v1/log.h"

namespace connector::interpreter::v1 {

/// Publishes for a service, from when there is a message service until the service ends. What comes before
/// and after is dropped.
///
/// Threads: any.  Locks: mutex_, not while a message is published, nor that of the interpreter: who handles
/// it in the process may need that, or take its time.
class Publisher {
public:
    void open(std::shared_ptr<message_service::MessageService> messages) CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        messages_ = std::move(messages);
    }
    void close() CONNECTOR_EXCLUDES(mutex_) { open(nullptr); }

    void publish(const std::string& channel, const common::DataBuffer& data) const
        CONNECTOR_EXCLUDES(mutex_) {
        if (asyncLog().isEnabled(Severity::Debug)) {
            asyncLog().debug("Publishing: " + channel + ": " + std::string(data.view()));
        }
        if (const auto messages = current()) host::unlocked([&] { messages->publish(channel, data); });
    }

private:
    std::shared_ptr<message_service::MessageService> current() const CONNECTOR_EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return messages_;
    }

    mutable Mutex mutex_;
    std::shared_ptr<message_service::MessageService> messages_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace connector::interpreter::v1
