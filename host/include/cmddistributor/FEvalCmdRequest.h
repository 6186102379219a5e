#pragma once

#include <cstdint>
#include <memory>

#include "cmddistributor/CmdRequest.h"
#include "cmddistributor/FEvalIIP.h"

namespace cmddistributor {

/// Asks for the call of a function.
class FEvalCmdRequest : public CmdRequest {
public:
    /// See FEvalIIP.
    FEvalCmdRequest(FEvalIIP::Function function, std::int32_t nargout, std::shared_ptr<FEvalIIP::Data> data,
                    IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
                    std::shared_ptr<nmutil::io::NMSink> err);

protected:
    std::shared_ptr<IIP> createIIP() override;

private:
    const FEvalIIP::Function function_;
    const std::int32_t nargout_;
    const std::shared_ptr<FEvalIIP::Data> data_;
};

}  // namespace cmddistributor
