#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "cmddistributor/IIP.h"
#include "connector/Promise.h"
#include "connector/interpreter/ConnectorExecutionStatuses.h"

namespace connector::interpreter {

/// Code to evaluate with its output captured, and how the evaluation is answered. Immutable.
class ConnectorEvalIIP : public cmddistributor::EvalIIP {
public:
    using StatusPromise = std::shared_ptr<Promise<ConnectorExecutionStatuses>>;

    /// `columns` and `rows` are the client's window size in characters; `columns` of 0 or less leaves the
    /// host's.
    ConnectorEvalIIP(StatusPromise promise, std::int32_t columns, std::int32_t rows, std::string pluginName,
                     cmddistributor::IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
                     std::shared_ptr<nmutil::io::NMSink> err, std::u16string code)
        : EvalIIP(std::move(pluginName), stream, std::move(out), std::move(err), std::move(code)),
          promise_(std::move(promise)),
          columns_(columns),
          rows_(rows) {}

    const StatusPromise& promise() const { return promise_; }
    std::int32_t columns() const { return columns_; }
    std::int32_t rows() const { return rows_; }

    /// The promise belongs to this process.
    bool canBeSerialized() const override { return false; }

private:
    const StatusPromise promise_;
    const std::int32_t columns_;
    const std::int32_t rows_;
};

}  // namespace connector::interpreter
