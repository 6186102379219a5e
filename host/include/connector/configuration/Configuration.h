#pragma once

#include <memory>
#include <string>

#include <boost/optional.hpp>

#include "connector/reactive_streams/Subscriber.h"

namespace connector::configuration {

/// The environment's configuration: named values that may change while the process runs.
///
/// Threads: every operation from any thread.
class Configuration {
public:
    virtual ~Configuration() = default;

    virtual boost::optional<reactive_streams::Value> get(const std::string& key) const = 0;

    /// Tells `subscriber` each new value of `key`. The subscription ends when the canceller is destroyed.
    virtual std::unique_ptr<reactive_streams::Canceller> subscribe(
        const std::string& key, std::shared_ptr<reactive_streams::Subscriber> subscriber) = 0;

    /// The string value of `key`, or `otherwise` where it is absent or not a string.
    std::string getText(const std::string& key, const std::string& otherwise) const {
        const auto value = get(key);
        const std::string* text = value ? boost::get<std::string>(&*value) : nullptr;
        return text ? *text : otherwise;
    }
};

}  // namespace connector::configuration
