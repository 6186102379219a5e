#pragma once

#include <cstddef>

#include "connector/Message.h"

namespace connector::interpreter::v1 {

/// Takes the texts of `response`, which may be null or a sequence, from `room`. Texts that are longer than
/// that are replaced by a fault that says so.  Units: UTF-16 code units, and bytes of faults.
void takeRoom(std::size_t& room, connector::Message* response);

}  // namespace connector::interpreter::v1
