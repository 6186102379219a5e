#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "Request.h"

namespace jupyter {

/// The cells of this kernel, of which there is one session, 1.
///
/// Threads: on the kernel's executor.
class History {
public:
    static constexpr std::size_t most = 10'000;
    static constexpr std::size_t mostBytes = std::size_t{4} << 20;  ///< the oldest are forgotten beyond it

    void add(std::uint64_t count, const std::string& code);
    void clear();
    /// The JSON array that answers a history_request.  Throws: dispatch::BadMessage.
    std::string answer(const Request& request) const;

private:
    struct Entry {
        std::uint64_t count;
        std::string code;
    };
    using Entries = std::vector<const Entry*>;

    Entries range(const Poco::JSON::Object& request) const;
    Entries search(const Poco::JSON::Object& request) const;

    std::deque<Entry> entries_;
    std::size_t bytes_ = 0;
};

/// Whether all of `text` matches the pattern, in which "*" stands for any text and "?" for one character.
bool matchesGlob(std::string_view pattern, std::string_view text);

}  // namespace jupyter
