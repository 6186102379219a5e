#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "cmddistributor/IIP.h"
#include "cmddistributor/IIPResult.h"

namespace cmddistributor {

/// One request to a command distributor. Built on any thread, then read by the interpreter thread alone.
class CmdRequest {
public:
    CmdRequest(IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
               std::shared_ptr<nmutil::io::NMSink> err)
        : stream_(stream), out_(std::move(out)), err_(std::move(err)) {}
    virtual ~CmdRequest() = default;
    CmdRequest(const CmdRequest&) = delete;
    CmdRequest& operator=(const CmdRequest&) = delete;

    /// What the queue runs; made at the first call, the same at each.
    /// Throws: std::logic_error, "request must contain an IIP.", when the request makes none.
    const std::shared_ptr<IIP>& getIIP();

    const std::shared_ptr<nmutil::io::NMSink>& getOutputSink() const { return out_; }
    const std::shared_ptr<nmutil::io::NMSink>& getErrorSink() const { return err_; }
    IqmStreamID getStreamID() const { return stream_; }

protected:
    virtual std::shared_ptr<IIP> createIIP() = 0;

private:
    const IqmStreamID stream_;
    const std::shared_ptr<nmutil::io::NMSink> out_;
    const std::shared_ptr<nmutil::io::NMSink> err_;
    std::shared_ptr<IIP> iip_;
};

template <class Request>
struct CmdRequestTraits;

template <>
struct CmdRequestTraits<CmdRequest> {
    /// Rethrows the failure that `result` carries, if any.  Throws: RuntimeException.
    static void extractResult(const IIPResult& result);
};

/// Asks for the evaluation of code, by the plug-in registered as `pluginName`.
class EvalCmdRequest : public CmdRequest {
public:
    /// `isInternal` marks code of the system itself, which leaves no trace in the user's history.
    EvalCmdRequest(bool isInternal, IqmStreamID stream, std::shared_ptr<nmutil::io::NMSink> out,
                   std::shared_ptr<nmutil::io::NMSink> err, std::u16string code, std::string pluginName);

    bool isInternal() const { return isInternal_; }

protected:
    std::shared_ptr<IIP> createIIP() override;
    const std::u16string& code() const { return code_; }
    const std::string& pluginName() const { return pluginName_; }

private:
    const bool isInternal_;
    const std::u16string code_;
    const std::string pluginName_;
};

/// Asks for the call of a task on the interpreter thread.
class PackagedTaskCmdRequest : public CmdRequest {
public:
    explicit PackagedTaskCmdRequest(std::function<void()> task);

protected:
    std::shared_ptr<IIP> createIIP() override;

private:
    std::function<void()> task_;
};

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
