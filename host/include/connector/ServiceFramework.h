#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <typeindex>
#include <vector>

#include "connector/Future.h"
#include "connector/Message.h"
#include "connector/ServiceProvider.h"
#include "connector/common/ContextState.h"

namespace connector {

/// Names the place where a service is registered. The default is this process.
struct Address {
    std::string name;
    friend bool operator==(const Address&, const Address&) = default;
};

class ServiceFramework;

/// The way that a message has come to its provider.
struct Delivery {
    std::weak_ptr<ServiceFramework> framework;
    Address address;
};

/// Makes a delivery the current one of this thread while it is in scope; scopes nest. A framework does that
/// around each call of a provider, so that the provider can send messages of its own the same way.
class CurrentDelivery {
public:
    explicit CurrentDelivery(Delivery delivery);
    ~CurrentDelivery();
    CurrentDelivery(const CurrentDelivery&) = delete;
    CurrentDelivery& operator=(const CurrentDelivery&) = delete;

    /// The one of this thread; without a framework where none was set.
    static Delivery get();

private:
    Delivery previous_;
};

/// No service takes messages of a class. The text is that of a provider that refuses one: "Incorrect message
/// type. Expected: ", the classes that are taken, " but found " and the class.
class NoService : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

/// Holds the service providers and delivers messages to them.
///
/// Threads: every operation from any thread. `deliver` runs the provider's `handle` on the calling thread.
class ServiceFramework {
public:
    virtual ~ServiceFramework() = default;

    /// Messages of the classes `messages` sent to `address` go to `provider`, which is started. A later
    /// registration takes the place of an earlier one.
    virtual void registerService(const Address& address, std::vector<std::type_index> messages,
                                 std::shared_ptr<ServiceProvider> provider) = 0;

    /// Stops `provider` and takes it out. Messages that it is handling end as its stop hook says.
    virtual void unregisterService(const std::shared_ptr<ServiceProvider>& provider) = 0;

    /// Delivers `message` with `context`, or with an empty one where it is null, as the current context and
    /// with this framework and `address` as the CurrentDelivery.
    /// Returns the provider's future; one that has failed with NoService when no service takes messages of
    /// that class.
    virtual Future<std::unique_ptr<Message>> deliver(const Address& address, std::unique_ptr<Message> message,
                                                     std::shared_ptr<common::ContextState> context) = 0;
};

}  // namespace connector
