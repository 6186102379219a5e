#pragma once

#include <memory>
#include <optional>
#include <string>

#include "LogFormat.h"
#include "foundation/log/LineWriter.h"

namespace app {

/// Where the server's log goes: standard error or a file.
///
///     made: the log has the server's format --> use, again for each change --> destroyed: has it still
///
/// Threads: one, while others log.
class ServeLog {
public:
    /// What is written where; nothing stands for standard error.
    struct Files {
        std::optional<std::string> log;
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
    /// Takes another descriptor for standard error: an interpreter in the process redirects its own.
    void useStreams(int standardError);

private:
    foundation::log::LineWriter& log_ = foundation::log::LineWriter::ofProcess();
    std::shared_ptr<const Opened> opened_;
    int standardError_;
};

}  // namespace app
