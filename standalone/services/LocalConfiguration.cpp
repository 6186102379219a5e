#include "services/LocalConfiguration.h"

#include <utility>

namespace standalone {

LocalConfiguration::LocalConfiguration(const std::map<std::string, std::string>& values) {
    for (const auto& [key, value] : values) entries_[key].value = Value(value);
}

boost::optional<LocalConfiguration::Value> LocalConfiguration::get(const std::string& key) const {
    connector::MutexLock lock(mutex_);
    const auto found = entries_.find(key);
    return found == entries_.end() ? boost::none : found->second.value;
}

std::unique_ptr<connector::reactive_streams::Canceller> LocalConfiguration::subscribe(
    const std::string& key, std::shared_ptr<Subscriber> subscriber) {
    {
        connector::MutexLock lock(mutex_);
        entries_[key].subscribers.push_back(subscriber);
    }
    auto cancel = [weak = weak_from_this(), key, raw = subscriber.get()] {
        const auto self = weak.lock();
        if (!self) return;
        connector::MutexLock lock(self->mutex_);
        std::erase_if(self->entries_[key].subscribers, [raw](const auto& held) { return held.get() == raw; });
    };
    return std::make_unique<connector::reactive_streams::TypedCanceller<Value>>(std::move(subscriber),
                                                                                std::move(cancel));
}

void LocalConfiguration::set(const std::string& key, Value value) {
    std::vector<std::shared_ptr<Subscriber>> subscribers;
    {
        connector::MutexLock lock(mutex_);
        Entry& entry = entries_[key];
        entry.value = value;
        subscribers = entry.subscribers;
    }
    for (const auto& subscriber : subscribers) subscriber->onNext(value);
}

}  // namespace standalone
