#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cmddistributor/RunOptions.h"
#include "nmutil/io/NMSink.h"
#include "python/ShownPrompt.h"
#include "standalone/TaggedEvent.h"

namespace standalone {

/// How reading typed input ended. With `Interrupted` a Python exception is set.
enum class ReadResult { Line, EndOfInput, Interrupted, Stopped };

/// The request whose code has started a thread.
struct ThreadStarter {
    std::uint64_t number = 0;                 ///< never that of another; 0 for none that is known
    bool isStreamed = false;                  ///< its output has a sink of its own
    std::vector<std::string> capabilities{};  ///< of its client
};

/// Takes what a request prints, or an empty text where that is to go out at once. Returns as
/// InterpreterServices::print.
using PrintedTaker = std::function<bool(nmutil::io::StreamTypeEnum stream, std::u16string_view text)>;

/// What the interpreter does, but for the call that asks.
struct InterpreterState {
    ShownPrompt prompt;            ///< the one that code waits at, whatever runs there meanwhile
    std::uint64_t evaluation = 0;  ///< number of the one that runs, the innermost; 0 for none
    std::optional<std::chrono::steady_clock::time_point> since{};  ///< when what runs began
};

/// What Python code asks of the interpreter around it.
///
/// Threads: any thread that holds the interpreter's lock; reading only on the interpreter thread.
class InterpreterServices {
public:
    virtual ~InterpreterServices() = default;

    // What prints, posts or changes the window waits afterwards while the client that it is for is behind,
    // with the interpreter's lock released. False when an interrupt has ended the wait; a Python exception is
    // set then.

    /// Prints text, in UTF-16; a pair of surrogates is never cut.
    virtual bool print(nmutil::io::StreamTypeEnum stream, std::u16string_view text) = 0;
    /// Called once before the pieces of one printed text.
    virtual bool beforePrint() = 0;
    /// Has what was printed go out at once where the client is a notebook, every 10 ms at most.
    virtual bool flush() = 0;
    /// Gives what the running request prints, by any of its threads, to a function until it ends.
    virtual void takePrinted(std::shared_ptr<const PrintedTaker> taker) = 0;

    /// Reads one typed line with its newline, showing `question` while nothing has been typed.
    virtual ReadResult readLine(ShownPrompt question, std::u16string& line) = 0;
    /// Waits for one typed character.
    virtual ReadResult readKey() = 0;

    /// Runs the requests that may run between two steps of the running code.
    virtual void runRequests() = 0;
    /// Tells the running code of its interrupts, and of other signals that have come. False when that has
    /// raised an exception, which is set then.
    virtual bool checkInterrupts() = 0;
    /// For an interrupt that Python has dropped: it is to be taken again.
    virtual void returnInterrupt() = 0;
    /// Lets interrupts be taken, or makes them wait. Returns the previous setting.
    virtual bool setInterruptEnabled(bool isEnabled) = 0;

    virtual bool clearWindow() = 0;
    virtual bool moveHome() = 0;

    /// Whether anybody listens to events with this tag. Cheap.
    virtual bool hasSubscribers(std::u16string_view tag) const = 0;
    /// Raises an event for whoever listens to the tag. Waits, with the interpreter's lock released, while too
    /// many are on their way; `bytes` is the size of the members.
    virtual bool postEvent(std::u16string tag, TaggedEvent::Members members, std::size_t bytes) = 0;
    /// Raises an event of the host's own, in its place among text and prompts. Waits for its handlers, with
    /// the interpreter's lock released.
    virtual bool raiseEvent(std::u16string tag, TaggedEvent::Members members) = 0;

    /// By whom threads are started that the calling one starts, and by whom the calling one was.
    virtual ThreadStarter starterOfNewThread() const = 0;
    virtual void setStarter(const ThreadStarter& starter) = 0;

    /// Changes a value of the configuration, for whoever listens to it; they must not take the interpreter's
    /// lock. Throws: std::invalid_argument.
    virtual void configure(const std::string& key, const std::string& value) = 0;

    virtual InterpreterState state() const = 0;
    virtual bool isInterpreterThread() const = 0;
    /// The name of the request that the calling thread's code belongs to; empty where there is none.
    virtual std::string requestName() const = 0;
    /// The options of the request that the calling thread's code belongs to; null when there is none.
    virtual const cmddistributor::RunOptions* runningOptions() const = 0;
    /// Whether the client of that request, or of the one that has started the calling thread and has ended,
    /// has said that it has a capability.
    virtual bool hasCapability(std::string_view capability) const = 0;
};

}  // namespace standalone
