#include "bundles/OperationGate.h"

#include <stdexcept>

namespace cppmicroservices::detail {

using connector::MutexLock;

void OperationGate::enter() {
    const auto self = std::this_thread::get_id();
    MutexLock lock(mutex_);
    if (inside_ == self)
        throw std::runtime_error("A bundle cannot be started or stopped by its own activator.");
    while (inside_ != std::thread::id()) left_.wait(lock.native());
    inside_ = self;
}

void OperationGate::leave() {
    MutexLock lock(mutex_);
    inside_ = std::thread::id();
    left_.notify_one();
}

}  // namespace cppmicroservices::detail
