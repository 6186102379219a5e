#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "LogFormat.h"
#include "foundation/log/LineWriter.h"

namespace app {

/// Where the server's log goes: standard error or a file; and its access log: standard output, a file or
/// nowhere.
///
///     made: the log has the server's format --> use, again for each change --> destroyed: has it still
///
/// Threads: one, while others log and call `noteAccess`.
class ServeLog {
public:
    struct Files {
        std::optional<std::string> log;     ///< nothing: standard error
        std::optional<std::string> access;  ///< "-": standard output; nothing: nowhere
    };
    /// Open files.
    class Opened;

    explicit ServeLog(LogFormat format);
    /// Waits a moment for what is not written yet.
    ~ServeLog();
    ServeLog(const ServeLog&) = delete;
    ServeLog& operator=(const ServeLog&) = delete;

    /// Opens files to append to, which are made with the mode 0640 where there are none.
    /// Throws: InputError, which names the option and the file.
    static std::shared_ptr<const Opened> open(const Files& files);

    /// Lines go there from now on.
    void use(std::shared_ptr<const Opened> opened);
    /// Takes other descriptors for the standard streams: an interpreter in the process redirects its own.
    void useStreams(int standardOutput, int standardError);

    /// Writes a line of the access log.  Threads: any.  Blocks: never.
    void noteAccess(const gateway::AccessEntry& entry) const;

private:
    static foundation::log::LineWriter& accessLog();

    const LogFormat format_;
    std::atomic<bool> hasAccessLog_{false};
    foundation::log::LineWriter& log_ = foundation::log::LineWriter::ofProcess();
    std::shared_ptr<const Opened> opened_;
    int standardOutput_;
    int standardError_;
};

}  // namespace app
