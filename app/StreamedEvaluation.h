#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Session.h"

namespace app {

/// Runs codes through the streaming service, each in turn, and prints what comes as it comes: printed text to
/// standard output, errors to standard error or, as JSON, every message as one line on standard output. What
/// comes of other clients' code is left out.
///
/// A code is sent when the one before has ended, or is typed when that one waits for input. None is sent
/// after one that does not end although it was interrupted.
///
/// Threads: one.
class StreamedEvaluation {
public:
    struct Settings {
        bool json = false;
        std::chrono::seconds limit{0};  ///< of each code, after which it is interrupted; 0: none
    };

    StreamedEvaluation(Session& session, Settings settings);

    /// True when every code succeeded and nothing that was printed is lost.
    /// Blocks: until the last code has ended, waits for input or is given up.  Throws: as writeAll.
    bool run(const std::vector<std::string>& codes);

private:
    using Clock = std::chrono::steady_clock;

    void send(const std::string& code);
    void receive();
    bool isOfOthers(const StreamMessage& message) const;
    void show(const StreamMessage& message);
    void handlePrompt(const std::string& prompt);
    void interruptWhenLate();
    void giveUp(const std::string& why);
    void fail(const std::string& why);

    Session& session_;
    const Settings settings_;
    const std::unique_ptr<ResponseStream> stream_;

    std::set<std::string> incomplete_;  ///< the names of requests that have been sent and are not completed
    std::set<std::string> names_;       ///< of all that have been sent
    std::uint64_t prompt_ = 0;          ///< the number of the one that the code waits at
    bool isWaiting_ = false;            ///< for input that has not been typed
    bool isIncompleteBlock_ = false;
    bool isInterrupted_ = false;  ///< since the last code was sent
    bool hasBegun_ = false;       ///< what was sent last
    bool hasFailed_ = false;
    bool isGivenUp_ = false;  ///< no code is sent any more
    Clock::time_point deadline_ = Clock::time_point::max();
};

}  // namespace app
