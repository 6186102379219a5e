#pragma once

#include <memory>

#include "connector/Future.h"
#include "connector/Message.h"

namespace connector {

/// A message that providers of the interface `P` take. `P` may be an incomplete type here.
template <class P>
class ServiceMessage : public Message {
public:
    /// Hands the message to the operation of `provider` for its class and returns what that returns.
    /// Owns: `self` is the pointer that holds this very message; it is empty afterwards, and the message may
    /// be gone. When it holds another object, it is left alone and the future has failed.
    virtual Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& self,
                                                     std::shared_ptr<P> provider) = 0;
};

}  // namespace connector
