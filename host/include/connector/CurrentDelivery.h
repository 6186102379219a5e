#pragma once

#include <memory>

#include "connector/Address.h"

namespace connector {

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

}  // namespace connector
