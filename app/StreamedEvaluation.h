#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Session.h"

namespace app {

/// Runs codes through the streaming service, each in turn, and prints what comes as it comes: printed text to
/// standard output, errors to standard error or, as JSON, every message as one line on standard output. What
/// comes of other clients' code is left out.
///
/// A code is sent when the one before has ended, or is typed when that one waits for input. None is sent
/// after one that does not end although it was interrupted. What is typed for code of another client is
/// followed by what that prints, until it ends or asks again.
///
/// Threads: one.
class StreamedEvaluation {
public:
    /// Where code waits for input.
    struct Prompt {
        std::string name;          ///< as INPUT_PROMPT
        std::uint64_t number = 0;  ///< 0: none
        bool isEchoed = true;      ///< what is typed may be shown
    };
    struct Settings {
        bool json = false;
        bool isTypable = true;  ///< may be typed for code of another client that waits for input
        /// Whether there is a line to type at the prompt. Blocks: until there is, for the time that is given
        /// at most. Without it there always is.
        std::function<bool(const Prompt&, std::chrono::milliseconds)> hasInput{};
        /// Of each code, from its begin, after which it is interrupted; 0: none.
        std::chrono::seconds limit{0};
    };
    /// The next text, or nothing when there is no more: code, or, with a prompt, a line for the code that
    /// waits there.
    using Source = std::function<std::optional<std::string>(const Prompt*)>;

    StreamedEvaluation(Session& session, Settings settings);

    /// True when every code succeeded and nothing that was printed is lost.
    /// Blocks: until the last code has ended, waits for input or is given up.  Throws: as writeAll.
    bool run(const Source& next);

private:
    using Clock = std::chrono::steady_clock;

    bool isReady();
    void send(const std::string& text);
    void receive(std::chrono::milliseconds limit);
    bool isUnfinished() const { return !incomplete_.empty() || isTyped_; }
    bool isOfOthers(const StreamMessage& message) const;
    void follow(const StreamMessage& message);
    void show(const StreamMessage& message);
    void print(const StreamMessage& message);
    void handleCompletion(const StreamMessage& message);
    void handlePrompt(const StreamMessage& message);
    void noteBegin();
    void tellOfOthers();
    void interruptWhenLate();
    void noteInterrupts();
    void giveUp(const std::string& why);
    void fail(const std::string& why);
    void tell(const std::string& message);

    Session& session_;
    const Settings settings_;
    const bool clears_;  ///< standard output is a terminal
    const std::unique_ptr<ResponseStream> stream_;

    std::set<std::string> incomplete_;  ///< the names of requests that are followed and are not completed
    std::set<std::string> names_;       ///< of all that were followed
    std::optional<Prompt> prompt_;      ///< at which the code waits for input that has not been typed
    bool isTyped_ = false;              ///< what was sent last, at a prompt of another client's code
    bool isIncompleteBlock_ = false;
    bool isInterrupted_ = false;  ///< by its time limit, since the last code was sent
    bool isDeaf_ = false;         ///< has gone on after an interrupt of the user's, who was told
    bool hasBegun_ = false;       ///< what was sent last
    bool hasFailed_ = false;
    bool isInLine_ = false;                                  ///< what was printed last has not ended its line
    bool isGivenUp_ = false;                                 ///< no code is sent any more
    std::uint64_t interrupts_ = 0;                           ///< of the user's, until now
    Clock::time_point graceEnd_ = Clock::time_point::max();  ///< of the last one
    std::string told_;  ///< of what others do, since the last code was sent
    Clock::time_point nextLook_ = Clock::time_point::max();  ///< at what others do
    Clock::time_point deadline_ = Clock::time_point::max();
};

}  // namespace app
