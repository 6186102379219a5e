#pragma once

#include <map>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "connector/ServiceFramework.h"
#include "connector/ThreadSafety.h"

namespace messages {

/// The services of this process, found by address and class of message.
///
/// Threads: any.  Locks: mutex_, a leaf; providers are called without it.
class LocalServiceFramework : public connector::ServiceFramework,
                              public std::enable_shared_from_this<LocalServiceFramework> {
public:
    void registerService(const connector::Address& address, std::vector<std::type_index> messages,
                         std::shared_ptr<connector::ServiceProvider> provider) override
        CONNECTOR_EXCLUDES(mutex_);
    void unregisterService(const std::shared_ptr<connector::ServiceProvider>& provider) override
        CONNECTOR_EXCLUDES(mutex_);
    connector::Future<std::unique_ptr<connector::Message>> deliver(
        const connector::Address& address, std::unique_ptr<connector::Message> message,
        std::shared_ptr<connector::common::ContextState> context) override CONNECTOR_EXCLUDES(mutex_);

private:
    using Key = std::pair<std::string, std::type_index>;

    std::shared_ptr<connector::ServiceProvider> find(const Key& key) CONNECTOR_EXCLUDES(mutex_);
    /// The names of the classes of message that a service accepts at `address`, for the text of a refusal.
    std::string acceptedAt(const std::string& address) CONNECTOR_EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::map<Key, std::shared_ptr<connector::ServiceProvider>> providers_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace messages
