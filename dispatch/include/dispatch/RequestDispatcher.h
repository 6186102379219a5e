#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <Poco/JSON/Object.h>

#include "connector/ServiceFramework.h"
#include "connector/ThreadSafety.h"
#include "connector/WorkerPool.h"
#include "connector/common/ContextState.h"
#include "connector/common/RequestNames.h"
#include "connector/json/JsonSerializer.h"
#include "dispatch/Answer.h"
#include "dispatch/lanes.h"

namespace dispatch {

struct DispatcherOptions {
    std::size_t threads = 16;  ///< of each lane
    std::size_t queueLength = 1000;
    std::size_t queueBytes = std::size_t{128} << 20;  ///< of bodies that are not read yet
    /// Whether code waits for an evaluation to be its input. It must be quick; may be null.
    std::function<bool()> isReadingInput{};
    /// The "dequeMode" of calls that have none. It must be quick; may be null.
    std::function<std::string()> dequeMode{};
};

struct DispatcherMetrics {
    std::size_t queued = 0;
    std::size_t running = 0;
    /// How many requests of a type have ended in a way: "success", "error" (of the code), "timeout", "fault"
    /// (another one), "dropped" or "refused".
    std::map<std::pair<std::string, std::string>, std::uint64_t> outcomes{};
};

/// Whether messages of the type are interrupts, which never wait for other requests.
bool isInterrupt(std::string_view typeName);

/// Runs requests of clients on bounded pools of threads, one for each lane.
///
/// Statuses: 400 a message that checkMessage or its reader refuses; 404 a type name that is not registered,
/// or whose messages no service takes; 429 no room in the queue; 500 the provider failed; 503 the provider is
/// stopped, or this is.
///
/// Threads: every operation from any thread.  Locks: mutex_, a leaf, not held while a request runs or is
/// answered.
class RequestDispatcher {
public:
    using Done = std::function<void(Answer)>;

    RequestDispatcher(std::shared_ptr<connector::ServiceFramework> framework,
                      std::shared_ptr<connector::json::JsonSerializer> serializer,
                      DispatcherOptions options = {});
    /// Stops.
    ~RequestDispatcher();
    RequestDispatcher(const RequestDispatcher&) = delete;
    RequestDispatcher& operator=(const RequestDispatcher&) = delete;

    /// Queues the request of type `typeName`, such as "connector/v1/Eval", that `json`, a JSON object as its
    /// client sent it, describes. Where its uuid is missing, or that of a message of a sequence, one is made
    /// up. The context, a new one when null, is stamped with its arrival (connector/common/requests.h),
    /// unless it is already. `done` is called once: on a thread of the pool or, when the request is refused,
    /// on this one before the operation returns, or by `stop`. It must be quick and throw nothing. Blocks:
    /// never.
    ///
    /// A message larger than `largeBody` would hold up other clients while it is read: a thread of the pool
    /// does it, where the request waits with those for the base prompt, whatever it is.
    void submit(const std::string& typeName, std::shared_ptr<const std::string> json,
                std::shared_ptr<connector::common::ContextState> context, Done done);

    /// Of the requests that have not ended, also for whoever takes some by other ways.
    const std::shared_ptr<connector::common::RequestNames>& names() const { return names_; }

    /// How many requests are queued or run.
    std::size_t pending() const;
    DispatcherMetrics metrics() const;

    /// Answers what is queued, and what comes later, with 503; interrupts what runs, again and again, until
    /// it has ended.  Blocks: as long.
    void stop();

private:
    using Context = std::shared_ptr<connector::common::ContextState>;
    struct Request;

    connector::WorkerPool& lane(Lane lane) { return *lanes_.at(static_cast<std::size_t>(lane)); }
    void queue(Lane where, const std::shared_ptr<Request>& request, std::function<Answer()> work,
               std::size_t bytes);
    /// Throws: what the client is told with status 400.
    void readMessage(Request& request, Poco::JSON::Object::Ptr object) const;
    /// Delivers, waits for the response and writes it.
    Answer run(Request& request);
    Answer readAndRun(Request& request, const std::string& json);
    Answer deliver(Request& request);
    void finish(const Request& request, Answer answer);
    void count(const std::string& typeName, const std::string& outcome) CONNECTOR_EXCLUDES(mutex_);
    void interrupt();

    const std::shared_ptr<connector::ServiceFramework> framework_;
    const std::shared_ptr<connector::json::JsonSerializer> serializer_;
    const std::function<bool()> isReadingInput_;
    const std::function<std::string()> dequeMode_;
    const std::shared_ptr<connector::common::RequestNames> names_ =
        std::make_shared<connector::common::RequestNames>();
    std::atomic<bool> isStopped_{false};

    mutable connector::Mutex mutex_;
    std::map<std::pair<std::string, std::string>, std::uint64_t> outcomes_ CONNECTOR_GUARDED_BY(mutex_);

    std::array<std::unique_ptr<connector::WorkerPool>, laneCount> lanes_;  // last: their threads use the rest
};

}  // namespace dispatch
