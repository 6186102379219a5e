#pragma once

#include <memory>
#include <utility>

#include "cmddistributor/IIP.h"
#include "foundation/msg_svc/exchange/IDType.h"

namespace iqm {

/// What a plug-in is made from: the request that it is to run. Copyable.
class PluginOptions {
public:
    PluginOptions(foundation::msg_svc::exchange::IDType id, std::shared_ptr<cmddistributor::IIP> iip)
        : id_(id), iip_(std::move(iip)) {}

    foundation::msg_svc::exchange::IDType getID() const { return id_; }
    const std::shared_ptr<cmddistributor::IIP>& getIIP() const { return iip_; }

private:
    foundation::msg_svc::exchange::IDType id_;
    std::shared_ptr<cmddistributor::IIP> iip_;
};

}  // namespace iqm
