#pragma once

#include <iosfwd>
#include <utility>
#include <vector>

#include "cmddistributor/IIPResult.h"
#include "matrix/mxArray.h"

namespace cmddistributor {

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
