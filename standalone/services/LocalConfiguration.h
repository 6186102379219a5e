#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/configuration/Configuration.h"

namespace standalone {

/// Configuration values kept in memory.
///
/// Threads: any.  Locks: mutex_, a leaf; subscribers are called without it.
class LocalConfiguration : public connector::configuration::Configuration,
                           public std::enable_shared_from_this<LocalConfiguration> {
public:
    using Value = connector::reactive_streams::Value;
    using Subscriber = connector::reactive_streams::Subscriber;

    explicit LocalConfiguration(const std::map<std::string, std::string>& values);

    boost::optional<Value> get(const std::string& key) const override CONNECTOR_EXCLUDES(mutex_);
    std::unique_ptr<connector::reactive_streams::Canceller> subscribe(
        const std::string& key, std::shared_ptr<Subscriber> subscriber) override CONNECTOR_EXCLUDES(mutex_);

    /// Changes a value and tells its subscribers, on this thread.
    void set(const std::string& key, Value value) CONNECTOR_EXCLUDES(mutex_);

private:
    struct Entry {
        boost::optional<Value> value;
        std::vector<std::shared_ptr<Subscriber>> subscribers;
    };

    mutable connector::Mutex mutex_;
    std::unordered_map<std::string, Entry> entries_ CONNECTOR_GUARDED_BY(mutex_);
};

}  // namespace standalone
