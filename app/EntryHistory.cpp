#include "EntryHistory.h"

#include <cstdio>
#include <cstdlib>
#include <new>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace app {

namespace {

std::filesystem::path absolutePathFrom(const char* variable) {
    const char* value = std::getenv(variable);
    const std::filesystem::path path = value ? value : "";
    return path.is_absolute() ? path : std::filesystem::path();
}

}  // namespace

EntryHistory::EntryHistory(std::filesystem::path file) : file_(std::move(file)), history_(history_init()) {
    if (!history_) throw std::bad_alloc();
    HistEvent event;
    history(get(), &event, H_SETSIZE, maximumEntries);
    history(get(), &event, H_SETUNIQUE, 1);  // of the same line twice in a row, one is kept
    if (!file_.empty()) history(get(), &event, H_LOAD, file_.c_str());
}

void EntryHistory::add(const std::string& line) {
    HistEvent event;
    history(get(), &event, H_ENTER, line.c_str());
    if (!file_.empty()) save();
}

void EntryHistory::save() const {
    std::error_code ignored;
    std::filesystem::create_directories(file_.parent_path(), ignored);
    const std::string draft = file_.string() + ".new";
    ::unlink(draft.c_str());
    const int descriptor = ::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) return;
    std::FILE* stream = ::fdopen(descriptor, "w");
    if (!stream) {
        ::close(descriptor);
        return;
    }
    HistEvent event;
    const bool written = history(get(), &event, H_SAVE_FP, stream) >= 0;
    if (std::fclose(stream) == 0 && written) std::filesystem::rename(draft, file_, ignored);
}

std::filesystem::path EntryHistory::defaultFile() {
    auto state = absolutePathFrom("XDG_STATE_HOME");
    if (state.empty()) {
        const auto home = absolutePathFrom("HOME");
        if (home.empty()) return {};
        state = home / ".local/state";
    }
    return state / "numora/history";
}

}  // namespace app
