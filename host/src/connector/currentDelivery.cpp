#include <utility>

#include "connector/ServiceFramework.h"

namespace connector {

namespace {

thread_local Delivery current;

}  // namespace

CurrentDelivery::CurrentDelivery(Delivery delivery)
    : previous_(std::exchange(current, std::move(delivery))) {}

CurrentDelivery::~CurrentDelivery() { current = std::move(previous_); }

Delivery CurrentDelivery::get() { return current; }

}  // namespace connector
