#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "cmddistributor/IIP.h"
#include "foundation/numoradata/Array.h"

namespace cmddistributor {

/// A function to call. It runs without a plug-in and is answered with an FEvalResult.
class FEvalIIP : public IIP {
public:
    using Array = foundation::numoradata::Array;
    /// A function by its name in UTF-8, or by a handle, a char array with the name.
    using Function = std::variant<std::string, std::shared_ptr<const Array>>;

    /// What the function is called with. The interpreter thread, which runs the request once, may move the
    /// arrays out.
    struct Data {
        std::vector<matrix::ArrayPtr> arguments;
    };

    /// `nargout` is how many results are wanted. `data` must not be null.
    FEvalIIP(Function function, std::int32_t nargout, std::shared_ptr<Data> data, IqmStreamID stream,
             std::shared_ptr<nmutil::io::NMSink> out, std::shared_ptr<nmutil::io::NMSink> err)
        : IIP({}, stream, std::move(out), std::move(err)),
          function_(std::move(function)),
          nargout_(nargout),
          data_(std::move(data)) {}

    const Function& function() const { return function_; }
    std::int32_t nargout() const { return nargout_; }
    const std::shared_ptr<Data>& data() const { return data_; }

    /// The function's name.
    std::u16string toCustomerFriendlyString() const override;

private:
    const Function function_;
    const std::int32_t nargout_;
    const std::shared_ptr<Data> data_;
};

}  // namespace cmddistributor
