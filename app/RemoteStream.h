#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include <Poco/JSON/Object.h>

#include "HttpClient.h"
#include "ServerAddress.h"
#include "Session.h"
#include "connector/ThreadSafety.h"

namespace app {

/// The streaming service of a server, by long polls of the Bayeux protocol with acknowledgements: a
/// connection that breaks for less than 20 seconds loses nothing. After a longer break what the server still
/// keeps comes, after a notice of what it does not.
///
/// What is not taken waits in a queue; when that is full, in the server, under its rules.
///
/// Threads: one, beside its own, which holds the connect.
class RemoteStream : public ResponseStream {
public:
    /// Throws: ConnectionLost, ServerRefusal; so does `send`, and InterpreterDied, also when the interpreter
    /// was started anew since the last one.
    explicit RemoteStream(const ServerAddress& address);
    /// Blocks: while the server is told, for two seconds at most.
    ~RemoteStream() override;

    void send(const StreamRequest& request) override;
    /// The message by which the session of the stream interrupts what runs, and takes back what it has sent
    /// and has not begun.  Threads: any.
    std::string interruptMessage() CONNECTOR_EXCLUDES(mutex_);
    Taken take(std::chrono::milliseconds limit) override CONNECTOR_EXCLUDES(mutex_);

private:
    using Objects = std::vector<Poco::JSON::Object::Ptr>;

    static Objects exchange(HttpClient& http, const Poco::JSON::Object::Ptr& message,
                            std::chrono::seconds limit);
    static Poco::JSON::Object::Ptr replyTo(HttpClient& http, const Poco::JSON::Object::Ptr& message);
    Poco::JSON::Object::Ptr newMessage(const char* channel) CONNECTOR_EXCLUDES(mutex_);

    void open(HttpClient& http) CONNECTOR_EXCLUDES(mutex_);
    void run() CONNECTOR_EXCLUDES(mutex_);
    void connect() CONNECTOR_EXCLUDES(mutex_);
    bool waitForRoom() CONNECTOR_EXCLUDES(mutex_);
    void keep(const Objects& messages) CONNECTOR_EXCLUDES(mutex_);
    bool pause(std::chrono::milliseconds time) CONNECTOR_EXCLUDES(mutex_);
    void fail(const std::string& why) CONNECTOR_EXCLUDES(mutex_);

    HttpClient publishes_;
    std::string life_;     ///< the number of the interpreter's at the last `send`; empty before the first
    HttpClient connects_;  ///< of the thread, once that runs

    // The thread's, once that runs.
    Poco::Int64 acknowledged_ = 0;
    Poco::Int64 sequence_ = 0;  ///< number of the last message; 0 before the first
    std::string server_;        ///< its name, which is another one when it is started again

    connector::Mutex mutex_;
    std::condition_variable changed_;
    std::string clientId_ CONNECTOR_GUARDED_BY(mutex_);
    std::vector<StreamMessage> messages_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t queuedBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::string failure_ CONNECTOR_GUARDED_BY(mutex_);
    bool isStopping_ CONNECTOR_GUARDED_BY(mutex_) = false;

    std::thread thread_;  // last: starts once the rest exists
};

}  // namespace app
