#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <boost/optional.hpp>

#include "cmddistributor/IIP.h"
#include "cmddistributor/IIPResult.h"
#include "cmddistributor/RuntimeException.h"
#include "zvm/identities.h"

namespace nmutil {

/// Keeps a factory registered. Destroying it takes the factory out again. Move-only.
///
/// Threads: any, one at a time.
class ScopedFactoryRegistration {
public:
    ScopedFactoryRegistration() = default;
    explicit ScopedFactoryRegistration(std::function<void()> unregister)
        : unregister_(std::move(unregister)) {}
    ~ScopedFactoryRegistration() { reset(); }
    ScopedFactoryRegistration(ScopedFactoryRegistration&& other) noexcept
        : unregister_(std::exchange(other.unregister_, nullptr)) {}
    ScopedFactoryRegistration& operator=(ScopedFactoryRegistration&& other) noexcept {
        if (this != &other) {
            reset();
            unregister_ = std::exchange(other.unregister_, nullptr);
        }
        return *this;
    }

    /// Unregisters now. Does nothing the second time.
    void reset() {
        if (auto unregister = std::exchange(unregister_, nullptr)) unregister();
    }

private:
    std::function<void()> unregister_;
};

}  // namespace nmutil

namespace iqm {

/// The set of variables that code runs in. What it is belongs to the interpreter.
class Workspace {
public:
    virtual ~Workspace() = default;
};

/// What a plug-in is made from: the request that it is to run. Copyable.
class PluginOptions {
public:
    PluginOptions(foundation::msg_svc::exchange::IDType id, std::shared_ptr<cmddistributor::IIP> iip)
        : id_(id), iip_(std::move(iip)) {}

    foundation::msg_svc::exchange::IDType getID() const { return id_; }
    const std::shared_ptr<cmddistributor::IIP>& getIIP() const { return iip_; }

private:
    foundation::msg_svc::exchange::IDType id_;
    std::shared_ptr<cmddistributor::IIP> iip_;
};

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

/// Access to the interpreter proper, for plug-ins.
class InternalEvalPlugin {
public:
    /// Runs `code` in `workspace` and displays the value of a last expression.
    /// Threads: the interpreter thread.  Throws: cmddistributor::RuntimeException.
    static void inEvalCmdWithLocalReturn(const std::u16string& code, Workspace& workspace);

    /// False when `code` ends inside an open block; code with an error elsewhere counts as complete.
    /// Threads: the interpreter thread.
    static bool inIsCodeBlockComplete(const std::u16string& code);
};

/// Runs the code of one evaluation that a user asked for.
class UserEvalPlugin : public IqmPlugin<cmddistributor::EvalIIP> {
public:
    explicit UserEvalPlugin(PluginOptions options) : IqmPlugin(std::move(options)) {}

    void execute(Workspace& workspace) override;
    virtual bool hasMoreCmds() const { return !given_; }
    /// The next piece of code to run.
    virtual std::u16string getNextCommand();

private:
    bool given_ = false;
};

/// The process-wide table of plug-ins.
///
/// Threads: any.  Locks: the table's own mutex, not held while a factory runs.
class PacketInfo {
public:
    using Factory = std::function<std::unique_ptr<BaseIqmPlugin>(PluginOptions, nmutil::contextmgr::NcrID)>;

    /// Requests whose payload names `name` are run by what `factory` makes. `replace` allows to take the
    /// place of an earlier registration, which comes back when this one ends. Throws: std::invalid_argument,
    /// when the name is taken and `replace` is false.
    static nmutil::ScopedFactoryRegistration registerPlugin2(std::string name, Factory factory, bool replace);

    /// For the host: the plug-in for a request, or null when none is registered for it.
    static std::unique_ptr<BaseIqmPlugin> createPlugin(PluginOptions options, nmutil::contextmgr::NcrID ncr);
};

}  // namespace iqm
