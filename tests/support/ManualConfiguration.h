#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "connector/configuration/Configuration.h"

namespace fake {

/// A configuration whose values a test sets.  Owns: subscriptions end before the configuration does.
class ManualConfiguration : public connector::configuration::Configuration {
public:
    using Value = connector::reactive_streams::Value;
    using Subscriber = connector::reactive_streams::Subscriber;

    /// Sets the value and tells its subscribers before it returns.
    void set(const std::string& key, const Value& value) {
        const std::lock_guard lock(mutex_);
        values_[key] = value;
        for (const auto& [number, subscription] : std::map(subscriptions_)) {
            if (subscription.first == key && subscriptions_.contains(number))
                subscription.second->onNext(value);
        }
    }

    boost::optional<Value> get(const std::string& key) const override {
        const std::lock_guard lock(mutex_);
        const auto found = values_.find(key);
        return found == values_.end() ? boost::none : boost::make_optional(found->second);
    }

    std::unique_ptr<connector::reactive_streams::Canceller> subscribe(
        const std::string& key, std::shared_ptr<Subscriber> subscriber) override {
        const std::lock_guard lock(mutex_);
        const int number = ++lastSubscription_;
        subscriptions_.emplace(number, std::pair(key, subscriber));
        return std::make_unique<connector::reactive_streams::TypedCanceller<Value>>(
            std::move(subscriber), [this, number] {
                const std::lock_guard innerLock(mutex_);
                subscriptions_.erase(number);
            });
    }

private:
    mutable std::recursive_mutex mutex_;  // subscribers may use the configuration
    std::map<std::string, Value> values_;
    std::map<int, std::pair<std::string, std::shared_ptr<Subscriber>>> subscriptions_;
    int lastSubscription_ = 0;
};

}  // namespace fake
