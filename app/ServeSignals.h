#pragma once

#include <array>
#include <csignal>
#include <optional>
#include <string>

namespace app {

/// Takes SIGINT and SIGTERM as a wish that the program ends, while it exists, and SIGHUP as one that it reads
/// its settings anew; but from a terminal SIGHUP comes when that is closed, and ends the program, unless it
/// is ignored.
///
/// Handlers are used and not a blocked signal that is waited for, because blocked signals stay so in the
/// programs that Python code starts.
///
/// Made before the interpreter. One at a time in the process.
class ServeSignals {
public:
    /// `hasInterpreter` says that an interpreter will run in this process: it has a handler of its own for
    /// SIGINT, from when it takes requests, and must find the default one.  Throws: std::system_error.
    explicit ServeSignals(bool hasInterpreter);
    ~ServeSignals();
    ServeSignals(const ServeSignals&) = delete;
    ServeSignals& operator=(const ServeSignals&) = delete;

    /// The name of the signal that ends the program; nothing when settings are to be read.
    /// Blocks: until one comes, or has come.
    std::optional<std::string> wait() const;
    /// Whether one that ends the program has come.  Threads: any.
    bool isStopWanted() const;

private:
    static constexpr std::array<int, 3> signals = {SIGINT, SIGTERM, SIGHUP};

    struct Disposition {
        bool isChanged = false;
        struct sigaction previous {};
    };
    std::array<Disposition, signals.size()> dispositions_;
};

}  // namespace app
