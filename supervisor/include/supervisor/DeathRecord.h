#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace supervisor {

/// What causes of death are called. Other texts may stand in a record too, as given to Worker::kill.
namespace cause {
inline constexpr std::string_view signal = "signal";
inline constexpr std::string_view exitStatus = "exit status";
inline constexpr std::string_view memory = "memory";
inline constexpr std::string_view closedTheLink = "closed the link";
inline constexpr std::string_view killedByAClient = "killed by a client";
inline constexpr std::string_view deletedByAClient = "deleted by a client";
inline constexpr std::string_view idle = "idle";
inline constexpr std::string_view startFailed = "start failed";
inline constexpr std::string_view serverStopped = "server stopped";
}  // namespace cause

/// How a life of an interpreter has ended. Texts are as the process left them: bytes that are no UTF-8 become
/// replacement characters in JSON.
struct DeathRecord {
    std::string interpreter{};
    std::uint64_t life = 0;
    std::string cause{};
    std::string detail{};  ///< "SIGSEGV", "status 3"; of a start that failed also the problem in words
    int pid = 0;
    std::chrono::system_clock::time_point started{};
    std::chrono::system_clock::time_point ended{};

    std::string requestType{};  ///< the request under way, such as "connector/v1/Eval"; empty: none
    std::string requestUuid{};
    std::string requestCode{};  ///< at most 4 KiB
    std::size_t inFlight = 0;   ///< requests that were not answered; set by the owner of the link

    std::string output{};  ///< the end of what was printed, at most 16 KiB
    std::string rest{};    ///< what was left in the pipes of standard output and error, at most 16 KiB
    std::string trace{};   ///< at most 64 KiB
    std::uint64_t peakMemoryBytes = 0;
    std::uint64_t processorMs = 0;  ///< with those children that it has waited for
    std::uint64_t childrenKilled = 0;
    bool startsAnew = true;  ///< with the next request; else only when a client restarts it

    /// Whether nobody asked for this end, so that it counts against starting anew.
    bool isBad() const;

    /// For clients: `The interpreter "default" has died: SIGSEGV (segmentation fault) while it ran
    /// connector/v1/Eval. Its variables are lost; the next request starts it anew.`
    std::string sentence() const;

    /// All of it, as a JSON object.
    std::string json() const;
    /// Life, cause, detail, sentence and end, as a JSON object.
    std::string brief() const;
};

}  // namespace supervisor
