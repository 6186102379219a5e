#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <histedit.h>

namespace app {

/// The lines that were entered, newest last, kept in a file from one session to the next.
///
/// The file is written whole at each line, so that a session that dies loses nothing; one that cannot be
/// written is no reason to end a session. Of several sessions at a time, the last to write wins.
class EntryHistory {
public:
    static constexpr int maximumEntries = 1000;

    /// An empty path stands for a history that is not kept.
    explicit EntryHistory(std::filesystem::path file);

    void add(const std::string& line);

    /// Owns: the history keeps it.
    ::History* get() const { return history_.get(); }

    /// Where the user's state is kept; empty when that is not known.
    static std::filesystem::path defaultFile();

private:
    void save() const;

    struct End {
        void operator()(::History* history) const { history_end(history); }
    };
    const std::filesystem::path file_;
    const std::unique_ptr<::History, End> history_;
};

}  // namespace app
