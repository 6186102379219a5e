#pragma once

#include <iosfwd>
#include <utility>
#include <vector>

#include <boost/optional.hpp>

#include "cmddistributor/RuntimeException.h"
#include "matrix/mxArray.h"
#include "zvm/identities.h"

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

/// How a function call ended, with what the function returned.
class FEvalResult : public IIPResult {
public:
    FEvalResult(foundation::msg_svc::exchange::IDType id, boost::optional<RuntimeException> exception,
                std::vector<matrix::ArrayPtr> outputs = {})
        : IIPResult(id, std::move(exception)), outputs_(std::move(outputs)) {}

    /// The delegate that is given the result may move text out of the arrays; nobody reads them after it.
    const std::vector<matrix::ArrayPtr>& outputs() const { return outputs_; }

    /// Writes a line for diagnosis, in UTF-8: the failure, or the classes and sizes of the outputs.
    void fillStream(std::ostream& out) const;

private:
    const std::vector<matrix::ArrayPtr> outputs_;
};

}  // namespace cmddistributor
