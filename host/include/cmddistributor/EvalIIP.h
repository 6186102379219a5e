#pragma once

#include <string>
#include <utility>

#include "cmddistributor/IIP.h"

namespace cmddistributor {

/// Code to evaluate, in UTF-16.
class EvalIIP : public IIP {
public:
    EvalIIP(std::string pluginName, IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
            std::shared_ptr<nmutil::io::NMSink> err, std::u16string code)
        : IIP(std::move(pluginName), stream, std::move(out), std::move(err)), code_(std::move(code)) {}

    const std::u16string& code() const { return code_; }
    std::u16string toCustomerFriendlyString() const override { return code_; }
    bool canBeSerialized() const override { return true; }

private:
    const std::u16string code_;
};

}  // namespace cmddistributor
