#pragma once

#include <map>
#include <memory>
#include <string>

#include "Session.h"
#include "Workplace.h"
#include "connector/interpreter/Module.h"
#include "standalone/StandaloneHost.h"
#include "terminal.h"

namespace app {

/// An interpreter in this process, reached as a remote client reaches one.
///
/// Threads: `request` from any thread; made and destroyed on one thread, which, with every
/// thread it starts later, no longer takes SIGINT: that signal is the interpreter's.
class InProcessSession : public Session {
public:
    /// Enters the workplace, which must have been found. `configuration` is what that of the host begins
    /// with; `traceDescriptor` is that of HostOptions.
    explicit InProcessSession(const WindowSize& window, const Workplace& workplace = {},
                              const std::map<std::string, std::string>& configuration = {},
                              int traceDescriptor = -1);

    StandardStreams streams() const override;
    std::uint64_t interrupts() const override;
    Poco::JSON::Object::Ptr request(const std::string& type, const Poco::JSON::Object::Ptr& message) override;
    nmutil::prompt::InputRequester promptAfter(const std::string& code) override;
    void refuseInput() override;
    std::unique_ptr<ResponseStream> openStream() override;

    const std::shared_ptr<connector::json::JsonSerializer>& serializer() const { return serializer_; }
    const standalone::StandaloneHost& host() const { return host_; }
    /// As dispatch::DispatcherOptions.
    std::string dequeMode() const;

private:
    std::unique_ptr<connector::Message> read(const std::string& type,
                                             const Poco::JSON::Object::Ptr& message) const;

    const std::shared_ptr<connector::json::JsonSerializer> serializer_;
    standalone::StandaloneHost host_;
    connector::interpreter::Module module_;
    foundation::msg_svc::eventmgr::ScopedConnection prompts_;  ///< when input is refused
};

}  // namespace app
