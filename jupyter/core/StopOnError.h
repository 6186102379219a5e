#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "Request.h"

namespace jupyter {

/// Knows the cells that their client has sent before it could know of an error which aborts those that wait:
/// front ends send all cells of a notebook at once, and some are on the way when the first has failed. The
/// dates of their headers tell.
///
/// Threads: as a plain value.
class StopOnError {
public:
    /// After so long they are believed no longer, because clocks differ.
    static constexpr std::chrono::milliseconds longest{250};

    /// `time`: from before the client was told. Returns a number for `end`.
    std::uint64_t begin(const Request& failed, std::chrono::system_clock::time_point time);
    void end(std::uint64_t number);
    bool covers(const Request& cell) const;

private:
    std::uint64_t number_ = 0;
    std::string session_, time_;  // of the error; empty when it is over
};

}  // namespace jupyter
