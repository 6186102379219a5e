#pragma once

#include <cstddef>

#include "python/pythonText.h"
#include "standalone/TaggedEvent.h"

namespace standalone {

/// Writes Python values as members of an event, up to a number of bytes in all.
///
/// Threads: with the interpreter's lock.
class EventMembers {
public:
    explicit EventMembers(std::size_t limit) : limit_(limit) {}

    /// Adds the items of a dictionary to `members`, and the size of their JSON to `bytes`. False with a
    /// Python exception set: a ValueError for too much, else what JsonWriter or a key that is no text raises.
    bool add(PyObject* dictionary, TaggedEvent::Members& members);

    std::size_t bytes() const { return bytes_; }

private:
    const std::size_t limit_;
    std::size_t bytes_ = 0;
};

}  // namespace standalone
