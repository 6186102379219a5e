#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include <Poco/JSON/Object.h>

#include "connector/interpreter/Module.h"
#include "standalone/StandaloneHost.h"
#include "terminal.h"

namespace app {

/// A message that no service takes, or that cannot be read.
class BadMessage : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An interpreter in this process, reached as a remote client reaches one: by messages in their JSON form.
///
/// Threads: `request` from any thread; made and destroyed on one thread, which, with every
/// thread it starts later, no longer takes SIGINT: that signal is the interpreter's.
class InProcessSession {
public:
    explicit InProcessSession(const WindowSize& window);

    /// Delivers the message of class `type` and returns the response. A missing uuid is made up.
    /// Blocks: until the response is there.  Throws: BadMessage; the session can go on.
    Poco::JSON::Object::Ptr request(const std::string& type, const Poco::JSON::Object::Ptr& message);

    const std::shared_ptr<connector::json::JsonSerializer>& serializer() const { return serializer_; }

    /// For the program's own input and output.
    const standalone::StandaloneHost& host() const { return host_; }

private:
    std::unique_ptr<connector::Message> read(const std::string& type,
                                             const Poco::JSON::Object::Ptr& message) const;

    const std::shared_ptr<connector::json::JsonSerializer> serializer_;
    standalone::StandaloneHost host_;
    connector::interpreter::Module module_;
};

}  // namespace app
