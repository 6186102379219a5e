#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "cmddistributor/CmdRequest.h"
#include "connector/interpreter/ConnectorEvalIIP.h"
#include "connector/interpreter/ConnectorEvalPlugin.h"

namespace connector::interpreter {

/// Asks the interpreter queue for a captured evaluation of a user's code, answered through `promise`.
class ConnectorEvalCmdRequest : public cmddistributor::EvalCmdRequest {
public:
    /// The window size is as in ConnectorEvalIIP; null sinks stand for the active command window, which
    /// captures.
    ConnectorEvalCmdRequest(std::u16string code, ConnectorEvalIIP::StatusPromise promise,
                            std::int32_t columns, std::int32_t rows,
                            std::shared_ptr<nmutil::io::NMSink> outSink,
                            std::shared_ptr<nmutil::io::NMSink> errSink)
        : EvalCmdRequest(false, cmddistributor::IqmStreamID::User, std::move(outSink), std::move(errSink),
                         std::move(code), ConnectorEvalPlugin::registeredName),
          promise_(std::move(promise)),
          columns_(columns),
          rows_(rows) {}

protected:
    std::shared_ptr<cmddistributor::IIP> createIIP() override {
        return std::make_shared<ConnectorEvalIIP>(promise_, columns_, rows_, pluginName(), getStreamID(),
                                                  getOutputSink(), getErrorSink(), code());
    }

private:
    const ConnectorEvalIIP::StatusPromise promise_;
    const std::int32_t columns_;
    const std::int32_t rows_;
};

}  // namespace connector::interpreter
