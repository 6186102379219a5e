#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <ratio>
#include <string>
#include <string_view>
#include <thread>

#include "connector/ThreadSafety.h"
#include "connector/common/ContextState.h"
#include "connector/common/DataBuffer.h"
#include "nmutil/io/NMSink.h"

namespace connector::interpreter::v1 {

class BatchOrder;
class OutputLog;

/// Gathers printed text and hands it on in batches, each a JSON string of the text of one stream and of one
/// request: the one whose context is current where the text is added, and where the batch is delivered.
///
///     Empty --append()--> Pending --due, flush(), other stream or request: delivered--> Empty
///                            '-----clear(): forgotten--> Empty
///
/// A batch is due 145 ms after its first piece; a thread looks every 150 ms while text is pending. Without a
/// callback text stays pending, and whatever it was printed on, it then goes out as the stream that came
/// last. How much a batch may hold is not limited.
///
/// Threads: every operation from any thread, but for getDduxData(). One thread of its own, joined by the
/// destructor.  Locks: mutex_, never while the callback runs, so that it may use the buffer and a slow one
/// stops nobody from printing: batches of several threads may reach it at the same time, unless it asks for
/// them in order.
class CoalescingTextBuffer {
public:
    /// Takes a batch, quotes included, and the stream it was printed on. It is called with no lock of the
    /// buffer held; in order, not even with that of the interpreter. What is called is a copy, which is gone
    /// when the delivery ends. It may throw, which is logged, and it must not destroy the buffer.
    using Callback = std::function<void(connector::common::DataBuffer&&, nmutil::io::StreamTypeEnum)>;

    /// The telemetry text is never longer. Units: bytes.
    static constexpr std::size_t maxDduxText = 44100;

    /// When the environment variable NUFULLSTACK_TEST_CONTAINER_LOG names a file, all text is appended to it
    /// too, as it comes. That it cannot be opened or written is logged and stops nothing.
    CoalescingTextBuffer();
    /// Text still pending is not delivered.  Blocks: until a delivery by the own thread has ended.
    virtual ~CoalescingTextBuffer();
    CoalescingTextBuffer(const CoalescingTextBuffer&) = delete;
    CoalescingTextBuffer& operator=(const CoalescingTextBuffer&) = delete;

    /// Adds text that was printed on `type`. Text pending of another stream or request is delivered first, on
    /// this thread, and so is what other threads print there meanwhile. What the callback itself prints
    /// there is not: it goes out with `text`. Throws: std::bad_alloc, and `text` is not added then.
    void append(std::u16string&& text, nmutil::io::StreamTypeEnum type) CONNECTOR_EXCLUDES(mutex_);
    /// Units: `length` in UTF-16 code units.
    void append(const char16_t* text, std::size_t length, nmutil::io::StreamTypeEnum type)
        CONNECTOR_EXCLUDES(mutex_);

    /// Delivers what is pending, on this thread.  Throws: std::bad_alloc, and the text stays pending then.
    void flush() CONNECTOR_EXCLUDES(mutex_);
    /// From now on batches are delivered one at a time, in the order in which they are made, whichever
    /// threads deliver them: each waits for its turn, and flush() also for what other threads are delivering,
    /// so that what comes next comes after everything printed so far. One that takes longer than two seconds
    /// is waited for no longer. A callback that flushes does not wait for itself.
    void deliverInOrder() CONNECTOR_EXCLUDES(mutex_);
    /// Forgets what is pending.
    void clear() CONNECTOR_EXCLUDES(mutex_);
    void setCallback(Callback&& callback) CONNECTOR_EXCLUDES(mutex_);

    /// Whether printed text is also kept for telemetry; at first it is not.
    void setDduxEnabled(bool enabled) CONNECTOR_EXCLUDES(mutex_);
    /// Keeps `utf8` for telemetry, or drops all of it when it does not fit in.
    void appendDduxData(const std::string& utf8) CONNECTOR_REQUIRES(mutex_);
    /// Keeps a suggestion that was shown, as "Did you mean: ... ?".
    void appendDduxDataForSuggestion(const std::u16string& suggestion) CONNECTOR_EXCLUDES(mutex_);
    void clearDduxData() CONNECTOR_EXCLUDES(mutex_);
    /// What was kept, in UTF-8.  Locks: none, so nothing may be appended at the same time: called after an
    /// evaluation has finished.
    std::string getDduxData() const CONNECTOR_TSA(no_thread_safety_analysis) { return dduxText_; }

protected:
    /// Units: 100 ns.
    using TimePoint = std::chrono::time_point<std::chrono::system_clock,
                                              std::chrono::duration<long long, std::ratio<1, 10000000>>>;

    /// The time now. Called with mutex_ held, and only while text is pending or is being appended, so never
    /// before the object is complete. Must not use the buffer, nor throw.
    virtual TimePoint getCurrentTime();

    /// Lets the callback go and ends the thread; text is no longer delivered. A class that overrides
    /// getCurrentTime() calls this in its destructor, as the thread would else outlive what it calls.
    void stop() CONNECTOR_EXCLUDES(mutex_);

private:
    struct Batch;

    void coalescerLoop() CONNECTOR_EXCLUDES(mutex_);
    /// Both release `lock`, which is that of mutex_, while the callback runs.
    void doFlush(connector::MutexLock& lock) CONNECTOR_REQUIRES(mutex_);
    void doCallback(connector::MutexLock& lock) CONNECTOR_REQUIRES(mutex_);
    Batch takeBatch() CONNECTOR_REQUIRES(mutex_);
    bool isOfOther(nmutil::io::StreamTypeEnum type,
                   const std::shared_ptr<common::ContextState>& context) const CONNECTOR_REQUIRES(mutex_);
    /// Releases `lock` as well.
    void deliver(Batch batch, connector::MutexLock& lock) CONNECTOR_REQUIRES(mutex_)
        CONNECTOR_TSA(no_thread_safety_analysis);
    void deliverIfDue(connector::MutexLock& lock) CONNECTOR_REQUIRES(mutex_)
        CONNECTOR_TSA(no_thread_safety_analysis);
    void appendText(std::u16string_view text, nmutil::io::StreamTypeEnum type) CONNECTOR_EXCLUDES(mutex_);

    connector::Mutex mutex_;
    std::condition_variable condition_;  ///< text is pending where there was none, or running_ has ended
    Callback callback_ CONNECTOR_GUARDED_BY(mutex_);
    std::thread thread_;
    connector::common::DataBuffer pending_ CONNECTOR_GUARDED_BY(mutex_);  ///< escaped, without the quotes
    std::string dduxText_ CONNECTOR_GUARDED_BY(mutex_);
    bool dduxEnabled_ CONNECTOR_GUARDED_BY(mutex_) = false;
    TimePoint batchStart_ CONNECTOR_GUARDED_BY(mutex_);  ///< of the first piece pending; 0 makes it due
    nmutil::io::StreamTypeEnum currentStream_ CONNECTOR_GUARDED_BY(mutex_) = nmutil::io::STANDARD_OUTPUT;
    std::shared_ptr<common::ContextState> currentContext_
        CONNECTOR_GUARDED_BY(mutex_);  ///< of what is pending
    bool running_ CONNECTOR_GUARDED_BY(mutex_) = true;
    bool isOrdered_ CONNECTOR_GUARDED_BY(mutex_) = false;
    const std::unique_ptr<BatchOrder> order_;  ///< its lock may be taken under mutex_
    const std::unique_ptr<OutputLog> outputLog_;
};

}  // namespace connector::interpreter::v1
