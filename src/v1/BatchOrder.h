#pragma once

#include <memory>

#include "connector/interpreter/v1/CoalescingTextBuffer.h"

namespace connector::interpreter::v1 {

/// Hands on the batches of a CoalescingTextBuffer one at a time, in the order in which they were made up.
///
/// The buffer may call its callback on two threads at once: text would overtake earlier text, and a message
/// that follows a flush the last batch before it. The buffer copies its callback, with its mutex held, for
/// each batch that it makes up, and then calls the copy without it. So the copies come in the order of the
/// batches: each takes a number, and its call waits until the copies before it are done.
///
/// Threads: any. Whoever delivers may use the buffer from within the delivery, and does not wait for itself
/// then.  Locks: that of the interpreter is released for waits and deliveries.
/// Blocks: while batches that were made up before are delivered. One that takes longer than two seconds is
/// given up, which is logged: nobody waits for it again, and what follows may overtake it.
class BatchOrder {
public:
    /// `deliver` runs with no lock held.
    explicit BatchOrder(CoalescingTextBuffer::Callback deliver);
    ~BatchOrder();

    /// What the buffer is to be given, once, as it is. It may outlive this object.
    CoalescingTextBuffer::Callback callback() const;

    /// Waits until what has been made up by now is delivered.
    void await() const;

private:
    struct Turns;
    class Turn;
    const std::shared_ptr<Turns> turns_;
};

}  // namespace connector::interpreter::v1
