#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/variant.hpp>

namespace connector::reactive_streams {

/// A value that changes over time, such as a configuration value.
using Value = boost::variant<bool, int, unsigned, double, std::u16string, std::string, std::vector<bool>,
                             std::vector<int>, std::vector<unsigned>, std::vector<double>,
                             std::vector<std::u16string>, std::vector<std::string>>;

/// Told of values as they come.  Threads: one call at a time, from any thread.
template <class T>
class SubscriberAPI {
public:
    virtual ~SubscriberAPI() = default;
    virtual void onNext(const T& value) = 0;
};

using Subscriber = SubscriberAPI<Value>;

/// Hands each value to a function.
class CallbackSubscriber : public Subscriber {
public:
    explicit CallbackSubscriber(std::function<void(const Value&)> callback)
        : callback_(std::move(callback)) {}
    void onNext(const Value& value) override { callback_(value); }

private:
    const std::function<void(const Value&)> callback_;
};

/// Ends a subscription when it is destroyed, or earlier by `cancel`.
class Canceller {
public:
    virtual ~Canceller() = default;
    /// After it returns the subscriber is not called any more. Does nothing the second time.
    virtual void cancel() = 0;
};

/// Keeps the subscriber of a subscription that it can end.
template <class T>
class TypedCanceller : public Canceller {
public:
    TypedCanceller(std::shared_ptr<SubscriberAPI<T>> subscriber, std::function<void()> cancel)
        : subscriber_(std::move(subscriber)), cancel_(std::move(cancel)) {}
    ~TypedCanceller() override { TypedCanceller::cancel(); }
    void cancel() override {
        if (auto cancel = std::exchange(cancel_, nullptr)) cancel();
    }

private:
    std::shared_ptr<SubscriberAPI<T>> subscriber_;
    std::function<void()> cancel_;
};

}  // namespace connector::reactive_streams
