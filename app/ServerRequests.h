#pragma once

#include <string>

#include <Poco/JSON/Array.h>
#include <Poco/JSON/Object.h>

#include "HttpClient.h"
#include "ServerAddress.h"

namespace app {

/// What a server is asked about its interpreters as such, rather than an interpreter about what it runs.
///
/// Threads: one.  Throws: every operation ConnectionLost and ServerRefusal.
class ServerRequests {
public:
    explicit ServerRequests(const ServerAddress& address);

    /// Whether it takes requests.
    bool isReady();
    /// The one that the address names.
    const std::string& interpreter() const { return interpreter_; }

    /// What is said of it.
    Poco::JSON::Object::Ptr describe();
    /// Interrupts what runs there.
    void interrupt();
    /// Begins another life of it; returns what is said of that.
    /// Blocks: until it takes requests, for a minute at most.
    Poco::JSON::Object::Ptr restart(bool force);
    /// The newest first.
    Poco::JSON::Array::Ptr deaths();
    Poco::JSON::Array::Ptr interpreters();
    Poco::JSON::Object::Ptr create(const Poco::JSON::Object::Ptr& options);
    void remove(const std::string& interpreter);

private:
    const std::string interpreter_;
    HttpClient http_;
};

}  // namespace app
