#pragma once

#include <array>
#include <csignal>
#include <string>

namespace app {

/// Takes SIGINT, SIGTERM and SIGHUP as a wish that the program ends, while it exists. SIGHUP keeps being
/// ignored where it is.
///
/// Handlers are used and not a blocked signal that is waited for, because blocked signals stay so in the
/// programs that Python code starts.
///
/// Made before the interpreter. One at a time in the process.
class StopSignals {
public:
    /// `hasInterpreter` says that an interpreter will run in this process: it has a handler of its own for
    /// SIGINT, from when it takes requests, and must find the default one.  Throws: std::system_error.
    explicit StopSignals(bool hasInterpreter);
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    /// The name of one of the signals.  Blocks: until it comes, or has come.
    std::string wait() const;

private:
    static constexpr std::array<int, 3> signals = {SIGINT, SIGTERM, SIGHUP};

    struct Disposition {
        bool isChanged = false;
        struct sigaction previous {};
    };
    std::array<Disposition, signals.size()> dispositions_;
};

}  // namespace app
