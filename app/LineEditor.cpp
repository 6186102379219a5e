#include "LineEditor.h"

#include <cerrno>
#include <clocale>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <langinfo.h>
#include <unistd.h>

namespace app {

LineEditor::Stream LineEditor::openCopy(int descriptor, const char* mode) {
    const int copy = ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    std::FILE* stream = copy < 0 ? nullptr : ::fdopen(copy, mode);
    if (!stream) throw std::system_error(errno, std::generic_category(), "cannot open the terminal");
    return Stream(stream);
}

LineEditor::LineEditor(int input, int output, int error)
    : history_(EntryHistory::defaultFile()),
      input_(openCopy(input, "r")),
      output_(openCopy(output, "w")),
      error_(openCopy(error, "w")) {
    // The editor takes and gives text in the locale's encoding, which has to be ours.
    if (std::string_view(::nl_langinfo(CODESET)) != "UTF-8") std::setlocale(LC_CTYPE, "C.UTF-8");
    editor_.reset(el_init("numora", input_.get(), output_.get(), error_.get()));
    EditLine* editor = editor_.get();
    if (!editor) throw std::runtime_error("the terminal cannot be used for editing lines");
    el_set(editor, EL_CLIENTDATA, this);
    el_set(editor, EL_PROMPT, &LineEditor::currentPrompt);
    el_set(editor, EL_HIST, &::history, history_.get());
    el_set(editor, EL_EDITOR, "emacs");
    el_source(editor, nullptr);  // the user's own settings; ours come after them
    el_set(editor, EL_ADDFN, "discard-line", "Discard the line", &LineEditor::discardLine);
    el_set(editor, EL_BIND, "^C", "discard-line", nullptr);
    el_set(editor, EL_BIND, "-a", "^C", "discard-line", nullptr);
    el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
}

LineEditor& LineEditor::owner(EditLine* editor) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

char* LineEditor::currentPrompt(EditLine* editor) { return owner(editor).prompt_.data(); }

unsigned char LineEditor::discardLine(EditLine* editor, int) {
    owner(editor).discarded_ = true;
    return CC_EOF;
}

Line LineEditor::read(const std::string& prompt) {
    prompt_ = prompt;
    discarded_ = false;
    el_resize(editor_.get());
    el_set(editor_.get(), EL_PREP_TERM, 1);  // Ctrl-C is ours before the prompt says so
    int length = 0;
    const char* text = nullptr;
    do {
        text = el_gets(editor_.get(), &length);
    } while (!text && length < 0 && errno == EINTR);
    if (discarded_ || !text) {
        std::fputs(discarded_ ? "^C\n" : "\n", output_.get());
        std::fflush(output_.get());
        return {.kind = discarded_ ? Line::Kind::Discarded : Line::Kind::End, .text = {}};
    }
    std::string line(text, static_cast<std::size_t>(length));
    if (line.ends_with('\n')) line.pop_back();
    return {.kind = Line::Kind::Text, .text = line};
}

}  // namespace app
