#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "connector/ThreadSafety.h"
#include "connector/common/RequestOrigin.h"
#include "fl/i18n/text.h"
#include "nmutil/io/NMSink.h"
#include "output/RedirectedDescriptors.h"
#include "standalone/HostObserver.h"

namespace standalone {

/// Captures what native code and child processes write to file descriptors 1 and 2, and gives them an empty
/// standard input.
///
/// Two threads, because native code may write while it holds the interpreter's lock: one empties the pipes
/// into a bounded queue and never takes that lock, the other takes it and delivers, a part at a time. When
/// the queue stays full for a second, which happens only when a writer keeps the lock all that time, the
/// oldest bytes are dropped, and a notice says how many.
///
/// Before a part, and so without the interpreter's lock and mutex_, the delivering thread waits while the
/// owner of what is written is behind. Meanwhile the other leaves the pipes full, so that writers wait, too,
/// and nothing is dropped; a writer that keeps the interpreter's lock holds up nobody that the owner needs.
/// When the process aborts, what was written to descriptor 2 in the last second goes to the process's own
/// standard error; where pipes are given, whoever has made them reads what is left in them, and the observer
/// knows what was in them.
///
/// Threads: `drain` and `drainIfReady` by whoever holds the interpreter's lock; the constructor and
/// destructor on the interpreter thread. Lock order: the interpreter's lock, then mutex_. `deliver` runs with
/// the interpreter's lock alone.
class NativeCapture {
public:
    using Deliver = std::function<void(nmutil::io::StreamTypeEnum, std::u16string_view)>;
    /// Calls its argument with the interpreter's lock held; used on the delivering thread.
    using WithInterpreterLock = std::function<void(const std::function<void()>&)>;
    /// The pace of the client that gets the text now, which may be null; called with no lock held.
    using Owner = std::function<std::shared_ptr<connector::common::ClientPace>()>;
    /// Called after each part that is delivered by a drain; false ends that.
    using AfterPart = std::function<bool()>;

    /// `pipes`: as HostOptions::capturePipes. `observer` is told of all bytes at once; it may be null.
    /// Throws: std::system_error, when pipes cannot be made (nothing is captured then).
    NativeCapture(Deliver deliver, WithInterpreterLock withInterpreterLock, Owner owner,
                  const std::array<int, 2>& pipes, HostObserver* observer);
    /// Call `stop` first.
    ~NativeCapture();
    NativeCapture(const NativeCapture&) = delete;
    NativeCapture& operator=(const NativeCapture&) = delete;

    /// Starts the two threads, which inherit the caller's signal mask; until then the pipes hold what is
    /// written.
    void start();
    /// Ends the two threads and puts the descriptors back.  Blocks: until the threads have ended, so call it
    /// without the interpreter's lock.
    void stop() CONNECTOR_EXCLUDES(mutex_);

    /// Delivers all that was written so far, C's own buffers included. With `isEnd` an unfinished character
    /// at the end of a stream is delivered, too, as U+FFFD.
    void drain(bool isEnd, const AfterPart& afterPart) CONNECTOR_EXCLUDES(mutex_);
    /// The same, if something is waiting in the pipes; C's buffers are left alone. Cheap when there is
    /// nothing. False when `afterPart` has been.
    bool drainIfReady(const AfterPart& afterPart) CONNECTOR_EXCLUDES(mutex_);

    /// The process's own standard streams: 0 input, 1 output, 2 error.
    int original(int descriptor) const { return descriptors_.original(descriptor); }

private:
    static constexpr std::size_t recentSize = 4096;          // bytes, what a pipe takes at once
    static constexpr std::size_t pipeCapacity = 64U << 10U;  // bytes, what is usual

    struct Chunk {
        nmutil::io::StreamTypeEnum stream;
        std::string bytes;
    };

    void catchAbort();
    void writeRecentErrors() CONNECTOR_EXCLUDES(mutex_);
    void rememberErrorsLocked(std::string_view bytes) CONNECTOR_REQUIRES(mutex_);
    void emptyPipes();
    void awaitRoomLocked(std::unique_lock<std::mutex>& lock) CONNECTOR_REQUIRES(mutex_);
    void deliverLoop();
    void awaitOwner() CONNECTOR_EXCLUDES(mutex_);
    bool readPipesLocked() CONNECTOR_REQUIRES(mutex_);
    void dropOldestLocked() CONNECTOR_REQUIRES(mutex_);
    bool fetchPart() CONNECTOR_EXCLUDES(mutex_);
    void deliverPart() CONNECTOR_EXCLUDES(mutex_);

    const Deliver deliver_;
    const WithInterpreterLock withInterpreterLock_;
    const Owner owner_;
    HostObserver* const observer_;
    const int stopEvent_;  // made first: descriptors are redirected last
    RedirectedDescriptors descriptors_;

    // Touched under the interpreter's lock alone.
    std::array<fl::i18n::Utf8Decoder, 2> decoders_;

    connector::Mutex mutex_;
    std::condition_variable queued_;   // something to deliver, or the end
    std::condition_variable emptied_;  // room in the queue
    std::vector<char> scratch_ CONNECTOR_GUARDED_BY(mutex_) = std::vector<char>(pipeCapacity);
    std::deque<Chunk> queue_ CONNECTOR_GUARDED_BY(mutex_);
    std::size_t queuedBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::size_t droppedBytes_ CONNECTOR_GUARDED_BY(mutex_) = 0;
    std::string recentErrors_ CONNECTOR_GUARDED_BY(mutex_);
    std::chrono::steady_clock::time_point lastErrors_ CONNECTOR_GUARDED_BY(mutex_);
    bool isOwnerAwaited_ CONNECTOR_GUARDED_BY(mutex_) = false;
    bool isDelivering_ CONNECTOR_GUARDED_BY(mutex_) = false;  // and so no writer keeps the interpreter's lock
    bool isStopping_ CONNECTOR_GUARDED_BY(mutex_) = false;

    std::thread reader_;
    std::thread deliverer_;
};

}  // namespace standalone
