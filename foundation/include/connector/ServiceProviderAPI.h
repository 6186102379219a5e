#pragma once

#include <exception>
#include <memory>
#include <typeinfo>
#include <utility>

#include "connector/ServiceMessage.h"
#include "connector/ServiceProvider.h"
#include "connector/ServiceStopped.h"
#include "connector/detail/deliveryFailure.h"

namespace connector {

/// Turns a message of unknown class into a call of the typed `handle` operation for its class. `P` is the
/// provider interface that declares those operations:
///
///     class Oracle : public ServiceProviderAPI<Oracle>, public std::enable_shared_from_this<Oracle> {
///     public:
///         using ServiceProviderAPI<Oracle>::handle;  // or the next line would hide it
///         virtual Future<std::unique_ptr<Message>> handle(std::unique_ptr<Ask>&&) = 0;
///     };
///
/// With the using-declaration an `Oracle` takes both kinds of pointer, and overload resolution picks the
/// typed operation for a `std::unique_ptr<Ask>`. A class that implements `Oracle` is best called through
/// `Oracle` or `ServiceProvider`, or repeats the using-declaration with `Oracle::handle`.
///
/// Owns: providers are held by shared pointers; each delivery holds one until `handle` returns.
template <class P>
class ServiceProviderAPI : public ServiceProvider {
public:
    /// Delivers `message`. A future that has failed comes back, with the message left where it is, when the
    /// provider is stopped (ServiceStopped) or the message is not for a `P`.
    /// Threads: any. Takes no lock.
    /// Throws: what the typed operation throws; std::bad_weak_ptr when no shared pointer holds the provider.
    Future<std::unique_ptr<Message>> handle(std::unique_ptr<Message>&& message) override {
        if (!isRunning())
            return makeFailedFuture<std::unique_ptr<Message>>(std::make_exception_ptr(ServiceStopped()));
        auto* const deliverable = dynamic_cast<ServiceMessage<P>*>(message.get());
        if (!deliverable) return detail::wrongMessageType("", typeid(ServiceMessage<P>), message.get());
        return deliverable->deliver(std::move(message), static_cast<P*>(this)->shared_from_this());
    }
};

}  // namespace connector
