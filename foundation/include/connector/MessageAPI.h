#pragma once

#include <memory>
#include <typeinfo>
#include <utility>

#include "connector/ServiceMessage.h"
#include "connector/detail/deliveryFailure.h"

namespace connector {

/// Base of the concrete message class `Msg`, which goes to `P::handle(std::unique_ptr<Msg>&&)`:
///
///     class Ask : public connector::MessageAPI<Ask, Oracle> { ... };
///
/// Both types are incomplete at that point. They must be complete by the end of each source file that
/// constructs or destroys an `Ask` in view of its constructor or destructor; so let the header of `Ask`
/// include the one of `Oracle`, which needs no more than a declaration of `Ask`.
template <class Msg, class P>
class MessageAPI : public ServiceMessage<P> {
public:
    Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& self,
                                             std::shared_ptr<P> provider) override {
        // Selects the typed overload by its exact type. Were it missing, a plain call would find the generic
        // handle, which would deliver the message again without end.
        Future<std::unique_ptr<Message>> (P::*const typedHandle)(std::unique_ptr<Msg> &&) = &P::handle;

        if (self.get() != this) {
            return detail::wrongMessageType("Unable to deliver to service. ", typeid(Msg), self.get());
        }
        static_cast<void>(self.release());
        std::unique_ptr<Msg> message(static_cast<Msg*>(this));
        return ((*provider).*typedHandle)(std::move(message));
    }
};

}  // namespace connector
