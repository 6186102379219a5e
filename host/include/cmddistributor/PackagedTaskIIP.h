#pragma once

#include <functional>
#include <utility>

#include "cmddistributor/IIP.h"

namespace cmddistributor {

/// A task to call on the interpreter thread. It runs without a plug-in.
class PackagedTaskIIP : public IIP {
public:
    PackagedTaskIIP(std::function<void()> task, IqmStreamID stream)
        : IIP({}, stream, nullptr, nullptr), task_(std::move(task)) {}

    void run() const { task_(); }
    std::u16string toCustomerFriendlyString() const override { return u"internal task"; }

private:
    const std::function<void()> task_;
};

}  // namespace cmddistributor
