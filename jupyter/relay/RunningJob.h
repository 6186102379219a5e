#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace jupyter {

/// Finds out what a kernel runs, where what it has told of that may be lost.
///
/// It answers a kernel_info_request at once, and tells after its idle what runs, if something does. Hence the
/// answer lies between the ends of two of them:
///
///     idle of the first - [busy of what runs] - busy and idle of the second
///
/// Threads: as a plain value.
class RunningJob {
public:
    enum class News { None, Known, Over };

    /// Both questions, by their "msg_id", are asked.
    void ask(std::string first, std::string second);
    /// A status of the kernel, and the "msg_id" of its parent.  Returns: Known when both questions have their
    /// answers; Over when what was known to run has ended, so that they are to be asked again.
    News take(std::string_view parent, std::string_view state);
    /// The "msg_id" of what runs; empty for a restart, nothing where nothing runs.
    const std::optional<std::string>& id() const { return id_; }

private:
    std::string first_, second_;  // empty: not asked
    std::optional<std::string> id_;
};

}  // namespace jupyter
