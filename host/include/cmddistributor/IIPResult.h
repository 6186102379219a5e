#pragma once

#include <utility>

#include <boost/optional.hpp>

#include "cmddistributor/RuntimeException.h"
#include "foundation/msg_svc/exchange/IDType.h"

namespace cmddistributor {

/// How one request ended.
class IIPResult {
public:
    IIPResult(foundation::msg_svc::exchange::IDType id, boost::optional<RuntimeException> exception)
        : id_(id), exception_(std::move(exception)) {}
    virtual ~IIPResult() = default;

    foundation::msg_svc::exchange::IDType id() const { return id_; }
    const boost::optional<RuntimeException>& exception() const { return exception_; }
    nmutil::cmddistributor::inExecutionStatus getExecutionStatus() const {
        return exception_ ? exception_->getExecutionStatus() : nmutil::cmddistributor::EXECUTION_OK;
    }

private:
    foundation::msg_svc::exchange::IDType id_;
    boost::optional<RuntimeException> exception_;
};

}  // namespace cmddistributor
