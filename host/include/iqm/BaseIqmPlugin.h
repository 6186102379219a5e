#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <boost/optional.hpp>

#include "cmddistributor/IIPResult.h"
#include "cmddistributor/RuntimeException.h"
#include "iqm/PluginOptions.h"
#include "iqm/Workspace.h"

namespace iqm {

/// Runs one request. The host calls `pre`, `execute`, in case of an error `processMFileError`, then `post` in
/// any case in which `pre` returned, and `createResult` at the end.
///
/// Threads: the interpreter thread.
class BaseIqmPlugin {
public:
    explicit BaseIqmPlugin(PluginOptions options) : options_(std::move(options)) {}
    virtual ~BaseIqmPlugin() = default;
    BaseIqmPlugin(const BaseIqmPlugin&) = delete;
    BaseIqmPlugin& operator=(const BaseIqmPlugin&) = delete;

    virtual void pre() {}
    virtual void post() {}
    /// Throws: cmddistributor::RuntimeException, when the code ended in an error.
    virtual void execute(Workspace& workspace) = 0;
    /// Told once about the error that `execute` ended with, after it was shown.
    virtual void processMFileError() {}

    virtual std::unique_ptr<cmddistributor::IIPResult> createResult(
        boost::optional<cmddistributor::RuntimeException> exception) const {
        return std::make_unique<cmddistributor::IIPResult>(getID(), std::move(exception));
    }
    virtual bool isInstanceOf(std::string_view name) const { return name == getBaseIIP()->pluginName(); }
    /// Who asked for the evaluation.
    virtual std::string getEvalSource() const { return getBaseIIP()->pluginName(); }

    const std::shared_ptr<cmddistributor::IIP>& getBaseIIP() const { return options_.getIIP(); }
    foundation::msg_svc::exchange::IDType getID() const { return options_.getID(); }

private:
    const PluginOptions options_;
};

/// A plug-in for requests whose payload is an `Iip`.
template <class Iip>
class IqmPlugin : public BaseIqmPlugin {
public:
    using BaseIqmPlugin::BaseIqmPlugin;

    /// The payload.  Throws: std::bad_cast, when the request carries another one.
    const Iip& iip() const { return dynamic_cast<const Iip&>(*getBaseIIP()); }
};

}  // namespace iqm
