#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "matrix/mxArray.h"
#include "nmutil/io/NMSink.h"

namespace cmddistributor {

/// The stream of requests that a request belongs to.
enum class IqmStreamID : std::int32_t {
    User = 0,      ///< code that a user asked for
    Internal = 1,  ///< work of the system itself
};

/// What the interpreter queue needs to run one request. The plug-in that is registered under `pluginName`
/// runs it.
class IIP {
public:
    IIP(std::string pluginName, IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
        std::shared_ptr<nmutil::io::NMSink> err)
        : pluginName_(std::move(pluginName)), stream_(stream), out_(std::move(out)), err_(std::move(err)) {}
    virtual ~IIP() = default;
    IIP(const IIP&) = delete;
    IIP& operator=(const IIP&) = delete;

    const std::string& pluginName() const { return pluginName_; }
    IqmStreamID getStreamID() const { return stream_; }
    const std::shared_ptr<nmutil::io::NMSink>& getOutputSink() const { return out_; }
    const std::shared_ptr<nmutil::io::NMSink>& getErrorSink() const { return err_; }

    /// What the request does, in words for a user.
    virtual std::u16string toCustomerFriendlyString() const = 0;
    /// Writes a line for diagnosis, in UTF-8.
    virtual void write(std::ostream& out) const;
    /// Whether the request could run in another process.
    virtual bool canBeSerialized() const { return false; }

private:
    const std::string pluginName_;
    const IqmStreamID stream_;
    const std::shared_ptr<nmutil::io::NMSink> out_;
    const std::shared_ptr<nmutil::io::NMSink> err_;
};

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
