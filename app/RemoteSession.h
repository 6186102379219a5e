#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "HttpClient.h"
#include "InterruptKey.h"
#include "ServerAddress.h"
#include "Session.h"
#include "connector/ThreadSafety.h"

namespace app {

class RemoteStream;

/// The interpreter of a server, which may have other clients too.
///
/// Ctrl-C interrupts what runs there while a request of this program is under way or a stream is open. When
/// the server cannot be told, it ends the program.
///
/// Says on standard error when another life of the interpreter has begun since the last request.
///
/// Threads: one.  Throws: every operation ConnectionLost and ServerRefusal; the session can go on.
class RemoteSession : public Session {
public:
    /// Blocks: until the server says that it takes requests.
    explicit RemoteSession(const ServerAddress& address);

    StandardStreams streams() const override;
    bool isShared() const override { return true; }
    std::string activity() override;
    std::uint64_t interrupts() const override { return pressed_; }
    Poco::JSON::Object::Ptr request(const std::string& type, const Poco::JSON::Object::Ptr& message) override;
    void goOn() override { wantedLife_ = life_; }
    bool wasDropped() const override { return wasDropped_; }
    nmutil::prompt::InputRequester promptAfter(const std::string& code) override;
    /// Another client may type it.
    void refuseInput() override {}
    std::unique_ptr<ResponseStream> openStream() override;

private:
    void requireReady();
    void noteLife(const std::string& life);
    void interrupt();
    void postInterrupt(HttpClient& http) CONNECTOR_EXCLUDES(mutex_);

    const ServerAddress address_;
    HttpClient requests_;
    HttpClient interrupts_;  ///< of the key's thread
    std::atomic<int> underWay_{0};
    std::atomic<std::uint64_t> pressed_{0};  ///< Ctrl-C
    bool wasDropped_ = false;
    std::string life_;        ///< the number of the interpreter's at the last request; empty after a death
    std::string wantedLife_;  ///< of the next request; empty for any

    connector::Mutex mutex_;
    RemoteStream* stream_ CONNECTOR_GUARDED_BY(mutex_) = nullptr;  ///< the one that is open

    std::unique_ptr<InterruptKey> key_;  ///< last: uses the others
};

}  // namespace app
