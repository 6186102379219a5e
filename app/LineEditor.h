#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include <histedit.h>

#include "EntryHistory.h"
#include "LineSource.h"

namespace app {

/// Lines that a person edits at a terminal, with a history.
///
/// Ctrl-C discards the line that is edited. Between two calls of `read` the terminal is as it was, so that
/// Ctrl-C raises SIGINT then.
class LineEditor : public LineSource {
public:
    /// Owns: duplicates the descriptors.  Throws: std::system_error, std::runtime_error.
    LineEditor(int input, int output, int error);

    bool isInteractive() const override { return true; }
    Line read(const std::string& prompt) override;
    void remember(const std::string& line) override { history_.add(line); }

private:
    static char* currentPrompt(EditLine* editor);
    static unsigned char discardLine(EditLine* editor, int key);
    static LineEditor& owner(EditLine* editor);

    struct Close {
        void operator()(std::FILE* stream) const { std::fclose(stream); }
        void operator()(EditLine* editor) const { el_end(editor); }
    };
    using Stream = std::unique_ptr<std::FILE, Close>;
    static Stream openCopy(int descriptor, const char* mode);

    EntryHistory history_;
    std::string prompt_;
    bool discarded_ = false;
    Stream input_;
    Stream output_;
    Stream error_;
    std::unique_ptr<EditLine, Close> editor_;  // last: uses the others until its end
};

}  // namespace app
